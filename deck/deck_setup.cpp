#include "deck/deck_setup.h"

#include <cstdlib>
#include <system_error>

#include "deck/vcr_control.h"

namespace kc::deck {

std::optional<DeckRequest> requested_deck() {
    const char* value = std::getenv("KESTREL_VIRTUAL_DECK");
    if (value == nullptr || *value == '\0') {
        return std::nullopt;
    }
    const char* unpaced = std::getenv("KESTREL_VIRTUAL_DECK_UNPACED");
    DeckRequest request{value, unpaced != nullptr && std::string(unpaced) == "1", {}};
    if (const char* lost_at = std::getenv("KESTREL_VIRTUAL_DECK_LOST_AT");
        lost_at != nullptr && *lost_at != '\0') {
        char* end = nullptr;
        const long long frame = std::strtoll(lost_at, &end, 10);
        if (*end == '\0' && frame >= 0) {
            request.faults.lost_at_frame = frame;
        }
    }
    return request;
}

bool is_demo_tape(const std::string& value) {
    return value == "demo" || value == "demo-ntsc";
}

std::string deck_label(const std::string& value) {
    if (is_demo_tape(value)) {
        return value;
    }
    return std::filesystem::path(value).filename().string();
}

std::string deck_friendly_name(const std::string& label) {
    return "Virtual DV deck (" + label + ")";
}

std::shared_ptr<VirtualVcr> open_tape_deck(const std::filesystem::path& path, bool unpaced,
                                           std::string& error) {
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
