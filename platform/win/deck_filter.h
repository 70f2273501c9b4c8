// The virtual DV deck as a DirectShow capture source: the filter a DV camcorder's driver
// would give, over a VirtualVcr. The filter answers the device control the program asks
// a DV device for (IAMExtDevice, IAMExtTransport with the raw AV/C command, and
// IAMTimecodeReader, all through the deck's VcrControl, so both platforms answer alike);
// its one output pin (deck_pin.h) streams the tape's DV frames as interleaved "dvsd".
//
// A capture source is live: it delivers only while running, and paused it reports that it
// cannot cue (VFW_S_CANT_CUE). When the device disappears while streaming, the graph is
// told EC_DEVICE_LOST with the filter's own IUnknown (the object's identity) as the first
// parameter and 0 ("removed") as the second, as a device driver tells it.
//
// The graph calls state changes from one thread at a time; the streaming thread only reads
// the event sink, under its own lock.
#pragma once

#include <memory>

#include "platform/win/filter_base.h"
// The deck's headers come after the Windows headers (platform/win/win32.h says why).
#include "deck/vcr.h"
#include "deck/vcr_control.h"

namespace kc::win {

// The filter's class identity, for IPersist.
inline constexpr CLSID clsid_virtual_deck = {
    0x223b646e, 0x19e9, 0x4e29, {0xa8, 0x56, 0x4c, 0x14, 0x1a, 0xa2, 0xd3, 0xa9}};

class DeckPin;

class DeckFilter final : public FilterBase<IAMExtDevice, IAMExtTransport, IAMTimecodeReader> {
  public:
    // A new filter with one reference, the caller's, playing `vcr`.
    static DeckFilter* create(std::shared_ptr<deck::VirtualVcr> vcr);

    // ---- IMediaFilter
    HRESULT STDMETHODCALLTYPE Stop() override;
    HRESULT STDMETHODCALLTYPE Pause() override;
    HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME start) override;

    // ---- IAMExtDevice and IAMExtTransport: both ask GetCapability with one signature, and
    // the deck answers both from the device's capabilities.
    HRESULT STDMETHODCALLTYPE GetCapability(LONG capability, LONG* value,
                                            double* dbl_value) override;
    HRESULT STDMETHODCALLTYPE get_ExternalDeviceID(LPOLESTR* id) override;
    HRESULT STDMETHODCALLTYPE get_ExternalDeviceVersion(LPOLESTR* version) override;
    HRESULT STDMETHODCALLTYPE put_DevicePower(LONG mode) override;
    HRESULT STDMETHODCALLTYPE get_DevicePower(LONG* mode) override;
    HRESULT STDMETHODCALLTYPE Calibrate(HEVENT event, LONG mode, LONG* status) override;
    HRESULT STDMETHODCALLTYPE put_DevicePort(LONG port) override;
    HRESULT STDMETHODCALLTYPE get_DevicePort(LONG* port) override;

    // ---- IAMExtTransport
    HRESULT STDMETHODCALLTYPE put_MediaState(LONG state) override;
    HRESULT STDMETHODCALLTYPE get_MediaState(LONG* state) override;
    HRESULT STDMETHODCALLTYPE put_LocalControl(LONG state) override;
    HRESULT STDMETHODCALLTYPE get_LocalControl(LONG* state) override;
    HRESULT STDMETHODCALLTYPE GetStatus(LONG item, LONG* value) override;
    HRESULT STDMETHODCALLTYPE GetTransportBasicParameters(LONG param, LONG* value,
                                                          LPOLESTR* data) override;
    HRESULT STDMETHODCALLTYPE SetTransportBasicParameters(LONG param, LONG value,
                                                          LPCOLESTR data) override;
    HRESULT STDMETHODCALLTYPE GetTransportVideoParameters(LONG param, LONG* value) override;
    HRESULT STDMETHODCALLTYPE SetTransportVideoParameters(LONG param, LONG value) override;
    HRESULT STDMETHODCALLTYPE GetTransportAudioParameters(LONG param, LONG* value) override;
    HRESULT STDMETHODCALLTYPE SetTransportAudioParameters(LONG param, LONG value) override;
    HRESULT STDMETHODCALLTYPE put_Mode(LONG mode) override;
    HRESULT STDMETHODCALLTYPE get_Mode(LONG* mode) override;
    HRESULT STDMETHODCALLTYPE put_Rate(double rate) override;
    HRESULT STDMETHODCALLTYPE get_Rate(double* rate) override;
    HRESULT STDMETHODCALLTYPE GetChase(LONG* enabled, LONG* offset, HEVENT* event) override;
    HRESULT STDMETHODCALLTYPE SetChase(LONG enable, LONG offset, HEVENT event) override;
    HRESULT STDMETHODCALLTYPE GetBump(LONG* speed, LONG* duration) override;
    HRESULT STDMETHODCALLTYPE SetBump(LONG speed, LONG duration) override;
    HRESULT STDMETHODCALLTYPE get_AntiClogControl(LONG* enabled) override;
    HRESULT STDMETHODCALLTYPE put_AntiClogControl(LONG enable) override;
    HRESULT STDMETHODCALLTYPE GetEditPropertySet(LONG edit, LONG* state) override;
    HRESULT STDMETHODCALLTYPE SetEditPropertySet(LONG* edit, LONG state) override;
    HRESULT STDMETHODCALLTYPE GetEditProperty(LONG edit, LONG param, LONG* value) override;
    HRESULT STDMETHODCALLTYPE SetEditProperty(LONG edit, LONG param, LONG value) override;
    HRESULT STDMETHODCALLTYPE get_EditStart(LONG* value) override;
    HRESULT STDMETHODCALLTYPE put_EditStart(LONG value) override;

    // ---- IAMTimecodeReader
    HRESULT STDMETHODCALLTYPE GetTCRMode(LONG param, LONG* value) override;
    HRESULT STDMETHODCALLTYPE SetTCRMode(LONG param, LONG value) override;
    HRESULT STDMETHODCALLTYPE put_VITCLine(LONG line) override;
    HRESULT STDMETHODCALLTYPE get_VITCLine(LONG* line) override;
    HRESULT STDMETHODCALLTYPE GetTimecode(PTIMECODE_SAMPLE sample) override;

    // ---- For the output pin
    deck::VirtualVcr& vcr() { return *vcr_; }
    deck::VcrControl& control() { return *control_; }
    // Tells the graph, if the filter is in one, that the device has gone.
    void notify_device_lost();

  private:
    explicit DeckFilter(std::shared_ptr<deck::VirtualVcr> vcr);
    ~DeckFilter() override;
    std::vector<IPin*> pins() override;

    std::shared_ptr<deck::VirtualVcr> vcr_;
    deck::VcrControl* control_;
    DeckPin* pin_;
};

}  // namespace kc::win
