#include "deck/tape_plan.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "deck/test_card.h"
#include "tests/unit/deck/deck_test_tapes.h"

namespace kc::deck {
namespace {

TEST(DemoPlan, ThreeRecordingsWithAJumpAndAFlaggedContinuation) {
    const TapePlan plan = demo_plan(DemoOptions{DvSystem::pal_625_50, 8.0, 0});
    ASSERT_EQ(plan.recordings.size(), 3u);
    EXPECT_EQ(plan.total_frames(), 3 * 200);
    EXPECT_EQ(plan.recordings[0].start, (TapeTime{0, 10, 0, 0}));
    EXPECT_EQ(plan.recordings[1].start, (TapeTime{1, 25, 40, 0}));
    // Workshop continues Garden's timecode: only the flag tells them apart.
    EXPECT_EQ(plan.recordings[2].start, (TapeTime{1, 25, 48, 0}));
    EXPECT_EQ(plan.recordings[0].flagged_frames, 0);
    EXPECT_EQ(plan.recordings[2].flagged_frames, 6);
    EXPECT_NE(plan.recordings[0].tone_hz, plan.recordings[1].tone_hz);

    const TapePlan ntsc = demo_plan(DemoOptions{DvSystem::ntsc_525_60, 10.0, 0});
    EXPECT_EQ(ntsc.recordings[0].frames, 300);
    EXPECT_EQ(ntsc.recordings[2].flagged_frames, 7);
    // 300 drop-frame frames after 01:25:40:00 (a minute that drops nothing at its start
    // within these ten seconds).
    EXPECT_EQ(ntsc.recordings[2].start, (TapeTime{1, 25, 50, 0}));

    const TapePlan custom = demo_plan(DemoOptions{DvSystem::pal_625_50, 0.5, 20});
    EXPECT_EQ(custom.recordings[0].frames, 13);          // 12.5 rounds up
    EXPECT_EQ(custom.recordings[2].flagged_frames, 13);  // never more than the recording
}

TEST(DemoPlan, PlannedFramesAcrossRecordingBoundaries) {
    const TapePlan plan = demo_plan(DemoOptions{DvSystem::ntsc_525_60, 2.0, 0});
    const std::int64_t per = plan.recordings[0].frames;
    EXPECT_EQ(per, 60);
    PlannedFrame f = plan_frame(plan, per - 1);
    EXPECT_EQ(f.recording, 0u);
    EXPECT_EQ(f.timecode, (TapeTime{0, 10, 1, 29}));
    f = plan_frame(plan, per);
    EXPECT_EQ(f.recording, 1u);
    EXPECT_EQ(f.frame_in_recording, 0);
    EXPECT_EQ(f.timecode, plan.recordings[1].start);
    EXPECT_EQ(f.user_bits, 0u);
    f = plan_frame(plan, 2 * per + 6);
    EXPECT_EQ(f.recording, 2u);
    EXPECT_EQ(f.user_bits, 1u);
    EXPECT_EQ(plan_frame(plan, 2 * per + 7).user_bits, 0u);
    // The frame before the third recording and its first frame are one frame apart.
    EXPECT_EQ(to_frame_count(plan_frame(plan, 2 * per).timecode, plan.system) -
                  to_frame_count(plan_frame(plan, 2 * per - 1).timecode, plan.system),
              1);
}

TEST(DemoPlan, StampedFramesReadBackTheirPlan) {
    const TapePlan plan = demo_plan(DemoOptions{DvSystem::ntsc_525_60, 1.0, 0});
    for (const std::int64_t n : {0, 29, 30, 61, 89}) {
        auto frame = testing::make_frame(plan.system);
        const PlannedFrame planned = plan_frame(plan, n);
        stamp_frame(frame, plan.system, planned);
        EXPECT_EQ(read_timecode(frame, plan.system), to_bcd_word(planned.timecode));
        EXPECT_EQ(read_user_bits(frame, plan.system), planned.user_bits);
        EXPECT_EQ(read_recording_time(frame, plan.system), planned.recorded);
    }
    // A camcorder's clock stamps each frame with the second it was recorded in.
    const TapePlan pal = demo_plan(DemoOptions{});
    EXPECT_EQ(to_text(plan_frame(pal, 24).recorded), "2004-07-17 10:12:00");
    EXPECT_EQ(to_text(plan_frame(pal, 25).recorded), "2004-07-17 10:12:01");
    EXPECT_EQ(to_text(plan_frame(pal, 200 + 26).recorded), "2004-07-18 16:40:06");
    EXPECT_EQ(to_text(add_seconds({2004, 12, 31, 23, 59, 58}, 3)), "2005-01-01 00:00:01");
}

class TestCard : public ::testing::Test {
  protected:
    std::vector<std::uint8_t> picture(std::int64_t n) {
        std::vector<std::uint8_t> i420(picture_size(plan_.system).i420_bytes());
        draw_picture(plan_, n, i420);
        return i420;
    }
    std::uint8_t luma(const std::vector<std::uint8_t>& p, int x, int y) {
        return p[static_cast<std::size_t>(y) * size_.width + x];
    }
    std::vector<std::int16_t> sound(std::int64_t n) {
        const auto count =
            first_sample_of_frame(plan_.system, n + 1) - first_sample_of_frame(plan_.system, n);
        std::vector<std::int16_t> s(static_cast<std::size_t>(count) * audio_channels);
        fill_sound(plan_, n, s);
        return s;
    }

