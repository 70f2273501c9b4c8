// The whole capture path: CapApp's Record on the GStreamer media platform from the
// unpaced virtual deck to a type 2 file, against the same 60 s tape through a plain
// dvdemux ! avimux ! filesink pipeline. Prints frames/s and MB/s of each, the ratio, and
// how long Record off took.
#include <gst/gst.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "app/capapp.h"
#include "app/globals.h"
#include "deck/gst/deck_provider.h"
#include "deck/gst/tape_writer.h"
#include "platform/gst/media/gst_media.h"
#include "platform/posix/posix_system.h"
#include "resources/resource_ids.h"
#include "tests/fakes/fake_dialog_host.h"
#include "tests/fakes/fake_settings_store.h"

namespace {

using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

class Host : public FakeDialogHost {
  public:
    bool post_message(WindowHandle, unsigned, WParam, LParam) override { return true; }
};

class Surface : public VideoSurface, public VideoSurfaces {
  public:
    void present(const std::uint8_t*, int, int, int) override {}
    void clear() override {}
    VideoSurface* surface_for(WindowHandle) override { return this; }
};

LResult main_proc(WindowHandle, unsigned, WParam, LParam) {
    return 0;
}

long captured() {
    long count = 0;
    if (app->dropped->valid()) {
        (*app->dropped)->get_num_not_dropped(&count);
    }
    return count;
}

void print(const char* what, long frames, double seconds, const fs::path& file) {
    std::error_code ec;
    const double mb = static_cast<double>(fs::file_size(file, ec)) / 1e6;
    std::printf("%s: %ld frames, %.1f MB in %.2f s: %.0f frames/s (%.1fx real time), %.1f MB/s\n",
                what, frames, mb, seconds, frames / seconds, frames / seconds / 25.0, mb / seconds);
}

// A 60 s tape: the demo tape's frames over and over (raw DV is frames back to back, so
// any run of whole frames is a tape; the timecode jumps where the demo tape starts again).
fs::path sixty_second_tape(const fs::path& dir, std::string& error) {
    const fs::path demo = kc::deck::cached_demo_tape(kc::deck::DvSystem::pal_625_50, error);
    if (demo.empty()) {
        return {};
    }
    constexpr std::size_t frame_bytes = 144000;
    std::ifstream in(demo, std::ios::binary);
    std::vector<char> frames((std::istreambuf_iterator<char>(in)),
                             std::istreambuf_iterator<char>());
    const std::size_t count = frames.size() / frame_bytes;
    const fs::path tape = dir / "tape-60s.dv";
    std::ofstream out(tape, std::ios::binary);
    for (std::size_t n = 0; n < 60 * 25; ++n) {
        out.write(frames.data() + (n % count) * frame_bytes, frame_bytes);
    }
    return tape;
}

}  // namespace

int main() {
    setenv("KESTREL_VIRTUAL_DECK_UNPACED", "1", 1);
    if (std::getenv("KESTREL_AUDIO_SINK") == nullptr) {
        setenv("KESTREL_AUDIO_SINK", "fakesink", 1);
    }
    const fs::path dir =
        fs::temp_directory_path() / ("kc-capture-bench-" + std::to_string(getpid()));
    fs::create_directories(dir);
    std::string error;
    const fs::path tape = sixty_second_tape(dir, error);
    if (tape.empty()) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    setenv("KESTREL_VIRTUAL_DECK", tape.c_str(), 1);

    Host host;
    Surface surface;
    PosixSystemServices system;
    FakeSettingsStore settings;
    auto factory = kc::gst::make_media_factory(host, surface);
    if (!kc::deck::register_virtual_deck(error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    CapPlatform platform{host, system, settings, *factory};
    instance = &platform;
    main_window = host.open(&main_proc, 0, IDD_MAIN);

    app = new CapApp(platform);
    app->output_directory = dir.string();
    app->scene_name = "bench";
    app->dv_type2 = 1;
    app->connect();
    app->build_preview();

    // Record on, until the tape has played to its end (the count stays put), Record off.
    const auto t0 = Clock::now();
    app->toggle_recording();
    long last = -1;
    auto last_change = Clock::now();
    // The tape is 1500 frames; a count that keeps rising past a minute ends it too.
    while (Clock::now() - last_change < std::chrono::milliseconds(500) &&
           Clock::now() - t0 < std::chrono::seconds(60)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const long now = captured();
        if (now != last) {
            last = now;
            last_change = Clock::now();
        }
    }
    const auto t_end = last_change;
    std::fprintf(stderr, "recording stopped at %ld frames\n", last);
    const auto t_off = Clock::now();
    app->toggle_recording();
    // The file is complete once Record off has drained and closed it; the wait for a
    // still count in between is not the path's time.
    const double app_s = std::chrono::duration<double>(t_end - t0).count() +
                         std::chrono::duration<double>(Clock::now() - t_off).count();
    const double off_s = std::chrono::duration<double>(Clock::now() - t_off).count();
    print("ours: CapApp type 2 from the unpaced deck (Record on to Record off done)", last, app_s,
          dir / "bench 000.avi");
    std::printf("  of which frames through the capture branch %.2f s, Record off %.0f ms\n",
                std::chrono::duration<double>(t_end - t0).count(), off_s * 1000);

    CapApp* ending = app;
    app = nullptr;
    delete ending;
    instance = nullptr;

    // The same tape through a plain pipeline.
    const fs::path plain = dir / "plain.avi";
    // Each demultiplexer pad is linked by its caps: the pads appear only once the stream
    // is read, and the parser's delayed linking by pad name misses them.
    const std::string description = "filesrc location=\"" + tape.string() +
                                    "\" blocksize=144000 ! dvdemux name=d avimux name=m ! "
                                    "filesink location=\"" +
                                    plain.string() +
                                    "\" d. ! queue ! video/x-dv ! m. d. ! queue ! audio/x-raw ! m.";
    GError* gerror = nullptr;
    GstElement* pipeline = gst_parse_launch(description.c_str(), &gerror);
    if (pipeline == nullptr) {
        std::fprintf(stderr, "%s\n", gerror ? gerror->message : "parse failed");
        return 1;
    }
    const auto t1 = Clock::now();
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* message = gst_bus_timed_pop_filtered(
        bus, GST_CLOCK_TIME_NONE, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    const double plain_s = std::chrono::duration<double>(Clock::now() - t1).count();
    gst_message_unref(message);
    gst_object_unref(bus);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    std::error_code ec;
    print("reference: gst_parse_launch dvdemux ! avimux ! filesink",
          static_cast<long>(fs::file_size(tape, ec) / 144000), plain_s, plain);
    std::printf("ratio ours/reference: %.2fx (goal 1.20x)\n", app_s / plain_s);
    fs::remove_all(dir, ec);
    return 0;
}
