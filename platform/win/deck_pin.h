// The virtual deck filter's one output pin: category capture (IKsPropertySet), one media
// DV type (interleaved "dvsd" with the tape's DVINFO, 625-50 or 525-60 as the tape is), the
// deck's frame counters (IAMDroppedFrames), and the streaming thread.
//
// Connecting, it asks the downstream input for its allocator and its requirements and
// sizes the buffers for one DV frame each. Paused from stopped it commits the allocator
// and starts its thread, which delivers only while the filter runs: paced, the frames the
// deck shows as they fall due, stamped with their due time from the start of the run;
// unpaced, one frame after another as fast as downstream takes them, stamped n frame
// periods from zero, and end of stream when the tape has played to its end. Every sample
// is a sync point; the first of a run and the first after a loss are discontinuities.
// Stopping cancels the deck's waits, decommits the allocator (which frees a thread waiting
// for a buffer) and joins the thread.
//
// The pin lives and dies with its filter: its references are the filter's.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "deck/vcr.h"
#include "platform/win/deck_media_types.h"
#include "platform/win/filter_base.h"

namespace kc::win {

class DeckFilter;

// The pin's name and id.
inline constexpr const wchar_t* deck_pin_id = L"DV A/V Out";

class DeckPin final : public ComObject<IPin, IKsPropertySet, IAMDroppedFrames> {
  public:
    explicit DeckPin(DeckFilter& filter);
    ~DeckPin() override;

    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    // ---- IPin
    HRESULT STDMETHODCALLTYPE Connect(IPin* receiver, const AM_MEDIA_TYPE* type) override;
    HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* connector,
                                                const AM_MEDIA_TYPE* type) override;
    HRESULT STDMETHODCALLTYPE Disconnect() override;
    HRESULT STDMETHODCALLTYPE ConnectedTo(IPin** pin) override;
    HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE* type) override;
    HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* info) override;
    HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* direction) override;
    HRESULT STDMETHODCALLTYPE QueryId(LPWSTR* id) override;
    HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE* type) override;
    HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** types) override;
    HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin** pins, ULONG* count) override;
    HRESULT STDMETHODCALLTYPE EndOfStream() override;
    HRESULT STDMETHODCALLTYPE BeginFlush() override;
    HRESULT STDMETHODCALLTYPE EndFlush() override;
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop,
                                         double rate) override;

    // ---- IKsPropertySet: AMPROPSETID_Pin / AMPROPERTY_PIN_CATEGORY only, read-only.
    HRESULT STDMETHODCALLTYPE Set(REFGUID set, DWORD id, LPVOID instance, DWORD instance_size,
                                  LPVOID data, DWORD data_size) override;
    HRESULT STDMETHODCALLTYPE Get(REFGUID set, DWORD id, LPVOID instance, DWORD instance_size,
                                  LPVOID data, DWORD data_size, DWORD* returned) override;
    HRESULT STDMETHODCALLTYPE QuerySupported(REFGUID set, DWORD id, DWORD* support) override;

    // ---- IAMDroppedFrames
    HRESULT STDMETHODCALLTYPE GetNumDropped(LONG* count) override;
    HRESULT STDMETHODCALLTYPE GetNumNotDropped(LONG* count) override;
    HRESULT STDMETHODCALLTYPE GetDroppedInfo(LONG size, LONG* frames, LONG* copied) override;
    HRESULT STDMETHODCALLTYPE GetAverageFrameSize(LONG* size) override;

    // ---- State changes, from the filter
    HRESULT activate();  // stopped to paused
    void run();          // to running
    void pause();        // running to paused
    void deactivate();   // to stopped

  private:
    HRESULT try_connection(IPin* receiver, const AM_MEDIA_TYPE& type);
    // The index of the media type offered at `position`.
    int type_at(int position);
    HRESULT decide_allocator(IPin* receiver);
    void release_connection();
    void stream();
    // One frame to downstream; S_OK when it was taken and more may follow.
    HRESULT deliver(const std::uint8_t* frame, std::size_t size, const deck::FetchedFrame& info);

    DeckFilter& filter_;

    // The connection: made and broken only while the filter is stopped.
    std::recursive_mutex connection_lock_;
    IPin* peer_ = nullptr;
    IMemInputPin* input_ = nullptr;
    IMemAllocator* allocator_ = nullptr;
    int connected_type_ = 0;

    // The streaming thread and its gate.
    std::thread thread_;
    std::mutex gate_lock_;
    std::condition_variable gate_;
    bool running_ = false;
    bool stopping_ = false;
    // Nothing more goes downstream until the next stop: the stream ended, the device went,
    // or downstream refused a sample.
    bool ended_ = false;
    // The deck counts this run's frames (start_stream) from the first run on.
    bool started_ = false;
    std::int64_t run_start_ms_ = 0;
    // Samples delivered since the stop: the streaming thread's own.
    std::int64_t delivered_ = 0;
    std::vector<std::uint8_t> frame_;
};

}  // namespace kc::win
