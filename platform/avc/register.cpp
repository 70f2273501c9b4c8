#include "platform/avc/register.h"

#include "platform/avc/bus.h"
#include "platform/avc/firewire_source.h"

namespace kc::avc {

void register_firewire_devices() {
    gst::add_source_provider(std::make_shared<FirewireSourceProvider>([] { return scan_bus(); }));
}

}  // namespace kc::avc
