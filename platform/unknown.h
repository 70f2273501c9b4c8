// The reference-counted object model shared by every platform interface.
//
// Platform objects (filters, pins, graphs, device control) are reached through small
// interfaces that mirror the calls the logic makes. Each object counts its references
// and answers which interfaces it has, so that the logic can hold interfaces in
// ComPtr, ask one object for another interface of itself, and tell whether two
// interface pointers belong to one object. Implementations: the GStreamer platform,
// the virtual deck, FireWire device control, and the recording fakes of the tests.
#pragma once

#include <cstdint>

#include "platform/result.h"

// Interface identities. Each interface declares its own as `iid`.
enum class Iid : int {
    unknown,
    base_filter,
    pin,
    enum_pins,
    enum_media_types,
    graph_builder,
    capture_graph_builder,
    media_control,
    media_event,
    media_seeking,
    video_window,
    ext_device,
    ext_transport,
    timecode_reader,
    dropped_frames,
    scene_split,
    config_interleaving,
    file_sink,
    specify_property_pages,
    create_dev_enum,
    enum_moniker,
    moniker,
    property_bag,
};

class Unknown {
  public:
    static constexpr Iid iid = Iid::unknown;

    // On success *out holds a new reference to the asked interface; on failure it is
    // null and the result is E_NOINTERFACE. Asking for Iid::unknown always gives the
    // same pointer for one object: that is the object's identity.
    virtual HRESULT query_interface(Iid iid, void** out) = 0;
    virtual std::uint32_t add_ref() = 0;
    virtual std::uint32_t release() = 0;

  protected:
    ~Unknown() = default;
};
