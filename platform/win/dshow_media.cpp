#include "platform/win/dshow_media.h"
#include "platform/win/dv_splitter_filter.h"
#include "platform/win/media_type.h"
#include "platform/win/stand_in_filters.h"

#include "platform/win/avi_writer_filter.h"
#include "platform/win/deck_device.h"
#include "platform/win/frame_gate_filter.h"

#include <olectl.h>

#include <array>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kc::win {
namespace {

// ---- Conversions ---------------------------------------------------------------------

std::wstring wide(const std::string& text) {
    if (text.empty()) {
        return {};
    }
    const int n =
        MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring out(static_cast<std::size_t>(n), L'\0');
    MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), out.data(), n);
    return out;
}

std::string narrow(const wchar_t* text) {
    if (text == nullptr || *text == L'\0') {
        return {};
    }
    const int n = WideCharToMultiByte(CP_ACP, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string out(static_cast<std::size_t>(n), '\0');
    WideCharToMultiByte(CP_ACP, 0, text, -1, out.data(), n, nullptr, nullptr);
    out.resize(static_cast<std::size_t>(n > 0 ? n - 1 : 0));
    return out;
}

// media::Guid has GUID's fields in GUID's order.
media::Guid guid_of(const GUID& g) {
    media::Guid out{g.Data1, g.Data2, g.Data3, {}};
    std::copy(std::begin(g.Data4), std::end(g.Data4), out.data4.begin());
    return out;
}
GUID windows_guid(const media::Guid& g) {
    GUID out{g.data1, g.data2, g.data3, {}};
    std::copy(g.data4.begin(), g.data4.end(), std::begin(out.Data4));
    return out;
}

const GUID* pin_category(media::PinCategory category) {
    switch (category) {
        case media::PinCategory::capture:
            return &PIN_CATEGORY_CAPTURE;
        case media::PinCategory::preview:
            return &PIN_CATEGORY_PREVIEW;
        case media::PinCategory::none:
            break;
    }
    return nullptr;
}

const GUID* major_type(media::MajorType type) {
    switch (type) {
        case media::MajorType::interleaved:
            return &MEDIATYPE_Interleaved;
        case media::MajorType::video:
            return &MEDIATYPE_Video;
        case media::MajorType::audio:
            return &MEDIATYPE_Audio;
        case media::MajorType::none:
            break;
    }
    return nullptr;
}

const CLSID& category_clsid(media::DeviceCategory category) {
    switch (category) {
        case media::DeviceCategory::video_input:
            return CLSID_VideoInputDeviceCategory;
        case media::DeviceCategory::audio_input:
            return CLSID_AudioInputDeviceCategory;
        case media::DeviceCategory::video_compressor:
            return CLSID_VideoCompressorCategory;
        case media::DeviceCategory::audio_compressor:
            break;
    }
    return CLSID_AudioCompressorCategory;
}

const CLSID& object_clsid(media::Clsid clsid) {
    switch (clsid) {
        case media::Clsid::system_device_enum:
            return CLSID_SystemDeviceEnum;
        case media::Clsid::filter_graph:
            return CLSID_FilterGraph;
        case media::Clsid::capture_graph_builder:
            return CLSID_CaptureGraphBuilder2;
        case media::Clsid::dv_splitter:
            break;
    }
    return CLSID_DVSplitter;
}

// One COM reference, released at the end of its scope.
template <typename T>
class Ref {
  public:
    Ref() = default;
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;
    ~Ref() {
        if (p != nullptr) {
            p->Release();
        }
    }
    T** out() { return &p; }
    void** out_void() { return reinterpret_cast<void**>(&p); }
    T* get() const { return p; }
    T* operator->() const { return p; }

  private:
    T* p = nullptr;
};

class DsObject;

// The identity map: each DirectShow object's IUnknown to its one wrapper. The wrappers
// take themselves out when they go.
class Identities {
  public:
    // Gives the `iid` interface of the wrapper of `object` (made on first sight).
    HRESULT wrap(IUnknown* object, Iid iid, void** out);
    void forget(IUnknown* identity) { map.erase(identity); }
    // The wrapper of `object`, if it has one.
    DsObject* find(IUnknown* object);

  private:
    std::unordered_map<IUnknown*, DsObject*> map;
};

// The DirectShow object behind a media:: pointer made here, or null for a foreign one.
DsObject* ours(Unknown* object);

// The frame gates in `graph`, each with one reference for the caller.
std::vector<IKcFrameGate*> gates_in(IFilterGraph* graph) {
    std::vector<IKcFrameGate*> gates;
    IEnumFilters* filters = nullptr;
    if (graph == nullptr || FAILED(graph->EnumFilters(&filters))) {
        return gates;
    }
    IBaseFilter* filter = nullptr;
    while (filters->Next(1, &filter, nullptr) == S_OK) {
        IKcFrameGate* gate = nullptr;
        if (SUCCEEDED(filter->QueryInterface(IID_IKcFrameGate, reinterpret_cast<void**>(&gate)))) {
            gates.push_back(gate);
        }
        filter->Release();
    }
    filters->Release();
    return gates;
}

// The frame gate that the output pins of `filter` lead to, if any: one reference for the
// caller.
IBaseFilter* gate_downstream_of(IBaseFilter* filter, int depth = 0) {
    IEnumPins* pins = nullptr;
    if (filter == nullptr || depth > 8 || FAILED(filter->EnumPins(&pins))) {
        return nullptr;
    }
    IBaseFilter* found = nullptr;
    IPin* pin = nullptr;
    while (found == nullptr && pins->Next(1, &pin, nullptr) == S_OK) {
        PIN_DIRECTION direction = PINDIR_INPUT;
        IPin* peer = nullptr;
        if (SUCCEEDED(pin->QueryDirection(&direction)) && direction == PINDIR_OUTPUT &&
            SUCCEEDED(pin->ConnectedTo(&peer))) {
            PIN_INFO info{};
            if (SUCCEEDED(peer->QueryPinInfo(&info)) && info.pFilter != nullptr) {
                IUnknown* gate = nullptr;
                if (SUCCEEDED(info.pFilter->QueryInterface(IID_IKcFrameGate,
                                                           reinterpret_cast<void**>(&gate)))) {
                    gate->Release();
                    found = info.pFilter;
                    found->AddRef();
                } else {
                    found = gate_downstream_of(info.pFilter, depth + 1);
                }
                info.pFilter->Release();
            }
            peer->Release();
        }
        pin->Release();
    }
    pins->Release();
    return found;
}

// ---- The wrapper ---------------------------------------------------------------------------

constexpr std::size_t iid_count = static_cast<std::size_t>(Iid::property_bag) + 1;

class DsObject final : public media::BaseFilter,
                       public media::Pin,
                       public media::EnumPins,
                       public media::EnumMediaTypes,
                       public media::ConfigInterleaving,
                       public media::FileSink,
                       public media::DroppedFrames,
                       public media::SceneSplit,
                       public media::SpecifyPropertyPages,
                       public media::PropertyBag,
                       public media::Moniker,
                       public media::EnumMoniker,
                       public media::CreateDevEnum,
                       public media::GraphBuilder,
                       public media::CaptureGraphBuilder,
                       public media::MediaControl,
                       public media::MediaEvent,
                       public media::MediaSeeking,
                       public media::VideoWindow,
                       public media::ExtDevice,
                       public media::ExtTransport,
                       public media::TimecodeReader {
  public:
    // Takes over one reference to `identity`, the object's own IUnknown.
    DsObject(Identities& identities_, IUnknown* identity_)
        : identities(identities_), identity(identity_) {}
    DsObject(const DsObject&) = delete;
    DsObject& operator=(const DsObject&) = delete;

    Unknown* self() { return static_cast<Unknown*>(static_cast<media::BaseFilter*>(this)); }
    IUnknown* com_identity() const { return identity; }

    // The object's DirectShow interface for `iid`, asked for once and kept; no reference
    // for the caller.
    template <typename T = IUnknown>
    T* com(Iid iid) {
        const auto index = static_cast<std::size_t>(iid);
        if (interfaces[index] == nullptr) {
            const IID* windows = windows_iid(iid);
            if (windows == nullptr ||
                FAILED(identity->QueryInterface(*windows,
                                                reinterpret_cast<void**>(&interfaces[index])))) {
                interfaces[index] = nullptr;
            }
        }
        return static_cast<T*>(interfaces[index]);
    }

    HRESULT query_interface(Iid iid, void** out) override {
        *out = nullptr;
        if (iid != Iid::unknown && com(iid) == nullptr) {
            return E_NOINTERFACE;
        }
        *out = facet(iid);
        add_ref();
        return S_OK;
    }
    std::uint32_t add_ref() override { return ++refs; }
    std::uint32_t release() override {
        const std::uint32_t left = --refs;
        if (left == 0) {
            delete this;
        }
        return left;
    }

    // ---- Filters, pins, media types
    HRESULT enum_pins(media::EnumPins** out) override {
        *out = nullptr;
        Ref<IEnumPins> pins;
        const HRESULT hr = com<IBaseFilter>(Iid::base_filter)->EnumPins(pins.out());
        return FAILED(hr)
                   ? hr
                   : identities.wrap(pins.get(), Iid::enum_pins, reinterpret_cast<void**>(out));
    }
    HRESULT next(media::Pin** out) override {
        *out = nullptr;
        Ref<IPin> pin;
        const HRESULT hr = com<IEnumPins>(Iid::enum_pins)->Next(1, pin.out(), nullptr);
        if (hr != S_OK) {
            return hr;
        }
        return identities.wrap(pin.get(), Iid::pin, reinterpret_cast<void**>(out));
    }
    HRESULT reset() override { return com<IEnumPins>(Iid::enum_pins)->Reset(); }
    HRESULT connected_to(media::Pin** peer) override {
        *peer = nullptr;
        Ref<IPin> other;
        const HRESULT hr = com<IPin>(Iid::pin)->ConnectedTo(other.out());
        if (FAILED(hr) || other.get() == nullptr) {
            return FAILED(hr) ? hr : E_FAIL;
        }
        return identities.wrap(other.get(), Iid::pin, reinterpret_cast<void**>(peer));
    }
    HRESULT query_pin_info(media::PinInfo& info) override {
        PIN_INFO pin{};
        const HRESULT hr = com<IPin>(Iid::pin)->QueryPinInfo(&pin);
        if (FAILED(hr)) {
            return hr;
        }
        info.direction =
            pin.dir == PINDIR_INPUT ? media::PinDirection::input : media::PinDirection::output;
        info.name = narrow(pin.achName);
        info.filter = nullptr;
        if (pin.pFilter != nullptr) {
            const HRESULT wrapped = identities.wrap(pin.pFilter, Iid::base_filter,
                                                    reinterpret_cast<void**>(&info.filter));
            pin.pFilter->Release();
            return wrapped;
        }
        return hr;
    }
    HRESULT query_direction(media::PinDirection& direction) override {
        PIN_DIRECTION dir = PINDIR_INPUT;
        const HRESULT hr = com<IPin>(Iid::pin)->QueryDirection(&dir);
        direction = dir == PINDIR_INPUT ? media::PinDirection::input : media::PinDirection::output;
        return hr;
    }
    HRESULT enum_media_types(media::EnumMediaTypes** out) override {
        *out = nullptr;
        Ref<IEnumMediaTypes> types;
        const HRESULT hr = com<IPin>(Iid::pin)->EnumMediaTypes(types.out());
        return FAILED(hr) ? hr
                          : identities.wrap(types.get(), Iid::enum_media_types,
                                            reinterpret_cast<void**>(out));
    }
    HRESULT next(media::MediaType& out, std::uint32_t* fetched) override {
        AM_MEDIA_TYPE* type = nullptr;
        ULONG got = 0;
        const HRESULT hr = com<IEnumMediaTypes>(Iid::enum_media_types)->Next(1, &type, &got);
        if (fetched != nullptr) {
            *fetched = got;
        }
        if (got == 1 && type != nullptr) {
            out.major = guid_of(type->majortype);
            out.subtype = guid_of(type->subtype);
            out.format.assign(type->pbFormat,
                              type->pbFormat + (type->pbFormat ? type->cbFormat : 0));
            delete_media_type(type);
        }
        return hr;
    }
    HRESULT put_mode(int mode) override {
        return com<IConfigInterleaving>(Iid::config_interleaving)
            ->put_Mode(static_cast<InterleavingMode>(mode));
    }
    HRESULT get_cur_file(std::string& path) override {
        LPOLESTR name = nullptr;
        AM_MEDIA_TYPE type{};
        const HRESULT hr = com<IFileSinkFilter>(Iid::file_sink)->GetCurFile(&name, &type);
        if (SUCCEEDED(hr)) {
            path = narrow(name);
        }
        CoTaskMemFree(name);
        CoTaskMemFree(type.pbFormat);
        if (type.pUnk != nullptr) {
            type.pUnk->Release();
        }
        return hr;
    }
    HRESULT get_num_dropped(long* count) override {
        return com<IAMDroppedFrames>(Iid::dropped_frames)->GetNumDropped(count);
    }
    HRESULT get_num_not_dropped(long* count) override {
        return com<IAMDroppedFrames>(Iid::dropped_frames)->GetNumNotDropped(count);
    }
    HRESULT split_at_break() override {
        return com<IKcFrameGate>(Iid::scene_split)->SplitAtBreak();
    }
    HRESULT get_break_held(long* held) override {
        BOOL gate_holds = FALSE;
        const HRESULT hr = com<IKcFrameGate>(Iid::scene_split)->GetBreakHeld(&gate_holds);
        if (SUCCEEDED(hr)) {
            *held = gate_holds ? OATRUE : 0;  // the system's own, the same -1
        }
        return hr;
    }
    HRESULT get_pages(std::vector<media::Guid>& pages) override {
        CAUUID list{};
        const HRESULT hr = com<ISpecifyPropertyPages>(Iid::specify_property_pages)->GetPages(&list);
        if (SUCCEEDED(hr)) {
            pages.clear();
            for (ULONG i = 0; i < list.cElems; ++i) {
                pages.push_back(guid_of(list.pElems[i]));
            }
        }
        CoTaskMemFree(list.pElems);
        return hr;
    }

    // ---- Device categories
    HRESULT read(const std::string& name, std::string& value) override {
        VARIANT v;
        VariantInit(&v);
        v.vt = VT_BSTR;
        HRESULT hr = com<IPropertyBag>(Iid::property_bag)->Read(wide(name).c_str(), &v, nullptr);
        if (SUCCEEDED(hr)) {
            if (v.vt == VT_BSTR) {
                value = narrow(v.bstrVal);
            } else {
                hr = DISP_E_TYPEMISMATCH;
            }
        }
        VariantClear(&v);
        return hr;
    }
    HRESULT bind_to_object(Iid iid, void** out) override {
        *out = nullptr;
        const IID* windows = windows_iid(iid);
        if (windows == nullptr) {
            return E_NOINTERFACE;
        }
        Ref<IUnknown> object;
        HRESULT hr = com<IMoniker>(Iid::moniker)
                         ->BindToObject(nullptr, nullptr, *windows, object.out_void());
        if (SUCCEEDED(hr)) {
            hr = identities.wrap(object.get(), iid, out);
        }
        // The device's name goes with it: its capture files' logs name their source.
        std::string name;
        DsObject* bound = SUCCEEDED(hr) ? identities.find(object.get()) : nullptr;
        if (bound != nullptr && SUCCEEDED(friendly_name_of_moniker(name))) {
            bound->friendly_name = name;
        }
        return hr;
    }
    HRESULT friendly_name_of_moniker(std::string& name) {
        Ref<IPropertyBag> bag;
        HRESULT hr = com<IMoniker>(Iid::moniker)
                         ->BindToStorage(nullptr, nullptr, IID_IPropertyBag, bag.out_void());
        if (FAILED(hr)) {
            return hr;
        }
        VARIANT v;
        VariantInit(&v);
        v.vt = VT_BSTR;
        hr = bag->Read(L"FriendlyName", &v, nullptr);
        if (SUCCEEDED(hr) && v.vt == VT_BSTR) {
            name = narrow(v.bstrVal);
        }
        VariantClear(&v);
        return hr;
    }
    HRESULT bind_to_storage(media::PropertyBag** out) override {
        *out = nullptr;
        Ref<IPropertyBag> bag;
        const HRESULT hr = com<IMoniker>(Iid::moniker)
                               ->BindToStorage(nullptr, nullptr, IID_IPropertyBag, bag.out_void());
        return FAILED(hr)
                   ? hr
                   : identities.wrap(bag.get(), Iid::property_bag, reinterpret_cast<void**>(out));
    }
    HRESULT next(media::Moniker** out) override {
        *out = nullptr;
        Ref<IMoniker> moniker;
        const HRESULT hr = com<IEnumMoniker>(Iid::enum_moniker)->Next(1, moniker.out(), nullptr);
        if (hr != S_OK) {
            return hr;
        }
        return identities.wrap(moniker.get(), Iid::moniker, reinterpret_cast<void**>(out));
    }
    HRESULT create_class_enumerator(media::DeviceCategory category, media::EnumMoniker** out,
                                    std::uint32_t flags) override {
        *out = nullptr;
        Ref<IEnumMoniker> monikers;
        HRESULT hr = com<ICreateDevEnum>(Iid::create_dev_enum)
                         ->CreateClassEnumerator(category_clsid(category), monikers.out(), flags);
        if (category == media::DeviceCategory::video_input) {
            hr = list_virtual_deck(hr, monikers.out());
        }
        // S_FALSE: the category is empty, and there is no enumerator.
        if (hr != S_OK || monikers.get() == nullptr) {
            return hr;
        }
        return identities.wrap(monikers.get(), Iid::enum_moniker, reinterpret_cast<void**>(out));
    }

    // ---- Graph
    HRESULT add_filter(media::BaseFilter* filter, const std::string& name) override {
        return graph()->AddFilter(com_of<IBaseFilter>(filter, Iid::base_filter),
                                  wide(name).c_str());
    }
    HRESULT remove_filter(media::BaseFilter* filter) override {
        return graph()->RemoveFilter(com_of<IBaseFilter>(filter, Iid::base_filter));
    }
    HRESULT disconnect(media::Pin* pin) override {
        return graph()->Disconnect(com_of<IPin>(pin, Iid::pin));
    }
    HRESULT find_filter_by_name(const std::string& name, media::BaseFilter** out) override {
        *out = nullptr;
        Ref<IBaseFilter> filter;
        const HRESULT hr = graph()->FindFilterByName(wide(name).c_str(), filter.out());
        return FAILED(hr)
                   ? hr
                   : identities.wrap(filter.get(), Iid::base_filter, reinterpret_cast<void**>(out));
    }

    HRESULT set_filtergraph(media::GraphBuilder* graph_builder) override {
        return builder()->SetFiltergraph(com_of<IGraphBuilder>(graph_builder, Iid::graph_builder));
    }
    HRESULT set_output_file_name(const std::string& path, media::BaseFilter** mux_out,
                                 media::FileSink** sink_out) override;
    HRESULT render_stream(media::PinCategory category, media::MajorType type, Unknown* source,
                          media::BaseFilter* intermediate, media::BaseFilter* sink) override {
        if (category == media::PinCategory::capture && type == media::MajorType::interleaved &&
            sink != nullptr) {
            return render_through_gate(source, intermediate, sink);
        }
        return builder()->RenderStream(pin_category(category), major_type(type),
                                       com_of<IUnknown>(source, Iid::unknown),
                                       com_of<IBaseFilter>(intermediate, Iid::base_filter),
                                       com_of<IBaseFilter>(sink, Iid::base_filter));
    }
    HRESULT find_interface(media::PinCategory category, media::MajorType type,
                           media::BaseFilter* filter, Iid iid, void** out) override {
        *out = nullptr;
        const IID* windows = windows_iid(iid);
        if (windows == nullptr) {
            return E_NOINTERFACE;
        }
        if (category == media::PinCategory::capture &&
            (iid == Iid::dropped_frames || iid == Iid::scene_split)) {
            // A DV capture's counts are those of its file, which its gate keeps; the gate
            // is also where the file is split.
            Ref<IBaseFilter> gate;
            *gate.out() = gate_downstream_of(com_of<IBaseFilter>(filter, Iid::base_filter));
            if (gate.get() != nullptr) {
                return identities.wrap(gate.get(), iid, out);
            }
        }
        Ref<IUnknown> found;
        const HRESULT hr = builder()->FindInterface(pin_category(category), major_type(type),
                                                    com_of<IBaseFilter>(filter, Iid::base_filter),
                                                    *windows, found.out_void());
        return FAILED(hr) ? hr : identities.wrap(found.get(), iid, out);
    }

    // ---- Running, events, position, video window
    HRESULT run() override {
        // Frames handed over at a recording break belong to the next file of that capture
        // only: a graph that runs without a gate (the preview after a capture that failed
        // to go on) ends the hand-over.
        const std::vector<IKcFrameGate*> gates = gates_in(graph());
        if (gates.empty() && carry) {
            std::lock_guard lock(carry->lock);
            carry->clear();
        }
        for (IKcFrameGate* gate : gates) {
            gate->Release();
        }
        return com<IMediaControl>(Iid::media_control)->Run();
    }
    HRESULT stop() override {
        // A stopping graph sends no end of stream: the gates put what they hold into their
        // files while the multiplexers still take frames.
        for (IKcFrameGate* gate : gates_in(graph())) {
            gate->EndStream();
            gate->Release();
        }
        return com<IMediaControl>(Iid::media_control)->Stop();
    }

    HRESULT set_notify_window(WindowHandle window, unsigned message,
                              LParam instance_data) override {
        return events()->SetNotifyWindow(reinterpret_cast<OAHWND>(window), message, instance_data);
    }
    HRESULT get_event(long* code, LParam* param1, LParam* param2, long timeout_ms) override;
    HRESULT free_event_params(long code, LParam param1, LParam param2) override;

    HRESULT get_current_position(std::int64_t* position_100ns) override {
        LONGLONG position = 0;
        const HRESULT hr = com<IMediaSeeking>(Iid::media_seeking)->GetCurrentPosition(&position);
        *position_100ns = position;
        return hr;
    }

    HRESULT put_owner(WindowHandle owner) override {
        return video()->put_Owner(reinterpret_cast<OAHWND>(owner));
    }
    HRESULT put_window_style(long style) override { return video()->put_WindowStyle(style); }
    HRESULT put_visible(long visible) override { return video()->put_Visible(visible); }
    HRESULT set_window_position(long left, long top, long width, long height) override {
        return video()->SetWindowPosition(left, top, width, height);
    }

    // ---- DV device control
    HRESULT get_capability(long capability, long* value, double* dbl_value) override {
        double scratch = 0;
        return com<IAMExtDevice>(Iid::ext_device)
            ->GetCapability(capability, value, dbl_value != nullptr ? dbl_value : &scratch);
    }
    HRESULT put_mode(long mode) override {
        return com<IAMExtTransport>(Iid::ext_transport)->put_Mode(mode);
    }
    HRESULT get_status(long item, long* value) override {
        return com<IAMExtTransport>(Iid::ext_transport)->GetStatus(item, value);
    }
    HRESULT get_transport_basic_parameters(long param, long* length, std::uint8_t* frame) override {
        // The DV driver takes the raw AV/C frame where the string would be, and answers
        // in the same buffer: that is how the raw command is defined.
        return com<IAMExtTransport>(Iid::ext_transport)
            ->GetTransportBasicParameters(param, length, reinterpret_cast<LPOLESTR*>(frame));
    }
    HRESULT get_timecode(media::TimecodeSample& sample) override {
        TIMECODE_SAMPLE request{};
        request.dwFlags = static_cast<DWORD>(sample.flags);
        const HRESULT hr = com<IAMTimecodeReader>(Iid::timecode_reader)->GetTimecode(&request);
        if (SUCCEEDED(hr)) {
            sample.frames = request.timecode.dwFrames;
            sample.user = request.dwUser;
        }
        return hr;
    }

  private:
    ~DsObject() {
        for (IUnknown* i : interfaces) {
            if (i != nullptr) {
                i->Release();
            }
        }
        identities.forget(identity);
        identity->Release();
    }

    void* facet(Iid iid) {
        switch (iid) {
            case Iid::unknown:
                return self();
            case Iid::base_filter:
                return static_cast<media::BaseFilter*>(this);
            case Iid::pin:
                return static_cast<media::Pin*>(this);
            case Iid::enum_pins:
                return static_cast<media::EnumPins*>(this);
            case Iid::enum_media_types:
                return static_cast<media::EnumMediaTypes*>(this);
            case Iid::graph_builder:
                return static_cast<media::GraphBuilder*>(this);
            case Iid::capture_graph_builder:
                return static_cast<media::CaptureGraphBuilder*>(this);
            case Iid::media_control:
                return static_cast<media::MediaControl*>(this);
            case Iid::media_event:
                return static_cast<media::MediaEvent*>(this);
            case Iid::media_seeking:
                return static_cast<media::MediaSeeking*>(this);
            case Iid::video_window:
                return static_cast<media::VideoWindow*>(this);
            case Iid::ext_device:
                return static_cast<media::ExtDevice*>(this);
            case Iid::ext_transport:
                return static_cast<media::ExtTransport*>(this);
            case Iid::timecode_reader:
                return static_cast<media::TimecodeReader*>(this);
            case Iid::dropped_frames:
                return static_cast<media::DroppedFrames*>(this);
            case Iid::scene_split:
                return static_cast<media::SceneSplit*>(this);
            case Iid::config_interleaving:
                return static_cast<media::ConfigInterleaving*>(this);
            case Iid::file_sink:
                return static_cast<media::FileSink*>(this);
            case Iid::specify_property_pages:
                return static_cast<media::SpecifyPropertyPages*>(this);
            case Iid::create_dev_enum:
                return static_cast<media::CreateDevEnum*>(this);
            case Iid::enum_moniker:
                return static_cast<media::EnumMoniker*>(this);
            case Iid::moniker:
                return static_cast<media::Moniker*>(this);
            case Iid::property_bag:
                return static_cast<media::PropertyBag*>(this);
        }
        return nullptr;
    }

    // The DirectShow interface of another wrapper handed in as an argument; null for null
    // (DirectShow reads a null filter as "none") and for what is not ours.
    template <typename T>
    static T* com_of(Unknown* object, Iid iid) {
        DsObject* o = object != nullptr ? ours(object) : nullptr;
        if (o == nullptr) {
            return nullptr;
        }
        return iid == Iid::unknown ? reinterpret_cast<T*>(o->identity) : o->com<T>(iid);
    }

    HRESULT render_through_gate(Unknown* source, media::BaseFilter* intermediate,
                                media::BaseFilter* sink);

    IGraphBuilder* graph() { return com<IGraphBuilder>(Iid::graph_builder); }
    ICaptureGraphBuilder2* builder() {
        return com<ICaptureGraphBuilder2>(Iid::capture_graph_builder);
    }
    IMediaEventEx* events() { return com<IMediaEventEx>(Iid::media_event); }
    IVideoWindow* video() { return com<IVideoWindow>(Iid::video_window); }

    Identities& identities;
    IUnknown* identity;
    std::uint32_t refs = 1;
    std::array<IUnknown*, iid_count> interfaces{};
    // The lost devices handed out by get_event, by the wrapper given in their place: the
    // event's own parameter goes back to DirectShow with free_event_params. One entry per
    // event: a device lost and back again before the events are taken gives two.
    std::unordered_multimap<LParam, std::pair<LONG_PTR, Unknown*>> lost_devices;
    // A device's, bound from its moniker: the name the device list shows.
    std::string friendly_name;
    // A capture graph builder's: the file its last set_output_file_name named.
    std::string output_file;
    // A filter graph's: what one capture file hands to the next at a recording break.
    std::shared_ptr<capture::Carry> carry;
};

DsObject* ours(Unknown* object) {
    return dynamic_cast<DsObject*>(object);
}

DsObject* Identities::find(IUnknown* object) {
    IUnknown* identity = nullptr;
    if (object == nullptr ||
        FAILED(object->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity)))) {
        return nullptr;
    }
    identity->Release();
    const auto found = map.find(identity);
    return found != map.end() ? found->second : nullptr;
}

