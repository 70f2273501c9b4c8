#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/media.h"
#include "tests/unit/foundation/test_platform.h"
#include "workflow/timecode.h"

namespace {
// `first` and later `second` in the text. Plain text search: GoogleTest's regular
// expressions on Windows have no bracket expressions to span lines with.
MATCHER_P2(TextThen, first, second, "") {
    const std::string text = arg;
    const std::string before = first;
    const auto at = text.find(before);
    return at != std::string::npos && text.find(second, at + before.size()) != std::string::npos;
}

Timecode tc(int h, int m, int s, int f) {
    return Timecode{h, m, s, f};
}
}  // namespace

TEST(Timecode, TextIsTwoDigitMinimumWithColons) {
    EXPECT_EQ(Timecode().to_string(), "00:00:00:00");
    EXPECT_EQ(tc(1, 2, 3, 4).to_string(), "01:02:03:04");
    EXPECT_EQ(tc(100, 5, 0, 9).to_string(), "100:05:00:09");
    EXPECT_EQ(tc(-1, 0, 0, 0).to_string(), "-1:00:00:00");
    EXPECT_EQ(tc(165, 165, 165, 165).to_string(), "165:165:165:165");
}

TEST(Timecode, ClearResetsEveryField) {
    Timecode t{1, 2, 3, 4, -1, true};
    EXPECT_EQ(t.to_string(), "01:02:03:04");  // the track never shows
    t.clear();
    EXPECT_EQ(t.to_string(), "00:00:00:00");
    EXPECT_EQ(t.track, 0);
    EXPECT_FALSE(t.user_flag);
}

TEST(Timecode, BcdDigitsAreNotValidated) {
    EXPECT_EQ(decode_bcd(0x59), 59);
    EXPECT_EQ(decode_bcd(0x00), 0);
    EXPECT_EQ(decode_bcd(0x99), 99);
    EXPECT_EQ(decode_bcd(0x9F), 105);
    EXPECT_EQ(decode_bcd(0xFF), 165);
}

TEST(Timecode, FrameCountsInEveryFormat) {
    using namespace media;
    for (long f :
         {ED_FORMAT_SMPTE_30, ED_FORMAT_SMPTE_30DROP, ED_FORMAT_SMPTE_25, ED_FORMAT_SMPTE_24}) {
        EXPECT_EQ(Timecode().to_frames(f), 0) << f;
    }
    EXPECT_EQ(tc(0, 1, 0, 0).to_frames(ED_FORMAT_SMPTE_30DROP), 1798);
    EXPECT_EQ(tc(0, 1, 0, 0).to_frames(ED_FORMAT_SMPTE_30), 1800);
    EXPECT_EQ(tc(0, 1, 0, 0).to_frames(ED_FORMAT_SMPTE_25), 1500);
    EXPECT_EQ(tc(0, 1, 0, 0).to_frames(ED_FORMAT_SMPTE_24), 1440);
    EXPECT_EQ(tc(0, 10, 0, 0).to_frames(ED_FORMAT_SMPTE_30DROP), 17982);
    EXPECT_EQ(tc(1, 0, 0, 0).to_frames(ED_FORMAT_SMPTE_30DROP), 107892);
    EXPECT_EQ(tc(1, 0, 0, 0).to_frames(ED_FORMAT_SMPTE_30), 108000);
    EXPECT_EQ(tc(1, 0, 0, 0).to_frames(ED_FORMAT_SMPTE_25), 90000);
    // Only the low 16 bits of the format code count.
    EXPECT_EQ(tc(0, 0, 1, 0).to_frames(0x10000 + ED_FORMAT_SMPTE_25), 25);
}

TEST(Timecode, DropFrameIsContinuousAcrossMinuteAndTenMinuteBoundaries) {
    const long df = media::ED_FORMAT_SMPTE_30DROP;
    // 00:00:59:29 is followed on tape by 00:01:00:02.
    EXPECT_EQ(tc(0, 0, 59, 29).to_frames(df), 1799);
    EXPECT_EQ(tc(0, 1, 0, 2).to_frames(df), 1800);
    // At ten minutes no frame numbers are dropped: 00:09:59:29 -> 00:10:00:00.
    EXPECT_EQ(tc(0, 10, 0, 0).to_frames(df) - tc(0, 9, 59, 29).to_frames(df), 1);
    // 00:10:59:29 -> 00:11:00:02 is again one frame.
    EXPECT_EQ(tc(0, 11, 0, 2).to_frames(df) - tc(0, 10, 59, 29).to_frames(df), 1);
    // Across an hour boundary as well.
    EXPECT_EQ(tc(1, 0, 0, 0).to_frames(df) - tc(0, 59, 59, 29).to_frames(df), 1);
}

TEST(TimecodeDeathTest, UnknownFormatShowsTheBoxThenStops) {
    FoundationPlatform fakes;
    // The fake host echoes message boxes to stderr, so the box is seen before the stop.
    EXPECT_DEATH(Timecode().to_frames(0x21194A),  // low 16 bits: 6474
                 TextThen("message_box(null,6474,Timecode Error,16)", "Assertion failed: false"));
    EXPECT_DEATH(Timecode().to_frames(4506), "4506,Timecode Error");
}
