// What an AVI file needs to know about a DV frame: its system (525-60 or 625-50), its
// size, the frame rate and picture size that go with it, the AAUX and VAUX packs that
// make up the DVINFO stream format, and the audio format the frame announces.
//
// A DV frame (IEC 61834-2, SD "dvsd") is 10 (525-60) or 12 (625-50) DIF sequences of
// 150 DIF blocks of 80 bytes. Each block starts with a 3-byte ID whose first byte holds
// the section type in its top three bits: 0 header, 1 subcode, 2 VAUX, 3 audio, 4 video.
// The frame's first block is the header block of sequence 0; bit 7 of its byte 3 (DSF)
// tells the system: 0 for 525-60, 1 for 625-50.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace kc::avi {

enum class DvSystem { ntsc_525_60, pal_625_50 };

inline constexpr std::size_t dif_block_bytes = 80;
inline constexpr std::size_t dif_blocks_per_sequence = 150;
inline constexpr std::size_t dv_ntsc_frame_bytes = 10 * dif_blocks_per_sequence * dif_block_bytes;
inline constexpr std::size_t dv_pal_frame_bytes = 12 * dif_blocks_per_sequence * dif_block_bytes;

// The DVINFO stream format: the four data bytes (PC1..PC4, PC1 in the low byte) of the
// AAUX source and source-control packs of each audio channel block, and of the VAUX
// source and source-control packs. A pack the frame does not carry reads as zero.
struct DvInfo {
    std::uint32_t aaux_src = 0;
    std::uint32_t aaux_ctl = 0;
    std::uint32_t aaux_src1 = 0;
    std::uint32_t aaux_ctl1 = 0;
    std::uint32_t vaux_src = 0;
    std::uint32_t vaux_ctl = 0;
    friend bool operator==(const DvInfo&, const DvInfo&) = default;
};

// Interleaved signed 16-bit little-endian PCM, the only audio a DV capture writes.
struct PcmFormat {
    std::uint16_t channels = 2;
    std::uint32_t sample_rate = 48000;
    std::uint16_t bits_per_sample = 16;
    std::uint16_t block_align() const {
        return static_cast<std::uint16_t>(channels * bits_per_sample / 8);
    }
    std::uint32_t bytes_per_second() const { return sample_rate * block_align(); }
    friend bool operator==(const PcmFormat&, const PcmFormat&) = default;
};

struct DvFrameInfo {
    DvSystem system = DvSystem::pal_625_50;
    std::size_t frame_bytes = dv_pal_frame_bytes;
    // Frames per second as rate / scale: 25/1 or 30000/1001.
    std::uint32_t rate = 25;
    std::uint32_t scale = 1;
    std::uint32_t width = 720;
    std::uint32_t height = 576;
    DvInfo dvinfo;
    // The audio format of the AAUX source pack of the first channel block, if any.
    std::optional<PcmFormat> audio;
};

// The system a frame claims, from its first DIF block alone; empty when the bytes do not
// start with a header block of sequence 0. Needs at least 4 bytes.
std::optional<DvSystem> dv_system_of(std::span<const std::uint8_t> bytes);

std::size_t dv_frame_bytes(DvSystem system);

// Inspects one complete DV frame. Empty when it does not start with a header block or
// its length is not the length its system requires.
std::optional<DvFrameInfo> inspect_dv_frame(std::span<const std::uint8_t> frame);

}  // namespace kc::avi
