#include "platform/gst/avi/dv_frame.h"

namespace kc::avi {

namespace {

enum class Section : std::uint8_t { header = 0, subcode = 1, vaux = 2, audio = 3, video = 4 };

constexpr std::uint8_t pack_aaux_source = 0x50;
constexpr std::uint8_t pack_aaux_control = 0x51;
constexpr std::uint8_t pack_vaux_source = 0x60;
constexpr std::uint8_t pack_vaux_control = 0x61;
// A VAUX block carries 15 packs of 5 bytes after its 3-byte ID.
constexpr std::size_t packs_per_vaux_block = 15;
constexpr std::size_t pack_bytes = 5;

Section section_of(const std::uint8_t* block) {
    return static_cast<Section>(block[0] >> 5);
}

// PC1..PC4 of a pack, PC1 in the low byte, as DVINFO stores them.
std::uint32_t pack_data(const std::uint8_t* pack) {
    return static_cast<std::uint32_t>(pack[1]) | (static_cast<std::uint32_t>(pack[2]) << 8) |
           (static_cast<std::uint32_t>(pack[3]) << 16) |
           (static_cast<std::uint32_t>(pack[4]) << 24);
}

struct AudioPacks {
    std::uint32_t source = 0;
    std::uint32_t control = 0;
    bool has_source = false;
};

// The first AAUX source and source-control packs of DIF sequences [first, last): each
// audio block carries one AAUX pack right after its ID, the rest is samples.
AudioPacks audio_packs(std::span<const std::uint8_t> frame, std::size_t first, std::size_t last) {
    AudioPacks packs;
    bool has_control = false;
    for (std::size_t seq = first; seq < last; ++seq) {
        for (std::size_t b = 0; b < dif_blocks_per_sequence; ++b) {
            const std::uint8_t* block =
                frame.data() + (seq * dif_blocks_per_sequence + b) * dif_block_bytes;
            if (section_of(block) != Section::audio) {
                continue;
            }
            const std::uint8_t* pack = block + 3;
            if (pack[0] == pack_aaux_source && !packs.has_source) {
                packs.source = pack_data(pack);
                packs.has_source = true;
            } else if (pack[0] == pack_aaux_control && !has_control) {
                packs.control = pack_data(pack);
                has_control = true;
            }
            if (packs.has_source && has_control) {
                return packs;
            }
        }
    }
    return packs;
}

// The audio format an AAUX source pack announces. PC4 holds SMP (bits 5..3: 0 48 kHz,
// 1 44.1 kHz, 2 32 kHz) and QU (bits 2..0: 0 16-bit, 1 12-bit); PC2 bits 6..5 (CHN)
// give the channels per audio block. 12-bit samples are widened to 16 bits when the
// audio is taken out of the frame, so the PCM written is always 16-bit.
std::optional<PcmFormat> audio_format(std::uint32_t source_pack) {
    const auto pc2 = static_cast<std::uint8_t>(source_pack >> 8);
    const auto pc4 = static_cast<std::uint8_t>(source_pack >> 24);
    PcmFormat format;
    switch ((pc4 >> 3) & 0x07) {
        case 0:
            format.sample_rate = 48000;
            break;
        case 1:
            format.sample_rate = 44100;
            break;
        case 2:
            format.sample_rate = 32000;
            break;
        default:
            return std::nullopt;
    }
    const int quantization = pc4 & 0x07;
    if (quantization > 1) {
        return std::nullopt;
    }
    const int channels_per_block = ((pc2 >> 5) & 0x03) + 1;
    format.channels =
        static_cast<std::uint16_t>(quantization == 1 && channels_per_block == 2 ? 4 : 2);
    format.bits_per_sample = 16;
    return format;
}

}  // namespace

std::optional<DvSystem> dv_system_of(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < 4) {
        return std::nullopt;
    }
    // Header section, DIF sequence 0 (byte 1 bits 7..4), block number 0.
    if (section_of(bytes.data()) != Section::header || (bytes[1] >> 4) != 0 || bytes[2] != 0) {
        return std::nullopt;
    }
    return (bytes[3] & 0x80) != 0 ? DvSystem::pal_625_50 : DvSystem::ntsc_525_60;
}

std::size_t dv_frame_bytes(DvSystem system) {
    return system == DvSystem::pal_625_50 ? dv_pal_frame_bytes : dv_ntsc_frame_bytes;
}

std::optional<DvFrameInfo> inspect_dv_frame(std::span<const std::uint8_t> frame) {
    const auto system = dv_system_of(frame);
    if (!system || frame.size() != dv_frame_bytes(*system)) {
        return std::nullopt;
    }
    DvFrameInfo info;
    info.system = *system;
    info.frame_bytes = frame.size();
    if (*system == DvSystem::pal_625_50) {
        info.rate = 25;
        info.scale = 1;
        info.height = 576;
    } else {
        info.rate = 30000;
        info.scale = 1001;
        info.height = 480;
    }
    info.width = 720;

    const std::size_t sequences = frame.size() / (dif_blocks_per_sequence * dif_block_bytes);
    const AudioPacks channel1 = audio_packs(frame, 0, sequences / 2);
    const AudioPacks channel2 = audio_packs(frame, sequences / 2, sequences);
    info.dvinfo.aaux_src = channel1.source;
    info.dvinfo.aaux_ctl = channel1.control;
    info.dvinfo.aaux_src1 = channel2.source;
    info.dvinfo.aaux_ctl1 = channel2.control;
    if (channel1.has_source) {
        info.audio = audio_format(channel1.source);
    }

    // VAUX blocks repeat the same packs; the first source and control pack win.
    bool has_vaux_source = false;
    bool has_vaux_control = false;
    const std::size_t blocks = frame.size() / dif_block_bytes;
    for (std::size_t b = 0; b < blocks && !(has_vaux_source && has_vaux_control); ++b) {
        const std::uint8_t* block = frame.data() + b * dif_block_bytes;
        if (section_of(block) != Section::vaux) {
            continue;
        }
        for (std::size_t p = 0; p < packs_per_vaux_block; ++p) {
            const std::uint8_t* pack = block + 3 + p * pack_bytes;
            if (pack[0] == pack_vaux_source && !has_vaux_source) {
                info.dvinfo.vaux_src = pack_data(pack);
                has_vaux_source = true;
            } else if (pack[0] == pack_vaux_control && !has_vaux_control) {
                info.dvinfo.vaux_ctl = pack_data(pack);
                has_vaux_control = true;
            }
        }
    }
    return info;
}

}  // namespace kc::avi
