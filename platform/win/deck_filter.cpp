#include "platform/win/deck_filter.h"

#include "platform/win/deck_pin.h"

namespace kc::win {
DeckFilter* DeckFilter::create(std::shared_ptr<deck::VirtualVcr> vcr) {
    return new DeckFilter(std::move(vcr));
}

DeckFilter::DeckFilter(std::shared_ptr<deck::VirtualVcr> vcr)
    : FilterBase(clsid_virtual_deck, true),
      vcr_(vcr),
      control_(deck::VcrControl::create(std::move(vcr))),
      pin_(new DeckPin(*this)) {}

DeckFilter::~DeckFilter() {
    // The graph stops its filters before it lets go of them; a filter dropped while
    // running still ends its thread.
    pin_->deactivate();
    delete pin_;
    control_->release();
}

HRESULT DeckFilter::Stop() {
    std::lock_guard lock(state_lock_);
    if (state_ != State_Stopped) {
        pin_->deactivate();
        state_ = State_Stopped;
    }
    return S_OK;
}

HRESULT DeckFilter::Pause() {
    std::lock_guard lock(state_lock_);
    if (state_ == State_Stopped) {
        const HRESULT hr = pin_->activate();
        if (FAILED(hr)) {
            return hr;
        }
    } else if (state_ == State_Running) {
        pin_->pause();
    }
    state_ = State_Paused;
    return S_OK;
}

HRESULT DeckFilter::Run(REFERENCE_TIME) {
    std::lock_guard lock(state_lock_);
    if (state_ == State_Stopped) {
        const HRESULT hr = pin_->activate();
        if (FAILED(hr)) {
            return hr;
        }
    }
    if (state_ != State_Running) {
        pin_->run();
    }
    state_ = State_Running;
    return S_OK;
}

std::vector<IPin*> DeckFilter::pins() {
    return {pin_};
}

void DeckFilter::notify_device_lost() {
    // A removed device (param2 0) names itself by its filter's identity.
    notify(EC_DEVICE_LOST, reinterpret_cast<LONG_PTR>(identity()), 0);
}

// ---- Device control: the deck's own control object answers, as on every platform ----------

HRESULT DeckFilter::GetCapability(LONG capability, LONG* value, double* dbl_value) {
    return control_->get_capability(capability, value, dbl_value);
}
HRESULT DeckFilter::put_Mode(LONG mode) {
    return control_->put_mode(mode);
}
HRESULT DeckFilter::get_Mode(LONG* mode) {
    return mode == nullptr ? E_POINTER : vcr_->get_mode(*mode);
}
HRESULT DeckFilter::GetStatus(LONG item, LONG* value) {
    return control_->get_status(item, value);
}
HRESULT DeckFilter::GetTransportBasicParameters(LONG param, LONG* value, LPOLESTR* data) {
    // The raw AV/C frame travels where the string would be, and the answer comes back in
    // it, as the DV driver defines the raw command.
    return control_->get_transport_basic_parameters(param, value,
                                                    reinterpret_cast<std::uint8_t*>(data));
}

HRESULT DeckFilter::GetTimecode(PTIMECODE_SAMPLE sample) {
    if (sample == nullptr) {
        return E_POINTER;
    }
    media::TimecodeSample request;
    request.flags = static_cast<long>(sample->dwFlags);
    const HRESULT hr = control_->get_timecode(request);
    if (SUCCEEDED(hr)) {
        sample->timecode.dwFrames = request.frames;
        sample->dwUser = request.user;
        sample->timecode.wFrameRate = vcr_->system() == deck::DvSystem::pal_625_50
                                          ? media::ED_FORMAT_SMPTE_25
                                          : media::ED_FORMAT_SMPTE_30DROP;
        sample->timecode.wFrameFract = 0;
    }
    return hr;
}

// What a DV deck on the bus cannot be asked, or the program never asks.
HRESULT DeckFilter::get_ExternalDeviceID(LPOLESTR*) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::get_ExternalDeviceVersion(LPOLESTR*) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::put_DevicePower(LONG) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::get_DevicePower(LONG*) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::Calibrate(HEVENT, LONG, LONG*) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::put_DevicePort(LONG) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::get_DevicePort(LONG*) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::put_MediaState(LONG) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::get_MediaState(LONG*) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::put_LocalControl(LONG) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::get_LocalControl(LONG*) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::SetTransportBasicParameters(LONG, LONG, LPCOLESTR) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::GetTransportVideoParameters(LONG, LONG*) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::SetTransportVideoParameters(LONG, LONG) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::GetTransportAudioParameters(LONG, LONG*) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::SetTransportAudioParameters(LONG, LONG) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::put_Rate(double) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::get_Rate(double*) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::GetChase(LONG*, LONG*, HEVENT*) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::SetChase(LONG, LONG, HEVENT) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::GetBump(LONG*, LONG*) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::SetBump(LONG, LONG) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::get_AntiClogControl(LONG*) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::put_AntiClogControl(LONG) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::GetEditPropertySet(LONG, LONG*) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::SetEditPropertySet(LONG*, LONG) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::GetEditProperty(LONG, LONG, LONG*) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::SetEditProperty(LONG, LONG, LONG) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::get_EditStart(LONG*) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::put_EditStart(LONG) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::GetTCRMode(LONG, LONG*) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::SetTCRMode(LONG, LONG) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::put_VITCLine(LONG) {
    return E_NOTIMPL;
}
HRESULT DeckFilter::get_VITCLine(LONG*) {
    return E_NOTIMPL;
}

}  // namespace kc::win
