// What the configuration ROM and the unit's subunits say about one FireWire node, and
// the rules that make it a DV tape unit in the device list. Pure C++; bus.h reads it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kc::avc {

struct UnitInfo {
    std::uint64_t guid = 0;
    std::uint32_t vendor_id = 0;
    std::uint32_t model_id = 0;
    std::uint32_t unit_spec_id = 0;
    std::uint32_t unit_sw_version = 0;
    // The ROM's textual leaves in ROM order: usually the vendor, then the model.
    std::vector<std::string> labels;
    // From SUBUNIT INFO: a tape subunit, or (without one) a camera subunit.
    bool tape_subunit = false;
    bool camera_subunit = false;
};

// An AV/C unit (unit directory of the 1394 Trade Association, AV/C software version)
// with a tape subunit, or a camcorder in camera mode (camera subunit, tape hidden): the
// devices whose DV stream we capture and whose transport we drive.
bool is_dv_unit(const UnitInfo& unit);

// The name in the device list: the ROM's labels joined by spaces ("SONY DCR-TRV900"),
// or "FireWire DV device" and the GUID for a unit that names itself nowhere.
std::string unit_name(const UnitInfo& unit);

// A GUID as 16 lower-case hexadecimal digits: the device path, and the form dv1394src's
// "guid" property is documented with (there with a 0x prefix).
std::string guid_text(std::uint64_t guid);
// The reverse; accepts an optional 0x prefix. Empty for anything else.
std::optional<std::uint64_t> parse_guid(std::string_view text);

}  // namespace kc::avc
