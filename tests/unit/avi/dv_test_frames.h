// Synthetic DV frames with the block structure of a real one: the header block with the
// DSF bit, subcode, VAUX blocks carrying source and control packs, audio blocks carrying
// AAUX packs, video blocks carrying a per-frame marker so that tests can tell frames apart.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/gst/avi/dv_frame.h"

namespace kc::avi::test {

struct TestPacks {
    std::uint32_t aaux_src = 0x80E000D8;  // 48 kHz, 16-bit, 1920 samples (PC1 in low byte)
    std::uint32_t aaux_ctl = 0xFFA0CF1C;
    std::uint32_t aaux_src1 = 0x80E000D8;
    std::uint32_t aaux_ctl1 = 0xFFA0CF1C;
    std::uint32_t vaux_src = 0xFFE0FFFF;
    std::uint32_t vaux_ctl = 0xFFFCC83F;
};

inline void put_pack(std::uint8_t* at, std::uint8_t id, std::uint32_t data) {
    at[0] = id;
    for (int i = 0; i < 4; ++i) {
        at[1 + i] = static_cast<std::uint8_t>(data >> (8 * i));
    }
}

inline std::vector<std::uint8_t> make_dv_frame(DvSystem system, std::uint32_t marker,
                                               const TestPacks& packs = {}) {
    const std::size_t sequences = system == DvSystem::pal_625_50 ? 12 : 10;
    std::vector<std::uint8_t> f(sequences * dif_blocks_per_sequence * dif_block_bytes, 0xFF);
    for (std::size_t seq = 0; seq < sequences; ++seq) {
        const bool channel2 = seq >= sequences / 2;
        for (std::size_t b = 0; b < dif_blocks_per_sequence; ++b) {
            std::uint8_t* block = f.data() + (seq * dif_blocks_per_sequence + b) * dif_block_bytes;
            // Header, subcode, VAUX, then an audio block before every 15 video blocks.
            const int section = b == 0 ? 0 : b < 3 ? 1 : b < 6 ? 2 : (b - 6) % 16 == 0 ? 3 : 4;
            block[0] = static_cast<std::uint8_t>((section << 5) | 0x1F);
            block[1] = static_cast<std::uint8_t>((seq << 4) | 0x07);
            block[2] = static_cast<std::uint8_t>(b);
            if (section == 0) {
                block[3] = system == DvSystem::pal_625_50 ? 0xBF : 0x3F;
            } else if (section == 2) {
                put_pack(block + 3, 0x60, packs.vaux_src);
                put_pack(block + 8, 0x61, packs.vaux_ctl);
            } else if (section == 3) {
                const std::size_t audio_block = (b - 6) / 16;
                if (audio_block == 0) {
                    put_pack(block + 3, 0x50, channel2 ? packs.aaux_src1 : packs.aaux_src);
                } else if (audio_block == 1) {
                    put_pack(block + 3, 0x51, channel2 ? packs.aaux_ctl1 : packs.aaux_ctl);
                }
            } else if (section == 4) {
                for (int i = 0; i < 4; ++i) {
                    block[3 + i] = static_cast<std::uint8_t>(marker >> (8 * i));
                }
            }
        }
    }
    return f;
}

}  // namespace kc::avi::test
