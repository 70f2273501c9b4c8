// Window handles, messages and the records that come with them, as the dialog logic
// sees them on every host. The numbers are the classic dialog manager's, so that the
// routing and the tests read the same on every platform.
#pragma once

#include <cstdint>

struct OpaqueWindow;
struct OpaqueBitmap;
struct OpaqueBrush;
struct OpaqueDc;
struct OpaqueIcon;
struct OpaqueCursor;
using WindowHandle = OpaqueWindow*;
using BitmapHandle = OpaqueBitmap*;
using BrushHandle = OpaqueBrush*;
using DcHandle = OpaqueDc*;
using IconHandle = OpaqueIcon*;
using CursorHandle = OpaqueCursor*;

using WParam = std::uintptr_t;
using LParam = std::intptr_t;
using LResult = std::intptr_t;

using DialogProc = LResult (*)(WindowHandle, unsigned, WParam, LParam);
using WindowProc = LResult (*)(WindowHandle, unsigned, WParam, LParam);

struct Rect {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;
    friend bool operator==(const Rect&, const Rect&) = default;
};

namespace wm {
inline constexpr unsigned size = 0x0005;
inline constexpr unsigned activate = 0x0006;
inline constexpr unsigned close = 0x0010;
inline constexpr unsigned erase_background = 0x0014;
inline constexpr unsigned draw_item = 0x002B;
inline constexpr unsigned set_font = 0x0030;
inline constexpr unsigned notify = 0x004E;
inline constexpr unsigned init_dialog = 0x0110;
inline constexpr unsigned command = 0x0111;
inline constexpr unsigned timer = 0x0113;
inline constexpr unsigned ctlcolor_edit = 0x0133;
inline constexpr unsigned ctlcolor_button = 0x0135;
inline constexpr unsigned ctlcolor_static = 0x0138;
inline constexpr unsigned user = 0x0400;
// Posted by the media graph to the preview pane, and by the pane to its dialog.
inline constexpr unsigned graph_event = user + 4;
}  // namespace wm

// Command ids the dialog manager sends for Enter and Esc.
inline constexpr int IDOK = 1;
inline constexpr int IDCANCEL = 2;

// Notification codes (high word of a command's wParam, or the notify header's code).
inline constexpr unsigned CBN_SELCHANGE = 1;
inline constexpr unsigned EN_CHANGE = 0x0300;
inline constexpr int NM_DBLCLK = -3;

// WM_ACTIVATE low words.
inline constexpr unsigned WA_INACTIVE = 0;
inline constexpr unsigned WA_ACTIVE = 1;
inline constexpr unsigned WA_CLICKACTIVE = 2;

// Owner-drawn item state: the button is held down.
inline constexpr unsigned ODS_SELECTED = 0x0001;

// Message box icon for fatal programming conditions.
inline constexpr unsigned MB_ICONHAND = 0x0010;

constexpr WParam make_wparam(unsigned low, unsigned high) {
    return static_cast<WParam>((low & 0xFFFFu) | ((high & 0xFFFFu) << 16));
}
constexpr unsigned low_word(WParam w) {
    return static_cast<unsigned>(w & 0xFFFFu);
}
constexpr unsigned high_word(WParam w) {
    return static_cast<unsigned>((w >> 16) & 0xFFFFu);
}

// The record that comes with wm::notify (lParam points to it).
struct NotifyHeader {
    WindowHandle from = nullptr;
    std::uintptr_t id = 0;
    int code = 0;
};

// The record that comes with wm::draw_item (lParam points to it).
struct DrawItem {
    unsigned control_id = 0;
    unsigned state = 0;  // ODS_ flags
    WindowHandle item = nullptr;
    DcHandle dc = nullptr;
    Rect rect;
};

struct Rgb {
    std::uint8_t r = 0, g = 0, b = 0;
    friend bool operator==(const Rgb&, const Rgb&) = default;
};
