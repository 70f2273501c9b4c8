// What the virtual deck knows about SD DV frames ("dvsd", IEC 61834-2): their layout, how
// to recognise and find them in a byte stream, and the subcode packs that carry the
// tape's timecode and user bits.
//
// Layout. A frame is 10 DIF sequences (525-60) or 12 (625-50) of 150 DIF blocks of 80
// bytes: 120000 or 144000 bytes. Each block starts with a 3-byte ID:
//   ID0: section type SCT in bits 7-5 (0 header, 1 subcode, 2 VAUX, 3 audio, 4 video),
//        bit 4 reserved, bits 3-0 arbitrary (sequence counter on some recorders);
//   ID1: DIF sequence number Dseq in bits 7-4, FSC in bit 3, bits 2-0 reserved;
//   ID2: DIF block number DBN within its section.
// Every sequence starts with one header block, then two subcode blocks (DBN 0 and 1),
// three VAUX blocks and 144 audio and video blocks. Byte 3 of the header block holds the
// DSF flag in bit 7: 0 for 525-60 (NTSC), 1 for 625-50 (PAL).
//
// VAUX. Each of the three VAUX blocks of a sequence carries fifteen 5-byte packs after its
// ID: the video source and control packs, and the recording date (0x62) and time (0x63).
//
// Subcode. Each subcode block carries six sync blocks (SSYB) of 8 bytes after its ID,
// then 29 reserved bytes: SSYB ID0 (FR flag in bit 7: set in the first half of the
// sequences), SSYB ID1 (sync block number in bits 3-0), one reserved byte (0xFF) and a
// 5-byte pack: the pack header PC0 naming its kind, then the data bytes PC1 to PC4.
// A pack header 0xFF is "no information" (unrecorded). Two pack kinds matter here:
//   0x13 timecode (TC): packed BCD frames, seconds, minutes, hours in PC1..PC4; the top
//        bits of each byte are flags (colour frame, drop frame, polarity, binary group
//        format), so the digits are masked 0x3F, 0x7F, 0x7F, 0x3F;
//   0x14 binary group (BG): the 32 user bits of the timecode, binary groups 1 and 2 in
//        PC1 (group 1 in the low nibble) up to groups 7 and 8 in PC4.
// Recorders also repeat the recording date and time packs in the subcode of the second
// half of the sequences. Both are packed BCD with flags in the top bits:
//   0x62 REC DATE: PC1 time zone (0xFF: none), PC2 day (0x3F), PC3 month (0x1F, the day of
//        the week above it), PC4 two-digit year;
//   0x63 REC TIME: PC1 frames (0xFF: none), PC2 seconds (0x7F), PC3 minutes (0x7F), PC4
//        hours (0x3F).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace kc::dv {

enum class DvSystem { ntsc_525_60, pal_625_50 };

inline constexpr std::size_t dif_block_bytes = 80;
inline constexpr std::size_t dif_blocks_per_sequence = 150;
inline constexpr std::size_t dif_sequence_bytes = dif_block_bytes * dif_blocks_per_sequence;

constexpr int sequences_per_frame(DvSystem system) {
    return system == DvSystem::pal_625_50 ? 12 : 10;
}

constexpr std::size_t frame_bytes(DvSystem system) {
    return static_cast<std::size_t>(sequences_per_frame(system)) * dif_sequence_bytes;
}

// SD DV records one DIF sequence per helical track, so a frame takes as many tracks as it
// has sequences: 10 on 525-60 tape, 12 on 625-50. The absolute track number of a frame is
// its index on the tape times this.
constexpr int tracks_per_frame(DvSystem system) {
    return sequences_per_frame(system);
}

// Frames per second as num / den: 25/1, or 30000/1001 for 525-60.
struct FrameRate {
    std::int64_t num = 25;
    std::int64_t den = 1;
};

constexpr FrameRate frame_rate(DvSystem system) {
    return system == DvSystem::pal_625_50 ? FrameRate{25, 1} : FrameRate{30000, 1001};
}

const char* system_name(DvSystem system);

// DIF section types (the top three bits of a block's ID0).
enum class DifSection : std::uint8_t { header = 0, subcode = 1, vaux = 2, audio = 3, video = 4 };

