// The skin of the main window as tables: which bitmaps exist and at what size, which
// pictures each owner-drawn button shows, the tooltips in the order they are added, and
// the transport status texts by the mode the DV transport reports. Pure data, shared by
// the dialog logic, the hosts that load the art and the tools that check it.
#pragma once

#include <span>
#include <string_view>

namespace skin {

struct Bitmap {
    int id;
    int width_px;
    int height_px;
};

// One owner-drawn button: its picture while held down (a red-tinted version of the
// normal one) and otherwise. Both pictures have the given size.
struct ButtonPictures {
    int control_id;
    int pressed_bitmap;
    int normal_bitmap;
    int width_px;
    int height_px;
};

struct Tooltip {
    int control_id;
    std::string_view text;
};

// Every skin bitmap: the skin itself, the record indicator, the unused about picture, and
// both pictures of every button.
std::span<const Bitmap> bitmaps();
// The thirteen owner-drawn buttons in the order their pictures are loaded.
std::span<const ButtonPictures> button_pictures();
// The fourteen tools in the order they are registered.
std::span<const Tooltip> tooltips();

// The status text for a transport mode (ED_MODE_... value); null for a mode without one,
// including 0 (mode unreadable), so that the caller keeps the last text shown.
const char* transport_status_text(long mode);

// Where the record indicator is drawn on the main window, in client pixels.
inline constexpr int indicator_x = 316;
inline constexpr int indicator_y = 11;
inline constexpr int indicator_width = 24;
inline constexpr int indicator_height = 19;

}  // namespace skin
