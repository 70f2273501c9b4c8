#include "dv/dv_audio.h"

#include <algorithm>

namespace kc::dv {
namespace {

constexpr int audio_blocks_per_sequence = 9;
constexpr std::size_t audio_data_first = 8;  // after the block ID and the AAUX pack
constexpr int lost_12bit = -2048;

// Audio block k of a sequence follows the header, two subcode and three VAUX blocks and
// then comes once every 16 blocks, ahead of its 15 video blocks.
constexpr std::size_t audio_block_offset(int sequence, int block) {
    return static_cast<std::size_t>(sequence) * dif_sequence_bytes +
           static_cast<std::size_t>(6 + 16 * block) * dif_block_bytes;
}

struct RateLimits {
    int rate;
    int min_525;
    int max_525;
    int min_625;
    int max_625;
};

// The sample counts a frame may carry, by rate: locked audio stays near rate / frame rate,
// unlocked audio may drift a little further; AF_SIZE counts from the least.
constexpr RateLimits rate_limits[] = {
    {48000, 1580, 1620, 1896, 1944},
    {44100, 1452, 1489, 1742, 1786},
    {32000, 1053, 1080, 1264, 1296},
};

const RateLimits* limits_of(int sample_rate) {
    for (const RateLimits& l : rate_limits) {
        if (l.rate == sample_rate) {
            return &l;
        }
    }
    return nullptr;
}

// Where the shuffle puts sample `n` of channel block `half` (0 or 1): the offset in the
// frame of its first byte.
std::size_t sample_offset(DvSystem system, int half, int n, std::size_t width) {
    const int sequences = sequences_per_frame(system) / 2;
    const int run = system == DvSystem::pal_625_50 ? 54 : 45;
    const int sequence = (n / 3 + 2 * (n % 3)) % sequences + half * sequences;
    const int block = 3 * (n % 3) + (n % run) / (run / 3);
    return audio_block_offset(sequence, block) + audio_data_first +
           width * static_cast<std::size_t>(n / run);
}

// The first AAUX source pack of the sequences of channel block `half`.
const std::uint8_t* find_source_pack(std::span<const std::uint8_t> frame, DvSystem system,
                                     int half) {
    const int sequences = sequences_per_frame(system) / 2;
    for (int seq = half * sequences; seq < (half + 1) * sequences; ++seq) {
        for (int b = 0; b < audio_blocks_per_sequence; ++b) {
            const std::uint8_t* block = frame.data() + audio_block_offset(seq, b);
            if (static_cast<DifSection>(block[0] >> 5) == DifSection::audio &&
                block[3] == pack_aaux_source) {
                return block + 3;
            }
        }
    }
    return nullptr;
}

int rate_code(int sample_rate) {
    return sample_rate == 44100 ? 1 : sample_rate == 32000 ? 2 : 0;
}

// The 12-bit code's 16-bit value for codes 0..2047: the first two segments of 256 codes are
// the value itself, each further segment doubles the step.
int expand_positive(int code) {
    const int segment = code >> 8;
    if (segment < 2) {
        return code;
    }
    const int shift = segment - 1;
    return (code - 256 * shift) << shift;
}

int compress_positive(int value) {
    if (value < 512) {
        return value;
    }
    int shift = 1;
    while ((value >> (shift + 9)) != 0) {
        ++shift;
    }
    return (value >> shift) + 256 * shift;
}

}  // namespace

int min_audio_samples(DvSystem system, int sample_rate) {
    const RateLimits* l = limits_of(sample_rate);
    return l == nullptr ? 0 : system == DvSystem::pal_625_50 ? l->min_625 : l->min_525;
}

int max_audio_samples(DvSystem system, int sample_rate) {
    const RateLimits* l = limits_of(sample_rate);
    return l == nullptr ? 0 : system == DvSystem::pal_625_50 ? l->max_625 : l->max_525;
}

// Negative codes mirror the positive ones bit for bit: code -1 - c stands for -1 - value.
int compress_to_12bit(std::int16_t sample) {
    const int code = sample >= 0 ? compress_positive(sample) : -1 - compress_positive(-1 - sample);
    return std::max(code, lost_12bit + 1);
}

std::int16_t expand_12bit(int code) {
    if (code == lost_12bit) {
        return 0;
    }
    return static_cast<std::int16_t>(code >= 0 ? expand_positive(code)
                                               : -1 - expand_positive(-1 - code));
}

std::optional<AudioFormat> audio_format_of_pack(std::span<const std::uint8_t, 5> pack,
                                                DvSystem system) {
    static constexpr int rates[] = {48000, 44100, 32000};
    const int smp = (pack[4] >> 3) & 7;
    const int qu = pack[4] & 7;
    if (pack[0] != pack_aaux_source || smp > 2 || qu > 1) {
        return std::nullopt;
    }
    AudioFormat format;
    format.sample_rate = rates[smp];
    format.quantization = qu == 0 ? AudioQuantization::linear_16 : AudioQuantization::nonlinear_12;
    format.samples = min_audio_samples(system, format.sample_rate) + (pack[1] & 0x3F);
    format.locked = (pack[1] & 0x80) == 0;
    format.channels = qu == 1 && ((pack[2] >> 5) & 3) == 1 ? 4 : 2;
    if (format.samples > max_audio_samples(system, format.sample_rate)) {
        return std::nullopt;
    }
    return format;
}

std::optional<AudioFormat> read_audio_format(std::span<const std::uint8_t> frame, DvSystem system) {
    if (frame.size() < frame_bytes(system)) {
        return std::nullopt;
    }
    const std::uint8_t* pack = find_source_pack(frame, system, 0);
    if (pack == nullptr) {
        return std::nullopt;
    }
    auto format = audio_format_of_pack(std::span<const std::uint8_t, 5>(pack, 5), system);
    // The second pair counts when its blocks say they carry something.
    const std::uint8_t* second = find_source_pack(frame, system, 1);
    if (format && (second == nullptr || (second[2] & 0x0F) == 0x0F)) {
        format->channels = 2;
    }
    return format;
}

std::optional<AudioFormat> read_audio(std::span<const std::uint8_t> frame, DvSystem system,
                                      std::vector<std::int16_t>& stereo) {
    const auto format = read_audio_format(frame, system);
    if (!format) {
        return std::nullopt;
    }
    stereo.resize(static_cast<std::size_t>(format->samples) * 2);
    const std::uint8_t* bytes = frame.data();
    for (int n = 0; n < format->samples; ++n) {
        std::int16_t* out = stereo.data() + 2 * n;
        if (format->quantization == AudioQuantization::linear_16) {
            for (int half = 0; half < 2; ++half) {
                const std::uint8_t* s = bytes + sample_offset(system, half, n, 2);
                out[half] = static_cast<std::int16_t>((s[0] << 8) | s[1]);
            }
        } else {
            const std::uint8_t* s = bytes + sample_offset(system, 0, n, 3);
            // Sign-extend the 12-bit codes through the top of a 16-bit word.
            const auto first = static_cast<std::int16_t>((s[0] << 8) | (s[2] & 0xF0));
            const auto second = static_cast<std::int16_t>((s[1] << 8) | ((s[2] & 0x0F) << 4));
            out[0] = expand_12bit(first >> 4);
            out[1] = expand_12bit(second >> 4);
        }
    }
    return format;
}

void write_audio(std::span<std::uint8_t> frame, DvSystem system, const AudioFormat& format,
                 std::span<const std::int16_t> samples) {
    const int min = min_audio_samples(system, format.sample_rate);
    const auto channels = static_cast<std::size_t>(format.channels);
    if (frame.size() < frame_bytes(system) || min == 0 || format.samples < min ||
        format.samples > max_audio_samples(system, format.sample_rate) ||
        samples.size() < channels * static_cast<std::size_t>(format.samples)) {
        return;
    }
    const bool twelve = format.quantization == AudioQuantization::nonlinear_12;
    const bool pal = system == DvSystem::pal_625_50;
    for (int half = 0; half < 2; ++half) {
        // Mode 0 is the first channel of a stereo pair (or the pair itself), 1 the second;
        // 0xF says the block carries nothing.
        const bool silent = twelve && half == 1 && channels < 4;
        const int mode = silent ? 0xF : twelve ? 0 : half;
        const std::uint8_t pack[5] = {
            pack_aaux_source,
            static_cast<std::uint8_t>((format.locked ? 0x00 : 0x80) | 0x40 |
                                      (format.samples - min)),
            static_cast<std::uint8_t>(0x80 | ((twelve ? 1 : 0) << 5) | 0x10 | mode),
            static_cast<std::uint8_t>(0x80 | (pal ? 0x20 : 0x00) | (channels == 4 ? 2 : 0)),
            static_cast<std::uint8_t>(0x80 | (rate_code(format.sample_rate) << 3) |
                                      (twelve ? 1 : 0)),
        };
        const bool carried = find_source_pack(frame, system, half) != nullptr;
        const int sequences = sequences_per_frame(system) / 2;
        for (int seq = half * sequences; seq < (half + 1) * sequences; ++seq) {
            for (int b = 0; b < audio_blocks_per_sequence; ++b) {
                std::uint8_t* block = frame.data() + audio_block_offset(seq, b);
                const bool slot = b == (seq % 2 == 0 ? 3 : 0);
                if (carried ? block[3] == pack_aaux_source : slot) {
                    std::copy(pack, pack + 5, block + 3);
                }
                std::fill(block + audio_data_first, block + dif_block_bytes, 0);
            }
        }
    }
    for (int n = 0; n < format.samples; ++n) {
        const std::int16_t* in = samples.data() + channels * static_cast<std::size_t>(n);
        if (!twelve) {
            for (int half = 0; half < 2; ++half) {
                std::uint8_t* s = frame.data() + sample_offset(system, half, n, 2);
                s[0] = static_cast<std::uint8_t>(static_cast<std::uint16_t>(in[half]) >> 8);
                s[1] = static_cast<std::uint8_t>(in[half]);
            }
            continue;
        }
        for (std::size_t pair = 0; pair * 2 < channels; ++pair) {
            std::uint8_t* s = frame.data() + sample_offset(system, static_cast<int>(pair), n, 3);
            const int first = compress_to_12bit(in[2 * pair]) & 0xFFF;
            const int second = compress_to_12bit(in[2 * pair + 1]) & 0xFFF;
            s[0] = static_cast<std::uint8_t>(first >> 4);
            s[1] = static_cast<std::uint8_t>(second >> 4);
            s[2] = static_cast<std::uint8_t>(((first & 0xF) << 4) | (second & 0xF));
        }
    }
}

}  // namespace kc::dv
