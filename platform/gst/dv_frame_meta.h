// What a DV source knows of a frame beyond its bytes, carried on the buffer to the capture
// path: the frames it lost just before this one ("lost-before", gint64) and the absolute
// track number of the frame's first track ("track", gint64), when it knows them. A custom
// meta by name, so that a source needs no library of ours to attach it.
#pragma once

#include <gst/gst.h>

namespace kc::gst {

inline constexpr const char* dv_frame_meta_name = "KcDvFrameMeta";

// Registers the meta once per process; any thread.
inline void register_dv_frame_meta() {
    static const bool registered = [] {
        if (gst_meta_get_info(dv_frame_meta_name) == nullptr) {
            const gchar* tags[] = {nullptr};
            gst_meta_register_custom(dv_frame_meta_name, tags, nullptr, nullptr, nullptr);
        }
        return true;
    }();
    (void)registered;
}

}  // namespace kc::gst
