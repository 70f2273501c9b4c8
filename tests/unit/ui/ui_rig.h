// The world the dialog tests run in: the recording dialog host (checking every control
// against its template), scripted system services, the fake media world, a settings
// store without stored values, and a real CapApp over them, installed as the process's
// `instance` and `app`.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "app/capapp.h"
#include "app/errors.h"
#include "app/globals.h"
#include "graph/capdv.h"
#include "resources/dialog_template.h"
#include "resources/resource_ids.h"
#include "tests/fakes/fake_media.h"
#include "tests/fakes/fake_platform.h"
#include "tests/fakes/fake_settings_store.h"
#include "ui/capmain.h"

using Texts = std::vector<std::string>;

inline bool template_has_control(int template_id, int control_id) {
    const DialogTemplate* t = find_dialog_template(template_id);
    if (t == nullptr) {
        return true;  // dialogs of other tests' own making
    }
    for (const ControlTemplate& c : t->controls) {
        if (c.id == control_id) {
            return true;
        }
    }
    return false;
}

// The timecode word of the fake device: packed BCD, hours in the top byte.
constexpr std::uint32_t bcd_timecode(int h, int m, int s, int f) {
    auto bcd = [](int v) { return static_cast<std::uint32_t>((v / 10) * 16 + v % 10); };
    return (bcd(h) << 24) | (bcd(m) << 16) | (bcd(s) << 8) | bcd(f);
}

struct UiRig {
    FakeDialogHost host;
    FakeSystem system;
    FakeSettingsStore store;  // nothing stored: every run starts from the defaults
    FakeMediaFactory media;
    CapPlatform platform{host, system, store, media};
    ScopedInstance scoped{platform};
    std::unique_ptr<CapApp> owned;
    FakeDvFilter& deck = media.dv_camera;

    // `video_device` 0 is the DV deck of the fake catalogue, 1 a webcam.
    explicit UiRig(int video_device = 0, long device_type = media::ED_DEVTYPE_VCR) {
        host.control_exists = template_has_control;
        media.graph.host = &host;
        deck.device_type = device_type;
        system.existing_paths.insert(system.videos);
        owned = std::make_unique<CapApp>(platform);
        app = owned.get();
        app->output_directory = system.videos;
        app->video_device = video_device;
        app->connect();
        app->build_preview();
    }
    ~UiRig() {
        EXPECT_TRUE(host.template_misses.empty());  // every control a dialog used exists
        owned.reset();
        app = nullptr;
        main_window = nullptr;
        transport_timer = 0;
    }
    UiRig(const UiRig&) = delete;
    UiRig& operator=(const UiRig&) = delete;

    void expect_called(const Texts& calls) const {
        for (const std::string& c : calls) {
            EXPECT_TRUE(host.called(c)) << c;
        }
    }
    // Host calls that start with `prefix`, in order.
    Texts host_calls(const std::string& prefix) const {
        Texts out;
        for (const std::string& c : host.calls) {
            if (c.rfind(prefix, 0) == 0) {
                out.push_back(c);
            }
        }
        return out;
    }
    // Texts of the message and error dialogs shown so far, in order (edit 1007).
    Texts messages() const {
        const std::string prefix = "set_dlg_item_text(" + std::to_string(IDC_ERROR_MESSAGE) + ",";
        Texts out;
        for (const std::string& c : host_calls(prefix)) {
            out.push_back(c.substr(prefix.size(), c.size() - prefix.size() - 1));
        }
        return out;
    }
    // The preview attached to `pane` and running.
    bool preview_in(WindowHandle pane) const {
        return app->win->attached() && app->win->running() && media.graph.owner == pane;
    }
    // Host calls recorded since `mark` (an index into host.calls).
    std::vector<std::string> calls_since(std::size_t mark) const {
        return {host.calls.begin() + static_cast<std::ptrdiff_t>(mark), host.calls.end()};
    }
    // Media calls recorded since `mark` that start with `prefix`.
    std::vector<std::string> media_since(std::size_t mark, const std::string& prefix) const {
        std::vector<std::string> out;
        for (std::size_t i = mark; i < media.ledger.calls.size(); ++i) {
            if (media.ledger.calls[i].rfind(prefix, 0) == 0) {
                out.push_back(media.ledger.calls[i]);
            }
        }
        return out;
    }
    // Scenes logged at these in-point tracks, each with an out point 100 tracks on.
    void add_scenes(const std::vector<std::pair<std::string, int>>& scenes) {
        for (const auto& [name, track] : scenes) {
            Timecode in;
            in.clear();
            in.minutes = track / 1000;
            in.track = track;
            CapJob* job = app->add_job(in);
            job->name = name;
            Timecode out = in;
            out.track = track + 100;
            job->out_point = out;
        }
    }
};

// A dialog of type `D` opened on the rig as do_modal would, over `parent`.
template <class D>
struct Opened {
    template <class... Args>
    Opened(UiRig& rig_, int template_id_, WindowHandle parent, Args&&... args)
        : rig(rig_), template_id(template_id_), dialog(std::forward<Args>(args)...) {
        window = open_dialog(rig.host, dialog, template_id, parent);
    }
    UiRig& rig;
    int template_id;
    D dialog;
    WindowHandle window = nullptr;

    LResult command(int id, unsigned code = 0) { return rig.host.command(window, id, code); }
    LResult send(unsigned message) { return rig.host.send(window, message); }
    void timer(unsigned id) { rig.host.send(window, wm::timer, id); }
    FakeDialogHost::Window& control(int id) { return rig.host.control(window, id); }
    std::string text(int id) { return rig.host.text(window, id); }
    bool enabled(int id) { return rig.host.enabled(window, id); }
    bool ended() const { return rig.host.ended(window); }
    LResult end_code() const { return rig.host.end_code(window); }
    WindowHandle pane() { return rig.host.get_dlg_item(window, IDC_PREVIEW); }
};

// The main window opened on the rig, as the entry function runs it.
struct MainWindow : Opened<CapMainDialog> {
    explicit MainWindow(UiRig& rig_) : Opened(rig_, IDD_MAIN, nullptr) {}
    // How many of `ids` are enabled.
    int enabled_count(const std::vector<int>& ids) {
        int n = 0;
        for (int id : ids) {
            n += enabled(id) ? 1 : 0;
        }
        return n;
    }
};

// The main window on a rig with the defaults: the DV deck as a VCR.
struct MainWindowTest : ::testing::Test {
    UiRig rig;
    MainWindow w{rig};
};
