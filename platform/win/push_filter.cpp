#include "platform/win/push_filter.h"

#include <algorithm>
#include <cstring>
#include <cwchar>

#include "platform/win/filter_base.h"

namespace kc::win {

void set_video_type(AM_MEDIA_TYPE& type, const GUID& subtype, ULONG bytes, long width, long height,
                    WORD bits, DWORD compression, REFERENCE_TIME frame_time) {
    type.majortype = MEDIATYPE_Video;
    type.subtype = subtype;
    type.bFixedSizeSamples = TRUE;
    type.lSampleSize = bytes;
    auto* vih = new_format<VIDEOINFOHEADER>(type, FORMAT_VideoInfo);
    vih->AvgTimePerFrame = frame_time;
    vih->bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
    vih->bmiHeader.biWidth = width;
    vih->bmiHeader.biHeight = height;
    vih->bmiHeader.biPlanes = 1;
    vih->bmiHeader.biBitCount = bits;
    vih->bmiHeader.biCompression = compression;
    vih->bmiHeader.biSizeImage = bytes;
}

namespace {

// Whether `offered` fits what a caller asked for in `wanted`, if anything.
bool fits(const AM_MEDIA_TYPE& offered, const AM_MEDIA_TYPE* wanted) {
    return wanted == nullptr || type_fits(offered, *wanted);
}

}  // namespace

// What both pins share. A pin lives as long as its filter: its references are the
// filter's.
template <class... Extra>
class PushPin : public ComObject<IPin, Extra...> {
  public:
    PushPin(PushFilter* filter, const wchar_t* name, PIN_DIRECTION direction)
        : filter_(filter), name_(name), direction_(direction) {}
    ~PushPin() override {
        if (peer_ != nullptr) {
            peer_->Release();
        }
        free_media_type(type_);
    }

    ULONG STDMETHODCALLTYPE AddRef() override { return filter_->AddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return filter_->Release(); }

    HRESULT STDMETHODCALLTYPE ConnectedTo(IPin** pin) override {
        std::lock_guard lock(filter_->state_lock_);
        *pin = peer_;
        if (peer_ == nullptr) {
            return VFW_E_NOT_CONNECTED;
        }
        peer_->AddRef();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE* type) override {
        std::lock_guard lock(filter_->state_lock_);
        if (peer_ == nullptr) {
            *type = AM_MEDIA_TYPE{};
            return VFW_E_NOT_CONNECTED;
        }
        copy_media_type(type_, *type);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* info) override {
        return pin_info(info, filter_, direction_, name_.c_str());
    }
    HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* direction) override {
        *direction = direction_;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryId(LPWSTR* id) override {
        return task_string(name_.c_str(), id);
    }
    HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin**, ULONG*) override {
        return E_NOTIMPL;
    }

    const std::wstring& name() const { return name_; }
    IPin* peer() const { return peer_; }

  protected:
    // Called with the filter's lock held.
    HRESULT can_connect() const {
        if (peer_ != nullptr) {
            return VFW_E_ALREADY_CONNECTED;
        }
        return filter_->state_ == State_Stopped ? S_OK : VFW_E_NOT_STOPPED;
    }

    PushFilter* filter_;
    std::wstring name_;
    PIN_DIRECTION direction_;
    IPin* peer_ = nullptr;
    AM_MEDIA_TYPE type_{};
};

class PushOutputPin : public PushPin<> {
  public:
    PushOutputPin(PushFilter* filter, const wchar_t* name, std::size_t index)
        : PushPin(filter, name, PINDIR_OUTPUT), index_(index) {}
    ~PushOutputPin() override { drop_connection(); }

