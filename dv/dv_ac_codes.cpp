#include "dv/dv_ac_codes.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <initializer_list>
#include <utility>

namespace kc::dv {
namespace {

// The code table, (run, amplitude) in code order by code length (sign bit not counted).
// The codes are canonical: each is the previous plus one, shifted left as the length grows.
// {-1, -1} is the end of the block.
struct Row {
    int length;
    std::initializer_list<std::pair<int, int>> symbols;
};
constexpr Row rows[] = {
    {2, {{0, 1}}},
    {3, {{0, 2}}},
    {4, {{-1, -1}, {1, 1}, {0, 3}, {0, 4}}},
    {5, {{2, 1}, {1, 2}, {0, 5}, {0, 6}}},
    {6, {{3, 1}, {4, 1}, {0, 7}, {0, 8}}},
    {7, {{5, 1}, {6, 1}, {2, 2}, {1, 3}, {1, 4}, {0, 9}, {0, 10}, {0, 11}}},
    {8,
     {{7, 1},
      {8, 1},
      {9, 1},
      {10, 1},
      {3, 2},
      {4, 2},
      {2, 3},
      {1, 5},
      {1, 6},
      {1, 7},
      {0, 12},
      {0, 13},
      {0, 14},
      {0, 15},
      {0, 16},
      {0, 17}}},
    {9,
     {{11, 1},
      {12, 1},
      {13, 1},
      {14, 1},
      {5, 2},
      {6, 2},
      {3, 3},
      {4, 3},
      {2, 4},
      {2, 5},
      {1, 8},
      {0, 18},
      {0, 19},
      {0, 20},
      {0, 21},
      {0, 22}}},
    {10, {{5, 3}, {3, 4}, {3, 5}, {2, 6}, {1, 9}, {1, 10}, {1, 11}}},
    {11, {{0, 0}, {1, 0}, {6, 3}, {4, 4}, {3, 6}, {1, 12}, {1, 13}, {1, 14}}},
    {12, {{2, 0}, {3, 0}, {4, 0}, {5, 0}, {7, 2}, {8, 2},  {9, 2},  {10, 2}, {7, 3},  {8, 3},
          {4, 5}, {3, 7}, {2, 7}, {2, 8}, {2, 9}, {2, 10}, {2, 11}, {1, 15}, {1, 16}, {1, 17}}},
};
// After the table: 1111110 and a 6-bit run of zeros, 1111111 and an 8-bit amplitude.
constexpr std::uint32_t run_escape = 0b1111110;
constexpr int run_escape_bits = 13;
constexpr int amplitude_escape_bits = 16;

// What the first 13 bits of a code say, sign included.
struct Entry {
    std::uint8_t bits = 0;  // 0: an escape
    std::int8_t run = 0;    // -1: the end of the block
    std::int16_t amplitude = 0;
};

constexpr std::array<Entry, 1 << 13> make_lookup() {
    std::array<Entry, 1 << 13> lookup{};
    std::uint32_t code = 0;
    int length = rows[0].length;
    for (const Row& row : rows) {
        code <<= row.length - length;
        length = row.length;
        for (const auto& [run, amplitude] : row.symbols) {
            const bool end = run < 0;
            const bool signed_code = !end && amplitude != 0;
            for (int sign = 0; sign <= (signed_code ? 1 : 0); ++sign) {
                const int bits = length + (signed_code ? 1 : 0);
                const std::uint32_t prefix = signed_code ? (code << 1) | sign : code;
                const std::uint32_t first = prefix << (13 - bits);
                for (std::uint32_t i = 0; i < (1u << (13 - bits)); ++i) {
                    lookup[first + i] = {static_cast<std::uint8_t>(bits),
                                         static_cast<std::int8_t>(run),
                                         static_cast<std::int16_t>(sign ? -amplitude : amplitude)};
                }
            }
            ++code;
        }
    }
    return lookup;
}

constexpr std::array<Entry, 1 << 13> lookup = make_lookup();

// Nearly all codes are 10 bits or shorter: a table of those small enough to stay in the
// cache, with `bits` 0xff where the code is longer.
constexpr std::uint8_t longer = 0xff;
constexpr std::array<Entry, 1 << 10> make_short_lookup() {
    std::array<Entry, 1 << 10> short_lookup{};
    for (std::size_t i = 0; i < short_lookup.size(); ++i) {
        const Entry& entry = lookup[i << 3];
        short_lookup[i] = entry.bits != 0 && entry.bits <= 10 ? entry : Entry{longer, 0, 0};
    }
    return short_lookup;
}
constexpr std::array<Entry, 1 << 10> short_lookup = make_short_lookup();

}  // namespace

int read_own_coefficients(std::span<const std::uint8_t> block, int last,
                          std::array<AcCoefficient, 64>& out) {
    // The block's bytes and two zeros, so that any 16 bits from a place inside the block can
    // be read at once.
    std::array<std::uint8_t, 16 + 2> bytes{};
    const std::size_t size = std::min(block.size(), std::size_t{16});
    std::copy_n(block.begin(), size, bytes.begin());
    const std::size_t end = size * 8;
    std::size_t bit = 12;
    int index = 1;
    int count = 0;
    while (bit < end) {
        const std::size_t byte = bit / 8;
        const std::uint32_t window = (((std::uint32_t{bytes[byte]} << 16) |
                                       (std::uint32_t{bytes[byte + 1]} << 8) | bytes[byte + 2]) >>
                                      (8 - bit % 8)) &
                                     0xffffu;
        const Entry* entry = &short_lookup[window >> 6];
        if (entry->bits == longer) {
            entry = &lookup[window >> 3];
        }
        std::size_t bits = entry->bits;
        int run = entry->run;
        int amplitude = entry->amplitude;
        if (bits == 0 && (window >> 9) == run_escape) {
            bits = run_escape_bits;
            run = static_cast<int>((window >> 3) & 0x3f);
        } else if (bits == 0) {
            bits = amplitude_escape_bits;
            amplitude = static_cast<int>((window >> 1) & 0xff);
            amplitude = (window & 1) ? -amplitude : amplitude;
        }
        // The end of the block, or a code that goes on in another block's bits.
        if (run < 0 || bit + bits > end) {
            break;
        }
        bit += bits;
        index += run;
        if (amplitude == 0) {
            ++index;
            continue;
        }
        if (index > last) {
            break;
        }
        out[static_cast<std::size_t>(count++)] = {static_cast<std::uint8_t>(index),
                                                  static_cast<std::int16_t>(amplitude)};
        ++index;
    }
    return count;
}

}  // namespace kc::dv
