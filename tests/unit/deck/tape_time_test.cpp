#include "deck/dv_terms.h"

#include <gtest/gtest.h>

namespace kc::deck {
namespace {

constexpr DvSystem pal = DvSystem::pal_625_50;
constexpr DvSystem ntsc = DvSystem::ntsc_525_60;

TEST(TapeTime, FrameCountsFollowEachSystemsRules) {
    EXPECT_EQ(to_frame_count({0, 1, 0, 0}, pal), 1500);
    EXPECT_EQ(to_frame_count({1, 0, 0, 0}, pal), 90000);
    EXPECT_EQ(to_frame_count({0, 1, 0, 0}, ntsc), 1798);
    EXPECT_EQ(to_frame_count({0, 10, 0, 0}, ntsc), 17982);
    EXPECT_EQ(to_frame_count({1, 0, 0, 0}, ntsc), 107892);
    EXPECT_EQ(to_frame_count({0, 0, 59, 29}, ntsc), 1799);
    EXPECT_EQ(to_frame_count({0, 1, 0, 2}, ntsc), 1800);
}

TEST(TapeTime, DropFrameSkipsTwoNumbersAtMostMinutes) {
    EXPECT_EQ(from_frame_count(1799, ntsc), (TapeTime{0, 0, 59, 29}));
    EXPECT_EQ(from_frame_count(1800, ntsc), (TapeTime{0, 1, 0, 2}));
    EXPECT_EQ(from_frame_count(17982, ntsc), (TapeTime{0, 10, 0, 0}));
    EXPECT_EQ(from_frame_count(17981, ntsc), (TapeTime{0, 9, 59, 29}));
    EXPECT_FALSE(is_valid({0, 1, 0, 0}, ntsc));
    EXPECT_FALSE(is_valid({0, 1, 0, 1}, ntsc));
    EXPECT_TRUE(is_valid({0, 10, 0, 0}, ntsc));
    EXPECT_TRUE(is_valid({0, 1, 0, 0}, pal));
    EXPECT_FALSE(is_valid({0, 0, 0, 25}, pal));
    EXPECT_FALSE(is_valid({24, 0, 0, 0}, pal));
}

TEST(TapeTime, CountAndTimecodeRoundTripAndWrapAfterADay) {
    for (const DvSystem system : {pal, ntsc}) {
        for (std::int64_t n = 0; n < 200000; n += 13) {
            const TapeTime t = from_frame_count(n, system);
            ASSERT_TRUE(is_valid(t, system)) << n << " " << to_text(t);
            ASSERT_EQ(to_frame_count(t, system), n);
        }
        const TapeTime last = system == pal ? TapeTime{23, 59, 59, 24} : TapeTime{23, 59, 59, 29};
        const std::int64_t day = to_frame_count(last, system) + 1;
        EXPECT_EQ(from_frame_count(day - 1, system), last);
        EXPECT_EQ(from_frame_count(day, system), (TapeTime{0, 0, 0, 0}));
        EXPECT_EQ(from_frame_count(-1, system), from_frame_count(day - 1, system));
    }
}

TEST(TapeTime, BcdWordTextAndParsing) {
    const TapeTime t{1, 23, 45, 29};
    EXPECT_EQ(to_bcd_word(t), 0x01234529u);
    EXPECT_EQ(from_bcd_word(0x01234529u), t);
    EXPECT_EQ(from_bcd_word(0x9F000000u).hours, 105);
    EXPECT_EQ(to_text(t), "01:23:45:29");
    EXPECT_EQ(parse_tape_time("01:23:45:29", ntsc), t);
    EXPECT_EQ(parse_tape_time("1;23;45;29", ntsc), t);
    EXPECT_FALSE(parse_tape_time("01:23:45:29", pal));  // 29 frames is not PAL
    EXPECT_FALSE(parse_tape_time("01:23:45", pal));
    EXPECT_FALSE(parse_tape_time("01:23:45:", pal));
    EXPECT_FALSE(parse_tape_time("001:23:45:00", pal));
    EXPECT_FALSE(parse_tape_time("01:2x:45:00", pal));
    EXPECT_FALSE(parse_tape_time("00:01:00:00", ntsc));  // a skipped drop-frame number
}

}  // namespace
}  // namespace kc::deck
