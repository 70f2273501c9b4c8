#include "deck/tape_image.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <filesystem>

#include "tests/unit/deck/deck_test_tapes.h"
#include "tests/unit/workflow/temp_dir.h"

namespace kc::deck {
namespace {

using testing::make_frame;
using testing::make_tape_bytes;
using testing::small_plan;

class TapeFile : public ::testing::Test {
  protected:
    std::filesystem::path write(const std::string& name, const std::vector<std::uint8_t>& bytes) {
        dir_.touch(name, std::string(bytes.begin(), bytes.end()));
        return dir_.file(name);
    }
    TempDir dir_;
};

TEST(TapeImageIndex, IndexesTimecodeUserFlagAndTracks) {
    const TapePlan plan = small_plan(DvSystem::pal_625_50, 10, 3);
    std::error_code error;
    const auto tape = TapeImage::from_bytes(make_tape_bytes(plan), error);
    ASSERT_TRUE(tape) << error.message();
    EXPECT_EQ(tape->system(), DvSystem::pal_625_50);
    EXPECT_EQ(tape->frame_count(), 30);
    EXPECT_EQ(tape->skipped_bytes(), 0u);
    for (std::int64_t n = 0; n < 30; ++n) {
        const PlannedFrame planned = plan_frame(plan, n);
        ASSERT_TRUE(tape->frame(n).timecode);
        EXPECT_EQ(from_bcd_word(*tape->frame(n).timecode), planned.timecode) << n;
        EXPECT_EQ(tape->frame(n).user_flag(), n >= 20 && n < 23) << n;
        EXPECT_EQ(tape->frame(n).offset, static_cast<std::uint64_t>(n) * 144000);
    }
    EXPECT_EQ(tape->track_of_frame(7), 84);
    EXPECT_EQ(tape->frame_of_track(84), 7);
    EXPECT_EQ(tape->frame_of_track(95), 7);
    EXPECT_EQ(tape->frame_of_track(96), 8);
}

TEST(TapeImageIndex, SectionsSplitAtJumpsAndUserFlag) {
    const TapePlan plan = small_plan(DvSystem::ntsc_525_60, 12, 4);
    const auto tape = testing::make_tape(plan);
    ASSERT_TRUE(tape);
    EXPECT_EQ(tape->tracks_per_frame(), 10);
    const auto sections = tape->sections();
    ASSERT_EQ(sections.size(), 4u);
    EXPECT_EQ(sections[0].first_frame, 0);
    EXPECT_EQ(sections[0].frames, 12);
    EXPECT_EQ(sections[0].start, plan.recordings[0].start);
    EXPECT_EQ(sections[1].first_frame, 12);
    EXPECT_EQ(sections[2].first_frame, 24);
    EXPECT_EQ(sections[2].frames, 4);
    EXPECT_TRUE(sections[2].user_flag);
    EXPECT_EQ(sections[3].first_frame, 28);
    EXPECT_EQ(sections[3].frames, 8);
    EXPECT_FALSE(sections[3].user_flag);
}

TEST(TapeImageIndex, SkipsJunkAndTruncationAndFindsDamageWhereItIs) {
    const TapePlan plan = small_plan(DvSystem::pal_625_50, 4, 0);
    const auto good = make_tape_bytes(plan);
    const std::size_t fb = frame_bytes(DvSystem::pal_625_50);
    std::vector<std::uint8_t> bytes(333, 0x1F);
    bytes.insert(bytes.end(), good.begin(), good.begin() + static_cast<std::ptrdiff_t>(5 * fb));
    // Frame 5 damaged in its ninth sequence, then the rest, then an unrecorded frame, then
    // half a frame.
    const std::size_t damaged_at = bytes.size();
    bytes.insert(bytes.end(), good.begin() + static_cast<std::ptrdiff_t>(5 * fb), good.end());
    bytes[damaged_at + 8 * dif_sequence_bytes] = 0xFF;
    const auto blank = make_frame(DvSystem::pal_625_50);
    bytes.insert(bytes.end(), blank.begin(), blank.end());
    bytes.insert(bytes.end(), blank.begin(), blank.begin() + 70000);

    std::error_code error;
    const auto tape = TapeImage::from_bytes(bytes, error);
    ASSERT_TRUE(tape) << error.message();
    EXPECT_EQ(tape->frame_count(), 13);
    EXPECT_EQ(tape->skipped_bytes(), 333u + 70000u);
    EXPECT_EQ(tape->frame(0).offset, 333u);
    // The damaged frame keeps its place: what follows is where the tape has it.
    EXPECT_TRUE(tape->frame(5).damaged);
    EXPECT_FALSE(tape->frame(5).timecode);
    std::vector<std::uint8_t> out(fb);
    EXPECT_FALSE(tape->read_frame(5, out));
    EXPECT_TRUE(tape->frame_view(5).empty());
    EXPECT_FALSE(tape->frame(6).damaged);
    EXPECT_EQ(from_bcd_word(*tape->frame(6).timecode), plan_frame(plan, 6).timecode);
    EXPECT_TRUE(tape->read_frame(6, out));
    const auto view = tape->frame_view(6);
    EXPECT_TRUE(std::equal(view.begin(), view.end(), out.begin(), out.end()));
    EXPECT_FALSE(tape->frame(12).timecode);
    EXPECT_EQ(tape->frame(12).user_bits, 0u);
    // An unrecorded frame is a section of its own.
    EXPECT_FALSE(tape->sections().back().start);
}

TEST(TapeImageIndex, RefusesWhatHoldsNoFrame) {
    std::error_code error;
    EXPECT_FALSE(TapeImage::from_bytes({}, error));
    EXPECT_EQ(error, std::errc::invalid_argument);
    EXPECT_FALSE(TapeImage::from_bytes(std::vector<std::uint8_t>(500000, 0x1F), error));
    EXPECT_EQ(error, std::errc::invalid_argument);
}

TEST_F(TapeFile, MappedAndStreamedGiveTheSameFrames) {
    const TapePlan plan = small_plan(DvSystem::ntsc_525_60, 5, 2);
    const auto path = write("tape.dv", make_tape_bytes(plan));
    std::error_code error;
    const auto mapped = TapeImage::open(path, TapeAccess::mapped, error);
    ASSERT_TRUE(mapped) << error.message();
    const auto streamed = TapeImage::open(path, TapeAccess::streamed, error);
    ASSERT_TRUE(streamed) << error.message();
    ASSERT_EQ(mapped->frame_count(), 15);
    ASSERT_EQ(streamed->frame_count(), 15);
    std::vector<std::uint8_t> a(mapped->frame_bytes());
    std::vector<std::uint8_t> b(streamed->frame_bytes());
    for (std::int64_t n = 0; n < 15; ++n) {
        ASSERT_TRUE(mapped->read_frame(n, a));
        ASSERT_TRUE(streamed->read_frame(n, b));
        EXPECT_EQ(a, b);
        EXPECT_EQ(testing::frame_mark(a), n);
        EXPECT_EQ(mapped->frame(n).timecode, streamed->frame(n).timecode);
    }
    EXPECT_FALSE(mapped->read_frame(15, a));
    EXPECT_FALSE(mapped->read_frame(-1, a));
    std::vector<std::uint8_t> wrong(10);
    EXPECT_FALSE(streamed->read_frame(0, wrong));
}

TEST_F(TapeFile, OpenReportsMissingEmptyAndForeignFiles) {
    std::error_code error;
    EXPECT_FALSE(TapeImage::open(dir_.file("missing.dv"), TapeAccess::mapped, error));
    EXPECT_EQ(error, std::errc::no_such_file_or_directory);
    EXPECT_FALSE(TapeImage::open(write("empty.dv", {}), TapeAccess::mapped, error));
    EXPECT_EQ(error, std::errc::invalid_argument);
    EXPECT_FALSE(TapeImage::open(write("text.dv", std::vector<std::uint8_t>(300000, 'a')),
                                 TapeAccess::streamed, error));
    EXPECT_EQ(error, std::errc::invalid_argument);
    EXPECT_FALSE(TapeImage::open(dir_.path(), TapeAccess::mapped, error));
    EXPECT_TRUE(error);
}

}  // namespace
}  // namespace kc::deck
