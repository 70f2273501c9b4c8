// What a generated tape holds: its recordings one after the other, each with its own name,
// start timecode, length, sound and, at its start, an optional run of frames whose
// timecode carries the user flag. The plan says, for every frame of the tape, which
// recording it belongs to and what its subcode says; the picture and sound are drawn from
// the same answer (test_card.h), so what is seen and heard always matches the timecode.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "deck/dv_terms.h"

namespace kc::deck {

struct Recording {
    std::string name;
    TapeTime start;
    std::int64_t frames = 0;
    // The first `flagged_frames` frames carry the user flag (bit 0 of the user bits).
    std::int64_t flagged_frames = 0;
    // The recording's tone, so that one can hear which recording plays.
    int tone_hz = 440;
    // When the camcorder started recording it; each frame carries this plus its time into
    // the recording, as a camcorder's clock stamps it.
    RecordingTime recorded{2004, 7, 17, 10, 0, 0};
};

struct TapePlan {
    DvSystem system = DvSystem::pal_625_50;
    std::vector<Recording> recordings;
    // How the sound is recorded: DV's locked 48 kHz 16-bit by default; 12-bit (at 32 kHz)
    // is what camcorders record when they keep a second stereo pair free for dubbing,
    // which such a tape leaves silent.
    int audio_rate_hz = 48000;
    bool audio_12bit = false;

    std::int64_t total_frames() const;
};

// The demo tape. Three recordings:
//   1 "Harbour"  from 00:10:00:00, 440 Hz, recorded 2004-07-17 10:12:00;
//   2 "Garden"   from 01:25:40:00, 660 Hz, recorded 2004-07-18 16:40:05: a recording
//     break with a timecode jump;
//   3 "Workshop" where "Garden" ends, 880 Hz, recorded 2004-07-18 17:02:30, timecode
//     continuing without a jump, its first frames flagged: only the user flag (and the
//     recording time) tells it from "Garden".
// The flagged run is kept shorter than a quarter of a second by default (6 frames at 25,
// 7 at 29.97 frames a second) so that a reader polling every 250 ms sees it at most once.
struct DemoOptions {
    DvSystem system = DvSystem::pal_625_50;
    double seconds_per_recording = 8.0;
    // 0: the default above.
    std::int64_t flagged_frames = 0;
};

TapePlan demo_plan(const DemoOptions& options);

// One frame of a plan: its recording, its place in the recording and its subcode.
struct PlannedFrame {
    std::size_t recording = 0;
    std::int64_t frame_in_recording = 0;
    TapeTime timecode;
    std::uint32_t user_bits = 0;
    RecordingTime recorded;
};

// `tape_frame` must be in [0, plan.total_frames()).
PlannedFrame plan_frame(const TapePlan& plan, std::int64_t tape_frame);

// Writes the planned timecode and user bits into an encoded frame's subcode (drop-frame
// timecode on 525-60), and its recording date and time.
void stamp_frame(std::span<std::uint8_t> frame, DvSystem system, const PlannedFrame& planned);

}  // namespace kc::deck
