// The variable-length codes of a DV DCT block's AC coefficients, read from the block's own
// bits.
//
// A DCT block is its DC coefficient (9 bits), its DCT mode (1 bit), its class (2 bits),
// then codes, in zigzag order, until an end-of-block code. Each code is a run of zero
// coefficients and an amplitude with a sign bit; an amplitude of 0 stands for one more zero
// coefficient. Escapes carry long runs of zeros (13 bits) and large amplitudes (16 bits).
// Codes that do not fit in the block's own bits continue in bits other blocks of the
// segment left unused; a reader of the block's own bits sees the coefficients that matter
// most, the lowest frequencies, which is what a small picture needs.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace kc::dv {

// One AC coefficient: its place in the zigzag order (1 to 63) and its quantised amplitude.
struct AcCoefficient {
    std::uint8_t index;
    std::int16_t amplitude;
};

// The AC coefficients that are not zero among those up to zigzag place `last`, as far as the
// block's own bytes (after its 12 leading bits) hold them; `out` gets them in order and the
// count is returned. A DCT block's own bytes are at most 14; more are not read.
int read_own_coefficients(std::span<const std::uint8_t> block, int last,
                          std::array<AcCoefficient, 64>& out);

}  // namespace kc::dv
