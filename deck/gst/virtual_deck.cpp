#include "deck/deck_setup.h"
#include "deck/gst/deck_provider.h"
#include "deck/gst/tape_writer.h"

namespace kc::deck {

std::shared_ptr<VirtualVcr> open_virtual_deck(const std::string& value, bool unpaced,
                                              std::string& error) {
    std::filesystem::path path = value;
    if (is_demo_tape(value)) {
        path =
            cached_demo_tape(value == "demo" ? DvSystem::pal_625_50 : DvSystem::ntsc_525_60, error);
        if (path.empty()) {
            error = "The virtual DV deck's demo tape could not be made. " + error;
            return nullptr;
        }
    }
    return open_tape_deck(path, unpaced, error);
}

}  // namespace kc::deck
