// Writes a planned tape as a raw DV stream file: every frame's picture and sound drawn
// from the plan (test_card.h), encoded to DV with GStreamer's libav DV encoder and
// multiplexer, then stamped with the plan's timecode and user bits in its subcode, so that
// a demultiplexer, ffprobe and the virtual deck all read the planned timecode.
#pragma once

#include <filesystem>
#include <string>

#include "deck/tape_plan.h"

namespace kc::deck {

// Writes the tape to `path` through a temporary file beside it, so that a reader never
// sees half a tape. Initialises GStreamer if needed. False with `error` set to a sentence
// a user can act on.
bool write_tape(const TapePlan& plan, const std::filesystem::path& path, std::string& error);

// The demo tape of `system` in the user's cache ($XDG_CACHE_HOME or ~/.cache, under
// kestrel-capture/demo-pal.dv or demo-ntsc.dv), written the first time it is asked for.
// Empty with `error` set when it cannot be written.
std::filesystem::path cached_demo_tape(DvSystem system, std::string& error);

}  // namespace kc::deck
