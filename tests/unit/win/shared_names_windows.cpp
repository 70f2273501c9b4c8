// The Windows headers' values of the shared names. This file sees the names as the
// platform layer does: the project's headers first, then the Windows macros.
#include "platform/win/win32.h"
// After the Windows headers, by the rule of win32.h.
#include "tests/unit/win/shared_names.h"
#include "tests/unit/win/shared_names_values.h"

NamedValues windows_values() {
#define KC_WINDOWS_VALUE(ns, name) {#name, static_cast<std::uint32_t>(name)},
    return {KC_SHARED_NAMES(KC_WINDOWS_VALUE)};
#undef KC_WINDOWS_VALUE
}
