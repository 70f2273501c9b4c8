// DV frames and tape images built at test time: the DIF block structure of a frame (block
// IDs as a recorder writes them, empty payload), stamped with a plan's subcode.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <system_error>
#include <vector>

#include "deck/dv_terms.h"
#include "deck/tape_image.h"
#include "deck/tape_plan.h"

namespace kc::deck::testing {

// One frame with valid DIF structure and no recorded subcode or VAUX (every pack 0xFF).
inline std::vector<std::uint8_t> make_frame(DvSystem system) {
    std::vector<std::uint8_t> frame(frame_bytes(system), 0);
    auto block = [&](int seq, int n, DifSection section, int dbn) {
        std::uint8_t* b = frame.data() + seq * dif_sequence_bytes + n * dif_block_bytes;
        b[0] = static_cast<std::uint8_t>((static_cast<int>(section) << 5) | 0x1F);
        b[1] = static_cast<std::uint8_t>((seq << 4) | 0x07);
        b[2] = static_cast<std::uint8_t>(dbn);
        return b;
    };
    for (int seq = 0; seq < sequences_per_frame(system); ++seq) {
        std::uint8_t* header = block(seq, 0, DifSection::header, 0);
        header[3] = system == DvSystem::pal_625_50 ? 0xBF : 0x3F;
        for (int sc = 0; sc < 2; ++sc) {
            std::uint8_t* b = block(seq, 1 + sc, DifSection::subcode, sc);
            std::fill(b + 3, b + dif_block_bytes, 0xFF);
        }
        for (int v = 0; v < 3; ++v) {
            std::uint8_t* b = block(seq, 3 + v, DifSection::vaux, v);
            std::fill(b + 3, b + dif_block_bytes, 0xFF);
        }
        // 144 blocks: an audio block before every 15 video blocks.
        for (int i = 0; i < 144; ++i) {
            if (i % 16 == 0) {
                block(seq, 6 + i, DifSection::audio, i / 16);
            } else {
                block(seq, 6 + i, DifSection::video, i - i / 16 - 1);
            }
        }
    }
    return frame;
}

// The bytes of a whole tape: every frame of `plan`, stamped; frame n also carries n in the
// payload of its first video block, so that tests can tell frames apart.
inline std::vector<std::uint8_t> make_tape_bytes(const TapePlan& plan) {
    const std::vector<std::uint8_t> blank = make_frame(plan.system);
    std::vector<std::uint8_t> bytes;
    bytes.reserve(blank.size() * static_cast<std::size_t>(plan.total_frames()));
    for (std::int64_t n = 0; n < plan.total_frames(); ++n) {
        std::vector<std::uint8_t> frame = blank;
        stamp_frame(frame, plan.system, plan_frame(plan, n));
        const std::size_t mark = 7 * dif_block_bytes + 3;
        frame[mark] = static_cast<std::uint8_t>(n);
        frame[mark + 1] = static_cast<std::uint8_t>(n >> 8);
        bytes.insert(bytes.end(), frame.begin(), frame.end());
    }
    return bytes;
}

// The frame number make_tape_bytes marked a frame with.
inline std::int64_t frame_mark(const std::vector<std::uint8_t>& frame) {
    const std::size_t mark = 7 * dif_block_bytes + 3;
    return frame[mark] | (frame[mark + 1] << 8);
}

// A short tape: recordings of `frames` frames each, in the demo's order.
inline TapePlan small_plan(DvSystem system, std::int64_t frames, std::int64_t flagged = 3) {
    TapePlan plan = demo_plan(DemoOptions{system, 1.0, flagged});
    for (Recording& r : plan.recordings) {
        r.frames = frames;
    }
    // The third recording continues the second's timecode.
    plan.recordings[2].start =
        from_frame_count(to_frame_count(plan.recordings[1].start, system) + frames, system);
    return plan;
}

inline std::shared_ptr<const TapeImage> make_tape(const TapePlan& plan) {
    std::error_code error;
    return TapeImage::from_bytes(make_tape_bytes(plan), error);
}

// The AV/C CONTROL frame that seeks the tape to absolute track number `track`; the number
// travels doubled (bit 0 is the blank flag), low byte first.
inline std::array<std::uint8_t, 8> atn_seek_command(std::int64_t track) {
    const auto doubled = static_cast<std::uint32_t>(track << 1);
    return {0x00,
            0x20,
            0x52,
            0x20,
            static_cast<std::uint8_t>(doubled),
            static_cast<std::uint8_t>(doubled >> 8),
            static_cast<std::uint8_t>(doubled >> 16),
            0xFF};
}

}  // namespace kc::deck::testing
