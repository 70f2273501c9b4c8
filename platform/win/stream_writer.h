// A file writer for a multiplexer that writes its file through IStream on the writer's
// input pin (as Wine's AVI Mux does, and nothing of Wine's offers it). Used only where
// the system's own File Writer does not answer IStream on its pin.
//
// It writes where it is told: through IStream at the stream's position, and samples
// received through IMemInputPin at the byte offset their start time gives, as the
// system's writer does. The file is made anew when the filter pauses from stopped and is
// kept open after the stop, because a multiplexer stopped after its writer (the graph
// stops downstream filters first) writes its index and headers then; it is closed when
// the filter is paused again, disconnected or released. At the end of the stream the
// writer, a renderer, completes the graph (EC_COMPLETE).
#pragma once

#include "platform/win/win32.h"

namespace kc::win {

// The system's File Writer when its input pin answers IStream, else the project's own;
// a new filter with one reference, the caller's.
HRESULT make_file_writer(IBaseFilter** writer);

}  // namespace kc::win
