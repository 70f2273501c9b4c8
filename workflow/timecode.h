// One position on the tape as the DV device reports it.
#pragma once

#include <cstdint>
#include <string>

struct Timecode {
    std::int32_t hours = 0;
    std::int32_t minutes = 0;
    std::int32_t seconds = 0;
    std::int32_t frames = 0;
    // Absolute track number; -1 when the device gave none.
    std::int32_t track = 0;
    // Bit 0 of the user word read with the timecode; marks a break for scene detection.
    bool user_flag = false;

    void clear();
    // hh:mm:ss:ff, each at least two digits.
    std::string to_string() const;
    // Frame count for a device time format (ED_FORMAT_SMPTE_30, _30DROP, _25, _24).
    std::int32_t to_frames(long format) const;
};

// One packed-BCD byte as two decimal digits; digits above 9 are not refused.
constexpr std::int32_t decode_bcd(std::uint8_t b) {
    return (b & 15) + 10 * (b >> 4);
}
