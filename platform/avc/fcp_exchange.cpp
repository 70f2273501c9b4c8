#include "platform/avc/fcp_exchange.h"

#include <cerrno>
#include <chrono>

namespace kc::avc {
namespace {

using Clock = std::chrono::steady_clock;

// Whether `response` can be the answer to `command`: it is a response, from the same
// subunit. The opcode may differ (TRANSPORT STATE answers with the tape's mode).
bool answers(std::span<const std::uint8_t> command, const Frame& response) {
    return response.size() >= 3 &&
           response[0] >= static_cast<std::uint8_t>(Response::not_implemented) &&
           response[1] == command[1];
}

// Waits until `deadline` for a response to `command`; false when none came by then.
bool wait_answer(FcpPort& port, std::span<const std::uint8_t> command, Clock::time_point deadline,
                 Frame& response) {
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0 || !port.wait_response(static_cast<int>(left.count()), response)) {
            return false;
        }
        if (answers(command, response)) {
            return true;
        }
    }
}

}  // namespace

HRESULT fcp_exchange(FcpPort& port, std::span<const std::uint8_t> command, Frame& response,
                     const FcpTimes& times) {
    if (command.size() < 3) {
        return E_INVALIDARG;
    }
    for (int attempt = 0; attempt <= times.resends; ++attempt) {
        if (const HRESULT hr = port.send(command); failed(hr)) {
            return hr;
        }
        if (!wait_answer(port, command, Clock::now() + std::chrono::milliseconds(times.response_ms),
                         response)) {
            continue;
        }
        if (response[0] != static_cast<std::uint8_t>(Response::interim)) {
            return S_OK;
        }
        // The unit works on it. Sending again now would start the work over, so the
        // final answer is waited for, however long the unit may take.
        const auto deadline = Clock::now() + std::chrono::milliseconds(times.interim_ms);
        while (wait_answer(port, command, deadline, response)) {
            if (response[0] != static_cast<std::uint8_t>(Response::interim)) {
                return S_OK;
            }
        }
        return hresult_from_errno(ETIMEDOUT);
    }
    return hresult_from_errno(ETIMEDOUT);
}

}  // namespace kc::avc
