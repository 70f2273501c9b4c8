// The media platform on GStreamer: device lists, filter graphs over a GstPipeline, the
// capture graph builder, running, events and the preview renderer.
#pragma once

#include <gst/gst.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/dialog_host.h"
#include "platform/media.h"
#include "platform/video_surface.h"

namespace kc::gst {

// Initialises GStreamer and registers our own elements. Events are posted to windows
// through `host`; renderers paint into the surfaces of `surfaces`. Both must outlive the
// factory and every object it makes.
std::unique_ptr<media::MediaFactory> make_media_factory(DialogHost& host, VideoSurfaces& surfaces);

// One GObject property of an element, as a generic property dialog shows it.
struct ElementProperty {
    std::string name;
    std::string type;   // the GType's name ("gint", "gboolean", "GstAviInterleave"...)
    std::string value;  // serialised as gst_value_serialize does
    std::string range;  // "min..max" for numbers, the nicks of an enum, else empty
    bool writable = false;
};
std::vector<ElementProperty> element_properties(GstElement* element);

}  // namespace kc::gst
