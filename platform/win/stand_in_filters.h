// Our DV Splitter and DV video decoder where the system has none (Wine): registered for
// this process, so that the graph builder's own intelligent connect finds them when it
// renders a DV stream for the preview, as it finds the system's where they exist. On a
// system with its own, nothing is registered and the system's are used.
#pragma once

#include "platform/win/win32.h"

namespace kc::win {

// Registers the stand-ins the system lacks. Call once COM is initialised; later calls do
// nothing.
void register_stand_in_dv_filters();

}  // namespace kc::win
