// The link between a running batch or scene-detection capture and its progress dialog.
#pragma once

#include "platform/window.h"

class CapBatchCallback {
  public:
    // Set by the dialog's Abort/Stop and by the low-disk check; read at every step.
    bool aborted = false;
    // The dialog's picture control, where the capture shows its picture.
    WindowHandle preview_window = nullptr;

    // Fraction of the batch done; scene detection never calls it.
    virtual void progress(float) {}

  protected:
    // Implemented by dialogs that live on their caller's stack; never deleted through
    // this base.
    ~CapBatchCallback() = default;
};
