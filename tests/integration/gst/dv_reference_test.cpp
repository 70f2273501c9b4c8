// Our portable DV readers against GStreamer's on the same tapes, as the tape maker writes
// them: the sound dvdemux takes out of every frame, and the picture dvdec decodes.
#include <gst/app/gstappsink.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "deck/gst/tape_writer.h"
#include "dv/dv_audio.h"
#include "dv/dv_small_image.h"
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

// The mean of the `cell` x `cell` pixels at (`x`, `y`) of a plane `width` pixels wide that
// starts at `plane` in `picture`.
double cell_mean(const std::vector<std::uint8_t>& picture, std::size_t plane, int width, int x,
                 int y, int cell) {
    int sum = 0;
    for (int dy = 0; dy < cell; ++dy) {
        for (int dx = 0; dx < cell; ++dx) {
            sum += picture[plane + static_cast<std::size_t>((y + dy) * width + x + dx)];
        }
    }
    return sum / double(cell * cell);
}

// How far the luma of `fine`, and of the DC picture `dc` at its size, lie from the full
// picture `theirs` (`width` wide, luma first) averaged over each of `fine`'s pixels.
struct LumaErrors {
    double fine = 0;
    double dc = 0;
};
LumaErrors luma_errors(const dv::SmallImage& fine, const dv::SmallImage& dc,
                       const std::vector<std::uint8_t>& theirs, int width) {
    const int cell = width / fine.width;
    const int side = fine.width / dc.width;
    LumaErrors errors;
    for (int y = 0; y < fine.height; ++y) {
        for (int x = 0; x < fine.width; ++x) {
            const double mean = cell_mean(theirs, 0, width, x * cell, y * cell, cell);
            errors.fine += std::abs(fine.y[static_cast<std::size_t>(y * fine.width + x)] - mean);
            errors.dc +=
                std::abs(dc.y[static_cast<std::size_t>(y / side * dc.width + x / side)] - mean);
        }
    }
    return errors;
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

// The small pictures against dvdec's full picture brought down to one pixel per 8 x 8 block:
// the mean of the block, as the DC coefficient gives it. The test card's colours, large
// type and marker make any misplaced macroblock show. Compared in Y'CbCr: the mean of
// clipped RGB pixels is not the RGB of the mean.
TEST_F(DvReference, SmallPicturesMatchDvdecScaledDown) {
    for (const DvSystem system : {DvSystem::pal_625_50, DvSystem::ntsc_525_60}) {
        SCOPED_TRACE(system_name(system));
        const auto tape = make_tape(system, 48000, false);
        const auto frames = frames_of(tape, system);
        const std::string decode = "filesrc location=\"" + tape.string() +
                                   "\" ! dvdemux ! dvdec ! videoconvert ! video/x-raw,format=";
        const auto theirs = pull_buffers(decode + "Y444 ! appsink name=out sync=false");
        ASSERT_EQ(theirs.size(), frames.size());
        const int w = dv::small_image_width(system);
        const int h = dv::small_image_height(system);
        const auto plane = static_cast<std::size_t>(w * 8 * h * 8);
        for (std::size_t n = 0; n < frames.size(); n += 7) {
            const auto image = dv::decode_small_image(frames[n], system);
            ASSERT_TRUE(image);
            ASSERT_EQ(theirs[n].size(), plane * 3);
            double difference = 0;
            double spread = 0;
            double values = 0;
            for (int c = 0; c < 3; ++c) {
                // Colour comes once per two blocks side by side, and per colour_rows rows.
                const int step = c == 0 ? 1 : 2;
                const int rows = c == 0 ? 1 : dv::colour_rows(system);
                const auto& ours = c == 0 ? image->y : c == 1 ? image->cb : image->cr;
                ASSERT_EQ(ours.size(), static_cast<std::size_t>(w * h / step / rows));
                for (int y = 0; y < h; y += rows) {
                    for (int x = 0; x < w; x += step) {
                        const double mean = cell_mean(theirs[n], c * plane, w * 8, x * 8, y * 8, 8);
                        const auto at = static_cast<std::size_t>(y / rows * (w / step) + x / step);
                        difference += std::abs(ours[at] - mean);
                        spread += std::abs(mean - 128.0);
                        ++values;
                    }
                }
            }
            EXPECT_LT(difference / values, 1.0) << "frame " << n;
            EXPECT_GT(spread / values, 20.0) << "frame " << n;
        }
        // The half and quarter pictures' luma against dvdec's averaged over 4 x 4 and 2 x 2
        // pixels. They read only each block's own bits, so sharp type loses some contrast; but
        // they must come closer than the DC picture does at their size, or the AC codes,
        // zigzag, weights or quantiser steps are wrong.
        for (const dv::Detail detail : {dv::Detail::quarter, dv::Detail::half}) {
            const int side = static_cast<int>(detail);
            const auto dc = dv::decode_small_image(frames[0], system);
            const auto fine = dv::decode_small_image(frames[0], system, detail);
            ASSERT_TRUE(dc && fine);
            ASSERT_EQ(fine->width, w * side);
            ASSERT_EQ(fine->height, h * side);
            const LumaErrors errors = luma_errors(*fine, *dc, theirs[0], w * 8);
            const double pixels = fine->width * fine->height;
            EXPECT_LT(errors.fine / pixels, 3.0) << side;
            EXPECT_LT(errors.fine, errors.dc * 0.7) << side;
        }
        // The preview's element gives a picture per frame at each detail, in a layout the
        // converter reads right: its RGB is our own picture's, but for the converter's coarser
        // fixed-point matrix (about 3 levels); a misplaced plane or row is off by tens.
        for (const dv::Detail detail : {dv::Detail::dc, dv::Detail::quarter, dv::Detail::half}) {
            const int side = static_cast<int>(detail);
            const int width = w * side;
            const auto shown = pull_buffers(
                "filesrc location=\"" + tape.string() +
                "\" ! dvdemux ! kestreldvdcdec detail=" + std::to_string(side) +
                " ! videoconvert chroma-mode=none dither=none ! video/x-raw,format=RGB,width=" +
                std::to_string(width) + ",height=" + std::to_string(h * side) +
                " ! appsink name=out sync=false");
            ASSERT_EQ(shown.size(), frames.size()) << side;
            const auto ours = dv::to_rgb24(*dv::decode_small_image(frames[0], system, detail));
            const auto stride = static_cast<std::size_t>((width * 3 + 3) / 4 * 4);
            ASSERT_EQ(shown[0].size(), stride * static_cast<std::size_t>(h * side));
            double difference = 0;
            for (std::size_t row = 0; row < static_cast<std::size_t>(h * side); ++row) {
                for (std::size_t i = 0; i < static_cast<std::size_t>(width * 3); ++i) {
                    difference += std::abs(shown[0][row * stride + i] -
                                           ours[row * static_cast<std::size_t>(width * 3) + i]);
                }
            }
            EXPECT_LT(difference / static_cast<double>(ours.size()), 4.0) << side;
        }
    }
}

// A picture whose two fields differ everywhere, as a moving one does, makes the coder use
// 2-4-8 blocks throughout. Our half picture must give each line pair's average, as the
// full picture dvdec decodes shows it, and far better than the block means alone.
TEST_F(DvReference, HalfPictureOfDifferingFieldsMatchesDvdec) {
    constexpr int width = 720;
    constexpr int height = 576;
    std::vector<std::uint8_t> raw(width * height * 3 / 2, 128);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const double wave =
                30 * std::sin(x * 2 * 3.14159 / 20) + 20 * std::cos(y * 2 * 3.14159 / 36);
            raw[static_cast<std::size_t>(y * width + x)] =
                static_cast<std::uint8_t>(80 + wave + (y % 2 == 0 ? 40 : 0));
        }
    }
    const auto picture = dir_.path() / "fields.yuv";
    gst::test::write_file(picture, raw);
    const auto encoded = pull_buffers(
        "filesrc location=\"" + picture.string() +
        "\" ! rawvideoparse width=720 height=576 format=i420 framerate=25/1 "
        "pixel-aspect-ratio=16/15 ! avenc_dvvideo flags=ildct ! appsink name=out sync=false");
    ASSERT_EQ(encoded.size(), 1u);
    const auto& frame = encoded[0];
    ASSERT_EQ(frame.size(), frame_bytes(DvSystem::pal_625_50));
    // The coder must have used 2-4-8 blocks, or this is one more 8-8 case.
    int moving = 0;
    for (int v = 0; v < 135; ++v) {
        const std::size_t block = static_cast<std::size_t>(6 + (v / 15) * 16 + 1 + v % 15) * 80;
        moving += (frame[block + 5] >> 6) & 1;  // Y0's DCT mode, sequence 0
    }
    EXPECT_GT(moving, 120);
    const auto tape = dir_.path() / "fields.dv";
    gst::test::write_file(tape, frame);
    const auto theirs =
        pull_buffers("filesrc location=\"" + tape.string() +
                     "\" ! dvdemux ! dvdec ! videoconvert ! video/x-raw,format=Y444 ! appsink "
                     "name=out sync=false");
    ASSERT_EQ(theirs.size(), 1u);
    const auto half = dv::decode_small_image(frame, DvSystem::pal_625_50, dv::Detail::half);
    const auto dc = dv::decode_small_image(frame, DvSystem::pal_625_50);
    ASSERT_TRUE(half && dc);
    const LumaErrors errors = luma_errors(*half, *dc, theirs[0], width);
    const double pixels = half->width * half->height;
    EXPECT_LT(errors.fine / pixels, 1.5);
    EXPECT_LT(errors.fine, errors.dc * 0.3);
}

}  // namespace
}  // namespace kc::deck
