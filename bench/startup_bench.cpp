// Start-up on a one-hour tape: from opening the virtual deck's tape to the first preview
// frame presented, as the program starts with KESTREL_VIRTUAL_DECK naming the tape and
// the tape playing, against plain GStreamer opening the same file and decoding its first
// frame (filesrc ! dvdemux ! avdec_dvvideo ! videoconvert ! appsink). A one-minute tape
// is measured the same way, to show that the time does not grow with the tape.
//
// The tapes are made here and deleted at the end: the demo tape's frames at the start,
// the rest a hole in a sparse file (13 GB that take no disk). Warm: the files' first
// megabytes are read once before anything is timed. The deck plays at the tape's pace
// with its tape already laced: threading the tape around the drum is a deck's own delay
// (the virtual deck imitates it with 400 ms), not the program's start-up.
#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "app/capapp.h"
#include "bench/bench_stage.h"
#include "deck/gst/deck_provider.h"
#include "deck/gst/tape_writer.h"
#include "deck/vcr_control.h"

namespace {

using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr std::uint64_t frame_bytes = 144000;

double ms_since(Clock::time_point t0, Clock::time_point t1) {
    return std::chrono::duration<double, std::milli>(t1 - t0).count();
}

// The demo tape's frames, then a hole up to `frames` frames.
fs::path make_tape(const fs::path& dir, const char* name, std::uint64_t frames,
                   std::string& error) {
    const fs::path demo = kc::deck::cached_demo_tape(kc::deck::DvSystem::pal_625_50, error);
    if (demo.empty()) {
        return {};
    }
    const fs::path tape = dir / name;
    fs::copy_file(demo, tape, fs::copy_options::overwrite_existing);
    fs::resize_file(tape, frames * frame_bytes);
    return tape;
}

void warm(const fs::path& tape) {
    std::ifstream in(tape, std::ios::binary);
    std::vector<char> head(8 << 20);
    in.read(head.data(), static_cast<std::streamsize>(head.size()));
}

// Our start-up: the deck's tape opened, the application object and its preview graph
// built and running, the tape playing; until the first frame reaches the pane.
double ours(CapPlatform& platform, kc::bench::Surface& surface, const fs::path& tape) {
    surface.frames = 0;
    const auto t0 = Clock::now();
    std::error_code error;
    auto image = kc::deck::TapeImage::open(tape, kc::deck::TapeAccess::mapped, error);
    if (!image) {
        std::fprintf(stderr, "%s: %s\n", tape.c_str(), error.message().c_str());
        std::exit(1);
    }
    kc::deck::insert_tape(
        kc::deck::make_vcr(std::move(image), std::make_shared<kc::deck::SteadyClock>(), {}),
        tape.string());
    app = new CapApp(platform);
    app->connect();
    app->build_preview();
    app->win->attach(surface.pane, app->graph->graph.get());
    if (app->dv_vcr()) {
        app->dv->play();
    }
    app->win->run();
    while (surface.frames == 0 && Clock::now() - t0 < std::chrono::seconds(30)) {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    const double ms = ms_since(t0, surface.first_at());
    CapApp* ending = app;
    app = nullptr;
    delete ending;
    return ms;
}

double reference(const fs::path& tape) {
    const auto t0 = Clock::now();
    const std::string description = "filesrc location=\"" + tape.string() +
                                    "\" blocksize=144000 ! dvdemux ! avdec_dvvideo ! "
                                    "videoconvert ! video/x-raw,format=BGRx ! appsink name=out";
    GstElement* pipeline = gst_parse_launch(description.c_str(), nullptr);
    GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline), "out");
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstSample* sample = gst_app_sink_try_pull_sample(GST_APP_SINK(sink), 30 * GST_SECOND);
    const double ms = ms_since(t0, Clock::now());
    if (sample) {
        gst_sample_unref(sample);
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(sink);
    gst_object_unref(pipeline);
    return ms;
}

}  // namespace

int main() {
    unsetenv("KESTREL_VIRTUAL_DECK_UNPACED");
    if (std::getenv("KESTREL_AUDIO_SINK") == nullptr) {
        setenv("KESTREL_AUDIO_SINK", "fakesink", 1);
    }
    const fs::path dir =
        fs::temp_directory_path() / ("kc-startup-bench-" + std::to_string(getpid()));
    fs::create_directories(dir);
    std::string error;
    const fs::path hour = make_tape(dir, "tape-60min.dv", 60 * 60 * 25, error);
    const fs::path minute = make_tape(dir, "tape-1min.dv", 60 * 25, error);
    if (hour.empty() || minute.empty()) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    // The deck is registered on the one-minute tape; each run puts its tape in.
    setenv("KESTREL_VIRTUAL_DECK", minute.c_str(), 1);

    kc::bench::Stage stage;
    if (!stage.open(error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }

    warm(hour);
    warm(minute);
    // Once untimed: the first graph of a process loads GStreamer's plugins.
    ours(*stage.platform, stage.surface, minute);
    reference(minute);

    const double ours_hour = ours(*stage.platform, stage.surface, hour);
    const double ours_minute = ours(*stage.platform, stage.surface, minute);
    const double plain_hour = reference(hour);
    std::printf("start-up to the first preview frame, warm, paced deck with its tape laced\n");
    std::printf("  ours, one-hour tape (%.1f GB): %.0f ms (goal 250 ms)\n",
                static_cast<double>(fs::file_size(hour)) / 1e9, ours_hour);
    std::printf("  ours, one-minute tape: %.0f ms\n", ours_minute);
    std::printf(
        "  reference (filesrc ! dvdemux ! avdec_dvvideo ! videoconvert ! appsink), "
        "one-hour tape: %.0f ms\n",
        plain_hour);
    std::printf("  ratio ours/reference: %.2fx\n", ours_hour / plain_hour);

    std::error_code ec;
    fs::remove_all(dir, ec);
    return 0;
}
