// The one thing device control needs from the bus: send an AV/C command frame to a unit
// and get its final response. The libavc1394 channel implements it on a real FireWire
// bus; tests script it.
#pragma once

#include <span>

#include "platform/avc/avc_frame.h"

namespace kc::avc {

class AvcChannel {
  public:
    virtual ~AvcChannel() = default;

    // Sends `command` (1 to max_frame_bytes bytes) unchanged and waits for the unit's
    // final response (interim answers are waited through). S_OK with `response` holding
    // the whole response frame; a failure HRESULT (E_INVALIDARG for a frame of bad size,
    // the errno of the failed bus call otherwise) when no response came. The response
    // code inside the frame is the caller's to judge. Called on one thread at a time.
    virtual HRESULT transact(std::span<const std::uint8_t> command, Frame& response) = 0;
};

}  // namespace kc::avc
