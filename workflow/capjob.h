// One scene of the scene list.
#pragma once

#include <string>

#include "platform/window.h"
#include "workflow/timecode.h"

struct CapJob {
    std::string name;
    Timecode in_point;
    Timecode capture_start;  // in point less the preroll, in tracks
    Timecode out_point;

    // Runs the task dialog on this scene; true when it was closed with OK.
    bool edit(WindowHandle parent);
};
