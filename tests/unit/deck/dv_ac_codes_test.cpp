#include "dv/dv_ac_codes.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kc::dv {
namespace {

// A DCT block's bytes from its bits written out, zero-padded to `bytes`.
std::vector<std::uint8_t> block_of(const std::string& bits, std::size_t bytes) {
    std::vector<std::uint8_t> block(bytes, 0);
    for (std::size_t i = 0; i < bits.size() && i / 8 < bytes; ++i) {
        if (bits[i] == '1') {
            block[i / 8] |= static_cast<std::uint8_t>(0x80 >> (i % 8));
        }
    }
    return block;
}

// Each kind of code once: short ones with either sign, a zero coefficient, both escapes, long
// ones of 11 and 12 bits, then the end of the block. A wrong table entry, sign or escape layout
// moves every place after it.
TEST(DvAcCodes, ReadsTheBlocksOwnCodesInZigzagOrder) {
    const std::string bits = std::string(12, '0')  // DC, mode and class
                             + "000"               // run 0, +1: place 1
                             + "01111"             // run 1, -1: place 3
                             + "11111001110"       // one zero coefficient: place 4
                             + "1111110001010"     // a run of 10 and a zero: places 5..15
                             + "1111111011001001"  // run 0, -100: place 16
                             + "1111011110"        // run 0, +22: place 17
                             + "111110100001"      // run 6, -3 (11 bits): place 24
                             + "1111101111110"     // run 1, +17 (12 bits): place 26
                             + "0110";             // end of block
    std::array<AcCoefficient, 64> out{};
    const auto check = [&](int count, std::size_t expected) {
        ASSERT_EQ(static_cast<std::size_t>(count), expected);
        const int places[] = {1, 3, 16, 17, 24, 26};
        const int amplitudes[] = {1, -1, -100, 22, -3, 17};
        for (std::size_t i = 0; i < expected; ++i) {
            EXPECT_EQ(out[i].index, places[i]) << i;
            EXPECT_EQ(out[i].amplitude, amplitudes[i]) << i;
        }
    };
    check(read_own_coefficients(block_of(bits, 14), 63, out), 6);
    // Only what a small picture asks for.
    check(read_own_coefficients(block_of(bits, 14), 16, out), 3);
    // The large amplitude's code goes on past the block's own bytes: it is left for the rest.
    check(read_own_coefficients(block_of(bits, 7), 63, out), 2);
}

}  // namespace
}  // namespace kc::dv
