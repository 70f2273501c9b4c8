// Frames lost over a long paced capture: CapApp's Record from the virtual deck playing in
// real time, as a FireWire deck delivers, for `minutes` (60 by default), and beside it in
// the same process and over the same tape a plain GStreamer type 2 capture (deck source
// ! queue ! dvdemux ! avimux ! filesink) from a second deck. A deck loses a frame that falls due
// before the previous one was taken, as a bus does, so each capture's losses are the
// frames its deck gave away plus, for ours, any the frame gate found missing on the way.
// Prints both captures' frames and losses, and the ratio.
//
//   paced_drops_bench [minutes]
#include <gst/gst.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/bench_stage.h"
#include "deck/gst/deck_provider.h"
#include "deck/gst/deck_source.h"
#include "deck/gst/tape_writer.h"
#include "dv/dv_frame.h"
#include "dv/tape_time.h"

namespace {

using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;
namespace dv = kc::dv;

// One recording of `frames` frames with an unbroken timecode, made of the demo tape's
// pictures over and over, so that every loss shows as a gap.
bool write_long_tape(const fs::path& path, std::int64_t frames, std::string& error) {
    const dv::DvSystem system = dv::DvSystem::pal_625_50;
    const fs::path demo = kc::deck::cached_demo_tape(system, error);
    if (demo.empty()) {
        return false;
    }
    std::ifstream in(demo, std::ios::binary);
    std::vector<std::uint8_t> pictures((std::istreambuf_iterator<char>(in)),
                                       std::istreambuf_iterator<char>());
    const std::size_t size = dv::frame_bytes(system);
    const std::size_t count = pictures.size() / size;
    std::ofstream out(path, std::ios::binary);
    std::vector<std::uint8_t> frame(size);
    const dv::RecordingTime start{2004, 7, 17, 10, 0, 0};
    for (std::int64_t i = 0; i < frames && out; ++i) {
        const auto picture = pictures.begin() + static_cast<long>((i % count) * size);
        std::copy(picture, picture + static_cast<long>(size), frame.begin());
        dv::write_subcode(frame, system, dv::to_bcd_word(dv::from_frame_count(i, system)), 0,
                          false);
        dv::write_recording_time(frame, system, dv::add_seconds(start, i / 25));
        out.write(reinterpret_cast<const char*>(frame.data()), static_cast<long>(size));
    }
    if (!out) {
        error = "could not write " + path.string();
        return false;
    }
    return true;
}

std::int64_t log_value(const fs::path& log, const std::string& name) {
    std::ifstream in(log);
    std::string line;
    const std::string key = name + ": ";
    while (std::getline(in, line)) {
        if (line.rfind(key, 0) == 0) {
            return std::stoll(line.substr(key.size()));
        }
    }
    return -1;
}

}  // namespace

int main(int argc, char** argv) {
    const double minutes = argc > 1 ? std::atof(argv[1]) : 60.0;
    if (!(minutes > 0)) {
        std::fprintf(stderr, "usage: paced_drops_bench [minutes]\n");
        return 2;
    }
    setenv("KESTREL_VIRTUAL_DECK", "demo", 0);
    if (std::getenv("KESTREL_AUDIO_SINK") == nullptr) {
        setenv("KESTREL_AUDIO_SINK", "fakesink", 1);
    }
    const fs::path dir = fs::temp_directory_path() / ("kc-drops-bench-" + std::to_string(getpid()));
    fs::create_directories(dir);
    const fs::path tape = dir / "long.dv";
    // The tape runs a minute longer than the captures, so that neither meets its end.
    const auto tape_frames = static_cast<std::int64_t>((minutes + 1) * 60 * 25);
    std::string error;
    kc::bench::Stage stage;
    if (!stage.open(error) || !write_long_tape(tape, tape_frames, error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    auto ours_deck = kc::deck::open_virtual_deck(tape.string(), false, error);
    auto plain_deck = kc::deck::open_virtual_deck(tape.string(), false, error);
    if (!ours_deck || !plain_deck) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    kc::deck::insert_tape(ours_deck, tape.string());

    app = new CapApp(*stage.platform);
    app->output_directory = dir.string();
    app->scene_name = "ours";
    app->dv_type2 = 1;
    app->connect();
    app->build_preview();

    const fs::path plain_file = dir / "plain.avi";
    GError* gerror = nullptr;
    GstElement* pipeline = gst_parse_launch(
        ("queue name=in max-size-buffers=200 max-size-bytes=0 max-size-time=0 ! dvdemux name=d "
         "avimux name=m ! filesink location=\"" +
         plain_file.string() + "\" d. ! queue ! video/x-dv ! m. d. ! queue ! audio/x-raw ! m.")
            .c_str(),
        &gerror);
    if (pipeline == nullptr) {
        std::fprintf(stderr, "%s\n", gerror ? gerror->message : "parse failed");
        return 1;
    }
    GstElement* source = kc::deck::make_deck_source(plain_deck);
    gst_bin_add(GST_BIN(pipeline), source);
    GstElement* in = gst_bin_get_by_name(GST_BIN(pipeline), "in");
    const bool linked = gst_element_link(source, in);
    gst_object_unref(in);
    if (!linked) {
        std::fprintf(stderr, "the plain pipeline does not link\n");
        return 1;
    }

    // Both decks play; both captures start.
    plain_deck->set_mode(media::ED_MODE_PLAY);
    app->dv->play();
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    app->toggle_recording();
    const auto t0 = Clock::now();
    const auto end = t0 + std::chrono::duration<double>(minutes * 60.0);
    while (Clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        const auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - t0);
        if (elapsed.count() % 300 == 0) {
            long lost = -1;
            if (app->dropped->valid()) {
                (*app->dropped)->get_num_dropped(&lost);
            }
            std::fprintf(stderr, "%lld s: ours %lld lost, plain %lld lost\n",
                         static_cast<long long>(elapsed.count()), static_cast<long long>(lost),
                         static_cast<long long>(plain_deck->counters().dropped));
        }
    }
    app->toggle_recording();
    const auto plain_counts = plain_deck->counters();
    gst_element_send_event(pipeline, gst_event_new_eos());
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* message = gst_bus_timed_pop_filtered(
        bus, 30 * GST_SECOND, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    if (message != nullptr) {
        gst_message_unref(message);
    }
    gst_object_unref(bus);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);

    const fs::path log = dir / "ours 000.log";
    const std::int64_t ours_frames = log_value(log, "frames");
    const std::int64_t ours_lost = log_value(log, "dropped frames");
    std::printf("paced capture for %.1f min (%lld tape frames)\n", minutes,
                static_cast<long long>(tape_frames));
    std::printf("ours  (CapApp Record, type 2):        %lld frames written, %lld lost\n",
                static_cast<long long>(ours_frames), static_cast<long long>(ours_lost));
    std::printf("plain (deck ! dvdemux ! avimux):      %lld frames taken,   %lld lost\n",
                static_cast<long long>(plain_counts.delivered),
                static_cast<long long>(plain_counts.dropped));
    std::printf("lost frames ours/plain: %lld/%lld\n", static_cast<long long>(ours_lost),
                static_cast<long long>(plain_counts.dropped));

    CapApp* ending = app;
    app = nullptr;
    delete ending;
    std::error_code ec;
    fs::remove_all(dir, ec);
    return 0;
}
