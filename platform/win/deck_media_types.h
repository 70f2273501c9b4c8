// The media types of the virtual deck's output pin, from its tape.
#pragma once

#include "platform/win/filter_base.h"
#include "platform/win/media_type.h"
// The deck's headers come after the Windows headers (platform/win/win32.h says why).
#include "deck/tape_image.h"

namespace kc::win {

// REFERENCE_TIME counts 100 ns.
inline constexpr std::int64_t units_per_second = 10'000'000;

// The formats of a tape's media types: its DVINFO, and the same frames seen as video.
struct DeckFormats {
    DVINFO dv{};
    VIDEOINFOHEADER video{};
};
DeckFormats deck_formats(const deck::TapeImage& tape);

// The pin's media types by index: 0 interleaved DV, as a DV device gives it; 1 the same
// frames as a DV video stream. The pin offers the interleaved type first, unless the
// system's AVI multiplexer takes no interleaved stream (Wine's): then a capture could not
// be written at all, and the video type comes first, so that the file holds one "dvsd"
// video stream of the very same frames. The format block points into `formats`, which
// must outlive the type.
inline constexpr int deck_media_type_count = 2;
AM_MEDIA_TYPE deck_media_type(deck::DvSystem system, DeckFormats& formats, int index);

// The types in the order the pin offers them: type `first`, then the other.
IEnumMediaTypes* make_media_types(const DeckFormats& formats, deck::DvSystem system, int first);

}  // namespace kc::win
