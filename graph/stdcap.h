// Holders, identity and value types shared by every layer of the capture station.
#pragma once

#include <cstddef>
#include <utility>

#include "platform/unknown.h"
#include "workflow/timecode.h"

// Programming errors stop the program, naming the expression, the source file and the
// line. Ordinary input never reaches an assertion.
[[noreturn]] void cap_assert_failed(const char* expression, const char* file, int line);

#define CAP_ASSERT(expression) \
    ((expression) ? static_cast<void>(0) : cap_assert_failed(#expression, __FILE__, __LINE__))

// Owning holder of one reference to a platform interface, empty or full.
template <class T>
class ComPtr {
  public:
    ComPtr() = default;
    // Takes over a reference the caller already owns.
    explicit ComPtr(T* owned) noexcept : t(owned) {}
    ComPtr(const ComPtr&) = delete;
    ComPtr& operator=(const ComPtr&) = delete;
    ComPtr(ComPtr&& other) noexcept : t(std::exchange(other.t, nullptr)) {}
    ComPtr& operator=(ComPtr&& other) noexcept {
        if (this != &other) {
            reset();
            t = std::exchange(other.t, nullptr);
        }
        return *this;
    }
    ~ComPtr() { reset(); }

    bool valid() const { return t != NULL; }
    T* get() const {
        CAP_ASSERT(t != NULL);
        return t;
    }
    T* operator->() const {
        CAP_ASSERT(t != NULL);
        return t;
    }
    // Releases the interface and empties the holder.
    void release() {
        CAP_ASSERT(t != NULL);
        t->release();
        t = nullptr;
    }
    // Releases the interface if there is one.
    void reset() {
        if (t != NULL) {
            t->release();
            t = nullptr;
        }
    }
    // Out-parameter of a platform call; the holder must be empty.
    T** out() {
        CAP_ASSERT(t == NULL);
        return &t;
    }
    void** out_void() { return reinterpret_cast<void**>(out()); }

  private:
    T* t = nullptr;
};

// Asks `from` for interface T into the empty holder `to`.
template <class T, class U>
HRESULT query_interface(U* from, ComPtr<T>& to) {
    return from->query_interface(T::iid, to.out_void());
}

// Whether two interface pointers belong to one object (both must be non-null).
bool same_object(Unknown* i1, Unknown* i2);
