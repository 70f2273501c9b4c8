// The sound of an SD DV frame (IEC 61834-2, SMPTE 314M): its format from the AAUX source
// pack, and its samples out of (and into) the audio DIF blocks.
//
// Where the sound is. Every DIF sequence holds 9 audio blocks (DBN 0..8), one before every
// 15 video blocks. Each carries its 3-byte ID, one 5-byte AAUX pack, then 72 bytes of
// samples (bytes 8..79 of the block). The first half of the sequences carries the first
// audio channel block (CH1, or the pair CH1/CH2 when two channels share a block), the
// second half the second (CH2, or CH3/CH4).
//
// AAUX source pack (0x50):
//   PC1: LF in bit 7 (0: locked audio), AF_SIZE in bits 5-0: samples this frame carries
//        per channel, above the least its system and rate allow;
//   PC2: CHN in bits 6-5: channels per audio block, less one; audio mode in bits 3-0;
//   PC3: 50/60 in bit 5, STYPE in bits 4-0;
//   PC4: SMP in bits 5-3 (0 48 kHz, 1 44.1 kHz, 2 32 kHz), QU in bits 2-0 (0 16-bit
//        linear, 1 12-bit nonlinear).
//
// Shuffling. Sample n of a channel block sits in sequence (n/3 + 2(n%3)) mod S (S the
// sequences of that half: 5 or 6), audio block 3(n%3) + (n%B)/(B/3), at byte 8 + w(n/B),
// where B is 45 on 525-60 and 54 on 625-50, and w the bytes a sample (16-bit) or a sample
// pair (12-bit) takes: 2 or 3. 16-bit samples are big-endian. A 12-bit pair is the top 8
// bits of the first channel, the top 8 bits of the second, then their low 4 bits in that
// order, high nibble first.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "dv/dv_frame.h"

namespace kc::dv {

inline constexpr std::uint8_t pack_aaux_source = 0x50;

enum class AudioQuantization { linear_16, nonlinear_12 };

struct AudioFormat {
    int sample_rate = 48000;
    AudioQuantization quantization = AudioQuantization::linear_16;
    // Samples per channel this frame carries.
    int samples = 0;
    // Channels the frame carries: 2, or 4 when 12-bit blocks hold two channels each.
    int channels = 2;
    bool locked = true;
    friend bool operator==(const AudioFormat&, const AudioFormat&) = default;
};

// The fewest and most samples per channel a frame of `system` may carry at `sample_rate`;
// 0 for a rate DV does not know.
int min_audio_samples(DvSystem system, int sample_rate);
int max_audio_samples(DvSystem system, int sample_rate);

// The format an AAUX source pack (its five bytes, the header 0x50 first) announces for a
// frame of `system`, counting 4 channels whenever 12-bit blocks hold pairs; empty as
// read_audio_format.
std::optional<AudioFormat> audio_format_of_pack(std::span<const std::uint8_t, 5> pack,
                                                DvSystem system);

// The format the first AAUX source pack of the first channel block announces; empty when
// there is none or it names a rate, quantisation or sample count DV does not know.
std::optional<AudioFormat> read_audio_format(std::span<const std::uint8_t> frame, DvSystem system);

// The frame's first stereo pair as interleaved signed 16-bit samples (12-bit samples
// expanded), `format.samples` of each channel; empty as read_audio_format.
std::optional<AudioFormat> read_audio(std::span<const std::uint8_t> frame, DvSystem system,
                                      std::vector<std::int16_t>& stereo);

// Writes `samples` (interleaved, `format.channels` channels, `format.samples` of each)
// into the frame's audio blocks, and an AAUX source pack for the format into every audio
// block that carries one, or where recorders put them (block 3 of even sequences, block 0
// of odd ones) when none does. 16-bit frames carry 2 channels; 12-bit frames 2 (the
// second half of the sequences left silent) or 4.
void write_audio(std::span<std::uint8_t> frame, DvSystem system, const AudioFormat& format,
                 std::span<const std::int16_t> samples);

// The 12-bit nonlinear code of a 16-bit sample, and back. Codes are 12-bit two's
// complement (-2048..2047); 0x800 marks a sample lost on tape and is never written.
int compress_to_12bit(std::int16_t sample);
std::int16_t expand_12bit(int code);

}  // namespace kc::dv
