// The deck speaks the DV format's own terms (systems, frame sizes, subcode packs, tape
// time) throughout, so it takes them into its namespace.
#pragma once

#include "dv/dv_frame.h"
#include "dv/tape_time.h"

namespace kc::deck {
using namespace kc::dv;
}  // namespace kc::deck
