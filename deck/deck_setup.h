// What the environment asks of the virtual DV deck, and opening a tape file as a deck:
// the parts of bringing the deck up that are the same on every platform, so that each
// platform lists it under the same name with the same options.
//   KESTREL_VIRTUAL_DECK           a raw DV stream file played as the tape, or "demo" /
//                                  "demo-ntsc" for the generated demo tape (where the
//                                  platform can make one);
//   KESTREL_VIRTUAL_DECK_UNPACED   "1": frames as fast as they are taken instead of at the
//                                  frame rate (benchmarks, fast tests);
//   KESTREL_VIRTUAL_DECK_LOST_AT   a tape frame number: the deck disappears when playing
//                                  reaches it, as a camera unplugged mid-capture (tests of
//                                  the whole program).
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "deck/vcr.h"

namespace kc::deck {

struct DeckRequest {
    // The variable's value as given.
    std::string value;
    bool unpaced = false;
    // The faults the deck starts with.
    VcrFaults faults;
};

// The deck the environment asks for; empty when KESTREL_VIRTUAL_DECK is unset or empty.
std::optional<DeckRequest> requested_deck();

// Whether `value` names the generated demo tape rather than a file.
bool is_demo_tape(const std::string& value);

// How the deck is told apart in the device list: the demo's name, or the tape file's name.
std::string deck_label(const std::string& value);
// The device's friendly name for a label.
std::string deck_friendly_name(const std::string& label);

// A deck playing the tape file at `path`, with the transport options the program runs it
// with. Null with `error` set to a sentence for the user when the file cannot be played.
std::shared_ptr<VirtualVcr> open_tape_deck(const std::filesystem::path& path, bool unpaced,
                                           std::string& error);

}  // namespace kc::deck
