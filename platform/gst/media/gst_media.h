// The media platform on GStreamer: device lists, filter graphs over a GstPipeline, the
// capture graph builder, running, events, the preview renderer and filters' property
// pages.
#pragma once

#include <gst/gst.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/dialog_host.h"
#include "platform/media.h"
#include "platform/property_pages.h"
#include "platform/video_surface.h"

namespace kc::gst {

// Initialises GStreamer and registers our own elements. Events are posted to windows
// through `host`; renderers paint into the surfaces of `surfaces`; filters' property
// pages are shown by `frames` (without one, as in a program with no user interface,
// opening them fails with E_NOTIMPL). All must outlive the factory and every object it
// makes.
std::unique_ptr<media::MediaFactory> make_media_factory(DialogHost& host, VideoSurfaces& surfaces,
                                                        PropertyFrames* frames = nullptr);

// An element's settings as one property page shows them: every readable property of a
// plain type (switches, numbers, enums, flags, text), writable where it can be changed
// while the element exists. The element's name and parent are its identity in the graph,
// not settings, and are left out.
std::vector<PropertyItem> element_settings(GstElement* element);
// Sets one setting from its text (a number, "true"/"false", an enum's nick or name,
// flags as "a+b"). False when the element has no such writable property.
bool apply_element_setting(GstElement* element, const std::string& name, const std::string& value);

}  // namespace kc::gst
