#include "platform/avc/raw1394_channel.h"

#include <libavc1394/rom1394.h>
#include <libraw1394/raw1394.h>
#include <poll.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>

#include "platform/avc/fcp_exchange.h"

namespace kc::avc {
namespace {

// Where a unit takes AV/C commands (IEC 61883-1).
constexpr nodeaddr_t fcp_command_register = 0xFFFFF0000B00ULL;
// The local bus: node ids on it carry this in their top ten bits.
constexpr nodeid_t local_bus = 0xFFC0;

HRESULT errno_or(int fallback) {
    return hresult_from_errno(errno != 0 ? errno : fallback);
}

// The two FCP registers through libraw1394: commands written to the unit, responses
// the unit writes to us gathered by a handler while the port listens.
class Raw1394Port final : public FcpPort {
  public:
    Raw1394Port(raw1394handle_t handle, int node) : handle_(handle), node_(node) {
        previous_data_ = raw1394_get_userdata(handle_);
        raw1394_set_userdata(handle_, this);
        previous_handler_ = raw1394_set_fcp_handler(handle_, &on_fcp);
        errno = 0;
        listening_ = raw1394_start_fcp_listen(handle_) == 0;
        listen_errno_ = errno;
    }
    ~Raw1394Port() override {
        if (listening_) {
            raw1394_stop_fcp_listen(handle_);
        }
        raw1394_set_fcp_handler(handle_, previous_handler_);
        raw1394_set_userdata(handle_, previous_data_);
    }
    Raw1394Port(const Raw1394Port&) = delete;
    Raw1394Port& operator=(const Raw1394Port&) = delete;

    HRESULT send(std::span<const std::uint8_t> command) override {
        if (!listening_) {
            return hresult_from_errno(listen_errno_ != 0 ? listen_errno_ : EIO);
        }
        // The frame goes out byte for byte, as the bus carries it, padded with zeros.
        quadlet_t request[max_frame_bytes / 4] = {};
        std::memcpy(request, command.data(), command.size());
        errno = 0;
        if (raw1394_write(handle_, static_cast<nodeid_t>(local_bus | node_), fcp_command_register,
                          (command.size() + 3) / 4 * 4, request) < 0) {
            return errno_or(EIO);
        }
        return S_OK;
    }

    bool wait_response(int timeout_ms, Frame& response) override {
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
        while (responses_.empty()) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) {
                return false;
            }
            pollfd bus{raw1394_get_fd(handle_), POLLIN, 0};
            const int ready = poll(&bus, 1, static_cast<int>(left.count()));
            if (ready > 0 && (bus.revents & POLLIN) != 0) {
                raw1394_loop_iterate(handle_);
            } else if (ready < 0 && errno != EINTR) {
                return false;
            }
        }
        response = std::move(responses_.front());
        responses_.pop_front();
        return true;
    }

  private:
    static int on_fcp(raw1394handle_t handle, nodeid_t node, int response, std::size_t length,
                      unsigned char* data) {
        auto* self = static_cast<Raw1394Port*>(raw1394_get_userdata(handle));
        // Commands other nodes send us, and responses from other units, are not ours.
        if (self != nullptr && response != 0 && (node & 0x3F) == (self->node_ & 0x3F) &&
            length > 0) {
            self->responses_.emplace_back(data, data + length);
        }
        return 0;
    }

    raw1394handle_t handle_;
    int node_;
    void* previous_data_ = nullptr;
    fcp_handler_t previous_handler_ = nullptr;
    bool listening_ = false;
    int listen_errno_ = 0;
    std::deque<Frame> responses_;
};

}  // namespace

HRESULT fcp_transaction(raw1394_handle* handle, int node, std::span<const std::uint8_t> command,
                        Frame& response) {
    if (command.empty() || command.size() > max_frame_bytes) {
        return E_INVALIDARG;
    }
    Raw1394Port port(handle, node);
    const HRESULT hr = fcp_exchange(port, command, response);
    if (succeeded(hr)) {
        // Status operands come back filled in, in a frame as long as the command's.
        response.resize((command.size() + 3) / 4 * 4, 0);
    }
    return hr;
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
