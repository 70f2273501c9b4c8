// The base of our own DirectShow filters that work on the samples pushed to them (the DV
// splitter and decoder that stand in where a system lacks them, our writer, the frame
// gate), on the base every filter of ours has (FilterBase): input pins taking samples
// pushed by upstream filters (IMemInputPin), any number of output pins pushing to downstream
// filters through the downstream pin's allocator or one of their own. Each sample is worked on the
// upstream's streaming thread and delivered before Receive returns; stream events
// (end of stream, flushes, segments) pass on to every connected output.
//
// A filter says what it accepts, what each output carries once the input is connected,
// and what it makes of each sample; the pins, enumerators, allocators and states are here.
#pragma once

#include <atomic>
#include <cstddef>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "platform/win/filter_base.h"
#include "platform/win/media_type.h"

namespace kc::win {

class PushInputPin;
class PushOutputPin;
template <class... Extra>
class PushPin;

// Gives `type` a zeroed format block of type T from the task allocator.
template <class T>
T* new_format(AM_MEDIA_TYPE& type, const GUID& format_type) {
    type.formattype = format_type;
    type.pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(sizeof(T)));
    if (type.pbFormat == nullptr) {
        throw std::bad_alloc();
    }
    type.cbFormat = sizeof(T);
    return new (type.pbFormat) T{};
}

// Makes `type` fixed-size video of `subtype`: `bytes` a picture, `width` x `height` (bottom
// row first when the height is positive) of `bits` per pixel in `compression`, one
// picture every `frame_time` (100 ns units).
void set_video_type(AM_MEDIA_TYPE& type, const GUID& subtype, ULONG bytes, long width, long height,
                    WORD bits, DWORD compression, REFERENCE_TIME frame_time);

class PushFilter : public FilterBase<> {
  public:
    // IMediaFilter
    HRESULT STDMETHODCALLTYPE Stop() override;
    HRESULT STDMETHODCALLTYPE Pause() override;
    HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME start) override;

  protected:
    // Inputs and outputs by name, in order; an input takes what accept_input says.
    PushFilter(const CLSID& clsid, const std::vector<const wchar_t*>& input_names,
               const std::vector<const wchar_t*>& output_names);
    ~PushFilter() override;
    // Input `input` has been connected with `type` (called before any output connects).
    virtual void input_connected(std::size_t input, const AM_MEDIA_TYPE& type) = 0;
    // Fills `type` (zeroed by the caller) with what output `output` carries; false while
    // the input is not connected.
    virtual bool output_type(std::size_t output, AM_MEDIA_TYPE& type) = 0;
    // What one sample of input `input` makes; called on the streaming thread while
    // running or paused.
    virtual HRESULT receive(std::size_t input, IMediaSample* sample) = 0;
    // Whether input `input` takes samples of `type`.
    virtual bool accept_input(std::size_t input, const AM_MEDIA_TYPE& type) const = 0;
    // The end of the stream on input `input`: by default passed on to every output.
    virtual void end_of_stream(std::size_t input);
    // The filter leaves the stopped state, and enters it: for a filter that holds a
    // resource while the graph runs (a file). A failure of started() fails the pause.
    virtual HRESULT started() { return S_OK; }
    virtual void stopped() {}
    bool input_is_connected(std::size_t input) const;
    const AM_MEDIA_TYPE& input_type(std::size_t input) const;

    // Sends `size` bytes down output `output`, with the times of `timing` if it has
    // them. S_OK without sending when the output is not connected.
    HRESULT deliver(std::size_t output, const void* data, std::size_t size, IMediaSample* timing);
    // The same, stamped `start` to `stop` (100 ns units of stream time).
    HRESULT deliver(std::size_t output, const void* data, std::size_t size, REFERENCE_TIME start,
                    REFERENCE_TIME stop);

  private:
    friend class PushInputPin;
    friend class PushOutputPin;
    template <class... Extra>
    friend class PushPin;

    HRESULT deliver_stamped(std::size_t output, const void* data, std::size_t size,
                            REFERENCE_TIME* start, REFERENCE_TIME* stop);
    std::vector<IPin*> pins() override;

    std::vector<PushInputPin*> inputs_;
    std::vector<PushOutputPin*> outputs_;
};

}  // namespace kc::win
