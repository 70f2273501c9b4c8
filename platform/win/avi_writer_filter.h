// Our AVI multiplexer and file writer in one filter, for systems whose multiplexer cannot
// write a DV capture (Wine's takes no interleaved DV and no sound, and fails when stopped
// with frames queued). It writes with the project's own DV AVI writer, as the Linux
// platform does: type 1 (one interleaved 'iavs' stream) when its first input takes
// interleaved DV, type 2 ('dvsd' video, and PCM sound on its second input) when it takes
// DV video; OpenDML, readable up to the last frame written if the capture is cut off.
//
// It answers what the capture graph asks of the multiplexer and the writer it names
// (IFileSinkFilter, IConfigInterleaving: every mode is accepted, the file's layout follows
// the inputs) and tells the graph EC_COMPLETE once every connected input has ended.
#pragma once

#include "platform/win/win32.h"

namespace kc::win {

// A new filter with one reference, the caller's.
IBaseFilter* make_avi_writer();

}  // namespace kc::win
