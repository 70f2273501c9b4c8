// The stage the benchmarks stand the program on: the application object on the real
// media platform with the virtual deck, a dialog host instead of windows, and a preview
// pane of the main window's size whose surface counts what it is shown. Posts from the
// streaming threads are dropped: nothing on this stage needs them answered.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>

#include "app/capapp.h"
#include "app/globals.h"
#include "deck/gst/deck_provider.h"
#include "platform/gst/media/gst_media.h"
#include "platform/posix/posix_system.h"
#include "resources/resource_ids.h"
#include "tests/fakes/fake_dialog_host.h"
#include "tests/fakes/fake_settings_store.h"

namespace kc::bench {

class Host : public FakeDialogHost {
  public:
    bool post_message(WindowHandle, unsigned, WParam, LParam) override { return true; }
};

class Surface : public VideoSurface, public VideoSurfaces {
  public:
    void present(const std::uint8_t*, int w, int h, int) override {
        width = w;
        height = h;
        if (frames.fetch_add(1) == 0) {
            std::lock_guard guard(lock_);
            first_at_ = std::chrono::steady_clock::now();
        }
    }
    void clear() override {}
    VideoSurface* surface_for(WindowHandle window) override {
        return window == pane ? this : nullptr;
    }
    std::chrono::steady_clock::time_point first_at() {
        std::lock_guard guard(lock_);
        return first_at_;
    }

    WindowHandle pane = nullptr;
    std::atomic<long> frames{0};
    std::atomic<int> width{0};
    std::atomic<int> height{0};

  private:
    std::mutex lock_;
    std::chrono::steady_clock::time_point first_at_;
};

// The main window's preview pane, in pixels, as the Qt host lays it out.
inline constexpr int pane_width = 585;
inline constexpr int pane_height = 435;

inline LResult main_proc(WindowHandle, unsigned, WParam, LParam) {
    return 0;
}

struct Stage {
    // Registers the deck KESTREL_VIRTUAL_DECK names and opens the main window with its
    // pane; the process-wide instance and main window are this stage's until it goes.
    bool open(std::string& error, PropertyFrames* property_frames = nullptr) {
        factory = kc::gst::make_media_factory(host, surface, property_frames);
        if (!kc::deck::register_virtual_deck(error)) {
            return false;
        }
        platform = std::make_unique<CapPlatform>(CapPlatform{host, system, settings, *factory});
        instance = platform.get();
        main_window = host.open(&main_proc, 0, IDD_MAIN);
        surface.pane = host.get_dlg_item(main_window, IDC_PREVIEW);
        host.set_client_size(surface.pane, pane_width, pane_height);
        return true;
    }
    ~Stage() {
        instance = nullptr;
        main_window = nullptr;
    }

    Host host;
    Surface surface;
    PosixSystemServices system;
    FakeSettingsStore settings;
    std::unique_ptr<media::MediaFactory> factory;
    std::unique_ptr<CapPlatform> platform;
};

}  // namespace kc::bench
