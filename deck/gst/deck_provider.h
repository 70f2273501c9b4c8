// Start-up hook: puts the virtual DV deck into the media layer's video input list when
// KESTREL_VIRTUAL_DECK asks for it:
//   a path        a raw DV stream file played as the tape;
//   demo          the generated demo tape, 625-50 (cached after the first start);
//   demo-ntsc     the same on 525-60.
// KESTREL_VIRTUAL_DECK_UNPACED=1 hands frames out as fast as they are taken instead of at
// the frame rate (benchmarks, fast tests).
#pragma once

#include <memory>
#include <string>

#include "deck/vcr.h"

namespace kc::deck {

// Adds the deck's source provider. Call once at start-up after the FireWire provider, so
// that the deck is listed after any real device. True when the deck was added or not
// asked for; false with `error` set to a sentence for the user when the variable names a
// tape that cannot be played (missing file, not DV, demo tape not writable).
bool register_virtual_deck(std::string& error);

// The VCR of the registered deck, for tests that switch its faults; null when none.
std::shared_ptr<VirtualVcr> registered_virtual_deck();

// Puts another tape (with its transport) into the registered deck: sources and device
// controls made from now on play it, and the deck is named after `value` (as the variable
// would name it). Does nothing when no deck is registered.
void insert_tape(std::shared_ptr<VirtualVcr> vcr, const std::string& value);

// Opens the tape the variable's value names and makes its VCR, without registering
// anything. Null with `error` set as above.
std::shared_ptr<VirtualVcr> open_virtual_deck(const std::string& value, bool unpaced,
                                              std::string& error);

}  // namespace kc::deck
