#include "dv/tape_time.h"

#include <cstdio>

namespace kc::dv {
namespace {

// Drop-frame counting: a ten-minute block has 10 * 60 * 30 - 9 * 2 frames, a minute that
// drops its first two numbers 60 * 30 - 2.
constexpr std::int64_t df_frames_per_10_minutes = 17982;
constexpr std::int64_t df_frames_per_minute = 1798;
constexpr std::int64_t frames_per_day_pal = 24LL * 3600 * 25;
constexpr std::int64_t frames_per_day_df = 24LL * 6 * df_frames_per_10_minutes;

}  // namespace

std::int64_t to_frame_count(const TapeTime& t, DvSystem system) {
    const std::int64_t total_minutes = std::int64_t{t.hours} * 60 + t.minutes;
    const std::int64_t total_seconds = total_minutes * 60 + t.seconds;
    if (system == DvSystem::pal_625_50) {
        return total_seconds * 25 + t.frames;
    }
    return total_seconds * 30 + t.frames - 2 * (total_minutes - total_minutes / 10);
}

TapeTime from_frame_count(std::int64_t n, DvSystem system) {
    const std::int64_t frames_per_day =
        system == DvSystem::pal_625_50 ? frames_per_day_pal : frames_per_day_df;
    n %= frames_per_day;
    if (n < 0) {
        n += frames_per_day;
    }
    std::int64_t numbered = n;
    int fps = 25;
    if (system == DvSystem::ntsc_525_60) {
        fps = 30;
        // Put back the numbers skipped before frame n: 18 per whole ten minutes, and 2 per
        // minute begun after the first minute of the current ten.
        const std::int64_t tens = n / df_frames_per_10_minutes;
        const std::int64_t rest = n % df_frames_per_10_minutes;
        numbered += 18 * tens;
        if (rest >= 2) {
            numbered += 2 * ((rest - 2) / df_frames_per_minute);
        }
    }
    TapeTime t;
    t.frames = static_cast<int>(numbered % fps);
    t.seconds = static_cast<int>((numbered / fps) % 60);
    t.minutes = static_cast<int>((numbered / (fps * 60)) % 60);
    t.hours = static_cast<int>(numbered / (fps * 3600LL));
    return t;
}

bool is_valid(const TapeTime& t, DvSystem system) {
    const int fps = timecode_fps(system);
    if (t.hours < 0 || t.hours > 23 || t.minutes < 0 || t.minutes > 59 || t.seconds < 0 ||
        t.seconds > 59 || t.frames < 0 || t.frames >= fps) {
        return false;
    }
    if (system == DvSystem::ntsc_525_60 && t.seconds == 0 && t.frames < 2 && t.minutes % 10 != 0) {
        return false;
    }
    return true;
}

BcdTimecode to_bcd_word(const TapeTime& t) {
    return (static_cast<BcdTimecode>(to_bcd(t.hours)) << 24) |
           (static_cast<BcdTimecode>(to_bcd(t.minutes)) << 16) |
           (static_cast<BcdTimecode>(to_bcd(t.seconds)) << 8) | to_bcd(t.frames);
}

TapeTime from_bcd_word(BcdTimecode word) {
    return TapeTime{from_bcd(static_cast<std::uint8_t>(word >> 24)),
                    from_bcd(static_cast<std::uint8_t>(word >> 16)),
                    from_bcd(static_cast<std::uint8_t>(word >> 8)),
                    from_bcd(static_cast<std::uint8_t>(word))};
}

std::string to_text(const TapeTime& t) {
    char text[48];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d:%02d", t.hours, t.minutes, t.seconds,
                  t.frames);
    return text;
}

std::optional<TapeTime> parse_tape_time(std::string_view text, DvSystem system) {
    int fields[4] = {};
    int field = 0;
    int digits = 0;
    for (const char c : text) {
        if (c >= '0' && c <= '9') {
            if (++digits > 2) {
                return std::nullopt;
            }
            fields[field] = fields[field] * 10 + (c - '0');
        } else if ((c == ':' || c == ';') && digits > 0 && field < 3) {
            ++field;
            digits = 0;
        } else {
            return std::nullopt;
        }
    }
    if (field != 3 || digits == 0) {
        return std::nullopt;
    }
    const TapeTime t{fields[0], fields[1], fields[2], fields[3]};
    if (!is_valid(t, system)) {
        return std::nullopt;
    }
    return t;
}

}  // namespace kc::dv
