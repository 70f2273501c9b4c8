#include <gtest/gtest.h>

#include "platform/gst/avi/dv_frame.h"
#include "tests/unit/avi/dv_test_frames.h"

namespace kc::avi {
namespace {

using test::make_dv_frame;
using test::TestPacks;

TEST(DvFrame, SystemAndGeometryComeFromTheHeaderBlock) {
    const struct {
        DvSystem system;
        std::uint32_t bytes, rate, scale, height;
    } cases[] = {{DvSystem::pal_625_50, 144000, 25, 1, 576},
                 {DvSystem::ntsc_525_60, 120000, 30000, 1001, 480}};
    for (const auto& c : cases) {
        const auto info = inspect_dv_frame(make_dv_frame(c.system, 1));
        ASSERT_TRUE(info) << c.height;
        EXPECT_EQ(info->system, c.system);
        EXPECT_EQ(info->frame_bytes, c.bytes);
        EXPECT_EQ(info->rate, c.rate);
        EXPECT_EQ(info->scale, c.scale);
        EXPECT_EQ(info->width, 720u);
        EXPECT_EQ(info->height, c.height);
    }
    const auto pal = make_dv_frame(DvSystem::pal_625_50, 1);
    const auto ntsc = make_dv_frame(DvSystem::ntsc_525_60, 1);
    // The first four bytes are enough to know the system (and so the frame size).
    EXPECT_EQ(dv_system_of(std::span(pal).first(4)), DvSystem::pal_625_50);
    EXPECT_EQ(dv_system_of(std::span(ntsc).first(4)), DvSystem::ntsc_525_60);
    EXPECT_FALSE(dv_system_of(std::span(pal).first(3)));
}

TEST(DvFrame, RejectsWhatIsNotOneCompleteFrame) {
    auto frame = make_dv_frame(DvSystem::pal_625_50, 1);
    EXPECT_FALSE(inspect_dv_frame(std::span(frame).first(frame.size() - 80)));
    auto longer = frame;
    longer.resize(frame.size() + 80);
    EXPECT_FALSE(inspect_dv_frame(longer));
    // A PAL header on an NTSC-sized buffer.
    EXPECT_FALSE(inspect_dv_frame(std::span(frame).first(dv_ntsc_frame_bytes)));

    // Starting on a video block, on the header of another DIF sequence, or a block number.
    auto shifted = std::vector<std::uint8_t>(frame.begin() + 80 * 7, frame.end());
    shifted.resize(frame.size());
    EXPECT_FALSE(inspect_dv_frame(shifted));
    auto other_sequence = frame;
    other_sequence[1] = 0x17;
    EXPECT_FALSE(inspect_dv_frame(other_sequence));
    auto numbered = frame;
    numbered[2] = 1;
    EXPECT_FALSE(dv_system_of(numbered));
}

TEST(DvFrame, DvinfoTakesThePacksOfEachAudioChannelBlockAndOfVaux) {
    TestPacks packs;
    packs.aaux_src = 0x80E000D8;
    packs.aaux_ctl = 0xFFA0CF1C;
    packs.aaux_src1 = 0x80E001D8;  // channel 2 differs so that the halves are told apart
    packs.aaux_ctl1 = 0xFFA0CF1D;
    packs.vaux_src = 0xFFE0FFFF;
    packs.vaux_ctl = 0xFFFCC83F;
    const auto info = inspect_dv_frame(make_dv_frame(DvSystem::pal_625_50, 3, packs));
    ASSERT_TRUE(info);
    EXPECT_EQ(info->dvinfo.aaux_src, packs.aaux_src);
    EXPECT_EQ(info->dvinfo.aaux_ctl, packs.aaux_ctl);
    EXPECT_EQ(info->dvinfo.aaux_src1, packs.aaux_src1);
    EXPECT_EQ(info->dvinfo.aaux_ctl1, packs.aaux_ctl1);
    EXPECT_EQ(info->dvinfo.vaux_src, packs.vaux_src);
    EXPECT_EQ(info->dvinfo.vaux_ctl, packs.vaux_ctl);
}

TEST(DvFrame, AudioFormatFollowsTheAauxSourcePack) {
    struct Case {
        std::uint32_t pack;
        std::uint32_t rate;
        std::uint16_t channels;
    };
    // PC4 holds SMP in bits 5..3 and QU in bits 2..0; PC2 bits 6..5 the channels per block.
    const Case cases[] = {
        {0x80E000D8, 48000, 2},  // 48 kHz 16-bit
        {0x88E000D8, 44100, 2},  // 44.1 kHz 16-bit
        {0x90E000D8, 32000, 2},  // 32 kHz 16-bit
        {0x91E020D8, 32000, 4},  // 32 kHz 12-bit, two channels per block: four channels
    };
    for (const Case& c : cases) {
        TestPacks packs;
        packs.aaux_src = c.pack;
        const auto info = inspect_dv_frame(make_dv_frame(DvSystem::ntsc_525_60, 0, packs));
        ASSERT_TRUE(info);
        ASSERT_TRUE(info->audio) << std::hex << c.pack;
        EXPECT_EQ(info->audio->sample_rate, c.rate) << std::hex << c.pack;
        EXPECT_EQ(info->audio->channels, c.channels) << std::hex << c.pack;
        EXPECT_EQ(info->audio->bits_per_sample, 16);
    }

    TestPacks reserved_rate;
    reserved_rate.aaux_src = 0xB8E000D8;  // SMP 7
    EXPECT_FALSE(inspect_dv_frame(make_dv_frame(DvSystem::pal_625_50, 0, reserved_rate))->audio);

    // A frame without audio packs (all 0xFF, "no info") announces no format.
    auto silent = make_dv_frame(DvSystem::pal_625_50, 0);
    for (std::size_t b = 0; b < silent.size() / 80; ++b) {
        if ((silent[b * 80] >> 5) == 3) {
            silent[b * 80 + 3] = 0xFF;
        }
    }
    const auto info = inspect_dv_frame(silent);
    ASSERT_TRUE(info);
    EXPECT_FALSE(info->audio);
    EXPECT_EQ(info->dvinfo.aaux_src, 0u);
}

TEST(DvFrame, PcmFormatArithmetic) {
    const PcmFormat stereo{2, 48000, 16};
    EXPECT_EQ(stereo.block_align(), 4);
    EXPECT_EQ(stereo.bytes_per_second(), 192000u);
    const PcmFormat quad{4, 32000, 16};
    EXPECT_EQ(quad.block_align(), 8);
    EXPECT_EQ(quad.bytes_per_second(), 256000u);
}

}  // namespace
}  // namespace kc::avi
