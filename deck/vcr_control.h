// The virtual deck as the media layer's DV device-control object: one reference-counted
// object answering Iid::unknown, Iid::ext_device, Iid::ext_transport, Iid::timecode_reader
// and Iid::dropped_frames over a VirtualVcr, as a FireWire deck's control object does.
//
// The raw AV/C command is answered the way a deck answers on the bus: the response is
// written back over the command frame, its first byte the response code (ACCEPTED 0x09,
// REJECTED 0x0A, NOT IMPLEMENTED 0x08), and only an accepted command succeeds.
#pragma once

#include <atomic>
#include <memory>

#include "deck/vcr.h"
#include "platform/media.h"

namespace kc::deck {

// A VCR that keeps its clock alive for as long as it lives.
std::shared_ptr<VirtualVcr> make_vcr(std::shared_ptr<const TapeImage> tape,
                                     std::shared_ptr<const Clock> clock, VcrOptions options = {});

// AV/C response codes.
inline constexpr std::uint8_t avc_not_implemented = 0x08;
inline constexpr std::uint8_t avc_accepted = 0x09;
inline constexpr std::uint8_t avc_rejected = 0x0A;

class VcrControl final : public media::ExtDevice,
                         public media::ExtTransport,
                         public media::TimecodeReader,
                         public media::DroppedFrames {
  public:
    // A new object with one reference, owned by the caller.
    static VcrControl* create(std::shared_ptr<VirtualVcr> vcr);

    HRESULT query_interface(Iid iid, void** out) override;
    std::uint32_t add_ref() override;
    std::uint32_t release() override;

    // ED_DEVCAP_DEVICE_TYPE: always a VCR. ED_DEVCAP_NORMAL_RATE: ED_RATE_25 or
    // ED_RATE_2997 from the tape. ED_DEVCAP_TIMECODE_READ and ED_DEVCAP_ATN_READ: OATRUE.
    // E_NOTIMPL for others.
    HRESULT get_capability(long capability, long* value, double* dbl_value) override;
    HRESULT put_mode(long mode) override;
    // ED_MODE and ED_MODE_PLAY (OATRUE while playing); E_NOTIMPL for other items.
    HRESULT get_status(long item, long* value) override;
    // ED_RAW_EXT_DEV_CMD only. The ABSOLUTE TRACK NUMBER command returns when the tape
    // has arrived (the final response), with REJECTED when the search fails or takes too
    // long.
    HRESULT get_transport_basic_parameters(long param, long* length, std::uint8_t* frame) override;
    HRESULT get_timecode(media::TimecodeSample& sample) override;

    HRESULT get_num_dropped(long* count) override;
    HRESULT get_num_not_dropped(long* count) override;

    VirtualVcr& vcr() { return *vcr_; }

  private:
    explicit VcrControl(std::shared_ptr<VirtualVcr> vcr) : vcr_(std::move(vcr)) {}
    ~VcrControl() = default;

    std::shared_ptr<VirtualVcr> vcr_;
    std::atomic<std::uint32_t> refs_{1};
};

}  // namespace kc::deck
