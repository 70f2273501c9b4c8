#include "dv/dv_frame.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

namespace kc::dv {
namespace {

// Offsets inside a subcode block: the 3-byte block ID, then six 8-byte sync blocks.
constexpr std::size_t ssyb_first = 3;
constexpr std::size_t ssyb_bytes = 8;
constexpr int ssybs_per_block = 6;
// Inside a sync block: ID0, ID1, a reserved byte, then the 5-byte pack.
constexpr std::size_t ssyb_pack = 3;

DifSection section_of(const std::uint8_t* block) {
    return static_cast<DifSection>(block[0] >> 5);
}
int dseq_of(const std::uint8_t* block) {
    return block[1] >> 4;
}
int dbn_of(const std::uint8_t* block) {
    return block[2];
}

bool block_is(const std::uint8_t* block, DifSection section, int dseq, int dbn) {
    return section_of(block) == section && dseq_of(block) == dseq && dbn_of(block) == dbn;
}

// DSF is bit 7 of the header block's first data byte; bit 6 is always 0.
std::optional<DvSystem> dsf_system(const std::uint8_t* header_block) {
    const std::uint8_t b = header_block[3];
    if (b & 0x40) {
        return std::nullopt;
    }
    return (b & 0x80) ? DvSystem::pal_625_50 : DvSystem::ntsc_525_60;
}

// Calls f(pack, sequence, ssyb_number) for every sync block of both subcode blocks of every
// sequence, sequences in order; ssyb_number runs 0..11 over the two blocks. Stops when f
// returns true.
template <typename Byte, typename F>
void for_each_ssyb(std::span<Byte> frame, DvSystem system, F&& f) {
    const int sequences = sequences_per_frame(system);
    for (int seq = 0; seq < sequences; ++seq) {
        for (int sc = 0; sc < 2; ++sc) {
            Byte* block = frame.data() + seq * dif_sequence_bytes + (1 + sc) * dif_block_bytes;
            for (int k = 0; k < ssybs_per_block; ++k) {
                Byte* ssyb = block + ssyb_first + k * ssyb_bytes;
                if (f(ssyb, seq, sc * ssybs_per_block + k)) {
                    return;
                }
            }
        }
    }
}

// Calls f(pack) for the five bytes of every VAUX pack of every sequence, in order. Stops
// when f returns true.
template <typename Byte, typename F>
void for_each_vaux_pack(std::span<Byte> frame, DvSystem system, F&& f) {
    constexpr std::size_t first_vaux_block = 3;
    constexpr int vaux_blocks = 3;
    constexpr int packs_per_block = 15;
    constexpr std::size_t pack_bytes = 5;
    for (int seq = 0; seq < sequences_per_frame(system); ++seq) {
        for (int v = 0; v < vaux_blocks; ++v) {
            Byte* block = frame.data() + seq * dif_sequence_bytes +
                          (first_vaux_block + static_cast<std::size_t>(v)) * dif_block_bytes;
            if (section_of(block) != DifSection::vaux) {
                continue;
            }
            for (int k = 0; k < packs_per_block; ++k) {
                if (f(block + 3 + k * pack_bytes)) {
                    return;
                }
            }
        }
    }
}

// The first pack of type `type` with information in it, VAUX first, then subcode.
std::optional<std::array<std::uint8_t, 5>> find_pack(std::span<const std::uint8_t> frame,
                                                     DvSystem system, std::uint8_t type) {
    std::optional<std::array<std::uint8_t, 5>> found;
    auto take = [&](const std::uint8_t* pc) {
        if (pc[0] != type || (pc[2] == 0xFF && pc[3] == 0xFF && pc[4] == 0xFF)) {
            return false;
        }
        found = std::array<std::uint8_t, 5>{pc[0], pc[1], pc[2], pc[3], pc[4]};
        return true;
    };
    for_each_vaux_pack(frame, system, take);
    if (!found) {
        for_each_ssyb(frame, system,
                      [&](const std::uint8_t* ssyb, int, int) { return take(ssyb + ssyb_pack); });
    }
    return found;
}

// Two BCD digits under `mask`; empty when a digit is above 9.
std::optional<int> bcd_field(std::uint8_t byte, std::uint8_t mask) {
    const std::uint8_t b = byte & mask;
    if ((b & 0x0F) > 9 || (b >> 4) > 9) {
        return std::nullopt;
    }
    return from_bcd(b);
}

}  // namespace

const char* system_name(DvSystem system) {
    return system == DvSystem::pal_625_50 ? "625-50 (PAL)" : "525-60 (NTSC)";
}

std::optional<DvSystem> system_of_frame_start(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < 2 * dif_block_bytes) {
        return std::nullopt;
    }
    if (!block_is(bytes.data(), DifSection::header, 0, 0) ||
        !block_is(bytes.data() + dif_block_bytes, DifSection::subcode, 0, 0)) {
        return std::nullopt;
    }
    return dsf_system(bytes.data());
}

