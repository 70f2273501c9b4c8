// The preview's DV video decoder: one element whose display resolution can be changed while
// the preview plays. Full, half and quarter come from libav's DV decoder (which scales its
// inverse transform down; GStreamer's own decoder, where libav's is missing, gives only
// full); "DC only" comes from our DC-picture decoder, which keeps one pixel per 8 x 8 block
// and skips the variable-length decoding the others spend most of their time in, so it is
// the cheapest picture there is.
//
// "kestreldvdec" is a bin: the frames go to one of the two decoders and the pictures of
// that one come out, so a change of resolution is a change of format downstream, never a
// gap in the stream. "kestreldvdcdec" is the DC-picture decoder on its own.
#pragma once

#include <gst/gst.h>

#include <string>
#include <vector>

namespace kc::gst {

// Registers both elements with GStreamer for this process. False on failure.
bool register_dv_decoders();

// The display resolutions `decoder` (a "kestreldvdec") offers, in the user's words, from
// the most detailed to the cheapest.
std::vector<std::string> dv_decoder_resolutions(GstElement* decoder);
// The resolution it decodes at now.
std::string dv_decoder_resolution(GstElement* decoder);
// Chooses one of the resolutions offered, for the frames from now on. False for another.
bool set_dv_decoder_resolution(GstElement* decoder, const std::string& resolution);

// The full-picture decoder inside, whose own settings its settings page shows.
GstElement* dv_decoder_picture_decoder(GstElement* decoder);

}  // namespace kc::gst
