// Dialog templates as data: the one source every host builds its windows from. Positions
// and sizes are in dialog units of the template's font, as the classic dialog manager
// lays them out; styles use its numeric values.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

struct ControlTemplate {
    int id;                 // -1 for static decoration
    std::string_view cls;   // "BUTTON", "EDIT", "STATIC", "COMBOBOX", "msctls_progress32",
                            // "SysListView32"
    std::string_view text;  // "#153" on an SS_BITMAP static names a bitmap resource
    std::uint32_t style;
    std::uint32_t ex_style;
    int x, y, cx, cy;
};

struct DialogTemplate {
    int id;
    std::string_view caption;
    std::uint32_t style;
    std::uint32_t ex_style;
    int x, y, cx, cy;
    std::string_view font;
    int font_points;
    std::span<const ControlTemplate> controls;  // in template order
};

// The template with that resource id, or null.
const DialogTemplate* find_dialog_template(int id);

namespace style {
// Window styles.
inline constexpr std::uint32_t WS_POPUP = 0x80000000u;
inline constexpr std::uint32_t WS_CHILD = 0x40000000u;
inline constexpr std::uint32_t WS_VISIBLE = 0x10000000u;
inline constexpr std::uint32_t WS_DISABLED = 0x08000000u;
inline constexpr std::uint32_t WS_CLIPCHILDREN = 0x02000000u;
inline constexpr std::uint32_t WS_CAPTION = 0x00C00000u;
inline constexpr std::uint32_t WS_BORDER = 0x00800000u;
inline constexpr std::uint32_t WS_VSCROLL = 0x00200000u;
inline constexpr std::uint32_t WS_SYSMENU = 0x00080000u;
inline constexpr std::uint32_t WS_GROUP = 0x00020000u;
inline constexpr std::uint32_t WS_TABSTOP = 0x00010000u;
inline constexpr std::uint32_t DS_SETFONT = 0x00000040u;
inline constexpr std::uint32_t DS_MODALFRAME = 0x00000080u;
// Extended styles.
inline constexpr std::uint32_t WS_EX_DLGMODALFRAME = 0x00000001u;
inline constexpr std::uint32_t WS_EX_TRANSPARENT = 0x00000020u;
inline constexpr std::uint32_t WS_EX_CLIENTEDGE = 0x00000200u;
inline constexpr std::uint32_t WS_EX_STATICEDGE = 0x00020000u;
// Buttons.
inline constexpr std::uint32_t BS_PUSHBUTTON = 0x0000u;
inline constexpr std::uint32_t BS_DEFPUSHBUTTON = 0x0001u;
inline constexpr std::uint32_t BS_AUTOCHECKBOX = 0x0003u;
inline constexpr std::uint32_t BS_AUTORADIOBUTTON = 0x0009u;
inline constexpr std::uint32_t BS_GROUPBOX = 0x0007u;
inline constexpr std::uint32_t BS_OWNERDRAW = 0x000Bu;
inline constexpr std::uint32_t BS_FLAT = 0x8000u;
// Edits.
inline constexpr std::uint32_t ES_LEFT = 0x0000u;
inline constexpr std::uint32_t ES_CENTER = 0x0001u;
inline constexpr std::uint32_t ES_MULTILINE = 0x0004u;
inline constexpr std::uint32_t ES_AUTOVSCROLL = 0x0040u;
inline constexpr std::uint32_t ES_AUTOHSCROLL = 0x0080u;
inline constexpr std::uint32_t ES_READONLY = 0x0800u;
inline constexpr std::uint32_t ES_NUMBER = 0x2000u;
// Statics.
inline constexpr std::uint32_t SS_LEFT = 0x0000u;
inline constexpr std::uint32_t SS_RIGHT = 0x0002u;
inline constexpr std::uint32_t SS_BITMAP = 0x000Eu;
inline constexpr std::uint32_t SS_ETCHEDHORZ = 0x0010u;
inline constexpr std::uint32_t SS_ETCHEDFRAME = 0x0012u;
// Combo boxes.
inline constexpr std::uint32_t CBS_DROPDOWNLIST = 0x0003u;
// List view.
inline constexpr std::uint32_t LVS_REPORT = 0x0001u;
inline constexpr std::uint32_t LVS_EDITLABELS = 0x0200u;
}  // namespace style
