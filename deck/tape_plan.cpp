#include "deck/tape_plan.h"

#include <algorithm>
#include <cmath>

namespace kc::deck {

std::int64_t TapePlan::total_frames() const {
    std::int64_t total = 0;
    for (const Recording& r : recordings) {
        total += r.frames;
    }
    return total;
}

TapePlan demo_plan(const DemoOptions& options) {
    const FrameRate rate = frame_rate(options.system);
    const double seconds = std::max(options.seconds_per_recording, 0.0);
    const auto frames = std::max<std::int64_t>(
        1, std::llround(seconds * static_cast<double>(rate.num) / static_cast<double>(rate.den)));
    // The most frames that last less than 250 ms: 6 at 25 fps, 7 at 29.97 fps.
    const std::int64_t flagged = options.flagged_frames > 0
                                     ? options.flagged_frames
                                     : (250 * rate.num - 1) / (1000 * rate.den);

    TapePlan plan;
    plan.system = options.system;
    const TapeTime harbour{0, 10, 0, 0};
    const TapeTime garden{1, 25, 40, 0};
    const TapeTime workshop =
        from_frame_count(to_frame_count(garden, options.system) + frames, options.system);
    plan.recordings = {
        Recording{"Harbour", harbour, frames, 0, 440, {2004, 7, 17, 10, 12, 0}},
        Recording{"Garden", garden, frames, 0, 660, {2004, 7, 18, 16, 40, 5}},
        Recording{
            "Workshop", workshop, frames, std::min(flagged, frames), 880, {2004, 7, 18, 17, 2, 30}},
    };
    return plan;
}

PlannedFrame plan_frame(const TapePlan& plan, std::int64_t tape_frame) {
    PlannedFrame out;
    std::int64_t rest = tape_frame;
    for (std::size_t i = 0; i < plan.recordings.size(); ++i) {
        const Recording& r = plan.recordings[i];
        if (rest < r.frames || i + 1 == plan.recordings.size()) {
            out.recording = i;
            out.frame_in_recording = rest;
            out.timecode =
                from_frame_count(to_frame_count(r.start, plan.system) + rest, plan.system);
            out.user_bits = rest < r.flagged_frames ? 1u : 0u;
            const FrameRate rate = frame_rate(plan.system);
            out.recorded = add_seconds(r.recorded, rest * rate.den / rate.num);
            return out;
        }
        rest -= r.frames;
    }
    return out;
}

void stamp_frame(std::span<std::uint8_t> frame, DvSystem system, const PlannedFrame& planned) {
    write_subcode(frame, system, to_bcd_word(planned.timecode), planned.user_bits,
                  system == DvSystem::ntsc_525_60);
    write_recording_time(frame, system, planned.recorded);
}

}  // namespace kc::deck