bool is_whole_frame(std::span<const std::uint8_t> frame, DvSystem system) {
    if (frame.size() != frame_bytes(system) || system_of_frame_start(frame) != system) {
        return false;
    }
    for (int seq = 0; seq < sequences_per_frame(system); ++seq) {
        const std::uint8_t* s = frame.data() + seq * dif_sequence_bytes;
        if (!block_is(s, DifSection::header, seq, 0) ||
            !block_is(s + dif_block_bytes, DifSection::subcode, seq, 0) ||
            !block_is(s + 2 * dif_block_bytes, DifSection::subcode, seq, 1)) {
            return false;
        }
    }
    return true;
}

std::optional<std::size_t> find_frame(std::span<const std::uint8_t> bytes, DvSystem system,
                                      std::size_t from) {
    const std::size_t size = frame_bytes(system);
    for (std::size_t at = from; at + size <= bytes.size(); ++at) {
        // Cheap test of the header block's ID first: SCT 0, Dseq 0, DBN 0.
        if ((bytes[at] >> 5) != 0 || (bytes[at + 1] >> 4) != 0 || bytes[at + 2] != 0) {
            continue;
        }
        if (is_whole_frame(bytes.subspan(at, size), system)) {
            return at;
        }
    }
    return std::nullopt;
}

std::optional<BcdTimecode> read_timecode(std::span<const std::uint8_t> frame, DvSystem system) {
    if (frame.size() < frame_bytes(system)) {
        return std::nullopt;
    }
    std::optional<BcdTimecode> found;
    for_each_ssyb(frame, system, [&](const std::uint8_t* ssyb, int, int) {
        const std::uint8_t* pc = ssyb + ssyb_pack;
        if (pc[0] != pack_timecode) {
            return false;
        }
        if (pc[1] == 0xFF && pc[2] == 0xFF && pc[3] == 0xFF && pc[4] == 0xFF) {
            return false;
        }
        found = (static_cast<BcdTimecode>(pc[4] & 0x3F) << 24) |
                (static_cast<BcdTimecode>(pc[3] & 0x7F) << 16) |
                (static_cast<BcdTimecode>(pc[2] & 0x7F) << 8) | (pc[1] & 0x3F);
        return true;
    });
    return found;
}

std::optional<std::uint32_t> read_user_bits(std::span<const std::uint8_t> frame, DvSystem system) {
    if (frame.size() < frame_bytes(system)) {
        return std::nullopt;
    }
    std::optional<std::uint32_t> found;
    for_each_ssyb(frame, system, [&](const std::uint8_t* ssyb, int, int) {
        const std::uint8_t* pc = ssyb + ssyb_pack;
        if (pc[0] != pack_binary_group) {
            return false;
        }
        found = pc[1] | (static_cast<std::uint32_t>(pc[2]) << 8) |
                (static_cast<std::uint32_t>(pc[3]) << 16) |
                (static_cast<std::uint32_t>(pc[4]) << 24);
        return true;
    });
    return found;
}

void write_subcode(std::span<std::uint8_t> frame, DvSystem system, BcdTimecode timecode,
                   std::uint32_t user_bits, bool drop_frame) {
    if (frame.size() < frame_bytes(system)) {
        return;
    }
    // The timecode pack. 525-60: PC1 bit 7 colour frame, bit 6 drop frame; PC2 bit 7
    // polarity; PC3 bit 7 and PC4 bits 7-6 binary group format. 625-50 moves the flags
    // of PC2 to PC4 around but keeps the same positions. Colour framing is not claimed;
    // the flags of PC2 to PC4 are 1, as recorders leave them when they carry no meaning.
    const std::uint8_t df = (system == DvSystem::ntsc_525_60 && drop_frame) ? 0x40 : 0x00;
    const std::array<std::uint8_t, 5> tc{
        pack_timecode,
        static_cast<std::uint8_t>(df | (timecode & 0x3F)),
        static_cast<std::uint8_t>(0x80 | ((timecode >> 8) & 0x7F)),
        static_cast<std::uint8_t>(0x80 | ((timecode >> 16) & 0x7F)),
        static_cast<std::uint8_t>(0xC0 | ((timecode >> 24) & 0x3F)),
    };
    const std::array<std::uint8_t, 5> bg{
        pack_binary_group,
        static_cast<std::uint8_t>(user_bits),
        static_cast<std::uint8_t>(user_bits >> 8),
        static_cast<std::uint8_t>(user_bits >> 16),
        static_cast<std::uint8_t>(user_bits >> 24),
    };
    const int half = sequences_per_frame(system) / 2;
    for_each_ssyb(frame, system, [&](std::uint8_t* ssyb, int seq, int number) {
        const bool first_half = seq < half;
        // ID0: FR in bit 7, the other bits reserved (1); ID1: reserved high nibble, then
        // the sync block number; then the reserved byte.
        ssyb[0] = first_half ? 0x8F : 0x0F;
        ssyb[1] = static_cast<std::uint8_t>(0xF0 | number);
        ssyb[2] = 0xFF;
        const int slot = number % ssybs_per_block;
        const std::array<std::uint8_t, 5>* pack = nullptr;
        if (slot == 0 || slot == 3) {
            pack = &tc;
        } else if (first_half) {
            pack = (slot == 1 || slot == 4) ? &bg : &tc;
        }
        if (pack != nullptr) {
            std::copy(pack->begin(), pack->end(), ssyb + ssyb_pack);
        }
        return false;
    });
}

