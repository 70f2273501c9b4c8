// A picture of what a person sees of a window: its client area taken from the screen, so
// that child windows, skins and the video are all in it.
#pragma once

#include <string>

#include "platform/win/win32.h"

namespace kc::win {

// Writes the client area of `window` as a 24-bit BMP file; false when it cannot.
bool save_window_picture(HWND window, const std::string& path);

}  // namespace kc::win
