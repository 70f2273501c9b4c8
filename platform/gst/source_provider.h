// Video sources that GstDeviceMonitor does not list: FireWire DV units and the virtual
// DV deck. Each provider is registered once at start-up; the media layer's device
// enumerator lists its devices in the video input category after the monitor's own, and
// the source filter made from one of them answers the DV device-control interfaces by
// handing out the device's control object.
#pragma once

#include <gst/gst.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/unknown.h"

namespace kc::gst {

class SourceDevice {
  public:
    virtual ~SourceDevice() = default;

    // The name shown in the device list ("FriendlyName" of its property bag).
    virtual std::string friendly_name() const = 0;
    // A stable identity for the moniker's display name ("DevicePath").
    virtual std::string device_path() const = 0;

    // A new, floating source element (or bin with one "src" pad) producing
    // video/x-dv, systemstream=(boolean)true, one whole DV frame per buffer, timestamped
    // from zero at the frame rate. Null with a clear log message when the device cannot
    // deliver (no FireWire bus, tape image unreadable).
    virtual GstElement* create_source() = 0;

    // The object answering Iid::ext_device, Iid::ext_transport and Iid::timecode_reader
    // (and Iid::dropped_frames when the source counts its own losses), with a new
    // reference; null for a device with no tape control.
    virtual Unknown* control() = 0;
};

class SourceProvider {
  public:
    virtual ~SourceProvider() = default;
    // The devices present now; called each time the video inputs are enumerated.
    virtual std::vector<std::shared_ptr<SourceDevice>> devices() = 0;
};

// Providers are listed in the order they were added: real FireWire units before the
// virtual deck. Not thread-safe: add them during start-up, before enumeration.
void add_source_provider(std::shared_ptr<SourceProvider> provider);
const std::vector<std::shared_ptr<SourceProvider>>& source_providers();

}  // namespace kc::gst
