// Our portable DV readers against GStreamer's on the same tapes, as the tape maker writes
// them: the sound dvdemux takes out of every frame.
#include <gst/app/gstappsink.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "deck/gst/tape_writer.h"
#include "dv/dv_audio.h"
#include "tests/integration/gst/gst_test_support.h"

namespace kc::deck {
namespace {

using gst::test::TempDir;

// Every buffer the appsink named "out" receives from `description`, in order.
std::vector<std::vector<std::uint8_t>> pull_buffers(const std::string& description) {
    std::vector<std::vector<std::uint8_t>> buffers;
    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(description.c_str(), &error);
    if (pipeline == nullptr) {
        ADD_FAILURE() << description << ": " << (error ? error->message : "?");
        g_clear_error(&error);
        return buffers;
    }
    GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline), "out");
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    while (GstSample* sample = gst_app_sink_try_pull_sample(GST_APP_SINK(sink), 30 * GST_SECOND)) {
        GstMapInfo map;
        GstBuffer* buffer = gst_sample_get_buffer(sample);
        if (gst_buffer_map(buffer, &map, GST_MAP_READ)) {
            buffers.emplace_back(map.data, map.data + map.size);
            gst_buffer_unmap(buffer, &map);
        }
        gst_sample_unref(sample);
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(sink);
    gst_object_unref(pipeline);
    return buffers;
}

class DvReference : public ::testing::Test {
  protected:
    void SetUp() override {
        gst::test::init_gstreamer();
        for (const char* element : {"avenc_dvvideo", "avmux_dv", "dvdemux", "dvdec"}) {
            if (!gst::test::has_element(element)) {
                GTEST_SKIP() << element << " is missing";
            }
        }
    }

    // A tape of two short recordings (two tones) in `system`, with the given sound.
    std::filesystem::path make_tape(DvSystem system, int rate_hz, bool twelve_bit) {
        TapePlan plan = demo_plan(DemoOptions{system, 1.0, 2});
        plan.recordings.resize(2);
        plan.audio_rate_hz = rate_hz;
        plan.audio_12bit = twelve_bit;
        const auto path = dir_ / ("tape-" + std::to_string(static_cast<int>(system)) + "-" +
                                  std::to_string(rate_hz) + ".dv");
        std::string error;
        EXPECT_TRUE(write_tape(plan, path, error)) << error;
        return path;
    }

    std::vector<std::vector<std::uint8_t>> frames_of(const std::filesystem::path& tape,
                                                     DvSystem system) {
        const auto bytes = gst::test::read_file(tape);
        std::vector<std::vector<std::uint8_t>> frames;
        for (std::size_t at = 0; at + frame_bytes(system) <= bytes.size();
             at += frame_bytes(system)) {
            frames.emplace_back(bytes.begin() + static_cast<long>(at),
                                bytes.begin() + static_cast<long>(at + frame_bytes(system)));
        }
        return frames;
    }

    TempDir dir_;
};

TEST_F(DvReference, SoundMatchesDvdemuxFrameByFrame) {
    struct Case {
        DvSystem system;
        int rate_hz;
        bool twelve_bit;
    };
    for (const Case c :
         {Case{DvSystem::pal_625_50, 48000, false}, Case{DvSystem::pal_625_50, 32000, true},
          Case{DvSystem::ntsc_525_60, 48000, false}}) {
        SCOPED_TRACE(std::string(system_name(c.system)) + " " + std::to_string(c.rate_hz) +
                     (c.twelve_bit ? " 12-bit" : " 16-bit"));
        const auto tape = make_tape(c.system, c.rate_hz, c.twelve_bit);
        const auto frames = frames_of(tape, c.system);
        const auto theirs = pull_buffers("filesrc location=\"" + tape.string() +
                                         "\" ! dvdemux name=d d.audio ! audio/x-raw,format=S16LE,"
                                         "channels=2 ! appsink name=out sync=false");
        ASSERT_EQ(theirs.size(), frames.size());
        ASSERT_GE(frames.size(), 30u);
        std::int64_t loud = 0;
        for (std::size_t n = 0; n < frames.size(); ++n) {
            std::vector<std::int16_t> ours;
            const auto format = dv::read_audio(frames[n], c.system, ours);
            ASSERT_TRUE(format) << "frame " << n;
            EXPECT_EQ(format->sample_rate, c.rate_hz);
            EXPECT_EQ(format->quantization, c.twelve_bit ? dv::AudioQuantization::nonlinear_12
                                                         : dv::AudioQuantization::linear_16);
            std::vector<std::int16_t> reference(theirs[n].size() / 2);
            std::memcpy(reference.data(), theirs[n].data(), reference.size() * 2);
            ASSERT_EQ(ours, reference) << "frame " << n;
            for (const std::int16_t s : ours) {
                loud = std::max<std::int64_t>(loud, std::abs(s));
            }
        }
        // The comparison means something only if the tape carries sound.
        EXPECT_GT(loud, 3000);
    }
}

}  // namespace
}  // namespace kc::deck
