// Start-up hook: puts the FireWire DV units into the media layer's video input list.
#pragma once

namespace kc::avc {

// Adds the FireWire source provider (a real bus scan at each enumeration). Call once
// at start-up on the user-interface thread, before the virtual deck's provider, so that
// real units come first. Harmless without a FireWire bus: the provider then lists
// nothing.
void register_firewire_devices();

}  // namespace kc::avc