// The system announced by the header block at the start of `bytes`: empty unless `bytes`
// begins with a header block of sequence 0 (DBN 0) followed by that sequence's first
// subcode block. Needs the first two blocks (160 bytes).
std::optional<DvSystem> system_of_frame_start(std::span<const std::uint8_t> bytes);

// Whether `frame` is one whole frame of `system`: its length is right and every sequence
// starts with its header block and two subcode blocks carrying the right sequence number.
bool is_whole_frame(std::span<const std::uint8_t> frame, DvSystem system);

// The offset of the first whole frame of `system` at or after `from`, found by scanning
// for a header block that starts one; empty when none starts before the end. Used to
// resynchronise on damaged or truncated streams.
std::optional<std::size_t> find_frame(std::span<const std::uint8_t> bytes, DvSystem system,
                                      std::size_t from);

// ---- Packed BCD -------------------------------------------------------------------------

// Two decimal digits of one byte, high nibble the tens. Digits above 9 are not refused,
// as a device would report them: 0xFF reads as 165.
constexpr int from_bcd(std::uint8_t b) {
    return (b & 15) + 10 * (b >> 4);
}

// 0 to 99 as two packed BCD digits; other values are taken modulo 100.
constexpr std::uint8_t to_bcd(int value) {
    const int v = ((value % 100) + 100) % 100;
    return static_cast<std::uint8_t>(((v / 10) << 4) | (v % 10));
}

// ---- Subcode packs ------------------------------------------------------------------------

inline constexpr std::uint8_t pack_timecode = 0x13;
inline constexpr std::uint8_t pack_binary_group = 0x14;
inline constexpr std::uint8_t pack_rec_date = 0x62;
inline constexpr std::uint8_t pack_rec_time = 0x63;
inline constexpr std::uint8_t pack_no_info = 0xFF;

// The timecode as a DV device reports it: one 32-bit word of four packed-BCD bytes,
// hours in the most significant byte, then minutes, seconds and frames. Flag bits of the
// pack are masked off.
using BcdTimecode = std::uint32_t;

// The first recorded timecode pack of the frame (sequences in order, subcode blocks and
// sync blocks in order); empty when no sequence carries one, or when its data bytes are
// all 0xFF (a pack header written over unrecorded tape).
std::optional<BcdTimecode> read_timecode(std::span<const std::uint8_t> frame, DvSystem system);

// The 32 user bits of the first binary group pack (PC1 in the low byte, so bit 0 is bit 0
// of binary group 1); empty when the frame has none.
std::optional<std::uint32_t> read_user_bits(std::span<const std::uint8_t> frame, DvSystem system);

// Writes the timecode and user bits into every sequence of the frame, where recorders put
// them: in both subcode blocks of every sequence, sync blocks 0 and 3 carry the timecode;
// in the first half of the sequences (FR set) sync blocks 1 and 4 carry the binary group
// and 2 and 5 the timecode again; in the second half sync blocks 1, 2, 4 and 5 keep what
// they carry (recording date and time). The SSYB IDs are rewritten to match. The
// drop-frame flag is set on 525-60 frames when `drop_frame` is true; colour framing is
// not claimed.
void write_subcode(std::span<std::uint8_t> frame, DvSystem system, BcdTimecode timecode,
                   std::uint32_t user_bits, bool drop_frame);

// ---- Recording date and time --------------------------------------------------------------

// When a frame was recorded, to the second, as the camcorder's clock had it.
struct RecordingTime {
    int year = 0;  // four digits: two-digit years below 70 are taken as 20xx
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    friend bool operator==(const RecordingTime&, const RecordingTime&) = default;
};

// The frame's recording date and time from its first REC DATE and REC TIME packs (VAUX
// first, then subcode); empty when either is missing, says "no information", or holds
// digits that are no date or time.
std::optional<RecordingTime> read_recording_time(std::span<const std::uint8_t> frame,
                                                 DvSystem system);

// Rewrites every REC DATE and REC TIME pack the frame carries, in VAUX and in subcode, to
// `time` (no time zone, no frames); a frame that carries none gets them in its VAUX.
void write_recording_time(std::span<std::uint8_t> frame, DvSystem system,
                          const RecordingTime& time);

// "yyyy-mm-dd hh:mm:ss".
std::string to_text(const RecordingTime& time);

// `time` moved on by `seconds`, across days, months and years.
RecordingTime add_seconds(const RecordingTime& time, std::int64_t seconds);

}  // namespace kc::dv
