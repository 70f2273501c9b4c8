// CapMainDialog: the skinned main window. Start-up and drawing, the button commands with
// the transport state, the three timers (transport, disk space, dropped frames), the
// record indicator and the graph-event handler.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "ui/capdlg.h"

class CapMainDialog : public CapDialog {
  public:
    // Transport state: the last transport command given through the window, not what the
    // device reports. It decides what fast forward and rewind send.
    enum : int { state_stopped = 0, state_paused = 1, state_playing = 2, state_recording = 3 };

    // The low-disk warning has been given and not yet re-armed.
    bool disk_warned = false;
    std::map<int, BitmapHandle> pressed_bitmaps;
    std::map<int, BitmapHandle> normal_bitmaps;
    BitmapHandle indicator_bitmap = nullptr;
    bool indicator_on = false;
    std::uint32_t indicator_tick = 0;
    WindowHandle tooltip = nullptr;
    int state = state_stopped;
    BrushHandle brush = nullptr;

    // Loads bitmap `bitmap_id` as the pressed or normal picture of control `id`.
    void set_bitmap(bool pressed, int id, int bitmap_id);
    // Registers control `id` with the tooltip, covering its client area.
    void add_tooltip(const std::string& text, int id);
    // Timer 1 stops while a command opens a dialog or the manual, so that the device is
    // not polled under a modal dialog; it comes back only for a usable DV VCR.
    void kill_transport_timer();
    void restart_transport_timer();
    void mark_in();
    void mark_out();

  protected:
    void on_init_dialog() override;
    BrushHandle on_ctlcolor_static(DcHandle dc, WindowHandle control) override;
    BrushHandle on_ctlcolor_edit(DcHandle dc, WindowHandle control) override;
    BrushHandle on_ctlcolor_button(DcHandle dc, WindowHandle control) override;
    void on_command(WParam wparam, LParam lparam) override;
    void on_close() override;
    void on_timer(WParam id) override;
    void on_graph_event() override;
    void on_draw_item(WParam id, LParam item) override;

  private:
    void run_command(int id);
    void play();
    void stop();
    void wind(bool forward);
    void pause();
    void record();
    void play_in_out();
    void options();
    void run_child(CapDialog& dialog, int template_id);
    void help();
    void enable_transport_controls(bool enable);
    // Rebuilds the preview when an earlier failure left the pane without a graph, so that
    // run is never called on a graph control without its interfaces. False (error shown)
    // when it cannot.
    bool ensure_preview();

    void indicator_step();
    void transport_tick();
    void disk_tick();
    void dropped_frames_tick();
    void preview_after_low_disk_stop();
};
