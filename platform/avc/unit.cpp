#include "platform/avc/unit.h"

#include <cctype>
#include <charconv>
#include <cstdio>

namespace kc::avc {
namespace {
// The unit directory of an AV/C device: specifier of the 1394 Trade Association, and
// a software version of the AV/C command set (0x010001 and later revisions).
constexpr std::uint32_t unit_spec_1394ta = 0x00A02D;
constexpr std::uint32_t sw_version_avc_family = 0x010000;

std::string trimmed(const std::string& text) {
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end && std::isspace(static_cast<unsigned char>(text[begin])) != 0) {
        ++begin;
    }
    while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1])) != 0) {
        --end;
    }
    return text.substr(begin, end - begin);
}
}  // namespace

bool is_dv_unit(const UnitInfo& unit) {
    const bool avc = unit.unit_spec_id == unit_spec_1394ta &&
                     (unit.unit_sw_version & 0xFF0000) == sw_version_avc_family;
    return avc && (unit.tape_subunit || unit.camera_subunit);
}

std::string unit_name(const UnitInfo& unit) {
    std::string name;
    for (const std::string& label : unit.labels) {
        const std::string part = trimmed(label);
        if (part.empty()) {
            continue;
        }
        if (!name.empty()) {
            name += ' ';
        }
        name += part;
    }
    return name.empty() ? "FireWire DV device " + guid_text(unit.guid) : name;
}

std::string guid_text(std::uint64_t guid) {
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(guid));
    return text;
}

std::optional<std::uint64_t> parse_guid(std::string_view text) {
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
    }
    if (text.empty() || text.size() > 16) {
        return std::nullopt;
    }
    std::uint64_t guid = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), guid, 16);
    if (ec != std::errc{} || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return guid;
}

}  // namespace kc::avc
