#include "platform/win/frame_gate_filter.h"

#include <algorithm>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/capture/file_gate.h"
#include "platform/win/media_type.h"
#include "platform/win/push_filter.h"

namespace kc::win {

// {5b0f3c8e-1d27-4c55-9a61-7e3d2f90b4a1}
const IID IID_IKcFrameGate = {
    0x5b0f3c8e, 0x1d27, 0x4c55, {0x9a, 0x61, 0x7e, 0x3d, 0x2f, 0x90, 0xb4, 0xa1}};

namespace {

// Ours: no system filter has it.
constexpr CLSID frame_gate_clsid = {
    0x0c6e7a52, 0x93b4, 0x4f1d, {0xa8, 0x2c, 0x51, 0x6f, 0xe0, 0x3b, 0x97, 0xd4}};

constexpr REFERENCE_TIME units_per_second = 10'000'000;

// The first frame counter upstream of `pin` (an output pin): on the pin, on its filter, or
// further up through the filter's inputs (a tee between the source and the gate counts
// nothing itself). Null when there is none; else one reference, the caller's.
IAMDroppedFrames* counter_upstream_of(IPin* pin, int depth = 0) {
    if (pin == nullptr || depth > 8) {
        return nullptr;
    }
    IAMDroppedFrames* counter = nullptr;
    if (SUCCEEDED(pin->QueryInterface(IID_IAMDroppedFrames, reinterpret_cast<void**>(&counter)))) {
        return counter;
    }
    PIN_INFO info{};
    if (FAILED(pin->QueryPinInfo(&info)) || info.pFilter == nullptr) {
        return nullptr;
    }
    if (FAILED(info.pFilter->QueryInterface(IID_IAMDroppedFrames,
                                            reinterpret_cast<void**>(&counter)))) {
        counter = nullptr;
        IEnumPins* pins = nullptr;
        if (SUCCEEDED(info.pFilter->EnumPins(&pins))) {
            IPin* next = nullptr;
            while (counter == nullptr && pins->Next(1, &next, nullptr) == S_OK) {
                PIN_DIRECTION direction = PINDIR_OUTPUT;
                IPin* peer = nullptr;
                if (SUCCEEDED(next->QueryDirection(&direction)) && direction == PINDIR_INPUT &&
                    SUCCEEDED(next->ConnectedTo(&peer))) {
                    counter = counter_upstream_of(peer, depth + 1);
                    peer->Release();
                }
                next->Release();
            }
            pins->Release();
        }
    }
    info.pFilter->Release();
    return counter;
}

class FrameGateFilter final : public PushFilter, public IAMDroppedFrames, public IKcFrameGate {
  public:
    FrameGateFilter(std::shared_ptr<capture::Carry> carry, std::string file, std::string log_path,
                    std::string source)
        : PushFilter(frame_gate_clsid, {L"Input"}, {L"Output"}),
          file_(std::move(carry), std::move(file), std::move(log_path), std::move(source),
                [this](const capture::Frame& frame, dv::DvSystem system) {
                    return push_frame(frame, system);
                }) {}

    // The interfaces beyond the filter's, answered for the same object.
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        if (out != nullptr && IsEqualIID(iid, IID_IAMDroppedFrames)) {
            *out = static_cast<IAMDroppedFrames*>(this);
        } else if (out != nullptr && IsEqualIID(iid, IID_IKcFrameGate)) {
            *out = static_cast<IKcFrameGate*>(this);
        } else {
            return PushFilter::QueryInterface(iid, out);
        }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return PushFilter::AddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return PushFilter::Release(); }

