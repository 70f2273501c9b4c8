// Our DV video decoder, for systems that have none (Wine): takes DV frames (Video, dvsd)
// and gives the frame's DC picture (dv/dv_small_image.h), one pixel per 8 x 8 block, as
// bottom-up RGB32: 90 x 72 on 625-50, 90 x 60 on 525-60. Enough to preview what a deck
// plays.
#pragma once

#include "platform/win/win32.h"

namespace kc::win {

// A new decoder with one reference, the caller's.
IBaseFilter* make_dv_decoder();

}  // namespace kc::win
