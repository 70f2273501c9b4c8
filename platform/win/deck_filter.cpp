#include "platform/win/deck_filter.h"

#include <algorithm>
#include <cstring>

#include "platform/win/deck_pin.h"

namespace kc::win {
namespace {

// The filter's one pin.
class PinList final : public ItemList<IEnumPins, IPin> {
  public:
    explicit PinList(IPin* pin, ULONG at = 0) : ItemList(1, at), pin_(pin) { pin_->AddRef(); }

  private:
    ~PinList() override { pin_->Release(); }
    HRESULT give(ULONG, IPin** out) override {
        *out = pin_;
        pin_->AddRef();
        return S_OK;
    }
    IEnumPins* copy() override { return new PinList(pin_, position()); }

    IPin* pin_;
};

// A string the caller frees with the task allocator.
HRESULT task_string(const wchar_t* text, LPWSTR* out) {
    if (out == nullptr) {
        return E_POINTER;
    }
    const std::size_t bytes = (std::wcslen(text) + 1) * sizeof(wchar_t);
    *out = static_cast<LPWSTR>(CoTaskMemAlloc(bytes));
    if (*out == nullptr) {
        return E_OUTOFMEMORY;
    }
    std::memcpy(*out, text, bytes);
    return S_OK;
}

constexpr const wchar_t* pin_id = L"DV A/V Out";

}  // namespace

DeckFilter* DeckFilter::create(std::shared_ptr<deck::VirtualVcr> vcr) {
    return new DeckFilter(std::move(vcr));
}

DeckFilter::DeckFilter(std::shared_ptr<deck::VirtualVcr> vcr)
    : vcr_(vcr), control_(deck::VcrControl::create(std::move(vcr))), pin_(new DeckPin(*this)) {}

DeckFilter::~DeckFilter() {
    // The graph stops its filters before it lets go of them; a filter dropped while
    // running still ends its thread.
    pin_->deactivate();
    delete pin_;
    control_->release();
    if (clock_ != nullptr) {
        clock_->Release();
    }
}

HRESULT DeckFilter::GetClassID(CLSID* clsid) {
    if (clsid == nullptr) {
        return E_POINTER;
    }
    *clsid = clsid_virtual_deck;
    return S_OK;
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

HRESULT DeckFilter::GetState(DWORD, FILTER_STATE* state) {
    if (state == nullptr) {
        return E_POINTER;
    }
    std::lock_guard lock(state_lock_);
    *state = state_;
    // A live source has nothing to show before it runs.
    return state_ == State_Paused ? VFW_S_CANT_CUE : S_OK;
}

FILTER_STATE DeckFilter::state() {
    std::lock_guard lock(state_lock_);
    return state_;
}

HRESULT DeckFilter::SetSyncSource(IReferenceClock* clock) {
    std::lock_guard lock(state_lock_);
    if (clock != nullptr) {
        clock->AddRef();
    }
    if (clock_ != nullptr) {
        clock_->Release();
    }
    clock_ = clock;
    return S_OK;
}

HRESULT DeckFilter::GetSyncSource(IReferenceClock** clock) {
    if (clock == nullptr) {
        return E_POINTER;
    }
    std::lock_guard lock(state_lock_);
    *clock = clock_;
    if (clock_ != nullptr) {
        clock_->AddRef();
    }
    return S_OK;
}

HRESULT DeckFilter::EnumPins(IEnumPins** pins) {
    if (pins == nullptr) {
        return E_POINTER;
    }
    *pins = new PinList(pin_);
    return S_OK;
}

HRESULT DeckFilter::FindPin(LPCWSTR id, IPin** pin) {
    if (id == nullptr || pin == nullptr) {
        return E_POINTER;
    }
    *pin = nullptr;
    if (std::wcscmp(id, pin_id) != 0) {
        return VFW_E_NOT_FOUND;
    }
    *pin = pin_;
    pin_->AddRef();
    return S_OK;
}

HRESULT DeckFilter::QueryFilterInfo(FILTER_INFO* info) {
    if (info == nullptr) {
        return E_POINTER;
    }
    std::lock_guard lock(state_lock_);
    const std::size_t n = std::min<std::size_t>(name_.size(), MAX_FILTER_NAME - 1);
    std::wmemcpy(info->achName, name_.c_str(), n);
    info->achName[n] = L'\0';
    info->pGraph = graph_;
    if (graph_ != nullptr) {
        graph_->AddRef();
    }
    return S_OK;
}

HRESULT DeckFilter::JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) {
    IMediaEventSink* events = nullptr;
    if (graph != nullptr &&
        SUCCEEDED(graph->QueryInterface(IID_IMediaEventSink, reinterpret_cast<void**>(&events)))) {
        // Kept without its count, as the graph itself is.
        events->Release();
    }
    {
        std::lock_guard lock(state_lock_);
        graph_ = graph;
        name_ = graph != nullptr && name != nullptr ? name : L"";
    }
    std::lock_guard lock(events_lock_);
    events_ = events;
    return S_OK;
}

HRESULT DeckFilter::QueryVendorInfo(LPWSTR* info) {
    return task_string(L"Kestrel Capture virtual DV deck", info);
}

void DeckFilter::notify_device_lost() {
    std::lock_guard lock(events_lock_);
    if (events_ != nullptr) {
        auto* identity = static_cast<IUnknown*>(static_cast<IBaseFilter*>(this));
        events_->Notify(EC_DEVICE_LOST, reinterpret_cast<LONG_PTR>(identity), 0);
    }
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
