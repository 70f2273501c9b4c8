#include "platform/win/deck_pin.h"

#include <algorithm>
#include <cstring>

#include "platform/win/deck_filter.h"

namespace kc::win {
namespace {

// Buffers between the deck and downstream: enough for a writer that stalls for a
// moment without the paced deck losing frames.
constexpr long buffers_wanted = 8;

}  // namespace

DeckPin::DeckPin(DeckFilter& filter) : filter_(filter) {}

DeckPin::~DeckPin() {
    deactivate();
    release_connection();
}

ULONG DeckPin::AddRef() {
    return filter_.AddRef();
}

ULONG DeckPin::Release() {
    return filter_.Release();
}

// ---- Connection -----------------------------------------------------------------------------

HRESULT DeckPin::Connect(IPin* receiver, const AM_MEDIA_TYPE* type) {
    if (receiver == nullptr) {
        return E_POINTER;
    }
    std::lock_guard lock(connection_lock_);
    if (peer_ != nullptr) {
        return VFW_E_ALREADY_CONNECTED;
    }
    if (filter_.state() != State_Stopped) {
        return VFW_E_NOT_STOPPED;
    }
    DeckFormats formats = deck_formats(filter_.vcr().tape());
    HRESULT hr = VFW_E_NO_ACCEPTABLE_TYPES;
    for (int position = 0; position < deck_media_type_count; ++position) {
        const int index = type_at(position);
        const AM_MEDIA_TYPE ours = deck_media_type(filter_.vcr().system(), formats, index);
        if (type != nullptr && !type_fits(ours, *type)) {
            continue;
        }
        hr = try_connection(receiver, ours);
        if (SUCCEEDED(hr)) {
            connected_type_ = index;
            return hr;
        }
    }
    return type != nullptr && hr == VFW_E_NO_ACCEPTABLE_TYPES ? VFW_E_TYPE_NOT_ACCEPTED : hr;
}

int DeckPin::type_at(int position) {
    // Asked once, of a multiplexer of the system's own, by offering it the interleaved
    // type as this pin would connect with it. A system whose multiplexer takes no
    // interleaved DV (Wine) renders none for the preview either: there the frames are
    // offered as DV video first, and our writer still files them as type 1.
    static const int first = [this] {
        bool takes = true;
        IBaseFilter* mux = nullptr;
        IEnumPins* pins = nullptr;
        if (SUCCEEDED(CoCreateInstance(CLSID_AviDest, nullptr, CLSCTX_INPROC_SERVER,
                                       IID_IBaseFilter, reinterpret_cast<void**>(&mux))) &&
            SUCCEEDED(mux->EnumPins(&pins))) {
            IPin* pin = nullptr;
            while (pins->Next(1, &pin, nullptr) == S_OK) {
                PIN_DIRECTION direction = PINDIR_OUTPUT;
                if (SUCCEEDED(pin->QueryDirection(&direction)) && direction == PINDIR_INPUT) {
                    DeckFormats formats = deck_formats(filter_.vcr().tape());
                    const AM_MEDIA_TYPE interleaved =
                        deck_media_type(filter_.vcr().system(), formats, 0);
                    takes = SUCCEEDED(pin->ReceiveConnection(this, &interleaved));
                    if (takes) {
                        pin->Disconnect();
                    }
                    pin->Release();
                    break;
                }
                pin->Release();
            }
        }
        if (pins != nullptr) {
            pins->Release();
        }
        if (mux != nullptr) {
            mux->Release();
        }
        return takes ? 0 : 1;
    }();
    return position == 0 ? first : 1 - first;
}

HRESULT DeckPin::try_connection(IPin* receiver, const AM_MEDIA_TYPE& type) {
    HRESULT hr = receiver->ReceiveConnection(this, &type);
    if (FAILED(hr)) {
        return hr;
    }
    peer_ = receiver;
    peer_->AddRef();
    hr = decide_allocator(receiver);
    if (FAILED(hr)) {
        receiver->Disconnect();
        release_connection();
    }
    return hr;
}

HRESULT DeckPin::decide_allocator(IPin* receiver) {
    HRESULT hr = receiver->QueryInterface(IID_IMemInputPin, reinterpret_cast<void**>(&input_));
    if (FAILED(hr)) {
        return hr;
    }
    ALLOCATOR_PROPERTIES wanted{};
    (void)input_->GetAllocatorRequirements(&wanted);
    wanted.cBuffers = std::max(wanted.cBuffers, buffers_wanted);
    wanted.cbBuffer = static_cast<long>(deck::frame_bytes(filter_.vcr().system()));
    wanted.cbAlign = std::max(wanted.cbAlign, 1L);
    // Downstream's own allocator first, then a memory allocator of ours.
    for (int attempt = 0; attempt < 2; ++attempt) {
        IMemAllocator* allocator = nullptr;
        hr = attempt == 0
                 ? input_->GetAllocator(&allocator)
                 : CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER,
                                    IID_IMemAllocator, reinterpret_cast<void**>(&allocator));
        if (FAILED(hr)) {
            continue;
        }
        ALLOCATOR_PROPERTIES actual{};
        hr = allocator->SetProperties(&wanted, &actual);
        if (SUCCEEDED(hr) && actual.cbBuffer < wanted.cbBuffer) {
            hr = VFW_E_SIZENOTSET;
        }
        if (SUCCEEDED(hr)) {
            hr = input_->NotifyAllocator(allocator, FALSE);
        }
        if (SUCCEEDED(hr)) {
            allocator_ = allocator;
            return S_OK;
        }
        allocator->Release();
    }
    return FAILED(hr) ? hr : VFW_E_NO_ALLOCATOR;
}

