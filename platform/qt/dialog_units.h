// Dialog units to pixels, as the classic dialog manager converts them: a horizontal unit
// is a quarter of the template font's average character width, a vertical unit an
// eighth of its character height, each product rounded to the nearest pixel.
#pragma once

#include <string_view>

namespace kc::qt {

struct DialogUnits {
    double base_x = 6.0;   // average character width, pixels
    double base_y = 13.0;  // character height, pixels

    int x(int units) const;
    int y(int units) const;

    // The base units of the templates' font. The skin of the main window was drawn for
    // "MS Sans Serif" at 8 points, whose 440 x 370 units hold the 660 x 600 pixel skin:
    // 6 pixels average width and 600 / 370 * 8 pixels height. That font is not on a Linux
    // desktop, so those metrics are fixed here; any other font is measured.
    static DialogUnits for_font(std::string_view family, int points);
};

}  // namespace kc::qt
