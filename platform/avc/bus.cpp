#include "platform/avc/bus.h"

#include <libavc1394/rom1394.h>
#include <libraw1394/raw1394.h>

#include <cerrno>

#include "platform/avc/raw1394_channel.h"
#include "platform/avc/vcr.h"
#include "platform/media.h"

namespace kc::avc {
namespace {

// Reads one node's ROM; false when the node does not answer or is no AV/C unit.
bool read_unit(raw1394handle_t handle, int node, UnitInfo& unit) {
    const auto id = static_cast<nodeid_t>(node);
    rom1394_directory dir{};
    if (rom1394_get_directory(handle, id, &dir) < 0) {
        rom1394_free_directory(&dir);
        return false;
    }
    unit.guid = rom1394_get_guid(handle, id);
    unit.vendor_id = dir.vendor_id;
    unit.model_id = dir.model_id;
    unit.unit_spec_id = dir.unit_spec_id;
    unit.unit_sw_version = dir.unit_sw_version;
    for (int i = 0; i < dir.nr_textual_leafs; ++i) {
        if (dir.textual_leafs != nullptr && dir.textual_leafs[i] != nullptr) {
            unit.labels.emplace_back(dir.textual_leafs[i]);
        }
    }
    const bool avc = rom1394_get_node_type(&dir) == ROM1394_NODE_TYPE_AVC;
    rom1394_free_directory(&dir);
    if (!avc) {
        return false;
    }
    // Only an AV/C unit understands SUBUNIT INFO; asking others would wait for nothing.
    // Page 0 holds the first four subunit types, which is where tape and camera are.
    const Frame query = vcr::subunit_info_query();
    Frame response;
    long type = 0;
    if (succeeded(fcp_transaction(handle, node, query, response)) &&
        succeeded(vcr::decode_subunit_info(query, response, type))) {
        unit.tape_subunit = type == media::ED_DEVTYPE_VCR;
        unit.camera_subunit = type == media::ED_DEVTYPE_CAMERA;
    }
    return true;
}

}  // namespace

std::vector<UnitInfo> scan_bus(HRESULT* error) {
    std::vector<UnitInfo> units;
    HRESULT result = S_OK;
    errno = 0;
    raw1394handle_t probe = raw1394_new_handle();
    int ports = -1;
    if (probe != nullptr) {
        ports = raw1394_get_port_info(probe, nullptr, 0);
    }
    const int probe_errno = errno;
    if (probe != nullptr) {
        raw1394_destroy_handle(probe);
    }
    if (ports < 0) {
        result = hresult_from_errno(probe_errno != 0 ? probe_errno : ENODEV);
    } else if (ports == 0) {
        result = hresult_from_errno(ENODEV);
    }
    bool port_read = false;
    for (int port = 0; port < ports; ++port) {
        errno = 0;
        raw1394handle_t handle = raw1394_new_handle_on_port(port);
        if (handle == nullptr) {
            result = hresult_from_errno(errno != 0 ? errno : ENODEV);
            continue;
        }
        const int local = raw1394_get_local_id(handle) & 0x3F;
        const int nodes = raw1394_get_nodecount(handle);
        for (int node = 0; node < nodes; ++node) {
            UnitInfo unit;
            if (node != local && read_unit(handle, node, unit)) {
                units.push_back(std::move(unit));
            }
        }
        raw1394_destroy_handle(handle);
        port_read = true;
    }
    if (port_read) {
        result = S_OK;
    }
    if (error != nullptr) {
        *error = result;
    }
    return units;
}

}  // namespace kc::avc
