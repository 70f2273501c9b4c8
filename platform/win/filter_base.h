// What every DirectShow filter of the project's own shares: the filter's state, clock,
// graph and name, its one pin listed and found by id, and the events it raises in the
// graph. A filter derives from FilterBase<its other interfaces...>, gives its pin, and
// writes only its own state changes (Stop, Pause, Run), which record the state here under
// state_lock().
#pragma once

#include <algorithm>
#include <cstring>
#include <mutex>
#include <string>

#include "platform/win/com_object.h"

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

// An enumerator handing out `size` items in order; `give` makes the item at an index for
// the caller.
template <class Interface, class Item>
class ItemList : public ComObject<Interface> {
  public:
    HRESULT STDMETHODCALLTYPE Next(ULONG count, Item** items, ULONG* fetched) override {
        if (items == nullptr || (count > 1 && fetched == nullptr)) {
            return E_POINTER;
        }
        ULONG given = 0;
        while (given < count && at_ < size_) {
            const HRESULT hr = give(at_, &items[given]);
            if (FAILED(hr)) {
                return hr;
            }
            ++given;
            ++at_;
        }
        if (fetched != nullptr) {
            *fetched = given;
        }
        return given == count ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Skip(ULONG count) override {
        const ULONG left = size_ - at_;
        at_ += count < left ? count : left;
        return count <= left ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Reset() override {
        at_ = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Clone(Interface** out) override {
        if (out == nullptr) {
            return E_POINTER;
        }
        *out = copy();
        return S_OK;
    }

  protected:
    ItemList(ULONG size, ULONG at) : size_(size), at_(at) {}
    virtual HRESULT give(ULONG index, Item** out) = 0;
    virtual Interface* copy() = 0;
    ULONG position() const { return at_; }

  private:
    const ULONG size_;
    ULONG at_;
};

// A filter's one pin.
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
        std::lock_guard lock(state_lock_);
        *state = state_;
        // A live source has nothing to show before it runs.
        return state_ == State_Paused && live_ ? VFW_S_CANT_CUE : S_OK;
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
        *pins = new PinList(pin());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR id, IPin** pin_out) override {
        if (id == nullptr || pin_out == nullptr) {
            return E_POINTER;
        }
        *pin_out = nullptr;
        if (std::wcscmp(id, pin_id_) != 0) {
            return VFW_E_NOT_FOUND;
        }
        *pin_out = pin();
        (*pin_out)->AddRef();
        return S_OK;
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

    FILTER_STATE state() {
        std::lock_guard lock(state_lock_);
        return state_;
    }
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
    FilterBase(const CLSID& clsid, const wchar_t* pin_id, bool live)
        : clsid_(clsid), pin_id_(pin_id), live_(live) {}
    ~FilterBase() override {
        if (clock_ != nullptr) {
            clock_->Release();
        }
    }
    virtual IPin* pin() = 0;

    // Held by state changes; state_ changes only under it.
    std::mutex state_lock_;
    FILTER_STATE state_ = State_Stopped;

  private:
    const CLSID clsid_;
    const wchar_t* const pin_id_;
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
