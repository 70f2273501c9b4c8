// CapSeekDialog: winds the DV tape to a typed absolute track number.
#pragma once

#include "ui/capdlg.h"

class CapSeekDialog : public CapDialog {
  protected:
    void on_command(WParam wparam, LParam lparam) override;
    void on_close() override;
};