    // IKcFrameGate
    HRESULT STDMETHODCALLTYPE SplitAtBreak() override {
        file_.split();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE EndStream() override {
        end_stream();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetBreakHeld(BOOL* held) override {
        if (held == nullptr) {
            return E_POINTER;
        }
        *held = file_.holds_break();
        return S_OK;
    }

    // IAMDroppedFrames: the file's counts, as the capture shows them and judges whether
    // the file is worth keeping.
    HRESULT STDMETHODCALLTYPE GetNumDropped(LONG* count) override {
        if (count == nullptr) {
            return E_POINTER;
        }
        *count = static_cast<LONG>(file_.counters().dropped());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetNumNotDropped(LONG* count) override {
        if (count == nullptr) {
            return E_POINTER;
        }
        *count = static_cast<LONG>(file_.counters().written);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetDroppedInfo(LONG, LONG*, LONG*) override {
        // The log says which frames went missing; the counts are all kept here.
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetAverageFrameSize(LONG* size) override {
        if (size == nullptr) {
            return E_POINTER;
        }
        *size = static_cast<LONG>(dv::frame_bytes(file_.system()));
        return S_OK;
    }

  protected:
    // Whole DV frames as the camera sends them: the gate reads each frame's subcode. They
    // may come typed as video (Wine's smart tee takes the deck's frames only so): the same
    // frames.
    bool accept_input(std::size_t, const AM_MEDIA_TYPE& type) const override {
        return IsEqualGUID(type.subtype, MEDIASUBTYPE_dvsd) &&
               (IsEqualGUID(type.majortype, MEDIATYPE_Interleaved) ||
                IsEqualGUID(type.majortype, MEDIATYPE_Video));
    }
    void input_connected(std::size_t, const AM_MEDIA_TYPE&) override {}
    // The frames leave as they came, with the same type.
    bool output_type(std::size_t, AM_MEDIA_TYPE& type) override {
        if (!input_is_connected(0)) {
            return false;
        }
        copy_media_type(input_type(0), type);
        return true;
    }

    HRESULT started() override {
        pushed_ = 0;
        std::error_code error;
        // A capture goes on without its log when the folder refuses one.
        (void)file_.start(error);
        IPin* peer = nullptr;
        std::lock_guard counting(counter_lock_);
        if (upstream_counter_ != nullptr) {
            upstream_counter_->Release();
            upstream_counter_ = nullptr;
        }
        upstream_dropped_.reset();
        if (FindPin(L"Input", &peer) == S_OK) {
            IPin* upstream = nullptr;
            if (SUCCEEDED(peer->ConnectedTo(&upstream))) {
                upstream_counter_ = counter_upstream_of(upstream);
                upstream->Release();
            }
            peer->Release();
        }
        return S_OK;
    }

    // Stopped without an end of stream (a capture is stopped, a device lost): the
    // multiplexer has already finished its file, so held frames can no longer be written
    // unless EndStream came first; after a split they still go to the next file.
    void stopped() override {
        end_stream();
        file_.finish();
        std::lock_guard counting(counter_lock_);
        if (upstream_counter_ != nullptr) {
            upstream_counter_->Release();
            upstream_counter_ = nullptr;
        }
    }

    HRESULT receive(std::size_t, IMediaSample* sample) override {
        BYTE* data = nullptr;
        if (FAILED(sample->GetPointer(&data))) {
            return E_POINTER;
        }
        const std::span<const std::uint8_t> bytes(
            data, static_cast<std::size_t>(std::max(sample->GetActualDataLength(), 0L)));
        const std::optional<dv::DvSystem> system = dv::system_of_frame_start(bytes);
        capture::FrameFacts facts;
        if (system && bytes.size() == dv::frame_bytes(*system)) {
            facts = capture::read_facts(bytes, *system);
        }
        facts.source_lost = source_lost();
        auto payload = std::make_shared<std::vector<std::uint8_t>>(bytes.begin(), bytes.end());
        file_.frame(capture::Frame{std::move(payload), std::move(facts)}, system);
        // A frame the file could not take is counted and logged by the gate; the capture
        // goes on, so that the frames that still come are counted too.
        return S_OK;
    }

    // The end of the stream: what the gate holds goes into the file or to the next one
    // before the end passes on, so that the file is finished whole.
    void end_of_stream(std::size_t input) override {
        end_stream();
        PushFilter::end_of_stream(input);
    }

  private:
    ~FrameGateFilter() override {
        if (upstream_counter_ != nullptr) {
            upstream_counter_->Release();
        }
    }

    // Frames the source counted as lost since the frame before: its counter's rise.
    std::int64_t source_lost() {
        std::lock_guard lock(counter_lock_);
        if (upstream_counter_ == nullptr) {
            return 0;
        }
        LONG count = 0;
        if (FAILED(upstream_counter_->GetNumDropped(&count))) {
            return 0;
        }
        const std::int64_t before = upstream_dropped_.value_or(count);
        upstream_dropped_ = count;
        return std::max<std::int64_t>(count - before, 0);
    }

    // Sends a frame on with a stamp that counts frames from the run's start: the file only
    // needs their order, and frames carried from the previous file's run must not carry
    // that run's times into this one.
    bool push_frame(const capture::Frame& frame, dv::DvSystem system) {
        const auto& bytes = *static_cast<const std::vector<std::uint8_t>*>(frame.payload.get());
        const dv::FrameRate rate = dv::frame_rate(system);
        const REFERENCE_TIME period = units_per_second * rate.den / rate.num;
        const REFERENCE_TIME start = pushed_ * period;
        ++pushed_;
        return SUCCEEDED(deliver(0, bytes.data(), bytes.size(), start, start + period));
    }

    // The end of the stream, with what the source lost after its last frame.
    void end_stream() { file_.end(source_lost()); }

    capture::FileGate file_;
    // Written by the gate's writes only, which the gate serialises.
    REFERENCE_TIME pushed_ = 0;
    // The source's frame counter, read as frames come and as the stream ends (which may be
    // on the user-interface thread).
    std::mutex counter_lock_;
    IAMDroppedFrames* upstream_counter_ = nullptr;
    std::optional<LONG> upstream_dropped_;
};

}  // namespace

IBaseFilter* make_frame_gate(std::shared_ptr<capture::Carry> carry, const std::string& file,
                             const std::string& log_path, const std::string& source) {
    return new FrameGateFilter(std::move(carry), file, log_path, source);
}

}  // namespace kc::win
