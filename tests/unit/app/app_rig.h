// The world of the application-object and workflow tests: recording dialog host,
// scripted system services, an in-memory settings store and the fake media world, with
// a real CapApp over them installed as `instance` and `app`.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/capapp.h"
#include "app/errors.h"
#include "app/globals.h"
#include "resources/resource_ids.h"
#include "tests/fakes/fake_media.h"
#include "tests/fakes/fake_platform.h"
#include "tests/fakes/fake_settings_store.h"

// A dialog that does nothing of its own: the main window and the progress dialogs of
// these tests, whose panes receive the picture.
struct BareDialog : CapDialog {};

// A progress dialog's side of a running capture: the fractions it was given.
struct RecordingCallback : CapBatchCallback {
    std::vector<float> fractions;
    void progress(float fraction) override { fractions.push_back(fraction); }
};

// Scripted system services that can also look at the world when a file is deleted.
struct WatchingSystem : FakeSystem {
    std::function<void(const std::string&)> on_delete;
    bool delete_file(const std::string& path) override {
        if (on_delete) {
            on_delete(path);
        }
        return FakeSystem::delete_file(path);
    }
};

struct AppRig {
    FakeDialogHost host;
    WatchingSystem system;
    FakeSettingsStore store;
    FakeMediaFactory media;
    CapPlatform platform{host, system, store, media};
    ScopedInstance scoped{platform};
    BareDialog main_dialog;
    BareDialog progress_dialog;
    RecordingCallback callback;
    std::unique_ptr<CapApp> owned;
    FakeDvFilter& deck = media.dv_camera;

    AppRig() {
        media.graph.host = &host;
        system.existing_paths.insert(system.videos);
        main_window = open_dialog(host, main_dialog, IDD_MAIN);
        open_dialog(host, progress_dialog, IDD_BATCH, main_window);
        callback.preview_window = host.get_dlg_item(progress_dialog.hwnd, IDC_PREVIEW);
    }
    ~AppRig() {
        owned.reset();
        app = nullptr;
        main_window = nullptr;
    }
    AppRig(const AppRig&) = delete;
    AppRig& operator=(const AppRig&) = delete;

    // A CapApp over the fakes (settings read), not yet connected.
    CapApp& make() {
        owned = std::make_unique<CapApp>(platform);
        app = owned.get();
        return *owned;
    }
    // As the entry function leaves it: connected to `video_device` (0: the DV deck, 1:
    // a webcam) and previewing.
    CapApp& start(int video_device = 0) {
        make();
        app->video_device = video_device;
        app->connect();
        app->build_preview();
        return *owned;
    }
    // Destroys the application object, which writes the settings.
    void end() {
        owned.reset();
        app = nullptr;
    }

    WindowHandle main_pane() { return host.get_dlg_item(main_window, IDC_PREVIEW); }

    std::vector<std::string> messages() const { return shown_messages(host); }
    // Transport modes sent to the deck since `mark` (an index into deck.modes).
    std::vector<long> modes_since(std::size_t mark) const {
        return {deck.modes.begin() + static_cast<std::ptrdiff_t>(mark), deck.modes.end()};
    }
};

// Runs `f`, which must raise a ComError, and returns its code and result (deleted).
template <class F>
std::pair<int, HRESULT> com_error_of(F&& f) {
    try {
        f();
    } catch (ComError* e) {
        std::pair<int, HRESULT> result{e->code, e->hr};
        delete e;
        return result;
    }
    return {-1, 0};
}
