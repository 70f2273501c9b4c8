// The one COM base of the project's own COM objects (DirectShow filters and their pins):
// reference counting and QueryInterface written once, over the list of interfaces an
// object implements. An object then declares only
// its interfaces and their methods:
//
//   class DeckFilter : public ComObject<IBaseFilter, IAMExtTransport> { ... };
//
// It answers IUnknown (always through the first interface, which makes that pointer the
// object's identity), each listed interface, and the interfaces each of them is derived
// from (com_bases). Objects are made with new and start with one reference, the
// creator's; the last Release deletes them. The count is atomic: streaming threads hold
// references too.
#pragma once

#include <atomic>

#include "platform/win/win32.h"

namespace kc::win {

// The interface identity of I. mingw-w64 declares one for most interfaces (__uuidof);
// the DV driver's device-control interfaces lack it and are named here.
template <class I>
struct com_iid {
    static const IID& get() { return __uuidof(I); }
};
template <>
struct com_iid<IAMExtDevice> {
    static const IID& get() { return IID_IAMExtDevice; }
};
template <>
struct com_iid<IAMExtTransport> {
    static const IID& get() { return IID_IAMExtTransport; }
};
template <>
struct com_iid<IAMTimecodeReader> {
    static const IID& get() { return IID_IAMTimecodeReader; }
};

// The interfaces, besides IUnknown, that I is derived from and that a caller may ask an
// object implementing I for.
template <class... Bases>
struct com_base_list {};
template <class I>
struct com_bases {
    using type = com_base_list<>;
};
template <>
struct com_bases<IMediaFilter> {
    using type = com_base_list<IPersist>;
};
template <>
struct com_bases<IBaseFilter> {
    using type = com_base_list<IMediaFilter, IPersist>;
};

template <class First, class... Rest>
class ComObject : public First, public Rest... {
  public:
    ComObject() = default;
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        if (out == nullptr) {
            return E_POINTER;
        }
        *out = nullptr;
        if (IsEqualIID(iid, IID_IUnknown)) {
            *out = static_cast<IUnknown*>(static_cast<First*>(this));
        } else {
            (void)(answer<First>(iid, out) || ... || answer<Rest>(iid, out));
        }
        if (*out == nullptr) {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --refs;
        if (left == 0) {
            delete this;
        }
        return left;
    }

  protected:
    virtual ~ComObject() = default;

  private:
    // I itself, or one of the interfaces it derives from, reached through I (an object
    // may implement two interfaces with a common base; the first listed answers for it).
    template <class I>
    bool answer(REFIID iid, void** out) {
        if (IsEqualIID(iid, com_iid<I>::get())) {
            *out = static_cast<I*>(this);
            return true;
        }
        return answer_bases<I>(iid, out, typename com_bases<I>::type{});
    }
    template <class I, class... Bases>
    bool answer_bases(REFIID iid, void** out, com_base_list<Bases...>) {
        if constexpr (sizeof...(Bases) == 0) {
            (void)iid;
            (void)out;
            return false;
        } else {
            return ((IsEqualIID(iid, com_iid<Bases>::get())
                         ? (*out = static_cast<Bases*>(static_cast<I*>(this)), true)
                         : false) ||
                    ...);
        }
    }

    std::atomic<ULONG> refs{1};
};

}  // namespace kc::win
