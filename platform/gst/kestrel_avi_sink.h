// kestrelavisink: the AVI multiplexer and file writer of DV captures, as a GStreamer sink
// element over DvAviWriter (platform/gst/avi/dv_avi_writer.h). Register it with
// register_elements() (platform/gst/elements.h), then make it with
// gst_element_factory_make("kestrelavisink", name).
//
// Request pads, at most one of each, requested before the first buffer arrives (later
// requests, and second ones, return NULL):
//   "video_%u"  video/x-dv, systemstream=true: a type 1 file (one interleaved 'iavs'
//               stream, handler 'dvsd', DVINFO format), the DV of the source as it is;
//               systemstream=false (the "video" pad of dvdemux): a type 2 file, 'vids'
//               stream with handler and compression 'dvsd'. The bytes may come in any
//               slicing; the element cuts them into DV frames. The first frame fixes the
//               system (525-60 or 625-50) and the file's frame rate and picture size.
//   "audio_%u"  audio/x-raw, S16LE, interleaved, 8000..96000 Hz, 1..8 channels (the
//               "audio" pad of dvdemux): the 'auds' PCM stream of a type 2 file. With a
//               video pad of systemstream=true it is an error (GST_STREAM_ERROR_FORMAT).
// Release pads with gst_element_release_request_pad.
//
// Properties:
//   "location"        (string) the file to write. Read when the element goes from READY
//                     to PAUSED: the file is then created, or emptied if it exists; a
//                     missing or unopenable location fails that state change and posts
//                     GST_RESOURCE_ERROR NOT_FOUND or OPEN_WRITE. Ignored (with a warning)
//                     while the file is open, i.e. in PAUSED and PLAYING.
//   "interleave"      (enum KcAviInterleave) the AVI multiplexer's interleaving modes, with
//                     the same integer values: 0 "none", 1 "capture" (the default),
//                     2 "full", 3 "none-buffered". g_object_set(sink, "interleave", 0, NULL)
//                     or gst_util_set_object_arg(G_OBJECT(sink), "interleave", "none") both
//                     work. With capture or full, and both pads linked, chunks go into the
//                     file in buffer time order (a pad that falls silent holds the other
//                     back by at most 64 buffers); with none and none-buffered they go in
//                     as they arrive. Type 1 files have one stream and ignore it. May be set
//                     in any state; takes effect from the next buffer.
//   "max-part-bytes"  (guint64, 1 MiB..4 GiB-1, default 1 GiB) bound of each RIFF part.
//   "frames"          (guint64, read-only) video frames written since the file was opened.
//
// No preroll and no clock sync: buffers are written as they arrive, each one reaching the
// file (chunk, indexes and header sizes) before chain returns, so a capture cut off at any
// moment keeps every whole frame. The file is finished (indexes, final header) when every
// pad has seen EOS (the element then posts EOS, so the pipeline's EOS means the file is
// complete), or when the element leaves PAUSED for READY (a capture stopped without EOS).
// A failed write, including a full disk (GST_RESOURCE_ERROR NO_SPACE_LEFT), posts an error
// on the bus and returns GST_FLOW_ERROR; the file then holds every frame written before.
#pragma once

#include <gst/gst.h>

namespace kc::gst {

// Registers "kestrelavisink" with GStreamer for this process. False on failure.
bool register_avi_sink();

GType kestrel_avi_sink_get_type();

}  // namespace kc::gst
