// Checks the DV frames a capture file holds against the tape they were played from: each
// is a tape frame (found by the mark make_tape_bytes stamps), byte for byte, in tape
// order, none twice. With the file reading and writing such checks need.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <vector>

#include "tests/unit/avi/riff_reader.h"
#include "tests/unit/deck/deck_test_tapes.h"

namespace kc::deck::testing {

inline std::vector<std::uint8_t> read_file_bytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void write_file_bytes(const std::string& path, const std::vector<std::uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

inline void expect_tape_frames(std::span<const std::uint8_t> file,
                               const std::vector<const kc::avi::test::Chunk*>& chunks,
                               const std::vector<std::uint8_t>& tape, const TapePlan& plan) {
    const std::size_t frame_size = frame_bytes(plan.system);
    std::int64_t previous = -1;
    for (const auto* chunk : chunks) {
        ASSERT_EQ(chunk->size, frame_size);
        const std::vector<std::uint8_t> frame(
            file.begin() + static_cast<long>(chunk->data),
            file.begin() + static_cast<long>(chunk->data + frame_size));
        const std::int64_t n = frame_mark(frame);
        ASSERT_GT(n, previous) << "frames in tape order, none twice";
        ASSERT_LT(n, plan.total_frames());
        ASSERT_TRUE(std::equal(frame.begin(), frame.end(),
                               tape.begin() + static_cast<long>(n * frame_size)))
            << "frame " << n << " as the tape has it";
        previous = n;
    }
}

}  // namespace kc::deck::testing
