// The virtual DV deck in the system's device list: when KESTREL_VIRTUAL_DECK names a tape
// file, the video input category lists the deck after the system's own devices, under the
// name the other platforms give it, as a moniker that binds to a deck filter
// (deck_filter.h) and whose property bag tells the friendly name. Every filter bound plays
// the one deck of the process, as every filter bound for a camcorder controls the one
// camcorder.
#pragma once

#include <memory>
#include <string>

#include "platform/win/win32.h"
// The deck's headers come after the Windows headers (platform/win/win32.h says why).
#include "deck/vcr.h"

namespace kc::win {

// The deck the environment asks for, opened on first use; null when none is asked for
// or its tape cannot be played (`error`, if given, then says why in a sentence for the
// user). The demo tape needs a DV encoder this platform lacks: here the deck plays files.
std::shared_ptr<deck::VirtualVcr> virtual_deck(std::string* error = nullptr);

// The video input category's monikers as `system_result` and `*monikers` give them (an
// empty category: S_FALSE and no enumerator), with the deck after them. Failures and
// other categories are for the caller to leave alone.
HRESULT list_virtual_deck(HRESULT system_result, IEnumMoniker** monikers);

}  // namespace kc::win