HRESULT Identities::wrap(IUnknown* object, Iid iid, void** out) {
    *out = nullptr;
    if (object == nullptr) {
        return E_POINTER;
    }
    IUnknown* identity = nullptr;
    HRESULT hr = object->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity));
    if (FAILED(hr)) {
        return hr;
    }
    if (auto found = map.find(identity); found != map.end()) {
        identity->Release();
        return found->second->query_interface(iid, out);
    }
    auto* wrapper = new DsObject(*this, identity);
    map.emplace(identity, wrapper);
    hr = wrapper->query_interface(iid, out);
    wrapper->release();
    return hr;
}

HRESULT DsObject::set_output_file_name(const std::string& path, media::BaseFilter** mux_out,
                                       media::FileSink** sink_out) {
    *mux_out = nullptr;
    if (sink_out != nullptr) {
        *sink_out = nullptr;
    }
    const std::wstring file = wide(path);
    Ref<IBaseFilter> mux;
    Ref<IFileSinkFilter> sink;
    HRESULT hr =
        builder()->SetOutputFileName(&MEDIASUBTYPE_Avi, file.c_str(), mux.out(), sink.out());
    if (hr == E_NOTIMPL) {
        // Wine's builder does not make the file end of a capture graph, and Wine's
        // multiplexer cannot write a DV capture: our writer, multiplexer and file writer
        // in one filter, stands in for both (avi_writer_filter.h).
        Ref<IGraphBuilder> filters;
        hr = builder()->GetFiltergraph(filters.out());
        if (SUCCEEDED(hr)) {
            *mux.out() = make_avi_writer();
            hr = mux->QueryInterface(IID_IFileSinkFilter, sink.out_void());
        }
        if (SUCCEEDED(hr)) {
            hr = sink->SetFileName(file.c_str(), nullptr);
        }
        if (SUCCEEDED(hr)) {
            hr = filters->AddFilter(mux.get(), L"AVI Mux");
        }
    }
    if (FAILED(hr)) {
        return hr;
    }
    output_file = path;
    hr = identities.wrap(mux.get(), Iid::base_filter, reinterpret_cast<void**>(mux_out));
    if (SUCCEEDED(hr) && sink_out != nullptr) {
        hr = identities.wrap(sink.get(), Iid::file_sink, reinterpret_cast<void**>(sink_out));
    }
    return hr;
}

