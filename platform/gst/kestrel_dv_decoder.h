// The preview's DV video decoder: one element whose display resolution can be changed while
// the preview plays. Full comes from libav's DV decoder (GStreamer's own where libav's is
// missing). Half, quarter and "DC only" come from our small-picture decoder, which takes
// only the coefficients a picture of that size can show (the DC alone for DC only) and
// skips most of the variable-length decoding a full decoder spends its time in: a half
// picture costs a fraction of a full one, where libav's scaled-down decoding costs nearly
// as much as its full.
//
// "kestreldvdec" is a bin: the frames go to one of the two decoders and the pictures of
// that one come out, so a change of resolution is a change of format downstream, never a
// gap in the stream. "kestreldvdcdec" is the small-picture decoder on its own; its "detail"
// is the pixels a side it gives each 8 x 8 block (1, 2 or 4).
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
