// Where the media layer's preview renderer paints: the surface a host gives for a pane.
//
// The renderer owns no window. When its video window is given a pane as owner, it asks
// the host's VideoSurfaces for that pane's surface and presents decoded frames to it from
// the streaming thread; the host scales them to the pane and repaints on its own thread.
#pragma once

#include <cstdint>

#include "platform/window.h"

class VideoSurface {
  public:
    virtual ~VideoSurface() = default;
    // A frame of 32-bit pixels (B, G, R, X bytes in memory). Any thread; the data is
    // copied or consumed before the call returns.
    virtual void present(const std::uint8_t* pixels, int width, int height, int stride) = 0;
    // No more frames will come (the renderer stops or lets go of the pane).
    virtual void clear() = 0;
};

class VideoSurfaces {
  public:
    virtual ~VideoSurfaces() = default;
    // The surface of a pane; null when the window is unknown. Called on the UI thread.
    virtual VideoSurface* surface_for(WindowHandle pane) = 0;
};