// A DV capture passes our frame gate on its way to the file (frame_gate_filter.h): in front
// of the multiplexer, or in front of the DV splitter of a type 2 capture, so that a scene's
// picture and sound end up in the same file. The builder makes both connections as it
// would have made the one asked for (the capture pin split for the preview, the
// multiplexer's next input).
HRESULT DsObject::render_through_gate(Unknown* source, media::BaseFilter* intermediate,
                                      media::BaseFilter* sink) {
    Ref<IGraphBuilder> filters;
    HRESULT hr = builder()->GetFiltergraph(filters.out());
    if (FAILED(hr)) {
        return hr;
    }
    // The hand-over lives with the graph, which the files of one capture share.
    std::shared_ptr<capture::Carry> carried;
    {
        void* wrapped = nullptr;
        if (SUCCEEDED(identities.wrap(filters.get(), Iid::graph_builder, &wrapped))) {
            auto* graph_object = ours(static_cast<media::GraphBuilder*>(wrapped));
            if (!graph_object->carry) {
                graph_object->carry = std::make_shared<capture::Carry>();
            }
            carried = graph_object->carry;
            graph_object->release();
        }
    }
    DsObject* source_object = source != nullptr ? ours(source) : nullptr;
    std::string source_name = source_object != nullptr ? source_object->friendly_name : "";
    IBaseFilter* source_filter = com_of<IBaseFilter>(source, Iid::base_filter);
    if (source_name.empty() && source_filter != nullptr) {
        FILTER_INFO info{};
        if (SUCCEEDED(source_filter->QueryFilterInfo(&info))) {
            source_name = narrow(info.achName);
            if (info.pGraph != nullptr) {
                info.pGraph->Release();
            }
        }
    }
    Ref<IBaseFilter> gate;
    *gate.out() = make_frame_gate(std::move(carried), output_file,
                                  output_file.empty() ? "" : media::capture_log_path(output_file),
                                  source_name);
    hr = filters->AddFilter(gate.get(), L"Frame Gate");
    if (FAILED(hr)) {
        return hr;
    }
    hr = builder()->RenderStream(&PIN_CATEGORY_CAPTURE, &MEDIATYPE_Interleaved,
                                 com_of<IUnknown>(source, Iid::unknown), nullptr, gate.get());
    if (SUCCEEDED(hr)) {
        hr = builder()->RenderStream(nullptr, nullptr, gate.get(),
                                     com_of<IBaseFilter>(intermediate, Iid::base_filter),
                                     com_of<IBaseFilter>(sink, Iid::base_filter));
    }
    if (FAILED(hr)) {
        filters->RemoveFilter(gate.get());
    }
    return hr;
}

