// The parts of the program that come from other platform libraries: the media platform
// and the video sources it does not find by itself. CMake picks the implementation that
// matches what is built, so main has no conditional code.
#pragma once

#include <memory>
#include <string>

#include "platform/dialog_host.h"
#include "platform/media.h"
#include "platform/property_pages.h"
#include "platform/video_surface.h"

namespace kc::program {

// The media platform the capture graphs are built on. Its renderers paint into the
// preview panes through `surfaces`; its events reach windows through `host`; filters'
// property pages are shown by `frames`. Called
// once on the UI thread, before the entry sequence.
std::unique_ptr<media::MediaFactory> make_media_factory(DialogHost& host, VideoSurfaces& surfaces,
                                                        PropertyFrames& frames);

// Adds the sources the media platform lists before the ones it finds itself: FireWire
// tape units, then the virtual deck when KESTREL_VIRTUAL_DECK asks for it. Once, before
// the entry sequence.
void register_extra_sources();

// One line saying what this build can capture from, for the log.
std::string media_summary();

}  // namespace kc::program