void DeckPin::release_connection() {
    std::lock_guard lock(connection_lock_);
    for (IUnknown* held : {static_cast<IUnknown*>(allocator_), static_cast<IUnknown*>(input_),
                           static_cast<IUnknown*>(peer_)}) {
        if (held != nullptr) {
            held->Release();
        }
    }
    allocator_ = nullptr;
    input_ = nullptr;
    peer_ = nullptr;
}

HRESULT DeckPin::ReceiveConnection(IPin*, const AM_MEDIA_TYPE*) {
    // An output pin connects; it is not connected to.
    return E_UNEXPECTED;
}

HRESULT DeckPin::Disconnect() {
    std::lock_guard lock(connection_lock_);
    if (filter_.state() != State_Stopped) {
        return VFW_E_NOT_STOPPED;
    }
    if (peer_ == nullptr) {
        return S_FALSE;
    }
    release_connection();
    return S_OK;
}

HRESULT DeckPin::ConnectedTo(IPin** pin) {
    std::lock_guard lock(connection_lock_);
    return give_reference(peer_, pin, VFW_E_NOT_CONNECTED);
}

HRESULT DeckPin::ConnectionMediaType(AM_MEDIA_TYPE* type) {
    if (type == nullptr) {
        return E_POINTER;
    }
    std::lock_guard lock(connection_lock_);
    if (peer_ == nullptr) {
        std::memset(type, 0, sizeof(*type));
        return VFW_E_NOT_CONNECTED;
    }
    DeckFormats formats = deck_formats(filter_.vcr().tape());
    return copy_media_type(deck_media_type(filter_.vcr().system(), formats, connected_type_),
                           *type);
}

HRESULT DeckPin::QueryPinInfo(PIN_INFO* info) {
    return pin_info(info, &filter_, PINDIR_OUTPUT, deck_pin_id);
}

HRESULT DeckPin::QueryDirection(PIN_DIRECTION* direction) {
    if (direction == nullptr) {
        return E_POINTER;
    }
    *direction = PINDIR_OUTPUT;
    return S_OK;
}

HRESULT DeckPin::QueryId(LPWSTR* id) {
    return task_string(deck_pin_id, id);
}

HRESULT DeckPin::QueryAccept(const AM_MEDIA_TYPE* type) {
    if (type == nullptr) {
        return E_POINTER;
    }
    DeckFormats formats;
    for (int index = 0; index < deck_media_type_count; ++index) {
        if (type_fits(deck_media_type(filter_.vcr().system(), formats, index), *type)) {
            return S_OK;
        }
    }
    return S_FALSE;
}

HRESULT DeckPin::EnumMediaTypes(IEnumMediaTypes** types) {
    if (types == nullptr) {
        return E_POINTER;
    }
    *types =
        make_media_types(deck_formats(filter_.vcr().tape()), filter_.vcr().system(), type_at(0));
    return S_OK;
}

