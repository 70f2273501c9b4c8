// kestrel-tape: writes a DV tape image for the virtual deck, with recordings of given
// start timecodes and lengths, or the demo tape.
#include <gst/gst.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "deck/dv_terms.h"
#include "deck/gst/tape_writer.h"
#include "deck/tape_plan.h"

namespace {

constexpr const char* usage =
    "Usage: kestrel-tape [--ntsc] [--12bit] --out FILE (--demo | RECORDING...)\n"
    "Writes a raw DV tape image for the virtual DV deck (KESTREL_VIRTUAL_DECK=FILE).\n"
    "\n"
    "  --ntsc         525-60 (29.97 frames a second, drop-frame timecode); default 625-50\n"
    "  --12bit        32 kHz 12-bit sound with a silent second stereo pair; default 48 kHz\n"
    "                 16-bit\n"
    "  --out FILE     the tape image to write\n"
    "  --demo         the demo tape: three recordings, a timecode break, a user-flag section\n"
    "  --help         this text\n"
    "\n"
    "RECORDING is START,SECONDS[,NAME[,FLAGGED[,RECORDED]]]: the start timecode\n"
    "hh:mm:ss:ff, the length in seconds, a name burnt into the picture, the number of frames\n"
    "at its start whose timecode carries the user flag, and when the camcorder recorded it\n"
    "(yyyy-mm-ddThh:mm:ss; by default ten minutes after the previous recording ended).\n"
    "Recordings follow each other on the tape.\n"
    "\n"
    "Example: kestrel-tape --out tape.dv 00:10:00:00,5,Harbour 01:00:00:00,3,Garden,6\n";

int fail(const std::string& message) {
    std::fprintf(stderr, "kestrel-tape: %s\n", message.c_str());
    return 2;
}

std::vector<std::string> split(std::string_view text, char sep) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (;;) {
        const std::size_t at = text.find(sep, start);
        parts.emplace_back(text.substr(start, at == std::string_view::npos ? at : at - start));
        if (at == std::string_view::npos) {
            return parts;
        }
        start = at + 1;
    }
}

// yyyy-mm-ddThh:mm:ss (a blank instead of the T is taken too).
std::optional<kc::dv::RecordingTime> parse_recorded(const std::string& text) {
    kc::dv::RecordingTime t;
    char sep = 0;
    char end = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2d%c%2d:%2d:%2d%c", &t.year, &t.month, &t.day, &sep,
                    &t.hour, &t.minute, &t.second, &end) != 7 ||
        (sep != 'T' && sep != ' ') || t.year < 1970 || t.year > 2069 || t.month < 1 ||
        t.month > 12 || t.day < 1 || t.day > 31 || t.hour > 23 || t.minute > 59 || t.second > 59) {
        return std::nullopt;
    }
    return t;
}

bool parse_number(const std::string& text, double& out) {
    char* end = nullptr;
    out = std::strtod(text.c_str(), &end);
    return !text.empty() && end != nullptr && *end == '\0';
}

}  // namespace

int main(int argc, char** argv) {
    using namespace kc::deck;
    bool ntsc = false;
    bool demo = false;
    bool twelve_bit = false;
    std::string out;
    std::vector<std::string> recording_args;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(usage, stdout);
            return 0;
        }
        if (arg == "--ntsc") {
            ntsc = true;
        } else if (arg == "--12bit") {
            twelve_bit = true;
        } else if (arg == "--demo") {
            demo = true;
        } else if (arg == "--out" || arg == "-o") {
            if (i + 1 >= argc) {
                return fail("--out needs a file name.");
            }
            out = argv[++i];
        } else if (arg.rfind("--out=", 0) == 0) {
            out = arg.substr(6);
        } else if (arg.rfind("-", 0) == 0) {
            return fail("unknown option \"" + arg + "\" (see --help).");
        } else {
            recording_args.push_back(arg);
        }
    }
    if (out.empty()) {
        return fail("no output file: give --out FILE (see --help).");
    }
    if (demo == !recording_args.empty()) {
        return fail(demo ? "--demo takes no recordings." : "no recordings given (see --help).");
    }
    const DvSystem system = ntsc ? DvSystem::ntsc_525_60 : DvSystem::pal_625_50;
    TapePlan plan;
    if (demo) {
        plan = demo_plan(DemoOptions{system});
    } else {
        plan.system = system;
        const FrameRate rate = frame_rate(system);
        const int tones[] = {440, 550, 660, 770, 880};
        RecordingTime next_recorded{2004, 7, 17, 10, 0, 0};
        for (std::size_t n = 0; n < recording_args.size(); ++n) {
            const std::vector<std::string> parts = split(recording_args[n], ',');
            if (parts.size() < 2 || parts.size() > 5) {
                return fail("recording \"" + recording_args[n] +
                            "\" is not START,SECONDS[,NAME[,FLAGGED[,RECORDED]]].");
            }
            const auto start = parse_tape_time(parts[0], system);
            if (!start) {
                return fail("\"" + parts[0] + "\" is not a " + system_name(system) +
                            " timecode hh:mm:ss:ff.");
            }
            double seconds = 0;
            if (!parse_number(parts[1], seconds) || seconds <= 0 || seconds > 4 * 3600) {
                return fail("\"" + parts[1] + "\" is not a length in seconds (up to 4 hours).");
            }
            Recording r;
            r.start = *start;
            r.frames = std::max<std::int64_t>(
                1, static_cast<std::int64_t>(seconds * rate.num / rate.den + 0.5));
            r.name = parts.size() > 2 ? parts[2] : "Recording " + std::to_string(n + 1);
            double flagged = 0;
            if (parts.size() > 3 && (!parse_number(parts[3], flagged) || flagged < 0)) {
                return fail("\"" + parts[3] + "\" is not a number of flagged frames.");
            }
            r.flagged_frames = std::min<std::int64_t>(static_cast<std::int64_t>(flagged), r.frames);
            r.tone_hz = tones[n % 5];
            r.recorded = next_recorded;
            if (parts.size() > 4) {
                const auto recorded = parse_recorded(parts[4]);
                if (!recorded) {
                    return fail("\"" + parts[4] +
                                "\" is not a recording time yyyy-mm-ddThh:mm:ss.");
                }
                r.recorded = *recorded;
            }
            next_recorded = add_seconds(r.recorded, static_cast<std::int64_t>(seconds) + 600);
            plan.recordings.push_back(r);
        }
    }
    if (twelve_bit) {
        plan.audio_rate_hz = 32000;
        plan.audio_12bit = true;
    }
    gst_init(&argc, &argv);
    std::string error;
    if (!write_tape(plan, out, error)) {
        return fail(error);
    }
    std::printf("%s: %lld frames of %s\n", out.c_str(), static_cast<long long>(plan.total_frames()),
                system_name(system));
    return 0;
}
