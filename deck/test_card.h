// The picture and sound of a generated tape, drawn from the plan so that they show and
// sound which recording and which frame plays: the recording's name and the frame's
// timecode burnt into the picture in large type over a colour of its own, the tape frame
// and track number, a marker that steps across the picture once a second, a "USER FLAG"
// caption on flagged frames; a tone per recording with a short higher pip at the start of
// every timecode second, on the right channel at half the level of the left, so that
// swapped channels show.
//
// Pictures are planar I420 (Y, then U and V at half size in both directions), the input
// of the DV encoder; sound is stereo signed 16-bit interleaved at the plan's rate (48 kHz,
// DV's locked audio, unless the plan says otherwise).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "deck/tape_plan.h"

namespace kc::deck {

struct PictureSize {
    int width = 720;
    int height = 576;
    std::size_t i420_bytes() const { return static_cast<std::size_t>(width) * height * 3 / 2; }
};

// The DV picture: 720 x 576 (625-50) or 720 x 480 (525-60).
constexpr PictureSize picture_size(DvSystem system) {
    return system == DvSystem::pal_625_50 ? PictureSize{720, 576} : PictureSize{720, 480};
}

inline constexpr int audio_rate_hz = 48000;
inline constexpr int audio_channels = 2;

// Draws frame `tape_frame` of the plan into `i420` (picture_size(plan.system).i420_bytes()).
void draw_picture(const TapePlan& plan, std::int64_t tape_frame, std::span<std::uint8_t> i420);

// The first audio sample of a tape frame: samples run continuously across the tape, frame
// n starting at floor(n * rate / frame rate).
std::int64_t first_sample_of_frame(DvSystem system, std::int64_t tape_frame,
                                   int rate_hz = audio_rate_hz);

// Fills the sound of tape frame `tape_frame` into `samples` (interleaved stereo at
// plan.audio_rate_hz, length 2 x (first_sample_of_frame(n + 1) - first_sample_of_frame(n))).
void fill_sound(const TapePlan& plan, std::int64_t tape_frame, std::span<std::int16_t> samples);

// Draws `text` in the built-in 5 x 7 type (digits, capitals, a few signs; small letters
// are drawn as capitals, others as '?') with its top left corner at (x, y), each type
// pixel `scale` picture pixels square, into the luma plane only. Clipped at the edges.
// Returns the width drawn.
int draw_text(std::span<std::uint8_t> luma, const PictureSize& size, int x, int y, int scale,
              std::string_view text, std::uint8_t value);

// The width `text` takes at `scale`.
int text_width(std::string_view text, int scale);

}  // namespace kc::deck