HRESULT DsObject::get_event(long* code, LParam* param1, LParam* param2, long timeout_ms) {
    long event = 0;
    LONG_PTR p1 = 0;
    LONG_PTR p2 = 0;
    const HRESULT hr = events()->GetEvent(&event, &p1, &p2, timeout_ms);
    if (FAILED(hr)) {
        return hr;
    }
    *code = event;
    *param1 = p1;
    *param2 = p2;
    // The lost device comes as the filter's IUnknown; the core compares it with the
    // wrappers it holds, so it gets the wrapper of that filter.
    if (event == EC_DEVICE_LOST && p1 != 0) {
        void* device = nullptr;
        if (SUCCEEDED(identities.wrap(reinterpret_cast<IUnknown*>(p1), Iid::unknown, &device))) {
            auto* wrapper = static_cast<Unknown*>(device);
            *param1 = reinterpret_cast<LParam>(wrapper);
            lost_devices.emplace(*param1, std::make_pair(p1, wrapper));
        }
    }
    return hr;
}

HRESULT DsObject::free_event_params(long code, LParam param1, LParam param2) {
    LONG_PTR p1 = param1;
    if (code == EC_DEVICE_LOST) {
        if (auto found = lost_devices.find(param1); found != lost_devices.end()) {
            p1 = found->second.first;
            found->second.second->release();
            lost_devices.erase(found);
        }
    }
    return events()->FreeEventParams(code, p1, param2);
}

