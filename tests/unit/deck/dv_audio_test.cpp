#include "dv/dv_audio.h"

#include <gtest/gtest.h>

#include "tests/unit/deck/deck_test_tapes.h"

namespace kc::deck {
namespace {

// The segment boundaries of the 12-bit nonlinear code as the format's table gives them:
// 16-bit value, code.
TEST(DvAudio, TwelveBitCodeFollowsTheFormatTable) {
    const std::pair<int, int> table[] = {
        {0, 0x000},    {255, 0x0FF},   {511, 0x1FF},   {512, 0x200},    {1024, 0x300},
        {2048, 0x400}, {4096, 0x500},  {8192, 0x600},  {16384, 0x700},  {32704, 0x7FF},
        {-1, -1},      {-512, -0x200}, {-513, -0x201}, {-16385, -0x701}};
    for (const auto& [value, code] : table) {
        EXPECT_EQ(dv::compress_to_12bit(static_cast<std::int16_t>(value)), code) << value;
        EXPECT_EQ(dv::expand_12bit(code), value) << code;
    }
    // The loudest negative sample must not become the lost-sample code.
    EXPECT_EQ(dv::compress_to_12bit(-32768), -2047);
    EXPECT_EQ(dv::expand_12bit(-2048), 0);
}

// Rates and layouts the GStreamer comparison does not reach: 44.1 kHz unlocked on 525-60,
// and 12-bit with both pairs recorded, of which the first is read.
TEST(DvAudio, WrittenSoundReadsBack) {
    auto frame = testing::make_frame(DvSystem::ntsc_525_60);
    EXPECT_FALSE(dv::read_audio_format(frame, DvSystem::ntsc_525_60));

    const dv::AudioFormat unlocked{44100, dv::AudioQuantization::linear_16, 1480, 2, false};
    std::vector<std::int16_t> stereo(2 * 1480);
    for (std::size_t i = 0; i < stereo.size(); ++i) {
        stereo[i] = static_cast<std::int16_t>(i * 37 - 30000);
    }
    dv::write_audio(frame, DvSystem::ntsc_525_60, unlocked, stereo);
    std::vector<std::int16_t> read;
    EXPECT_EQ(dv::read_audio(frame, DvSystem::ntsc_525_60, read), unlocked);
    EXPECT_EQ(read, stereo);

    auto pal = testing::make_frame(DvSystem::pal_625_50);
    const dv::AudioFormat four{32000, dv::AudioQuantization::nonlinear_12, 1296, 4, true};
    std::vector<std::int16_t> samples(4 * 1296);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        // Small values are exact in 12 bits; the second pair differs from the first.
        samples[i] = static_cast<std::int16_t>(i % 4 < 2 ? (i % 500) - 250 : 300);
    }
    dv::write_audio(pal, DvSystem::pal_625_50, four, samples);
    EXPECT_EQ(dv::read_audio(pal, DvSystem::pal_625_50, read), four);
    ASSERT_EQ(read.size(), 2u * 1296);
    for (std::size_t n = 0; n < 1296; ++n) {
        ASSERT_EQ(read[2 * n], samples[4 * n]) << n;
        ASSERT_EQ(read[2 * n + 1], samples[4 * n + 1]) << n;
    }
}

}  // namespace
}  // namespace kc::deck
