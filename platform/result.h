// HRESULT-style results of every platform call the logic makes: negative is failure,
// zero or positive is success (S_FALSE and other success codes count as success).
#pragma once

#include <cstdint>
#include <type_traits>

// A 32-bit signed code. Where long is 32 bits wide (Windows) it is long, the very type the
// Windows headers give HRESULT, so that the platform's own declaration of the name agrees
// with this one and both can be seen in one file; elsewhere it is a plain 32-bit int.
using HRESULT = std::conditional_t<sizeof(long) == 4, long, std::int32_t>;
static_assert(sizeof(HRESULT) == 4 && std::is_signed_v<HRESULT>);

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
inline constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002u);
inline constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
inline constexpr HRESULT E_ABORT = static_cast<HRESULT>(0x80004004u);
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
inline constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFFu);
inline constexpr HRESULT E_ACCESSDENIED = static_cast<HRESULT>(0x80070005u);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);

// A POSIX errno carried as a failure, so that the system can describe it later
// (the facility 7 "Win32" layout keeps the errno in the low 16 bits).
constexpr HRESULT hresult_from_errno(int err) {
    return err <= 0
               ? E_FAIL
               : static_cast<HRESULT>(0x80070000u | (static_cast<std::uint32_t>(err) & 0xFFFFu));
}

constexpr bool failed(HRESULT hr) {
    return hr < 0;
}
constexpr bool succeeded(HRESULT hr) {
    return hr >= 0;
}

// The spelling the assertions of the logic use.
#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)