// ---- The factory ----------------------------------------------------------------------------

class DsMediaFactory : public media::MediaFactory {
  public:
    HRESULT create_instance(media::Clsid clsid, Iid iid, void** out) override {
        *out = nullptr;
        // Graphs made here render DV for the preview with the system's DV filters, or ours
        // where it has none. Registered at the first object, once COM is up.
        register_stand_in_dv_filters();
        Ref<IUnknown> object;
        HRESULT hr = CoCreateInstance(object_clsid(clsid), nullptr, CLSCTX_INPROC_SERVER,
                                      IID_IUnknown, object.out_void());
        if (FAILED(hr) && clsid == media::Clsid::dv_splitter) {
            // Wine has none; ours stands in.
            *object.out() = make_dv_splitter();
            hr = S_OK;
        }
        return FAILED(hr) ? hr : identities.wrap(object.get(), iid, out);
    }

    HRESULT create_property_frame(WindowHandle owner, const std::string& caption, Unknown* object,
                                  const std::vector<media::Guid>& pages) override {
        DsObject* o = object != nullptr ? ours(object) : nullptr;
        if (o == nullptr) {
            return E_POINTER;
        }
        std::vector<CLSID> clsids;
        for (const media::Guid& page : pages) {
            clsids.push_back(windows_guid(page));
        }
        IUnknown* objects[] = {o->com_identity()};
        return OleCreatePropertyFrame(reinterpret_cast<HWND>(owner), 0, 0, wide(caption).c_str(), 1,
                                      objects, static_cast<ULONG>(clsids.size()), clsids.data(),
                                      GetUserDefaultLCID(), 0, nullptr);
    }

