// FireWire DV units in the media layer's video input list: each AV/C tape unit (or
// camcorder) on the bus is a source device captured with dv1394src by its GUID and
// controlled with AV/C commands.
#pragma once

#include <functional>

#include "platform/avc/unit.h"
#include "platform/gst/source_provider.h"

namespace kc::avc {

class FirewireSourceDevice final : public gst::SourceDevice {
  public:
    explicit FirewireSourceDevice(UnitInfo unit);

    std::string friendly_name() const override;
    std::string device_path() const override;
    // A bin around dv1394src for this GUID. The transport is ours to drive, so the
    // element's own AV/C play and stop are switched off. Null (logged) when the 1394
    // GStreamer plugin is missing.
    GstElement* create_source() override;
    // A new AvcDeviceControl over a libavc1394 channel to this unit. With the unit gone
    // every call of it fails with ENODEV.
    Unknown* control() override;

    const UnitInfo& unit() const { return unit_; }

  private:
    UnitInfo unit_;
};

class FirewireSourceProvider final : public gst::SourceProvider {
  public:
    using Scan = std::function<std::vector<UnitInfo>()>;
    // `scan` reads the bus (scan_bus on a real one); each call of devices() calls it
    // again, so units plugged in or out show at the next enumeration.
    explicit FirewireSourceProvider(Scan scan);

    // The DV units of the scan, in bus order.
    std::vector<std::shared_ptr<gst::SourceDevice>> devices() override;

  private:
    Scan scan_;
};

}  // namespace kc::avc
