// The Windows headers, as the Windows platform layer sees them next to the project's own.
//
// The project's vocabulary (platform/*.h, resources/) declares many names that the
// Windows headers also define, as macros: S_OK and the E_ codes, IDOK, the WS_, DS_, BS_,
// ES_, SS_ and LVS_ styles, the EC_ events, the ED_ device-control values. The portable
// core keeps its names, so that it reads the same on every platform and needs no Windows
// header; the Windows headers keep theirs. Both live in one adapter file by order, and
// this header is the only place that fixes the order:
//
// - The project's headers come first. Their constants are C++ declarations; a macro of
//   the same name defined afterwards cannot disturb a declaration already made.
// - The Windows headers come after. From there on a shared name is the Windows macro,
//   and every one of them has the project's value, so either reading is right (the
//   Windows platform tests compare them all). The adapters pass those values between the
//   core and the system untranslated.
// - HRESULT is long where long is 32 bits wide (result.h), so the project's declaration
//   of it and the Windows typedef name one type.
// - The ED_ values that mingw-w64 lacks (the raw AV/C command, the ATN read, the SMPTE
//   formats, ...) are taken from the project's media::.
// - WIN32_LEAN_AND_MEAN keeps out winioctl.h, whose MEDIA_TYPE enumerator "Unknown"
//   would hide the project's class Unknown.
//
// Two names mean something else to Windows and are not used by their project meaning
// below this header: IDC_HELP is the help cursor (the Help button's id comes with the
// template data), and NM_DBLCLK is unsigned (the same bits as the project's int -3).
//
// A project header that declares a shared name cannot be included after the Windows
// headers, so every one of them is included here; later includes of them are no-ops.
#pragma once

#if defined(_WINDOWS_) || defined(S_OK)
#error "platform/win/win32.h must be included before any Windows header"
#endif

#include "platform/dialog_host.h"
#include "platform/media.h"
#include "platform/result.h"
#include "platform/settings_store.h"
#include "platform/system.h"
#include "platform/unknown.h"
#include "platform/window.h"
#include "resources/dialog_template.h"
#include "resources/resource_ids.h"

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif

#include <windows.h>
// windows.h first: the rest build on its types.
#include <commctrl.h>
#include <dshow.h>
#include <edevdefs.h>
#include <shellapi.h>
#include <shlobj.h>

static_assert(std::is_same_v<HRESULT, LONG>);

// A Win32 error code as a failure result (HRESULT_FROM_WIN32, as a function).
constexpr HRESULT hresult_from_win32(DWORD error) {
    return error == ERROR_SUCCESS
               ? S_OK
               : static_cast<HRESULT>((error & 0x0000FFFFu) | (FACILITY_WIN32 << 16) | 0x80000000u);
}
