#include "platform/win/win_picture.h"

#include <fstream>
#include <vector>

namespace kc::win {

bool save_window_picture(HWND window, const std::string& path) {
    // The client area: without a window manager (Xvfb) nobody draws the frame.
    RECT r{};
    GetClientRect(window, &r);
    MapWindowPoints(window, nullptr, reinterpret_cast<POINT*>(&r), 2);
    const int width = r.right - r.left;
    const int height = r.bottom - r.top;
    if (width <= 0 || height <= 0) {
        return false;
    }
    HDC screen = GetDC(nullptr);
    HDC memory = CreateCompatibleDC(screen);
    HBITMAP picture = CreateCompatibleBitmap(screen, width, height);
    HGDIOBJ old = SelectObject(memory, picture);
    BitBlt(memory, 0, 0, width, height, screen, r.left, r.top, SRCCOPY);
    SelectObject(memory, old);
    BITMAPINFOHEADER info{};
    info.biSize = sizeof info;
    info.biWidth = width;
    info.biHeight = height;  // bottom-up, as BMP files are read by everyone
    info.biPlanes = 1;
    info.biBitCount = 24;
    info.biCompression = BI_RGB;
    const DWORD row = (static_cast<DWORD>(width) * 3 + 3) & ~3u;
    std::vector<char> pixels(row * static_cast<DWORD>(height));
    const int rows = GetDIBits(memory, picture, 0, static_cast<UINT>(height), pixels.data(),
                               reinterpret_cast<BITMAPINFO*>(&info), DIB_RGB_COLORS);
    DeleteObject(picture);
    DeleteDC(memory);
    ReleaseDC(nullptr, screen);
    if (rows != height) {
        return false;
    }
    BITMAPFILEHEADER file{};
    file.bfType = 0x4D42;  // "BM"
    file.bfOffBits = sizeof file + sizeof info;
    file.bfSize = file.bfOffBits + static_cast<DWORD>(pixels.size());
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(&file), sizeof file);
    out.write(reinterpret_cast<const char*>(&info), sizeof info);
    out.write(pixels.data(), static_cast<std::streamsize>(pixels.size()));
    return static_cast<bool>(out);
}

}  // namespace kc::win
