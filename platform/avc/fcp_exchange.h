// One AV/C command and its final answer over FCP, timed as a unit times them. A unit
// answers within a fraction of a second; a command it cannot finish at once (a search
// for a track, a tape threading) first gets INTERIM, and the final answer comes only
// when the work is done, which may take minutes on a long tape. Nothing on the bus says
// which command a response belongs to, so a response from another subunit is passed
// over.
#pragma once

#include <span>

#include "platform/avc/avc_frame.h"

namespace kc::avc {

// The two registers of one unit: what is written to its command register, and what it
// writes back to ours.
class FcpPort {
  public:
    virtual ~FcpPort() = default;
    // Writes the frame, padded to whole quadlets, to the unit's command register.
    virtual HRESULT send(std::span<const std::uint8_t> command) = 0;
    // Waits up to `timeout_ms` for the unit's next response; false only once that time
    // has passed without one.
    virtual bool wait_response(int timeout_ms, Frame& response) = 0;
};

struct FcpTimes {
    // How long a unit takes to give its first answer, and how often the command is sent
    // again when none comes.
    int response_ms = 200;
    int resends = 2;
    // How long a unit may work on a command after answering INTERIM: longer than a
    // full-speed wind across the longest tape.
    int interim_ms = 10 * 60 * 1000;
};

// S_OK with the final response (the response code inside is the caller's to judge, as
// is its length); ETIMEDOUT when no answer came, or no final one within `interim_ms`
// after INTERIM; the port's failure when the command could not be sent.
HRESULT fcp_exchange(FcpPort& port, std::span<const std::uint8_t> command, Frame& response,
                     const FcpTimes& times = {});

}  // namespace kc::avc
