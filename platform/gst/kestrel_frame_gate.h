// The frame gate of a DV capture branch as a GStreamer element: whole interleaved DV frames
// in ("video/x-dv, systemstream=true"), the frames that belong in this branch's file out, in
// order, stamped one frame period apart from the start of the stream. What it holds back,
// carries to the next file, counts and logs is the FrameGate's (platform/capture).
//
// Made and driven only through the functions below; the element has no properties. The
// log is created when the element goes to PAUSED and closed once the stream has ended and
// the file behind the gate is complete (after EOS has passed downstream, or when the
// element goes back to READY).
#pragma once

#include <gst/gst.h>

#include <memory>
#include <string>

#include "platform/capture/frame_gate.h"

namespace kc::gst {

// A gate for the capture file `file`, writing its log at `log_path` (none when empty) and
// naming `source` in it. `carry` links the files of one capture (may be null).
GstElement* make_frame_gate(std::shared_ptr<capture::Carry> carry, const std::string& file,
                            const std::string& log_path, const std::string& source);

// The capture decided the recording changed: see FrameGate::split. Any thread.
void frame_gate_split(GstElement* gate);

// Whether a recording break in the stream waits for a split: see FrameGate::holds_break.
// Any thread.
bool frame_gate_holds_break(GstElement* gate);

// The counters of the file behind the gate so far. Any thread.
capture::GateCounters frame_gate_counters(GstElement* gate);

}  // namespace kc::gst