    TapePlan plan_ = demo_plan(DemoOptions{DvSystem::pal_625_50, 2.0, 0});
    PictureSize size_ = picture_size(DvSystem::pal_625_50);
};

TEST_F(TestCard, EachRecordingHasItsOwnColourAndEachFrameItsOwnPicture) {
    const auto a = picture(0);
    const auto b = picture(50);
    const auto c = picture(100);
    EXPECT_NE(luma(a, 2, 2), luma(b, 2, 2));
    const std::size_t chroma = static_cast<std::size_t>(size_.width) * size_.height;
    EXPECT_TRUE(a[chroma] != c[chroma] || luma(a, 2, 2) != luma(c, 2, 2));
    // Consecutive frames differ (timecode digits, marker), frames of one recording share
    // their background.
    EXPECT_NE(picture(1), a);
    EXPECT_EQ(luma(picture(1), 2, 2), luma(a, 2, 2));
}

TEST_F(TestCard, MarkerStepsOnceAFrameAndUserFlagIsCaptioned) {
    const int y = size_.height * 90 / 100 + 2;
    const int step = size_.width / 25;
    const auto f0 = picture(0);
    const auto f3 = picture(3);
    EXPECT_EQ(luma(f0, step / 2, y), 235);
    EXPECT_NE(luma(f3, step / 2, y), 235);
    EXPECT_EQ(luma(f3, 3 * step + step / 2, y), 235);
    // The flagged frames of the third recording carry a black caption box.
    const int cy = size_.height * 75 / 100 - 5;
    EXPECT_EQ(luma(picture(100), size_.width / 2 - 150, cy), 16);
    EXPECT_NE(luma(picture(100 + 6), size_.width / 2 - 150, cy), 16);
}

TEST_F(TestCard, TextIsDrawnInTheBuiltInTypeAndClipped) {
    std::vector<std::uint8_t> luma_plane(static_cast<std::size_t>(size_.width) * size_.height, 0);
    EXPECT_EQ(draw_text(luma_plane, size_, 10, 10, 2, "1:", 200), text_width("1:", 2) + 2);
    EXPECT_EQ(text_width("", 3), 0);
    // '1' has its top row's middle pixel set and its top-left pixel clear.
    EXPECT_EQ(luma_plane[10 * size_.width + 10 + 2 * 2], 200);
    EXPECT_EQ(luma_plane[10 * size_.width + 10], 0);
    // Drawing across every edge must not write outside the plane.
    draw_text(luma_plane, size_, -20, -20, 9, "WXYZ", 100);
    draw_text(luma_plane, size_, size_.width - 5, size_.height - 5, 9, "?#/.-", 100);
    EXPECT_EQ(luma_plane.size(), static_cast<std::size_t>(size_.width) * size_.height);
}

TEST_F(TestCard, SoundCarriesTheRecordingsToneAndASecondsPip) {
    EXPECT_EQ(first_sample_of_frame(DvSystem::pal_625_50, 1), 1920);
    // 525-60 frames take 8008 samples every five frames.
    EXPECT_EQ(first_sample_of_frame(DvSystem::ntsc_525_60, 5), 8008);
    // Frame 10 of the first recording: 440 Hz for 40 ms, about 35 sign changes.
    const auto s = sound(10);
    ASSERT_EQ(s.size(), 1920u * 2);
    int crossings = 0;
    int peak = 0;
    for (std::size_t i = 2; i < s.size(); i += 2) {
        crossings += (s[i - 2] < 0) != (s[i] < 0);
        peak = std::max(peak, std::abs(static_cast<int>(s[i])));
        EXPECT_EQ(s[i] / 2, s[i + 1]);
    }
    EXPECT_NEAR(crossings, 2 * 440 * 0.04, 2);
    // The pip at frame 0 of a second is louder.
    const auto pip = sound(25);
    int pip_peak = 0;
    for (const std::int16_t v : pip) {
        pip_peak = std::max(pip_peak, std::abs(static_cast<int>(v)));
    }
    EXPECT_GT(pip_peak, peak + 3000);
}

}  // namespace
}  // namespace kc::deck
