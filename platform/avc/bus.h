// Reading the FireWire bus: every node of every port with its configuration ROM and,
// for AV/C units, which subunits it has.
#pragma once

#include <vector>

#include "platform/avc/unit.h"
#include "platform/result.h"

namespace kc::avc {

// The AV/C units present now, in port and node order (the local controller and nodes
// that are no AV/C unit are left out). With no FireWire bus the list is empty and
// `error`, when given, says why: ENODEV for a machine without ports, or the errno of
// the libraw1394 call that failed (EACCES for /dev/fw* without permission). S_OK
// otherwise, also when a node could not be read and was skipped.
std::vector<UnitInfo> scan_bus(HRESULT* error = nullptr);

}  // namespace kc::avc