  private:
    Identities identities;
};

}  // namespace

const IID* windows_iid(Iid iid) {
    switch (iid) {
        case Iid::unknown:
            return &IID_IUnknown;
        case Iid::base_filter:
            return &IID_IBaseFilter;
        case Iid::pin:
            return &IID_IPin;
        case Iid::enum_pins:
            return &IID_IEnumPins;
        case Iid::enum_media_types:
            return &IID_IEnumMediaTypes;
        case Iid::graph_builder:
            return &IID_IGraphBuilder;
        case Iid::capture_graph_builder:
            return &IID_ICaptureGraphBuilder2;
        case Iid::media_control:
            return &IID_IMediaControl;
        case Iid::media_event:
            return &IID_IMediaEventEx;
        case Iid::media_seeking:
            return &IID_IMediaSeeking;
        case Iid::video_window:
            return &IID_IVideoWindow;
        case Iid::ext_device:
            return &IID_IAMExtDevice;
        case Iid::ext_transport:
            return &IID_IAMExtTransport;
        case Iid::timecode_reader:
            return &IID_IAMTimecodeReader;
        case Iid::dropped_frames:
            return &IID_IAMDroppedFrames;
        case Iid::scene_split:
            // Ours: the frame gate of a DV capture answers it.
            return &IID_IKcFrameGate;
        case Iid::config_interleaving:
            return &IID_IConfigInterleaving;
        case Iid::file_sink:
            return &IID_IFileSinkFilter;
        case Iid::specify_property_pages:
            return &IID_ISpecifyPropertyPages;
        case Iid::create_dev_enum:
            return &IID_ICreateDevEnum;
        case Iid::enum_moniker:
            return &IID_IEnumMoniker;
        case Iid::moniker:
            return &IID_IMoniker;
        case Iid::property_bag:
            return &IID_IPropertyBag;
    }
    return nullptr;
}

IUnknown* windows_object(Unknown* object) {
    DsObject* o = object != nullptr ? ours(object) : nullptr;
    return o != nullptr ? o->com_identity() : nullptr;
}

std::unique_ptr<media::MediaFactory> make_media_factory() {
    return std::make_unique<DsMediaFactory>();
}

}  // namespace kc::win
