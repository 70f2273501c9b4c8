// Our DV Splitter, for systems that have none (Wine): takes interleaved DV frames
// (MEDIATYPE_Interleaved, dvsd) and sends each frame on unchanged as video (dvsd in a
// VIDEOINFOHEADER) and its first stereo pair as 16-bit PCM, in the format the AAUX source
// pack of the input's DVINFO announces.
#pragma once

#include "platform/win/win32.h"

namespace kc::win {

// A new splitter with one reference, the caller's.
IBaseFilter* make_dv_splitter();

}  // namespace kc::win
