// The virtual deck's DV source element: a GstPushSrc that hands out the frames the VCR
// shows, one whole DV frame per buffer (video/x-dv, systemstream=true).
//
// Paced (the VCR's real-time mode) it is a live source: frames come at the frame rate
// while the tape plays, the same still frame over and over in pause, nothing at all while
// stopped or winding, as a deck's FireWire output does; buffers carry the running time at
// which they arrived. Unpaced, it pushes as fast as the pipeline takes frames and stamps
// them n times the frame period from zero; the stream ends when the tape has played to its
// end.
//
// When the VCR's device disappears the element posts a resource error ("not found") on
// the bus and stops, so that the media layer reports the device as lost.
#pragma once

#include <gst/gst.h>

#include <memory>

#include "deck/vcr.h"

namespace kc::deck {

// A new floating element (factory-less, type "KcDeckSrc") streaming `vcr`.
GstElement* make_deck_source(std::shared_ptr<VirtualVcr> vcr);

}  // namespace kc::deck
