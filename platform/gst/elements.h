// The project's own GStreamer elements, registered for this process without a plugin file:
// the AVI writer of captures ("kestrelavisink") and the preview's DV decoders
// ("kestreldvdec", "kestreldvdcdec").
#pragma once

namespace kc::gst {

// Call after gst_init, from any thread; repeated calls are harmless. False on failure.
bool register_elements();

}  // namespace kc::gst