HRESULT DeckPin::QueryInternalConnections(IPin**, ULONG*) {
    return E_NOTIMPL;
}

// Calls that only an input pin takes.
HRESULT DeckPin::EndOfStream() {
    return E_UNEXPECTED;
}
HRESULT DeckPin::BeginFlush() {
    return E_UNEXPECTED;
}
HRESULT DeckPin::EndFlush() {
    return E_UNEXPECTED;
}
HRESULT DeckPin::NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) {
    return S_OK;
}

// ---- Category and counters ------------------------------------------------------------------

HRESULT DeckPin::Set(REFGUID, DWORD, LPVOID, DWORD, LPVOID, DWORD) {
    return E_PROP_ID_UNSUPPORTED;
}

HRESULT DeckPin::Get(REFGUID set, DWORD id, LPVOID, DWORD, LPVOID data, DWORD data_size,
                     DWORD* returned) {
    if (!IsEqualGUID(set, AMPROPSETID_Pin)) {
        return E_PROP_SET_UNSUPPORTED;
    }
    if (id != AMPROPERTY_PIN_CATEGORY) {
        return E_PROP_ID_UNSUPPORTED;
    }
    if (data == nullptr && returned == nullptr) {
        return E_POINTER;
    }
    if (returned != nullptr) {
        *returned = sizeof(GUID);
    }
    if (data == nullptr) {
        return S_OK;
    }
    if (data_size < sizeof(GUID)) {
        return E_UNEXPECTED;
    }
    *static_cast<GUID*>(data) = PIN_CATEGORY_CAPTURE;
    return S_OK;
}

HRESULT DeckPin::QuerySupported(REFGUID set, DWORD id, DWORD* support) {
    if (!IsEqualGUID(set, AMPROPSETID_Pin)) {
        return E_PROP_SET_UNSUPPORTED;
    }
    if (id != AMPROPERTY_PIN_CATEGORY) {
        return E_PROP_ID_UNSUPPORTED;
    }
    if (support != nullptr) {
        *support = KSPROPERTY_SUPPORT_GET;
    }
    return S_OK;
}

HRESULT DeckPin::GetNumDropped(LONG* count) {
    return filter_.control().get_num_dropped(count);
}
HRESULT DeckPin::GetNumNotDropped(LONG* count) {
    return filter_.control().get_num_not_dropped(count);
}
HRESULT DeckPin::GetDroppedInfo(LONG, LONG*, LONG*) {
    // The deck counts its losses; it does not keep which frames they were.
    return E_NOTIMPL;
}
HRESULT DeckPin::GetAverageFrameSize(LONG* size) {
    if (size == nullptr) {
        return E_POINTER;
    }
    *size = static_cast<LONG>(deck::frame_bytes(filter_.vcr().system()));
    return S_OK;
}

// ---- Streaming ------------------------------------------------------------------------------

HRESULT DeckPin::activate() {
    std::lock_guard lock(connection_lock_);
    if (allocator_ != nullptr) {
        const HRESULT hr = allocator_->Commit();
        if (FAILED(hr)) {
            return hr;
        }
    }
    {
        std::lock_guard gate(gate_lock_);
        running_ = false;
        stopping_ = false;
        ended_ = false;
        started_ = false;
        delivered_ = 0;
    }
    // An unconnected pin has nowhere to deliver; it still goes through the states.
    if (input_ != nullptr) {
        thread_ = std::thread([this] { stream(); });
    }
    return S_OK;
}

void DeckPin::run() {
    deck::VirtualVcr& vcr = filter_.vcr();
    {
        std::lock_guard gate(gate_lock_);
        if (!started_) {
            // The stream begins with the first run; frames due before it are nobody's loss.
            vcr.start_stream();
            started_ = true;
        }
        run_start_ms_ = vcr.clock().now_ms();
        running_ = true;
    }
    gate_.notify_all();
}

void DeckPin::pause() {
    {
        std::lock_guard gate(gate_lock_);
        running_ = false;
    }
    filter_.vcr().cancel_waits();
}

