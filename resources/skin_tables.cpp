#include "resources/skin_tables.h"

#include <array>

#include "resources/resource_ids.h"

namespace skin {
namespace {

// The sizes of the button pictures come in five families, one per kind of key on the
// skin: the big transport keys, the square stop and pause keys, and three small sizes.
constexpr int big_w = 103, big_h = 71;
constexpr int square_w = 75, square_h = 57;
constexpr int wide_w = 62, wide_h = 41;
constexpr int flat_w = 66, flat_h = 32;
constexpr int round_w = 47, round_h = 44;

constexpr std::array<ButtonPictures, 13> buttons{{
    {IDC_PLAY, 138, 139, big_w, big_h},
    {IDC_REWIND, 136, 137, big_w, big_h},
    {IDC_FAST_FORWARD, 140, 141, big_w, big_h},
    {IDC_STOP, 142, 143, square_w, square_h},
    {IDC_PAUSE, 134, 135, square_w, square_h},
    {IDC_HELP, 131, 132, wide_w, wide_h},
    {IDC_RECORD, 144, 145, wide_w, wide_h},
    {IDC_EDIT_SCENES, 146, 147, flat_w, flat_h},
    {IDC_OPTIONS, 129, 130, flat_w, flat_h},
    {IDC_QUIT, 127, 128, round_w, round_h},
    {IDC_SET_IN, 123, 124, round_w, round_h},
    {IDC_SET_OUT, 125, 126, round_w, round_h},
    {IDC_PLAY_IN_OUT, 150, 151, round_w, round_h},
}};

constexpr std::array<Bitmap, 3> fixed_bitmaps{{
    {IDB_SKIN, 660, 600},
    {IDB_INDICATOR, indicator_width, indicator_height},
    {IDB_ABOUT, 320, 240},
}};

constexpr std::array<Bitmap, fixed_bitmaps.size() + 2 * buttons.size()> all_bitmaps = [] {
    std::array<Bitmap, fixed_bitmaps.size() + 2 * buttons.size()> out{};
    std::size_t n = 0;
    for (const Bitmap& b : fixed_bitmaps) {
        out[n++] = b;
    }
    for (const ButtonPictures& b : buttons) {
        out[n++] = {b.pressed_bitmap, b.width_px, b.height_px};
        out[n++] = {b.normal_bitmap, b.width_px, b.height_px};
    }
    return out;
}();

constexpr std::array<Tooltip, 14> tips{{
    {IDC_RECORD, "Record"},
    {IDC_PLAY, "Play"},
    {IDC_STOP, "Stop"},
    {IDC_PLAY_IN_OUT, "Play from In point"},
    {IDC_FAST_FORWARD, "Fast Forward or Step Forward if paused"},
    {IDC_REWIND, "Rewind or Step Backwards if paused"},
    {IDC_PAUSE, "Pause"},
    {IDC_OPTIONS, "Options"},
    {IDC_SEEK, "Seek"},
    {IDC_HELP, "Help"},
    {IDC_EDIT_SCENES, "Edit scene list"},
    {IDC_QUIT, "Exit program"},
    {IDC_SET_IN, "Set In point"},
    {IDC_SET_OUT, "Set Out point"},
}};

}  // namespace

std::span<const Bitmap> bitmaps() {
    return all_bitmaps;
}

std::span<const ButtonPictures> button_pictures() {
    return buttons;
}

std::span<const Tooltip> tooltips() {
    return tips;
}

const char* transport_status_text(long mode) {
    // The ED_MODE_... values of the DV transport. Thaw (4299) and record strobe (4303)
    // are passing states with nothing worth showing.
    switch (mode) {
        case 4296:
            return "Playing";
        case 4297:
            return "Stopped";
        case 4298:
            return "Paused";
        case 4300:
            return "Fast forward";
        case 4301:
            return "Rewind";
        case 4302:
            return "Recording";
        case 4304:
            return "Step forward";
        case 4905:
            return "Step reverse";
        case 5029:  // fastest forward play
        case 5030:  // slowest forward play
            return "Fast forward";
        case 5031:  // fastest reverse play
        case 5032:  // slowest reverse play
            return "Rewind";
        default:
            return nullptr;
    }
}

}  // namespace skin
