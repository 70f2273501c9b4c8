// The program driving its own windows, for runs without a person in front of it: the
// unattended main job (play the tape, capture, quit; or log scenes and batch-capture
// them), the DV decoder's property pages
// (choose a display resolution, see the preview follow it), and the tour that opens every
// dialog once and saves a picture of each for the manual.
//
// Everything is done through the messages a person's clicks would send; every message
// box and error dialog that appears is logged and answered, and a deadline ends a run
// that a hung device would otherwise keep alive. The driver is the same on every system;
// each program's dialog host gives it timers, the innermost dialog and pictures
// (SelfTestHost).
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/dialog_host.h"

namespace kc::program {

struct SelfTest {
    int capture_seconds = 0;  // > 0: the unattended capture run
    bool scenes = false;      // capture with scene detection instead of one recording
    // Log three scenes of capture_seconds each while the tape plays, then batch-capture them.
    bool batch = false;
    bool tour = false;  // open every dialog once, picture each, then quit
    // Not empty: choose this display resolution on the DV decoder's page, then quit.
    std::string decoder_resolution;
    std::string output_dir;
    std::string screenshot;       // the main window with live picture
    std::string screenshots_dir;  // every dialog, as it first appears

    bool drives_windows() const {
        return capture_seconds > 0 || tour || !decoder_resolution.empty();
    }
};

// The program's arguments after its name. False (after printing why) when they make no
// sense; exits for --help. Folders and files are taken as given: the caller makes them
// absolute.
bool parse_self_test(const std::vector<std::string>& args, SelfTest& test);

// The modal property frame the DV decoder's page opened, as the driver works it.
struct PropertyFrameView {
    std::string title;
    int resolutions_offered = 0;
    std::string resolution;
    // Chooses a resolution and closes the frame with OK.
    std::function<void(const std::string&)> choose;
    // Closes the frame without a change.
    std::function<void()> cancel;
};

// What a program's dialog host gives the driver beyond the dialog calls.
class SelfTestHost {
  public:
    virtual ~SelfTestHost() = default;
    virtual DialogHost& dialogs() = 0;
    // Runs `step` on the user-interface thread after `ms`, from whatever loop runs then.
    virtual void after(int ms, std::function<void()> step) = 0;
    // The dialog most recently opened that still runs (the innermost modal one), or null.
    virtual WindowHandle top_dialog() = 0;
    // Saves what a person sees of `window` as a picture; false when it cannot.
    virtual bool save_picture(WindowHandle window, const std::string& path) = 0;
    // The ending of the pictures this host saves (".png", ".bmp").
    virtual std::string picture_ending() const = 0;
    // The size of the newest frame presented to a pane; (0, 0) without one.
    virtual std::pair<int, int> presented_size(WindowHandle) { return {0, 0}; }
    // Runs `step` once the decoder's property frame is up; false when this host cannot
    // work one.
    virtual bool when_property_frame(std::function<void(PropertyFrameView)>) { return false; }
};

class SelfTestDriver {
  public:
    SelfTestDriver(SelfTestHost& host, SelfTest test) : host(host), test(std::move(test)) {}

    // Arms the deadline; call once before the entry sequence.
    void install();
    // The host's report that a dialog of `template_id` has been created and shown.
    void shown(WindowHandle dialog, int template_id);

  private:
    void command(WindowHandle dialog, int id);
    void when_top(int template_id, std::function<void(WindowHandle)> step, int delay_ms = 0);
    void save(WindowHandle window, const std::string& path);
    void main_started();
    void capture();
    void log_scene(int left);
    void batch_capture();
    void tour();
    void tour_options();
    void tour_scene_detection();
    void decoder_pages();
    void decoder_pages_again();
    void say_frame_size();
    void quit();

    SelfTestHost& host;
    SelfTest test;
    WindowHandle main_window = nullptr;
    std::map<WindowHandle, int> template_of;
    std::set<int> shot_taken;
};

}  // namespace kc::program
