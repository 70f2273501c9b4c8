// Recorded timecode as numbers, and the counting rules of the two DV systems: 625-50 tape
// counts 25 frames a second; 525-60 tape runs at 29.97 frames a second with drop-frame
// timecode, which skips frame numbers 0 and 1 at the start of every minute that is not a
// multiple of ten so that the count keeps up with the clock.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "dv/dv_frame.h"

namespace kc::dv {

struct TapeTime {
    int hours = 0;
    int minutes = 0;
    int seconds = 0;
    int frames = 0;
    friend bool operator==(const TapeTime&, const TapeTime&) = default;
};

// Frame numbers per second of the timecode: 25, or 30 for drop-frame 525-60.
constexpr int timecode_fps(DvSystem system) {
    return system == DvSystem::pal_625_50 ? 25 : 30;
}

// Frames counted from 00:00:00:00 (drop-frame rules on 525-60). Fields are not checked.
std::int64_t to_frame_count(const TapeTime& t, DvSystem system);

// The timecode of the n-th frame from 00:00:00:00; wraps after 24 hours.
TapeTime from_frame_count(std::int64_t n, DvSystem system);

// Whether `t` names a frame the system's timecode can carry (in range, and not one of
// the numbers drop-frame timecode skips).
bool is_valid(const TapeTime& t, DvSystem system);

// The packed-BCD word of the device (hours in the top byte) and back.
BcdTimecode to_bcd_word(const TapeTime& t);
TapeTime from_bcd_word(BcdTimecode word);

// "hh:mm:ss:ff".
std::string to_text(const TapeTime& t);

// Reads "hh:mm:ss:ff" (':' or ';' between fields); empty when malformed or out of range
// for the system.
std::optional<TapeTime> parse_tape_time(std::string_view text, DvSystem system);

}  // namespace kc::dv