    HRESULT STDMETHODCALLTYPE Connect(IPin* receiver, const AM_MEDIA_TYPE* wanted) override {
        if (receiver == nullptr) {
            return E_POINTER;
        }
        std::lock_guard lock(filter_->state_lock_);
        if (const HRESULT hr = can_connect(); FAILED(hr)) {
            return hr;
        }
        AM_MEDIA_TYPE type{};
        if (!filter_->output_type(index_, type) || !fits(type, wanted)) {
            free_media_type(type);
            return VFW_E_NO_ACCEPTABLE_TYPES;
        }
        if (FAILED(receiver->ReceiveConnection(this, &type))) {
            free_media_type(type);
            return VFW_E_NO_ACCEPTABLE_TYPES;
        }
        // As DirectShow's own output pins decide: the downstream pin's requirements (its
        // prefix and alignment) first, then its allocator, else one of our own.
        HRESULT hr = receiver->QueryInterface(IID_IMemInputPin, reinterpret_cast<void**>(&input_));
        ALLOCATOR_PROPERTIES want{};
        if (SUCCEEDED(hr)) {
            input_->GetAllocatorRequirements(&want);
            if (FAILED(input_->GetAllocator(&allocator_))) {
                hr = CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER,
                                      IID_IMemAllocator, reinterpret_cast<void**>(&allocator_));
            }
        }
        if (SUCCEEDED(hr)) {
            // At least a few buffers of the largest sample this output sends.
            want.cBuffers = std::max(want.cBuffers, 4L);
            want.cbBuffer = std::max(want.cbBuffer, static_cast<long>(type.lSampleSize));
            want.cbAlign = std::max(want.cbAlign, 1L);
            ALLOCATOR_PROPERTIES got{};
            hr = allocator_->SetProperties(&want, &got);
            if (SUCCEEDED(hr)) {
                hr = input_->NotifyAllocator(allocator_, FALSE);
            }
        }
        peer_ = receiver;
        peer_->AddRef();
        type_ = type;
        if (FAILED(hr)) {
            receiver->Disconnect();
            drop_connection();
        }
        return hr;
    }
    HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin*, const AM_MEDIA_TYPE*) override {
        return E_UNEXPECTED;  // an output pin connects, it is not connected to
    }
    HRESULT STDMETHODCALLTYPE Disconnect() override {
        std::lock_guard lock(filter_->state_lock_);
        if (peer_ == nullptr) {
            return S_FALSE;
        }
        if (filter_->state_ != State_Stopped) {
            return VFW_E_NOT_STOPPED;
        }
        drop_connection();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE* type) override {
        AM_MEDIA_TYPE ours{};
        const bool ok = filter_->output_type(index_, ours) && fits(ours, type);
        free_media_type(ours);
        return ok ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** out) override {
        std::vector<AM_MEDIA_TYPE> types(1);
        if (!filter_->output_type(index_, types[0])) {
            types.clear();
        }
        *out = new TypeEnum(types, 0);
        for (AM_MEDIA_TYPE& t : types) {
            free_media_type(t);
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE EndOfStream() override { return E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) override {
        return E_UNEXPECTED;
    }

    void drop_connection() {
        if (input_ != nullptr) {
            input_->Release();
            input_ = nullptr;
        }
        if (allocator_ != nullptr) {
            allocator_->Decommit();
            allocator_->Release();
            allocator_ = nullptr;
        }
        if (peer_ != nullptr) {
            peer_->Release();
            peer_ = nullptr;
        }
        free_media_type(type_);
    }

    std::size_t index_;
    IMemInputPin* input_ = nullptr;
    IMemAllocator* allocator_ = nullptr;
};

class PushInputPin : public PushPin<IMemInputPin> {
  public:
    PushInputPin(PushFilter* filter, const wchar_t* name, std::size_t index)
        : PushPin(filter, name, PINDIR_INPUT), index_(index) {}
    std::size_t index() const { return index_; }
    bool connected() const { return peer_ != nullptr; }
    const AM_MEDIA_TYPE& type() const { return type_; }

    // IPin
    HRESULT STDMETHODCALLTYPE Connect(IPin*, const AM_MEDIA_TYPE*) override {
        return E_UNEXPECTED;  // the upstream output pin connects
    }
    HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* connector,
                                                const AM_MEDIA_TYPE* type) override {
        if (connector == nullptr || type == nullptr) {
            return E_POINTER;
        }
        std::lock_guard lock(filter_->state_lock_);
        if (const HRESULT hr = can_connect(); FAILED(hr)) {
            return hr;
        }
        if (!filter_->accept_input(index_, *type)) {
            return VFW_E_TYPE_NOT_ACCEPTED;
        }
        peer_ = connector;
        peer_->AddRef();
        copy_media_type(*type, type_);
        filter_->input_connected(index_, type_);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Disconnect() override {
        std::lock_guard lock(filter_->state_lock_);
        if (peer_ == nullptr) {
            return S_FALSE;
        }
        peer_->Release();
        peer_ = nullptr;
        free_media_type(type_);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE* type) override {
        return type != nullptr && filter_->accept_input(index_, *type) ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** out) override {
        *out = new TypeEnum({}, 0);  // the upstream proposes
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE EndOfStream() override {
        filter_->end_of_stream(index_);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE BeginFlush() override {
        return each_peer([](IPin* pin) { return pin->BeginFlush(); });
    }
    HRESULT STDMETHODCALLTYPE EndFlush() override {
        return each_peer([](IPin* pin) { return pin->EndFlush(); });
    }
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop,
                                         double rate) override {
        return each_peer([&](IPin* pin) { return pin->NewSegment(start, stop, rate); });
    }

    // IMemInputPin
    HRESULT STDMETHODCALLTYPE GetAllocator(IMemAllocator**) override {
        return VFW_E_NO_ALLOCATOR;  // the upstream brings its own
    }
    HRESULT STDMETHODCALLTYPE NotifyAllocator(IMemAllocator*, BOOL) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetAllocatorRequirements(ALLOCATOR_PROPERTIES*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Receive(IMediaSample* sample) override {
        if (sample == nullptr) {
            return E_POINTER;
        }
        if (filter_->state_ == State_Stopped) {
            return VFW_E_WRONG_STATE;
        }
        return filter_->receive(index_, sample);
    }
    HRESULT STDMETHODCALLTYPE ReceiveMultiple(IMediaSample** samples, long count,
                                              long* processed) override {
        HRESULT hr = S_OK;
        *processed = 0;
        for (; *processed < count && hr == S_OK; ++*processed) {
            hr = Receive(samples[*processed]);
        }
        return hr;
    }
    HRESULT STDMETHODCALLTYPE ReceiveCanBlock() override { return S_OK; }

  private:
    template <class F>
    HRESULT each_peer(F&& f) {
        for (PushOutputPin* out : filter_->outputs_) {
            if (out->peer() != nullptr) {
                f(out->peer());
            }
        }
        return S_OK;
    }

    std::size_t index_;
};

PushFilter::PushFilter(const CLSID& clsid, const std::vector<const wchar_t*>& input_names,
                       const std::vector<const wchar_t*>& output_names)
    : FilterBase(clsid, false) {
    for (std::size_t i = 0; i < input_names.size(); ++i) {
        inputs_.push_back(new PushInputPin(this, input_names[i], i));
    }
    for (std::size_t i = 0; i < output_names.size(); ++i) {
        outputs_.push_back(new PushOutputPin(this, output_names[i], i));
    }
}

PushFilter::~PushFilter() {
    for (PushOutputPin* out : outputs_) {
        delete out;
    }
    for (PushInputPin* in : inputs_) {
        delete in;
    }
}

void PushFilter::end_of_stream(std::size_t) {
    for (PushOutputPin* out : outputs_) {
        if (out->peer() != nullptr) {
            out->peer()->EndOfStream();
        }
    }
}

bool PushFilter::input_is_connected(std::size_t input) const {
    return inputs_.at(input)->connected();
}

const AM_MEDIA_TYPE& PushFilter::input_type(std::size_t input) const {
    return inputs_.at(input)->type();
}

HRESULT PushFilter::Stop() {
    std::lock_guard lock(state_lock_);
    for (PushOutputPin* out : outputs_) {
        if (out->allocator_ != nullptr) {
            out->allocator_->Decommit();
        }
    }
    const bool was_stopped = state_ == State_Stopped;
    state_ = State_Stopped;
    if (!was_stopped) {
        stopped();
    }
    return S_OK;
}

HRESULT PushFilter::Pause() {
    std::lock_guard lock(state_lock_);
    if (state_ == State_Stopped) {
        for (PushOutputPin* out : outputs_) {
            if (out->allocator_ != nullptr) {
                const HRESULT hr = out->allocator_->Commit();
                if (FAILED(hr)) {
                    return hr;
                }
            }
        }
        if (const HRESULT hr = started(); FAILED(hr)) {
            return hr;
        }
    }
    state_ = State_Paused;
    return S_OK;
}

HRESULT PushFilter::Run(REFERENCE_TIME) {
    std::lock_guard lock(state_lock_);
    if (state_ == State_Stopped) {
        const HRESULT hr = Pause();
        if (FAILED(hr)) {
            return hr;
        }
    }
    state_ = State_Running;
    return S_OK;
}

std::vector<IPin*> PushFilter::pins() {
    std::vector<IPin*> all(inputs_.begin(), inputs_.end());
    all.insert(all.end(), outputs_.begin(), outputs_.end());
    return all;
}

HRESULT PushFilter::deliver(std::size_t output, const void* data, std::size_t size,
                            IMediaSample* timing) {
    REFERENCE_TIME start = 0;
    REFERENCE_TIME stop = 0;
    const bool timed = timing != nullptr && SUCCEEDED(timing->GetTime(&start, &stop));
    return deliver_stamped(output, data, size, timed ? &start : nullptr, timed ? &stop : nullptr);
}

HRESULT PushFilter::deliver(std::size_t output, const void* data, std::size_t size,
                            REFERENCE_TIME start, REFERENCE_TIME stop) {
    return deliver_stamped(output, data, size, &start, &stop);
}

HRESULT PushFilter::deliver_stamped(std::size_t output, const void* data, std::size_t size,
                                    REFERENCE_TIME* start, REFERENCE_TIME* stop) {
    PushOutputPin* out = outputs_.at(output);
    if (out->input_ == nullptr) {
        return S_OK;
    }
    IMediaSample* sample = nullptr;
    HRESULT hr = out->allocator_->GetBuffer(&sample, nullptr, nullptr, 0);
    if (FAILED(hr)) {
        return hr;
    }
    BYTE* bytes = nullptr;
    sample->GetPointer(&bytes);
    if (static_cast<std::size_t>(sample->GetSize()) < size) {
        sample->Release();
        return E_OUTOFMEMORY;
    }
    std::memcpy(bytes, data, size);
    sample->SetActualDataLength(static_cast<long>(size));
    if (start != nullptr) {
        sample->SetTime(start, stop);
    }
    sample->SetSyncPoint(TRUE);
    hr = out->input_->Receive(sample);
    sample->Release();
    return hr;
}

}  // namespace kc::win
