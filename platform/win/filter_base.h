// What every DirectShow filter of the project's own shares: the filter's state, clock,
// graph and name, its pins listed and found by id, the events it raises in the graph, and
// the enumerators its pins and it hand out. A filter derives from FilterBase<its other
// interfaces...>, lists its pins, and writes only its own state changes (Stop, Pause,
// Run), which record the state here under state_lock_.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstring>
#include <cwchar>
#include <mutex>
#include <string>
#include <vector>

#include "platform/win/com_object.h"
#include "platform/win/media_type.h"

namespace kc::win {

// A string the caller frees with the task allocator.
inline HRESULT task_string(const wchar_t* text, LPWSTR* out) {
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

// Hands the caller a counted reference to `held`: S_OK, or `if_none` when nothing is held.
template <class T>
HRESULT give_reference(T* held, T** out, HRESULT if_none) {
    if (out == nullptr) {
        return E_POINTER;
    }
    *out = held;
    if (held == nullptr) {
        return if_none;
    }
    held->AddRef();
    return S_OK;
}

// Holds a counted reference to `next` (may be null) in `held`, letting go of the old one.
template <class T>
void hold_reference(T*& held, T* next) {
    if (next != nullptr) {
        next->AddRef();
    }
    if (held != nullptr) {
        held->Release();
    }
    held = next;
}

// A pin's answer to QueryPinInfo: its filter (counted), direction and name.
inline HRESULT pin_info(PIN_INFO* info, IBaseFilter* filter, PIN_DIRECTION direction,
                        const wchar_t* name) {
    if (info == nullptr) {
        return E_POINTER;
    }
    info->pFilter = filter;
    filter->AddRef();
    info->dir = direction;
    std::wcsncpy(info->achName, name, MAX_PIN_NAME - 1);
    info->achName[MAX_PIN_NAME - 1] = L'\0';
    return S_OK;
}

// DirectShow's enumerators over pins and media types: a list of their own, each item
// handed out as its own reference or copy.
template <class Interface, class Items>
class ListEnum : public ComObject<Interface> {
  public:
    using Stored = typename Items::Stored;
    ListEnum(const std::vector<Stored>& items, std::size_t at) : at_(at) {
        for (const Stored& item : items) {
            items_.push_back(Items::keep(item));
        }
    }
    HRESULT STDMETHODCALLTYPE Next(ULONG count, typename Items::Out* out, ULONG* fetched) override {
        ULONG n = 0;
        for (; n < count && at_ < items_.size(); ++n, ++at_) {
            out[n] = Items::hand_out(items_[at_]);
        }
        if (fetched != nullptr) {
            *fetched = n;
        }
        return n == count ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Skip(ULONG count) override {
        at_ += count;
        return at_ <= items_.size() ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Reset() override {
        at_ = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Clone(Interface** out) override {
        *out = new ListEnum(items_, at_);
        return S_OK;
    }

  private:
    ~ListEnum() override {
        for (Stored& item : items_) {
            Items::drop(item);
        }
    }
    std::vector<Stored> items_;
    std::size_t at_;
};

struct PinItems {
    using Stored = IPin*;
    using Out = IPin*;
    static IPin* keep(IPin* pin) {
        pin->AddRef();
        return pin;
    }
    static IPin* hand_out(IPin* pin) { return keep(pin); }
    static void drop(IPin* pin) { pin->Release(); }
};

struct TypeItems {
    using Stored = AM_MEDIA_TYPE;
    using Out = AM_MEDIA_TYPE*;
    static AM_MEDIA_TYPE keep(const AM_MEDIA_TYPE& type) {
        AM_MEDIA_TYPE copy;
        copy_media_type(type, copy);
        return copy;
    }
    static AM_MEDIA_TYPE* hand_out(const AM_MEDIA_TYPE& type) {
        auto* copy = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
        if (copy != nullptr) {
            copy_media_type(type, *copy);
        }
        return copy;
    }
    static void drop(AM_MEDIA_TYPE& type) { free_media_type(type); }
};

using PinEnum = ListEnum<IEnumPins, PinItems>;
using TypeEnum = ListEnum<IEnumMediaTypes, TypeItems>;

template <class... Interfaces>
class FilterBase : public ComObject<IBaseFilter, Interfaces...> {
  public:
    HRESULT STDMETHODCALLTYPE GetClassID(CLSID* clsid) override {
        if (clsid == nullptr) {
            return E_POINTER;
        }
        *clsid = clsid_;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetState(DWORD, FILTER_STATE* state) override {
        if (state == nullptr) {
            return E_POINTER;
        }
        *state = state_;
        // A live source has nothing to show before it runs.
        return *state == State_Paused && live_ ? VFW_S_CANT_CUE : S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetSyncSource(IReferenceClock* clock) override {
        std::lock_guard lock(state_lock_);
        hold_reference(clock_, clock);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetSyncSource(IReferenceClock** clock) override {
        std::lock_guard lock(state_lock_);
        return give_reference(clock_, clock, S_OK);
    }
    HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins** pins) override {
        if (pins == nullptr) {
            return E_POINTER;
        }
        *pins = new PinEnum(this->pins(), 0);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR id, IPin** pin_out) override {
        if (id == nullptr || pin_out == nullptr) {
            return E_POINTER;
        }
        *pin_out = nullptr;
        for (IPin* pin : pins()) {
            LPWSTR pin_id = nullptr;
            if (FAILED(pin->QueryId(&pin_id))) {
                continue;
            }
            const bool found = std::wcscmp(id, pin_id) == 0;
            CoTaskMemFree(pin_id);
            if (found) {
                *pin_out = pin;
                pin->AddRef();
                return S_OK;
            }
        }
        return VFW_E_NOT_FOUND;
    }
    HRESULT STDMETHODCALLTYPE QueryFilterInfo(FILTER_INFO* info) override {
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
    HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) override {
        IMediaEventSink* events = nullptr;
        if (graph != nullptr && SUCCEEDED(graph->QueryInterface(
                                    IID_IMediaEventSink, reinterpret_cast<void**>(&events)))) {
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
    HRESULT STDMETHODCALLTYPE QueryVendorInfo(LPWSTR* info) override {
        return task_string(L"Kestrel Capture", info);
    }

    FILTER_STATE state() const { return state_; }
    // Tells the graph, if the filter is in one, of an event (any thread).
    void notify(long code, LONG_PTR param1, LONG_PTR param2) {
        std::lock_guard lock(events_lock_);
        if (events_ != nullptr) {
            events_->Notify(code, param1, param2);
        }
    }
    // The filter's own IUnknown: its identity, which events name it by.
    IUnknown* identity() { return static_cast<IUnknown*>(static_cast<IBaseFilter*>(this)); }

  protected:
    // `live`: a capture source, which has nothing to show while paused.
    FilterBase(const CLSID& clsid, bool live) : clsid_(clsid), live_(live) {}
    ~FilterBase() override {
        if (clock_ != nullptr) {
            clock_->Release();
        }
    }
    // The filter's pins, in order; they live as long as the filter.
    virtual std::vector<IPin*> pins() = 0;

    // Held by state changes (and by whatever a filter must not change while they run: its
    // pins' connections). Recursive: a downstream pin asks its connector about itself
    // while it connects.
    std::recursive_mutex state_lock_;
    // Changes only under state_lock_; streaming threads read it without.
    std::atomic<FILTER_STATE> state_{State_Stopped};

  private:
    const CLSID clsid_;
    const bool live_;
    IReferenceClock* clock_ = nullptr;
    // The graph and its event sink are not counted: the graph holds the filter, and a
    // count back would keep both alive for ever.
    IFilterGraph* graph_ = nullptr;
    std::wstring name_;
    std::mutex events_lock_;
    IMediaEventSink* events_ = nullptr;
};

}  // namespace kc::win
