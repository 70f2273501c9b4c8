// The DV preview on the GStreamer media platform: the paced virtual deck plays the demo
// tape into a surface for about ten seconds, as the main window shows it. Prints the
// process's CPU time per second of video and the frames presented per second against the
// tape's rate.
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

#include "app/capapp.h"
#include "app/globals.h"
#include "deck/gst/deck_provider.h"
#include "platform/gst/media/gst_media.h"
#include "platform/posix/posix_system.h"
#include "resources/resource_ids.h"
#include "tests/fakes/fake_dialog_host.h"
#include "tests/fakes/fake_settings_store.h"

namespace {

// Posts from the streaming threads are dropped: the preview needs none answered.
class Host : public FakeDialogHost {
  public:
    bool post_message(WindowHandle, unsigned, WParam, LParam) override { return true; }
};

class Surface : public VideoSurface, public VideoSurfaces {
  public:
    void present(const std::uint8_t*, int, int, int) override { ++frames; }
    void clear() override {}
    VideoSurface* surface_for(WindowHandle window) override {
        return window == pane ? this : nullptr;
    }
    WindowHandle pane = nullptr;
    std::atomic<long> frames{0};
};

double cpu_seconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

LResult main_proc(WindowHandle, unsigned, WParam, LParam) {
    return 0;
}

}  // namespace

int main() {
    setenv("KESTREL_VIRTUAL_DECK", "demo", 0);
    unsetenv("KESTREL_VIRTUAL_DECK_UNPACED");
    if (std::getenv("KESTREL_AUDIO_SINK") == nullptr) {
        setenv("KESTREL_AUDIO_SINK", "fakesink", 1);
    }
    Host host;
    Surface surface;
    PosixSystemServices system;
    FakeSettingsStore settings;
    auto factory = kc::gst::make_media_factory(host, surface);
    std::string error;
    if (!kc::deck::register_virtual_deck(error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    CapPlatform platform{host, system, settings, *factory};
    instance = &platform;
    main_window = host.open(&main_proc, 0, IDD_MAIN);
    surface.pane = host.get_dlg_item(main_window, IDC_PREVIEW);
    host.set_client_size(surface.pane, 720, 576);

    app = new CapApp(platform);
    app->connect();
    app->build_preview();
    app->win->attach(surface.pane, app->graph->graph.get());
    if (app->dv_vcr()) {
        app->dv->play();
    }
    app->win->run();

    // The first second settles the pipeline; the next ten are measured.
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const long frames0 = surface.frames;
    const double cpu0 = cpu_seconds();
    const auto t0 = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(std::chrono::seconds(10));
    const double wall =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    const double cpu = cpu_seconds() - cpu0;
    const long frames = surface.frames - frames0;
    const double source_rate = 25.0;

    std::printf("preview 625-50 demo tape into a 720x576 pane, %.1f s of video\n", wall);
    std::printf("  frames presented: %ld (%.2f/s against a source rate of %.2f/s, %.1f%%)\n",
                frames, frames / wall, source_rate, 100.0 * frames / wall / source_rate);
    std::printf("  process CPU time: %.2f s, %.3f s per second of video (%.0f%% of one core)\n",
                cpu, cpu / wall, 100.0 * cpu / wall);

    CapApp* ending = app;
    app = nullptr;
    delete ending;
    instance = nullptr;
    return 0;
}
