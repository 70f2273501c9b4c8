// The two capture progress dialogs: batch capture of the scene list (CapBatchDialog) and
// automatic scene detection (CapSceneCaptureDialog). Each starts its capture when it
// opens, advances it from a 250 ms timer and shows the picture in its own pane; Abort
// (or Stop, or Esc) only asks the capture to end at its next step.
#pragma once

#include <string>

#include "ui/capdlg.h"
#include "workflow/batch_callback.h"
#include "workflow/timecode.h"

struct ComError;

// What both progress dialogs share: the callback comes first and the dialog second, so
// that the capture and the dialog framework each see their own part of the object.
class CapProgressDialog : public CapBatchCallback, public CapDialog {
  public:
    // The id set_timer gave the step timer; 0 while it does not run.
    unsigned timer_id = 0;

  protected:
    void on_command(WParam wparam, LParam lparam) override;

    void start_timer();
    void stop_timer();
    // The position for this step. False when the tick is to be skipped: the device gave
    // no position. An abort is still carried out without one, so that the user can end
    // a capture whose device has stopped answering.
    bool read_position(Timecode& position);
    // The capture has ended (done or aborted): "Batch complete!", reconnect, preview back
    // into the main window, end with 1.
    void finish();
    // A capture step failed. The error is shown, the timer stopped, the tape and graph
    // brought to rest, no capture left running, the preview back in the main window,
    // and the dialog ended with 0. Takes ownership of e.
    void end_after_error(ComError* e);
    // A capture that cannot start at all (no DV device): `e` shown, dialog ended with 0,
    // nothing touched.
    void refuse(ComError* e);
};

class CapBatchDialog : public CapProgressDialog {
  public:
    // The fraction of the batch done, 0 to 1, as a position of the progress bar.
    void progress(float fraction) override;

  protected:
    void on_init_dialog() override;
    void on_timer(WParam id) override;
};

class CapSceneCaptureDialog : public CapProgressDialog {
  protected:
    void on_init_dialog() override;
    void on_timer(WParam id) override;
};
