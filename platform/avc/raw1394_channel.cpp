#include "platform/avc/raw1394_channel.h"

#include <libavc1394/avc1394.h>
#include <libavc1394/rom1394.h>
#include <libraw1394/raw1394.h>

#include <cerrno>

namespace kc::avc {
namespace {
// libavc1394 tries a command this many times before it gives up on a response.
constexpr int transaction_retries = 2;

HRESULT errno_or(int fallback) {
    return hresult_from_errno(errno != 0 ? errno : fallback);
}
}  // namespace

HRESULT fcp_transaction(raw1394_handle* handle, int node, std::span<const std::uint8_t> command,
                        Frame& response) {
    if (command.empty() || command.size() > max_frame_bytes) {
        return E_INVALIDARG;
    }
    // libavc1394 takes the frame as host-order quadlets, the first byte in the top
    // eight bits, and pads it with zeros to a whole quadlet as FCP requires.
    quadlet_t request[max_frame_bytes / 4] = {};
    for (std::size_t i = 0; i < command.size(); ++i) {
        request[i / 4] |= static_cast<quadlet_t>(command[i]) << (8 * (3 - i % 4));
    }
    const int quadlets = static_cast<int>((command.size() + 3) / 4);
    errno = 0;
    // An AV/C response is as long as its command (status operands come back filled in),
    // and that is how much of libavc1394's response buffer is ours.
    const quadlet_t* answer = avc1394_transaction_block(handle, static_cast<nodeid_t>(node),
                                                        request, quadlets, transaction_retries);
    if (answer == nullptr) {
        return errno_or(ETIMEDOUT);
    }
    response.assign(static_cast<std::size_t>(quadlets) * 4, 0);
    for (std::size_t i = 0; i < response.size(); ++i) {
        response[i] = static_cast<std::uint8_t>(answer[i / 4] >> (8 * (3 - i % 4)));
    }
    return S_OK;
}

Raw1394Channel::Raw1394Channel(std::uint64_t guid) : guid_(guid) {}

Raw1394Channel::~Raw1394Channel() {
    close();
}

void Raw1394Channel::close() {
    if (handle_ != nullptr) {
        raw1394_destroy_handle(handle_);
        handle_ = nullptr;
    }
    node_ = -1;
}

HRESULT Raw1394Channel::locate() {
    close();
    errno = 0;
    raw1394handle_t probe = raw1394_new_handle();
    if (probe == nullptr) {
        return errno_or(ENODEV);
    }
    errno = 0;
    const int ports = raw1394_get_port_info(probe, nullptr, 0);
    const int probe_errno = errno;
    raw1394_destroy_handle(probe);
    if (ports < 0) {
        return hresult_from_errno(probe_errno != 0 ? probe_errno : ENODEV);
    }
    // A handle is bound to one port for its life, so each port gets its own.
    for (int port = 0; port < ports; ++port) {
        errno = 0;
        raw1394handle_t handle = raw1394_new_handle_on_port(port);
        if (handle == nullptr) {
            continue;
        }
        const int nodes = raw1394_get_nodecount(handle);
        for (int node = 0; node < nodes; ++node) {
            if (rom1394_get_guid(handle, static_cast<nodeid_t>(node)) == guid_) {
                handle_ = handle;
                node_ = node;
                return S_OK;
            }
        }
        raw1394_destroy_handle(handle);
    }
    // No bus, or the unit is switched off or unplugged.
    return hresult_from_errno(ENODEV);
}

HRESULT Raw1394Channel::transact(std::span<const std::uint8_t> command, Frame& response) {
    if (command.empty() || command.size() > max_frame_bytes) {
        return E_INVALIDARG;
    }
    if (handle_ == nullptr) {
        const HRESULT hr = locate();
        if (failed(hr)) {
            return hr;
        }
    }
    const HRESULT hr = fcp_transaction(handle_, node_, command, response);
    if (failed(hr)) {
        // Look the unit up again next time: a bus reset may have moved it.
        close();
    }
    return hr;
}

}  // namespace kc::avc