std::optional<RecordingTime> read_recording_time(std::span<const std::uint8_t> frame,
                                                 DvSystem system) {
    if (frame.size() < frame_bytes(system)) {
        return std::nullopt;
    }
    const auto date = find_pack(frame, system, pack_rec_date);
    const auto time = find_pack(frame, system, pack_rec_time);
    if (!date || !time) {
        return std::nullopt;
    }
    const auto day = bcd_field((*date)[2], 0x3F);
    const auto month = bcd_field((*date)[3], 0x1F);
    const auto year = bcd_field((*date)[4], 0xFF);
    const auto second = bcd_field((*time)[2], 0x7F);
    const auto minute = bcd_field((*time)[3], 0x7F);
    const auto hour = bcd_field((*time)[4], 0x3F);
    if (!day || !month || !year || !second || !minute || !hour || *day < 1 || *day > 31 ||
        *month < 1 || *month > 12 || *hour > 23 || *minute > 59 || *second > 59) {
        return std::nullopt;
    }
    return RecordingTime{
        *year < 70 ? 2000 + *year : 1900 + *year, *month, *day, *hour, *minute, *second};
}

void write_recording_time(std::span<std::uint8_t> frame, DvSystem system,
                          const RecordingTime& time) {
    if (frame.size() < frame_bytes(system)) {
        return;
    }
    // The reserved bits above each field are 1, as recorders leave them; no day of the week.
    const std::array<std::uint8_t, 5> date{
        pack_rec_date, 0xFF, static_cast<std::uint8_t>(0xC0 | to_bcd(time.day)),
        static_cast<std::uint8_t>(0xE0 | to_bcd(time.month)), to_bcd(time.year % 100)};
    const std::array<std::uint8_t, 5> clock{pack_rec_time, 0xFF,
                                            static_cast<std::uint8_t>(0x80 | to_bcd(time.second)),
                                            static_cast<std::uint8_t>(0x80 | to_bcd(time.minute)),
                                            static_cast<std::uint8_t>(0xC0 | to_bcd(time.hour))};
    bool carried = false;
    auto put = [&](std::uint8_t* pc) {
        if (pc[0] == pack_rec_date) {
            std::copy(date.begin(), date.end(), pc);
            carried = true;
        } else if (pc[0] == pack_rec_time) {
            std::copy(clock.begin(), clock.end(), pc);
            carried = true;
        }
        return false;
    };
    for_each_vaux_pack(frame, system, put);
    for_each_ssyb(frame, system,
                  [&](std::uint8_t* ssyb, int, int) { return put(ssyb + ssyb_pack); });
    if (carried) {
        return;
    }
    // A frame that had none gets them where encoders put them: after the video source and
    // control packs of each VAUX block, in slots that hold no information.
    int slot = 0;
    for_each_vaux_pack(frame, system, [&](std::uint8_t* pc) {
        const int k = slot++ % 15;
        if ((k == 2 || k == 3) && pc[0] == pack_no_info) {
            const auto& pack = k == 2 ? date : clock;
            std::copy(pack.begin(), pack.end(), pc);
        }
        return false;
    });
}

std::string to_text(const RecordingTime& time) {
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", time.year, time.month,
                  time.day, time.hour, time.minute, time.second);
    return text;
}

RecordingTime add_seconds(const RecordingTime& time, std::int64_t seconds) {
    using namespace std::chrono;
    const sys_days day = year_month_day{year{time.year}, month{static_cast<unsigned>(time.month)},
                                        std::chrono::day{static_cast<unsigned>(time.day)}};
    const sys_seconds at = day + hours{time.hour} + minutes{time.minute} +
                           std::chrono::seconds{time.second} + std::chrono::seconds{seconds};
    const sys_days new_day = floor<days>(at);
    const year_month_day ymd{new_day};
    const hh_mm_ss clock{at - new_day};
    return RecordingTime{static_cast<int>(ymd.year()),
                         static_cast<int>(static_cast<unsigned>(ymd.month())),
                         static_cast<int>(static_cast<unsigned>(ymd.day())),
                         static_cast<int>(clock.hours().count()),
                         static_cast<int>(clock.minutes().count()),
                         static_cast<int>(clock.seconds().count())};
}

}  // namespace kc::dv
