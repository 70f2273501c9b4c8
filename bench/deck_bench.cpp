// The virtual deck's speeds: writing the demo tape (encoding with subcode stamping), and
// the unpaced source element streaming a tape through a DV demultiplexer's input.
#include <gst/gst.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>

#include "deck/gst/deck_source.h"
#include "deck/gst/tape_writer.h"
#include "deck/vcr_control.h"

int main() {
    using namespace kc::deck;
    using Clock = std::chrono::steady_clock;
    gst_init(nullptr, nullptr);
    const auto dir =
        std::filesystem::temp_directory_path() / ("kc-deck-bench-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    for (DvSystem system : {DvSystem::pal_625_50, DvSystem::ntsc_525_60}) {
        const TapePlan plan = demo_plan(DemoOptions{system});
        const auto path = dir / "demo.dv";
        std::string error;
        auto t0 = Clock::now();
        if (!write_tape(plan, path, error)) {
            std::fprintf(stderr, "%s\n", error.c_str());
            return 1;
        }
        const double write_s = std::chrono::duration<double>(Clock::now() - t0).count();
        std::printf("%s demo tape: %lld frames written in %.2f s (%.0f frames/s)\n",
                    system_name(system), static_cast<long long>(plan.total_frames()), write_s,
                    static_cast<double>(plan.total_frames()) / write_s);

        std::error_code ec;
        auto vcr = make_vcr(TapeImage::open(path, TapeAccess::mapped, ec),
                            std::make_shared<SteadyClock>(), VcrOptions{30, 10, Pacing::unpaced});
        vcr->set_mode(static_cast<long>(TransportMode::play));
        GstElement* pipeline = gst_pipeline_new(nullptr);
        GstElement* source = make_deck_source(vcr);
        GstElement* sink = gst_element_factory_make("fakesink", nullptr);
        g_object_set(sink, "sync", FALSE, nullptr);
        gst_bin_add_many(GST_BIN(pipeline), source, sink, nullptr);
        gst_element_link(source, sink);
        t0 = Clock::now();
        gst_element_set_state(pipeline, GST_STATE_PLAYING);
        GstBus* bus = gst_element_get_bus(pipeline);
        gst_message_unref(gst_bus_timed_pop_filtered(
            bus, GST_CLOCK_TIME_NONE,
            static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
        const double play_s = std::chrono::duration<double>(Clock::now() - t0).count();
        gst_object_unref(bus);
        gst_element_set_state(pipeline, GST_STATE_NULL);
        gst_object_unref(pipeline);
        std::printf("%s unpaced source: %lld frames in %.3f s (%.0f frames/s, %.0fx real time)\n",
                    system_name(system), static_cast<long long>(vcr->counters().delivered), play_s,
                    static_cast<double>(vcr->counters().delivered) / play_s,
                    static_cast<double>(vcr->counters().delivered) / play_s /
                        (system == DvSystem::pal_625_50 ? 25.0 : 29.97));
    }
    std::filesystem::remove_all(dir);
    return 0;
}
