#include "platform/gst/elements.h"

#include "platform/gst/kestrel_avi_sink.h"
#include "platform/gst/kestrel_dv_decoder.h"

namespace kc::gst {

bool register_elements() {
    return register_avi_sink() && register_dv_decoders();
}

}  // namespace kc::gst
