// The DV preview on the GStreamer media platform against plain GStreamer decoding the same
// tape at real time without showing it, in one run. The paced virtual deck plays the demo
// tape into a pane of the main window's size, as the program shows it, first at the
// decoder's full resolution, then at half, then DC only, chosen through the decoder's
// property page as a user would. Prints the process's CPU time per second of video of each, the
// frames presented, and the ratio of ours to the reference; and, for the full picture, to
// plain GStreamer doing the same display work (sound decoded, picture scaled and converted).
#include <gst/gst.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include "app/errors.h"
#include "bench/bench_stage.h"
#include "deck/gst/deck_provider.h"
#include "deck/gst/tape_writer.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr double measured_s = 10.0;

// The user's choice on the decoder's display page.
class Choice : public PropertyFrames {
  public:
    std::optional<PropertyChanges> show_property_frame(WindowHandle, const std::string&,
                                                       const std::vector<PropertyPage>&) override {
        return PropertyChanges{{"resolution", resolution}};
    }
    std::string resolution = "full";
};

double cpu_seconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

struct Figure {
    double cpu_per_s = 0;
    double frames_per_s = 0;
};

// Settles for a second, then measures CPU time and frames for the measured span.
Figure measure(const std::atomic<long>* frames) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const long frames0 = frames ? frames->load() : 0;
    const double cpu0 = cpu_seconds();
    const auto t0 = Clock::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(measured_s));
    const double wall = std::chrono::duration<double>(Clock::now() - t0).count();
    return {(cpu_seconds() - cpu0) / wall, frames ? (frames->load() - frames0) / wall : 0};
}

Figure ours(kc::bench::Surface& surface, Choice& choice, const std::string& resolution) {
    choice.resolution = resolution;
    ComPtr<media::BaseFilter> decoder;
    throw_if_failed(
        app->graph->graph->find_filter_by_name(media::dv_decoder_filter_name, decoder.out()),
        ERR_FIND_FILTER);
    CapWin::show_property_pages(main_window, decoder.get(), "DV Capture");
    app->win->run();
    // Each choice is measured from the tape's start, so that none runs off its end.
    if (app->dv_vcr()) {
        app->dv->seek(0);
        app->dv->play();
    }
    const Figure f = measure(&surface.frames);
    app->win->stop();
    return f;
}

// Plain GStreamer at the tape's pace: the tape demultiplexed and its video decoded, the
// picture thrown away (the goals' reference); and the same doing what showing it takes,
// the sound decoded and the picture scaled and converted to the pane's pixels.
std::string decode_only(const std::string& tape) {
    return "filesrc location=\"" + tape +
           "\" blocksize=144000 ! dvdemux ! queue ! avdec_dvvideo ! fakesink sync=true";
}
std::string decode_and_show(const std::string& tape) {
    return "filesrc location=\"" + tape +
           "\" blocksize=144000 ! dvdemux name=d d.video ! queue ! avdec_dvvideo ! videoscale "
           "method=0 ! videoconvert chroma-mode=3 dither=0 ! video/x-raw,format=BGRx,width=" +
           std::to_string(kc::bench::pane_width) +
           ",height=" + std::to_string(kc::bench::pane_height) +
           " ! fakesink sync=true d.audio ! queue ! fakesink sync=true";
}

Figure reference(const std::string& description) {
    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(description.c_str(), &error);
    if (pipeline == nullptr) {
        std::fprintf(stderr, "%s\n", error ? error->message : "parse failed");
        std::exit(1);
    }
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    const Figure f = measure(nullptr);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    return f;
}

}  // namespace

int main() {
    setenv("KESTREL_VIRTUAL_DECK", "demo", 0);
    unsetenv("KESTREL_VIRTUAL_DECK_UNPACED");
    if (std::getenv("KESTREL_AUDIO_SINK") == nullptr) {
        setenv("KESTREL_AUDIO_SINK", "fakesink", 1);
    }
    Choice choice;
    kc::bench::Stage stage;
    kc::bench::Surface& surface = stage.surface;
    std::string error;
    if (!stage.open(error, &choice)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    const auto tape = kc::deck::cached_demo_tape(kc::deck::DvSystem::pal_625_50, error);
    if (tape.empty()) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }

    app = new CapApp(*stage.platform);
    app->connect();
    app->build_preview();
    app->win->attach(surface.pane, app->graph->graph.get());

    std::printf(
        "preview of the 625-50 demo tape from the paced deck into a %dx%d pane, "
        "%.0f s measured each\n",
        kc::bench::pane_width, kc::bench::pane_height, measured_s);
    const Figure full = ours(surface, choice, "full");
    const int full_w = surface.width;
    const int full_h = surface.height;
    const Figure half = ours(surface, choice, "half");
    const int half_w = surface.width;
    const int half_h = surface.height;
    const Figure dc = ours(surface, choice, "DC only");
    const Figure plain = reference(decode_only(tape.string()));
    const Figure shown = reference(decode_and_show(tape.string()));
    std::printf("  ours, full resolution: %.1f%% of one core, %.2f frames/s presented at %dx%d\n",
                100 * full.cpu_per_s, full.frames_per_s, full_w, full_h);
    std::printf("  ours, half resolution: %.1f%% of one core, %.2f frames/s presented at %dx%d\n",
                100 * half.cpu_per_s, half.frames_per_s, half_w, half_h);
    std::printf("  ours, DC only:         %.1f%% of one core, %.2f frames/s presented at %dx%d\n",
                100 * dc.cpu_per_s, dc.frames_per_s, surface.width.load(), surface.height.load());
    std::printf(
        "  reference (filesrc ! dvdemux ! avdec_dvvideo ! fakesink sync=true): "
        "%.1f%% of one core\n",
        100 * plain.cpu_per_s);
    std::printf("  ratio full/reference: %.2fx (goal 1.10x)\n", full.cpu_per_s / plain.cpu_per_s);
    std::printf("  ratio half/reference: %.2fx (goal 0.60x)\n", half.cpu_per_s / plain.cpu_per_s);
    std::printf("  ratio DC only/reference: %.2fx\n", dc.cpu_per_s / plain.cpu_per_s);
    std::printf(
        "  plain GStreamer also decoding the sound and scaling and converting the picture to "
        "the pane: %.1f%% of one core; ours at full resolution %.2fx that\n",
        100 * shown.cpu_per_s, full.cpu_per_s / shown.cpu_per_s);

    CapApp* ending = app;
    app = nullptr;
    delete ending;
    return 0;
}