void DeckPin::deactivate() {
    {
        std::lock_guard gate(gate_lock_);
        running_ = false;
        stopping_ = true;
    }
    gate_.notify_all();
    filter_.vcr().cancel_waits();
    {
        std::lock_guard lock(connection_lock_);
        if (allocator_ != nullptr) {
            allocator_->Decommit();
        }
    }
    if (thread_.joinable()) {
        thread_.join();
    }
    std::lock_guard gate(gate_lock_);
    if (started_) {
        filter_.vcr().stop_stream();
        started_ = false;
    }
}

void DeckPin::stream() {
    deck::VirtualVcr& vcr = filter_.vcr();
    const bool paced = vcr.pacing() == deck::Pacing::real_time;
    // A tape in memory is delivered from where it lies; one read from a file is copied out.
    const bool in_memory = vcr.tape().in_memory();
    for (;;) {
        {
            std::unique_lock gate(gate_lock_);
            gate_.wait(gate, [&] { return stopping_ || (running_ && !ended_); });
            if (stopping_) {
                return;
            }
        }
        deck::FetchedFrame info;
        std::span<const std::uint8_t> view;
        const deck::FetchStatus status =
            in_memory ? vcr.wait_frame_view(view, info, 200) : vcr.wait_frame(frame_, info, 200);
        bool end = false;
        if (status == deck::FetchStatus::frame) {
            const HRESULT hr = in_memory ? deliver(view.data(), view.size(), info)
                                         : deliver(frame_.data(), frame_.size(), info);
            // A refusal ends the stream; a stop decommitting the buffers under way is no
            // refusal, and the gate sees the stop.
            end = hr != S_OK && hr != VFW_E_NOT_COMMITTED;
        } else if (status == deck::FetchStatus::device_lost) {
            filter_.notify_device_lost();
            end = true;
        } else if (!paced && status == deck::FetchStatus::no_picture &&
                   vcr.state().mode == deck::TransportMode::stop &&
                   vcr.state().frame() >= vcr.tape().frame_count() - 1) {
            // Unpaced, a tape played to its end ends the stream, so that a test or a
            // benchmark finishes when the tape does.
            peer_->EndOfStream();
            end = true;
        }
        if (end) {
            std::lock_guard gate(gate_lock_);
            ended_ = true;
        }
    }
}

HRESULT DeckPin::deliver(const std::uint8_t* frame, std::size_t size,
                         const deck::FetchedFrame& info) {
    IMediaSample* sample = nullptr;
    HRESULT hr = allocator_->GetBuffer(&sample, nullptr, nullptr, 0);
    if (FAILED(hr)) {
        return hr;
    }
    BYTE* data = nullptr;
    hr = sample->GetPointer(&data);
    if (SUCCEEDED(hr) && static_cast<std::size_t>(sample->GetSize()) < size) {
        hr = VFW_E_BUFFER_OVERFLOW;
    }
    if (SUCCEEDED(hr)) {
        std::memcpy(data, frame, size);
        hr = sample->SetActualDataLength(static_cast<long>(size));
    }
    if (SUCCEEDED(hr)) {
        const deck::FrameRate rate = deck::frame_rate(filter_.vcr().system());
        const auto at = [&](std::int64_t n) {
            return static_cast<REFERENCE_TIME>(n * units_per_second * rate.den / rate.num);
        };
        std::int64_t run_start_ms = 0;
        {
            std::lock_guard gate(gate_lock_);
            run_start_ms = run_start_ms_;
        }
        REFERENCE_TIME start = at(delivered_);
        if (filter_.vcr().pacing() == deck::Pacing::real_time) {
            start =
                std::max<std::int64_t>(info.due_ms - run_start_ms, 0) * (units_per_second / 1000);
        }
        REFERENCE_TIME stop = start + at(1);
        sample->SetTime(&start, &stop);
        LONGLONG tape_start = info.tape_frame;
        LONGLONG tape_stop = info.tape_frame + 1;
        sample->SetMediaTime(&tape_start, &tape_stop);
        sample->SetSyncPoint(TRUE);
        sample->SetDiscontinuity(delivered_ == 0 || info.dropped_before > 0);
        hr = input_->Receive(sample);
        ++delivered_;
    }
    sample->Release();
    return hr;
}

}  // namespace kc::win
