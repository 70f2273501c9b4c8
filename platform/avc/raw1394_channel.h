// AV/C transactions with one unit on a real FireWire bus, over libraw1394's FCP
// registers, waiting through INTERIM answers for the final one. The unit is named by its GUID; its
// node id is looked up when first needed and again after a failed exchange, since a bus reset
// renumbers the nodes.
#pragma once

#include <cstdint>

#include "platform/avc/avc_channel.h"

struct raw1394_handle;

namespace kc::avc {

// One FCP transaction with `node` through an open libraw1394 handle: the frame goes out
// unchanged, padded to whole quadlets, and the response comes back as long as the
// command. ETIMEDOUT (or the errno of the failed write) when no response came, or no
// final one within the time a unit may work on a command after INTERIM.
HRESULT fcp_transaction(raw1394_handle* handle, int node, std::span<const std::uint8_t> command,
                        Frame& response);

class Raw1394Channel final : public AvcChannel {
  public:
    explicit Raw1394Channel(std::uint64_t guid);
    ~Raw1394Channel() override;
    Raw1394Channel(const Raw1394Channel&) = delete;
    Raw1394Channel& operator=(const Raw1394Channel&) = delete;

    // Failures: E_INVALIDARG for a frame of bad size; ENODEV when there is no FireWire
    // bus or no unit with this GUID on it; the errno of a failed libraw1394 call (no
    // access to /dev/fw*, a transaction that timed out).
    HRESULT transact(std::span<const std::uint8_t> command, Frame& response) override;

  private:
    HRESULT locate();
    void close();

    std::uint64_t guid_;
    raw1394_handle* handle_ = nullptr;
    int node_ = -1;
};

}  // namespace kc::avc
