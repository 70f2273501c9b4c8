// How fast DV frames go into AVI files, and at what memory cost: DvAviWriter alone (frames
// from memory), the kestrelavisink element in an unpaced pipeline, and GStreamer's own
// avimux in the same pipeline as the reference; type 1 and type 2. Prints MB/s, frames/s
// and the process's peak RSS after each run.
//
//   avi_write_bench [FRAMES]   (default 3000 PAL frames, 432 MB per file)
//
// Files go to $TMPDIR (or /tmp) and are removed after each run.
#include <gst/gst.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "platform/gst/avi/dv_avi_writer.h"
#include "platform/gst/elements.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int tape_frames = 50;

double peak_rss_mib() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

// Runs a gst-launch description to EOS; false (with a message) on an error.
bool run(const std::string& description) {
    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(description.c_str(), &error);
    if (!pipeline || error) {
        std::fprintf(stderr, "pipeline: %s\n", error ? error->message : "not built");
        g_clear_error(&error);
        return false;
    }
    GstBus* bus = gst_element_get_bus(pipeline);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstMessage* msg = gst_bus_timed_pop_filtered(
        bus, GST_CLOCK_TIME_NONE, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    bool ok = GST_MESSAGE_TYPE(msg) == GST_MESSAGE_EOS;
    if (!ok) {
        GError* err = nullptr;
        gst_message_parse_error(msg, &err, nullptr);
        std::fprintf(stderr, "error: %s\n", err->message);
        g_clear_error(&err);
    }
    gst_message_unref(msg);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(bus);
    gst_object_unref(pipeline);
    return ok;
}

struct Figures {
    double seconds = 0;
    std::uint64_t bytes = 0;
};

void report(const char* what, int frames, const Figures& f) {
    std::printf("%-34s %8.1f MB/s %9.1f frames/s %7.2f s  peak RSS %7.1f MiB\n", what,
                static_cast<double>(f.bytes) / 1e6 / f.seconds, frames / f.seconds, f.seconds,
                peak_rss_mib());
    std::fflush(stdout);
}

Figures timed(const fs::path& out, const std::function<bool()>& body) {
    const auto start = Clock::now();
    Figures f;
    if (!body()) {
        std::exit(1);
    }
    f.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    std::error_code e;
    f.bytes = fs::file_size(out, e);
    fs::remove(out, e);
    return f;
}

}  // namespace

int main(int argc, char** argv) {
    const int frames = argc > 1 ? std::atoi(argv[1]) : 3000;
    if (frames < tape_frames || frames % tape_frames != 0) {
        std::fprintf(stderr, "FRAMES must be a multiple of %d\n", tape_frames);
        return 2;
    }
    gst_init(&argc, &argv);
    if (!kc::gst::register_elements()) {
        std::fprintf(stderr, "kestrelavisink did not register\n");
        return 1;
    }
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/kc-avi-bench-XXXXXX";
    if (!::mkdtemp(pattern.data())) {
        return 1;
    }
    const fs::path dir = pattern;
    const fs::path tape = dir / "tape.dv";
    const fs::path out = dir / "out.avi";

    // A PAL tape with a moving picture and a tone, looped to the length asked for.
    std::ostringstream make;
    make << "videotestsrc num-buffers=" << tape_frames
         << " pattern=ball ! video/x-raw,format=I420,width=720,height=576,framerate=25/1,"
            "pixel-aspect-ratio=16/15 ! avenc_dvvideo ! avmux_dv name=mux ! filesink location=\""
         << tape.string() << "\" audiotestsrc num-buffers=" << tape_frames
         << " samplesperbuffer=1920 ! audio/x-raw,format=S16LE,rate=48000,channels=2,"
            "layout=interleaved ! mux.";
    if (!run(make.str())) {
        return 1;
    }
    std::vector<std::uint8_t> tape_bytes;
    {
        std::ifstream in(tape, std::ios::binary);
        tape_bytes.assign(std::istreambuf_iterator<char>(in), {});
    }
    std::printf("%d PAL DV frames (%.0f MB of DV) per run, files in %s\n", frames,
                frames * 144000.0 / 1e6, dir.c_str());
    std::printf("peak RSS before the runs: %.1f MiB\n", peak_rss_mib());

    const int loops = frames / tape_frames;
    for (const auto layout :
         {kc::avi::AviLayout::type1_interleaved, kc::avi::AviLayout::type2_separate}) {
        const bool type1 = layout == kc::avi::AviLayout::type1_interleaved;
        const Figures f = timed(out, [&] {
            std::error_code e;
            auto output = kc::avi::open_file_output(out, e);
            if (!output) {
                return false;
            }
            kc::avi::AviWriterOptions options;
            options.layout = layout;
            kc::avi::DvAviWriter writer(std::move(output), options);
            // The tone's samples, one frame's worth per chunk as dvdemux hands them out.
            const std::vector<std::uint8_t> audio(1920 * 4, 0);
            for (int loop = 0; loop < loops; ++loop) {
                for (int i = 0; i < tape_frames; ++i) {
                    if (!type1 && writer.write_audio(audio)) {
                        return false;
                    }
                    const kc::avi::Bytes frame(tape_bytes.data() + i * 144000, 144000);
                    if (writer.write_video(frame)) {
                        return false;
                    }
                }
            }
            return !writer.close();
        });
        report(type1 ? "DvAviWriter type 1" : "DvAviWriter type 2", frames, f);
    }

    std::ostringstream source;
    source << "multifilesrc location=\"" << tape.string() << "\" loop=true num-buffers=" << loops
           << " ! video/x-dv,systemstream=true ! ";
    const std::string demux =
        "dvdemux name=demux demux.video ! queue ! mux.video_0 demux.audio ! queue ! mux.audio_0 ";
    const std::string file = " location=\"" + out.string() + "\"";

    const Figures element1 = timed(
        out, [&] { return run(source.str() + "kestrelavisink name=mux interleave=none" + file); });
    report("kestrelavisink type 1", frames, element1);
    const Figures element2 = timed(out, [&] {
        return run(source.str() + demux + "kestrelavisink name=mux interleave=capture" + file);
    });
    report("kestrelavisink type 2", frames, element2);
    const Figures element2n = timed(out, [&] {
        return run(source.str() + demux + "kestrelavisink name=mux interleave=none" + file);
    });
    report("kestrelavisink type 2 (none)", frames, element2n);
    const Figures reference =
        timed(out, [&] { return run(source.str() + demux + "avimux name=mux ! filesink" + file); });
    report("avimux type 2 (reference)", frames, reference);
    std::printf("kestrelavisink type 2 / avimux frames/s ratio: %.2f\n",
                reference.seconds / element2.seconds);

    std::error_code e;
    fs::remove_all(dir, e);
    return 0;
}
