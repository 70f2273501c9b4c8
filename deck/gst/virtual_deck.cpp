#include <system_error>

#include "deck/gst/deck_provider.h"
#include "deck/gst/tape_writer.h"
#include "deck/vcr_control.h"

namespace kc::deck {

std::shared_ptr<VirtualVcr> open_virtual_deck(const std::string& value, bool unpaced,
                                              std::string& error) {
    std::filesystem::path path;
    if (value == "demo" || value == "demo-ntsc") {
        path =
            cached_demo_tape(value == "demo" ? DvSystem::pal_625_50 : DvSystem::ntsc_525_60, error);
        if (path.empty()) {
            error = "The virtual DV deck's demo tape could not be made. " + error;
            return nullptr;
        }
    } else {
        path = value;
    }
    std::error_code ec;
    auto tape = TapeImage::open(path, TapeAccess::mapped, ec);
    if (!tape) {
        if (ec == std::errc::invalid_argument) {
            error = "The virtual DV deck cannot play \"" + path.string() +
                    "\": it holds no DV frames (a raw DV stream file is needed).";
        } else {
            error =
                "The virtual DV deck cannot open \"" + path.string() + "\": " + ec.message() + ".";
        }
        return nullptr;
    }
    VcrOptions options;
    options.pacing = unpaced ? Pacing::unpaced : Pacing::real_time;
    // A deck playing from stop threads its tape first; a capture started with the play has
    // its graph running before the first frame comes.
    options.lace_ms = unpaced ? 0 : 400;
    return make_vcr(std::move(tape), std::make_shared<SteadyClock>(), options);
}

}  // namespace kc::deck
