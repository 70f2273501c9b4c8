// CapWin: puts the graph's video into a pane of a dialog, runs and stops the graph, and
// routes graph events through the pane to the pane's dialog.
#pragma once

#include <string>

#include "graph/stdcap.h"
#include "platform/dialog_host.h"
#include "platform/media.h"

class CapWin {
  public:
    explicit CapWin(DialogHost& host);
    CapWin(const CapWin&) = delete;
    CapWin& operator=(const CapWin&) = delete;
    ~CapWin();

    void attach(WindowHandle pane, media::GraphBuilder* graph);
    void detach();
    bool attached() const { return pane != nullptr; }
    void run();
    void stop();
    bool running() const { return running_; }
    media::MediaEvent* media_event();
    void fit_video();

    // The pane's window procedure while attached.
    static LResult pane_proc(WindowHandle window, unsigned message, WParam wparam, LParam lparam);
    // The modal property frame of `object`.
    static void show_property_pages(WindowHandle owner, Unknown* object,
                                    const std::string& caption);

  private:
    DialogHost& host;
    ComPtr<media::VideoWindow> video_window;
    ComPtr<media::MediaControl> media_control;
    ComPtr<media::MediaEvent> media_event_;
    ComPtr<media::MediaSeeking> media_seeking;
    WindowHandle pane = nullptr;
    WindowProc old_proc = nullptr;
    bool running_ = false;
};

// The window property on the pane that leads back to its CapWin.
inline constexpr const char* cap_win_prop = "kestrelCapWinProp";
