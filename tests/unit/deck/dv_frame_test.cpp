#include "deck/dv_terms.h"

#include <gtest/gtest.h>

#include "tests/unit/deck/deck_test_tapes.h"

namespace kc::deck {
namespace {

using testing::make_frame;

// Offset of the pack (PC0) of sync block `k` (0..5) of subcode block `sc` of sequence `seq`.
std::size_t pack_at(int seq, int sc, int k) {
    return seq * dif_sequence_bytes + (1 + sc) * dif_block_bytes + 3 + k * 8 + 3;
}

TEST(DvLayout, SizesRatesAndTracksPerSystem) {
    EXPECT_EQ(frame_bytes(DvSystem::pal_625_50), 144000u);
    EXPECT_EQ(frame_bytes(DvSystem::ntsc_525_60), 120000u);
    EXPECT_EQ(tracks_per_frame(DvSystem::pal_625_50), 12);
    EXPECT_EQ(tracks_per_frame(DvSystem::ntsc_525_60), 10);
    EXPECT_EQ(frame_rate(DvSystem::pal_625_50).num, 25);
    EXPECT_EQ(frame_rate(DvSystem::ntsc_525_60).num, 30000);
    EXPECT_EQ(frame_rate(DvSystem::ntsc_525_60).den, 1001);
}

TEST(DvLayout, SystemComesFromTheHeaderBlock) {
    const auto pal = make_frame(DvSystem::pal_625_50);
    const auto ntsc = make_frame(DvSystem::ntsc_525_60);
    EXPECT_EQ(system_of_frame_start(pal), DvSystem::pal_625_50);
    EXPECT_EQ(system_of_frame_start(ntsc), DvSystem::ntsc_525_60);
    // Too short, not a header block, a header of another sequence, bit 6 of DSF byte set.
    EXPECT_FALSE(system_of_frame_start(std::span(pal).first(100)));
    auto bad = pal;
    bad[0] = 0x9F;
    EXPECT_FALSE(system_of_frame_start(bad));
    bad = pal;
    bad[1] = 0x17;
    EXPECT_FALSE(system_of_frame_start(bad));
    bad = pal;
    bad[3] = 0xFF;
    EXPECT_FALSE(system_of_frame_start(bad));
}

TEST(DvLayout, WholeFrameNeedsEverySequenceInPlace) {
    const auto pal = make_frame(DvSystem::pal_625_50);
    EXPECT_TRUE(is_whole_frame(pal, DvSystem::pal_625_50));
    EXPECT_FALSE(is_whole_frame(pal, DvSystem::ntsc_525_60));
    EXPECT_FALSE(is_whole_frame(std::span(pal).first(pal.size() - 1), DvSystem::pal_625_50));
    auto damaged = pal;
    damaged[7 * dif_sequence_bytes + 1] = 0x37;  // header of sequence 7 claims sequence 3
    EXPECT_FALSE(is_whole_frame(damaged, DvSystem::pal_625_50));
    damaged = pal;
    damaged[11 * dif_sequence_bytes + 2 * dif_block_bytes + 2] = 0;  // second subcode DBN
    EXPECT_FALSE(is_whole_frame(damaged, DvSystem::pal_625_50));
    EXPECT_TRUE(is_whole_frame(make_frame(DvSystem::ntsc_525_60), DvSystem::ntsc_525_60));
}

TEST(DvLayout, FindFrameSkipsJunkAndStopsAtTruncation) {
    const auto frame = make_frame(DvSystem::ntsc_525_60);
    std::vector<std::uint8_t> bytes(1001, 0x1F);  // junk that looks like header IDs
    bytes.insert(bytes.end(), frame.begin(), frame.end());
    bytes.insert(bytes.end(), frame.begin(), frame.end() - 10);
    EXPECT_EQ(find_frame(bytes, DvSystem::ntsc_525_60, 0), 1001u);
    EXPECT_EQ(find_frame(bytes, DvSystem::ntsc_525_60, 1001), 1001u);
    // Past the first frame only the truncated one remains.
    EXPECT_FALSE(find_frame(bytes, DvSystem::ntsc_525_60, 1002));
    EXPECT_FALSE(find_frame(bytes, DvSystem::pal_625_50, 0));
}

TEST(Bcd, DigitsAreNotValidated) {
    EXPECT_EQ(from_bcd(0x59), 59);
    EXPECT_EQ(from_bcd(0x00), 0);
    EXPECT_EQ(from_bcd(0x99), 99);
    EXPECT_EQ(from_bcd(0x9F), 105);
    EXPECT_EQ(from_bcd(0xFF), 165);
    EXPECT_EQ(to_bcd(59), 0x59);
    EXPECT_EQ(to_bcd(7), 0x07);
    EXPECT_EQ(to_bcd(123), 0x23);
    for (int v = 0; v < 100; ++v) {
        EXPECT_EQ(from_bcd(to_bcd(v)), v);
    }
}

TEST(Subcode, UnrecordedFrameHasNoTimecodeOrUserBits) {
    const auto frame = make_frame(DvSystem::pal_625_50);
    EXPECT_FALSE(read_timecode(frame, DvSystem::pal_625_50));
    EXPECT_FALSE(read_user_bits(frame, DvSystem::pal_625_50));
    // A timecode pack header over unrecorded data is no timecode either.
    auto blank_tc = frame;
    blank_tc[pack_at(0, 0, 0)] = pack_timecode;
    EXPECT_FALSE(read_timecode(blank_tc, DvSystem::pal_625_50));
    EXPECT_FALSE(read_timecode(std::span(frame).first(1000), DvSystem::pal_625_50));
}

TEST(Subcode, TimecodeAndUserBitsRoundTripOnBothSystems) {
    for (const DvSystem system : {DvSystem::pal_625_50, DvSystem::ntsc_525_60}) {
        for (const std::uint32_t word : {0x00000000u, 0x01234529u, 0x23595924u, 0x00100002u}) {
            for (const std::uint32_t user : {0u, 1u, 0xFFFFFFFFu, 0x12345678u}) {
                auto frame = make_frame(system);
                write_subcode(frame, system, word, user, true);
                EXPECT_EQ(read_timecode(frame, system), word) << std::hex << word;
                EXPECT_EQ(read_user_bits(frame, system), user);
                EXPECT_TRUE(is_whole_frame(frame, system));
            }
        }
    }
}

TEST(Subcode, PacksSitWhereRecordersPutThem) {
    const DvSystem system = DvSystem::ntsc_525_60;
    auto frame = make_frame(system);
    // The second half's recording date pack must survive.
    frame[pack_at(7, 1, 1)] = 0x62;
    write_subcode(frame, system, 0x01020304, 0x01, true);
    // First half: TC in sync blocks 0, 2, 3, 5; BG in 1 and 4; FR set in ID0.
    for (int k = 0; k < 6; ++k) {
        const std::uint8_t expected = (k == 1 || k == 4) ? pack_binary_group : pack_timecode;
        EXPECT_EQ(frame[pack_at(0, 0, k)], expected) << k;
        EXPECT_EQ(frame[pack_at(4, 1, k)], expected) << k;
        EXPECT_EQ(frame[pack_at(0, 0, k) - 3], 0x8F);
    }
    EXPECT_EQ(frame[pack_at(7, 1, 0)], pack_timecode);
    EXPECT_EQ(frame[pack_at(7, 1, 1)], 0x62);
    EXPECT_EQ(frame[pack_at(7, 1, 2)], 0xFF);
    EXPECT_EQ(frame[pack_at(7, 1, 0) - 3], 0x0F);
    // Sync block numbers 0..11 across the two subcode blocks.
    EXPECT_EQ(frame[pack_at(2, 1, 5) - 2] & 0x0F, 11);
    // The pack bytes: frames with the drop-frame flag, then seconds, minutes, hours.
    const std::size_t tc = pack_at(0, 0, 0);
    EXPECT_EQ(frame[tc + 1], 0x40 | 0x04);
    EXPECT_EQ(frame[tc + 2] & 0x7F, 0x03);
    EXPECT_EQ(frame[tc + 3] & 0x7F, 0x02);
    EXPECT_EQ(frame[tc + 4] & 0x3F, 0x01);
    // 625-50 has no drop frame.
    auto pal = make_frame(DvSystem::pal_625_50);
    write_subcode(pal, DvSystem::pal_625_50, 0x01020304, 0, true);
    EXPECT_EQ(pal[pack_at(0, 0, 0) + 1], 0x04);
}

TEST(Subcode, ReaderMasksFlagsAndFindsLaterSequences) {
    const DvSystem system = DvSystem::pal_625_50;
    auto frame = make_frame(system);
    // Only sequence 3 carries a timecode pack, all its flag bits set.
    const std::size_t tc = pack_at(3, 1, 4);
    const std::uint8_t pack[] = {pack_timecode, 0xC0 | 0x24, 0x80 | 0x59, 0x80 | 0x59, 0xC0 | 0x23};
    std::copy(std::begin(pack), std::end(pack), frame.begin() + static_cast<std::ptrdiff_t>(tc));
    EXPECT_EQ(read_timecode(frame, system), 0x23595924u);
    EXPECT_EQ(to_text(from_bcd_word(*read_timecode(frame, system))), "23:59:59:24");
}

}  // namespace
}  // namespace kc::deck
