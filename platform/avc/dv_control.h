// DV device control of one AV/C tape unit: the device-control interfaces (capabilities,
// transport, timecode reader with its raw AV/C command) answered by AV/C commands over
// an AvcChannel.
//
// One object answers Iid::unknown, Iid::ext_device, Iid::ext_transport and
// Iid::timecode_reader; its identity is its ExtDevice face. Every failure is the
// channel's HRESULT or the device's answer mapped by check_response; nothing is invented
// when the unit cannot be reached. Calls come from the user-interface thread.
#pragma once

#include <atomic>
#include <memory>

#include "platform/avc/avc_channel.h"
#include "platform/avc/vcr.h"
#include "platform/media.h"

namespace kc::avc {

class AvcDeviceControl final : public media::ExtDevice,
                               public media::ExtTransport,
                               public media::TimecodeReader {
  public:
    // A new object with one reference, owned by the caller.
    static AvcDeviceControl* create(std::unique_ptr<AvcChannel> channel);

    HRESULT query_interface(Iid iid, void** out) override;
    std::uint32_t add_ref() override;
    std::uint32_t release() override;

    // ED_DEVCAP_DEVICE_TYPE (SUBUNIT INFO) and ED_DEVCAP_NORMAL_RATE (output signal
    // mode); E_NOTIMPL for other capabilities. `dbl_value` is set to 0 when given.
    HRESULT get_capability(long capability, long* value, double* dbl_value) override;

    // Sends the mode's tape command; E_INVALIDARG for a mode that is never sent.
    HRESULT put_mode(long mode) override;
    // ED_MODE: the transport state as an ED_MODE_* value. ED_MODE_PLAY: OATRUE while
    // the tape plays, OAFALSE otherwise. E_NOTIMPL for other items.
    HRESULT get_status(long item, long* value) override;
    // ED_RAW_EXT_DEV_CMD: sends the *length bytes of `frame` unchanged; on success the
    // response is copied back over `frame` (at most *length bytes) and *length becomes
    // the copied size. E_NOTIMPL for other parameters.
    HRESULT get_transport_basic_parameters(long param, long* length, std::uint8_t* frame) override;

    // ED_DEVCAP_TIMECODE_READ: TIME CODE into `frames` and the user bits (BINARY GROUP,
    // 0 when the unit keeps none) into `user`. ED_DEVCAP_ATN_READ: the absolute track
    // number into `frames`. E_INVALIDARG for other flags.
    HRESULT get_timecode(media::TimecodeSample& sample) override;

  private:
    explicit AvcDeviceControl(std::unique_ptr<AvcChannel> channel);
    ~AvcDeviceControl() = default;

    // A control command, judged by its response.
    HRESULT control(const Frame& command);
    HRESULT transport_state(vcr::TransportState& state);
    HRESULT frame_rate(long& rate);

    std::unique_ptr<AvcChannel> channel_;
    std::atomic<std::uint32_t> refs_{1};
};

}  // namespace kc::avc
