// CapPropsDialog: the options. The capture device, the output directory picked with the
// browser and the preroll take effect at once; everything else is validated and stored
// when the dialog closes (Ok or the close box; there is no Cancel).
#pragma once

#include <string>

#include "ui/capdlg.h"

class CapPropsDialog : public CapDialog {
  protected:
    void on_init_dialog() override;
    void on_command(WParam wparam, LParam lparam) override;
    void on_close() override;

  private:
    void fill();
    // Enables the controls of a DV source or those of any other source.
    void enable_for_source(bool dv);
    void change_device();
    // Disconnects, connects the device chosen in video_device and attaches the new
    // preview (stopped) to the main window's pane.
    void switch_device();
    void browse();
    void show_decoder_pages();
    void show_source_pages();
    void preroll_changed();
};
