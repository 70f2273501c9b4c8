// The program on the GStreamer media platform, with FireWire units and the virtual deck
// added to its device list when those libraries are built.
#include <cstdio>

#include "platform/gst/media/gst_media.h"
#include "platform/qt/program/program_parts.h"
#ifdef KC_HAVE_FIREWIRE_SOURCES
#include "platform/avc/register.h"
#endif
#ifdef KC_HAVE_VIRTUAL_DECK
#include "deck/gst/deck_provider.h"
#endif

namespace kc::program {

std::unique_ptr<media::MediaFactory> make_media_factory(DialogHost& host, VideoSurfaces& surfaces,
                                                        PropertyFrames& frames) {
    return kc::gst::make_media_factory(host, surfaces, &frames);
}

void register_extra_sources() {
#ifdef KC_HAVE_FIREWIRE_SOURCES
    kc::avc::register_firewire_devices();
#endif
#ifdef KC_HAVE_VIRTUAL_DECK
    std::string error;
    if (!kc::deck::register_virtual_deck(error)) {
        std::fprintf(stderr, "kestrel-capture: %s\n", error.c_str());
    }
#endif
}

std::string media_summary() {
    std::string summary = "GStreamer media platform";
#ifdef KC_HAVE_FIREWIRE_SOURCES
    summary += ", FireWire DV units";
#endif
#ifdef KC_HAVE_VIRTUAL_DECK
    summary += ", virtual deck (KESTREL_VIRTUAL_DECK)";
#endif
    return summary;
}

}  // namespace kc::program
