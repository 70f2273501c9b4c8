// HRESULT-style results of every platform call the logic makes: negative is failure,
// zero or positive is success (S_FALSE and other success codes count as success).
#pragma once

#include <cstdint>

using HRESULT = std::int32_t;

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
