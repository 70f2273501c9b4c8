#include "workflow/timecode.h"

#include <iomanip>
#include <sstream>

#include "app/globals.h"
#include "graph/stdcap.h"
#include "platform/media.h"

void Timecode::clear() {
    hours = minutes = seconds = frames = track = 0;
    user_flag = false;
}

std::string Timecode::to_string() const {
    std::ostringstream out;
    out << std::setfill('0') << std::setw(2) << hours << ':' << std::setw(2) << minutes << ':'
        << std::setw(2) << seconds << ':' << std::setw(2) << frames;
    return out.str();
}

std::int32_t Timecode::to_frames(long format) const {
    const std::int32_t total_minutes = hours * 60 + minutes;
    const std::int32_t total_seconds = total_minutes * 60 + seconds;
    const unsigned code = static_cast<unsigned>(format) & 0xFFFFu;
    switch (code) {
        case media::ED_FORMAT_SMPTE_30:
            return total_seconds * 30 + frames;
        case media::ED_FORMAT_SMPTE_30DROP:
            // NTSC drop frame: frame numbers 0 and 1 are skipped at every minute that
            // is not a multiple of ten.
            return total_seconds * 30 + frames - 2 * (total_minutes - total_minutes / 10);
        case media::ED_FORMAT_SMPTE_25:
            return total_seconds * 25 + frames;
        case media::ED_FORMAT_SMPTE_24:
            return total_seconds * 24 + frames;
        default:
            break;
    }
    // A device with any other format is refused when it is attached, so this is a
    // programming error; it must never become a silently wrong count.
    instance->dialogs.message_box(nullptr, std::to_string(code), "Timecode Error", MB_ICONHAND);
    CAP_ASSERT(false);
    return -1;
}
