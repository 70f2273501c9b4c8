// The media platform on DirectShow: every interface of platform/media.h over the
// DirectShow or COM interface of the same meaning, one call per call.
//
// Each DirectShow object is wrapped once: a wrapper answers every media:: interface whose
// DirectShow counterpart the object has, and the wrappers are kept in an identity map
// keyed by the object's own IUnknown. So the same object reached twice (a filter bound
// from its moniker, then found by name in the graph or named by the device-lost event) is
// the same wrapper, and the core's same_object holds.
//
// COM must be initialised on the calling thread (the system services do it at start-up).
// All calls come from the user-interface thread; the filter graph posts its event message
// to the notify window from its own threads.
#pragma once

#include <memory>

#include "platform/win/win32.h"

namespace kc::win {

// The factory owns the identity map: it must outlive every object it makes.
std::unique_ptr<media::MediaFactory> make_media_factory();

// The DirectShow interface a media:: interface stands for (for the scene split, the
// interface of our own frame gate, frame_gate_filter.h).
const IID* windows_iid(Iid iid);

// The DirectShow object behind a media:: pointer this factory made (no new reference), or
// null for any other. For filters of the project's own that need the graph itself.
IUnknown* windows_object(Unknown* object);

}  // namespace kc::win
