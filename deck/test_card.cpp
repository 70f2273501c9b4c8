#include "deck/test_card.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <string>

namespace kc::deck {
namespace {

// 5 x 7 type: seven rows of five pixels, the leftmost pixel in bit 4.
struct Glyph {
    char c;
    std::array<std::uint8_t, 7> rows;
};

constexpr Glyph glyphs[] = {
    {'0', {0b01110, 0b10001, 0b10011, 0b10101, 0b11001, 0b10001, 0b01110}},
    {'1', {0b00100, 0b01100, 0b00100, 0b00100, 0b00100, 0b00100, 0b01110}},
    {'2', {0b01110, 0b10001, 0b00001, 0b00010, 0b00100, 0b01000, 0b11111}},
    {'3', {0b11111, 0b00010, 0b00100, 0b00010, 0b00001, 0b10001, 0b01110}},
    {'4', {0b00010, 0b00110, 0b01010, 0b10010, 0b11111, 0b00010, 0b00010}},
    {'5', {0b11111, 0b10000, 0b11110, 0b00001, 0b00001, 0b10001, 0b01110}},
    {'6', {0b00110, 0b01000, 0b10000, 0b11110, 0b10001, 0b10001, 0b01110}},
    {'7', {0b11111, 0b00001, 0b00010, 0b00100, 0b01000, 0b01000, 0b01000}},
    {'8', {0b01110, 0b10001, 0b10001, 0b01110, 0b10001, 0b10001, 0b01110}},
    {'9', {0b01110, 0b10001, 0b10001, 0b01111, 0b00001, 0b00010, 0b01100}},
    {'A', {0b01110, 0b10001, 0b10001, 0b11111, 0b10001, 0b10001, 0b10001}},
    {'B', {0b11110, 0b10001, 0b10001, 0b11110, 0b10001, 0b10001, 0b11110}},
    {'C', {0b01110, 0b10001, 0b10000, 0b10000, 0b10000, 0b10001, 0b01110}},
    {'D', {0b11100, 0b10010, 0b10001, 0b10001, 0b10001, 0b10010, 0b11100}},
    {'E', {0b11111, 0b10000, 0b10000, 0b11110, 0b10000, 0b10000, 0b11111}},
    {'F', {0b11111, 0b10000, 0b10000, 0b11110, 0b10000, 0b10000, 0b10000}},
    {'G', {0b01110, 0b10001, 0b10000, 0b10111, 0b10001, 0b10001, 0b01111}},
    {'H', {0b10001, 0b10001, 0b10001, 0b11111, 0b10001, 0b10001, 0b10001}},
    {'I', {0b01110, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100, 0b01110}},
    {'J', {0b00111, 0b00010, 0b00010, 0b00010, 0b00010, 0b10010, 0b01100}},
    {'K', {0b10001, 0b10010, 0b10100, 0b11000, 0b10100, 0b10010, 0b10001}},
    {'L', {0b10000, 0b10000, 0b10000, 0b10000, 0b10000, 0b10000, 0b11111}},
    {'M', {0b10001, 0b11011, 0b10101, 0b10101, 0b10001, 0b10001, 0b10001}},
    {'N', {0b10001, 0b10001, 0b11001, 0b10101, 0b10011, 0b10001, 0b10001}},
    {'O', {0b01110, 0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b01110}},
    {'P', {0b11110, 0b10001, 0b10001, 0b11110, 0b10000, 0b10000, 0b10000}},
    {'Q', {0b01110, 0b10001, 0b10001, 0b10001, 0b10101, 0b10010, 0b01101}},
    {'R', {0b11110, 0b10001, 0b10001, 0b11110, 0b10100, 0b10010, 0b10001}},
    {'S', {0b01111, 0b10000, 0b10000, 0b01110, 0b00001, 0b00001, 0b11110}},
    {'T', {0b11111, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100}},
    {'U', {0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b01110}},
    {'V', {0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b01010, 0b00100}},
    {'W', {0b10001, 0b10001, 0b10001, 0b10101, 0b10101, 0b10101, 0b01010}},
    {'X', {0b10001, 0b10001, 0b01010, 0b00100, 0b01010, 0b10001, 0b10001}},
    {'Y', {0b10001, 0b10001, 0b10001, 0b01010, 0b00100, 0b00100, 0b00100}},
    {'Z', {0b11111, 0b00001, 0b00010, 0b00100, 0b01000, 0b10000, 0b11111}},
    {':', {0b00000, 0b01100, 0b01100, 0b00000, 0b01100, 0b01100, 0b00000}},
    {'-', {0b00000, 0b00000, 0b00000, 0b11111, 0b00000, 0b00000, 0b00000}},
    {'.', {0b00000, 0b00000, 0b00000, 0b00000, 0b00000, 0b01100, 0b01100}},
    {'/', {0b00001, 0b00010, 0b00010, 0b00100, 0b01000, 0b01000, 0b10000}},
    {'#', {0b01010, 0b01010, 0b11111, 0b01010, 0b11111, 0b01010, 0b01010}},
    {' ', {0, 0, 0, 0, 0, 0, 0}},
    {'?', {0b01110, 0b10001, 0b00001, 0b00010, 0b00100, 0b00000, 0b00100}},
};

const Glyph& glyph_of(char c) {
    if (c >= 'a' && c <= 'z') {
        c = static_cast<char>(c - 'a' + 'A');
    }
    for (const Glyph& g : glyphs) {
        if (g.c == c) {
            return g;
        }
    }
    return glyphs[std::size(glyphs) - 1];
}

// A glyph cell is 5 pixels and one of spacing.
constexpr int cell_width = 6;

struct Yuv {
    std::uint8_t y, u, v;
};

// Background of each recording (BT.601 studio range), repeating after six: blue, green,
// brown, purple, teal, red; all dark enough for white type.
constexpr Yuv backgrounds[] = {
    {60, 170, 110}, {80, 100, 90}, {75, 110, 155}, {55, 160, 160}, {85, 140, 80}, {60, 110, 190},
};

constexpr std::uint8_t white = 235;
constexpr std::uint8_t black = 16;

void fill_rect(std::span<std::uint8_t> luma, const PictureSize& size, int x, int y, int w, int h,
               std::uint8_t value) {
    const int x0 = std::clamp(x, 0, size.width);
    const int x1 = std::clamp(x + w, 0, size.width);
    const int y0 = std::clamp(y, 0, size.height);
    const int y1 = std::clamp(y + h, 0, size.height);
    for (int row = y0; row < y1; ++row) {
        std::fill_n(luma.begin() + static_cast<std::ptrdiff_t>(row) * size.width + x0, x1 - x0,
                    value);
    }
}

void centred(std::span<std::uint8_t> luma, const PictureSize& size, int y, int scale,
             std::string_view text) {
    const int x = (size.width - text_width(text, scale)) / 2;
    draw_text(luma, size, x, y, scale, text, white);
}

}  // namespace

int text_width(std::string_view text, int scale) {
    return text.empty() ? 0 : (static_cast<int>(text.size()) * cell_width - 1) * scale;
}

int draw_text(std::span<std::uint8_t> luma, const PictureSize& size, int x, int y, int scale,
              std::string_view text, std::uint8_t value) {
    int pen = x;
    for (const char c : text) {
        const Glyph& g = glyph_of(c);
        for (int row = 0; row < 7; ++row) {
            for (int col = 0; col < 5; ++col) {
                if (g.rows[row] & (0x10 >> col)) {
                    fill_rect(luma, size, pen + col * scale, y + row * scale, scale, scale, value);
                }
            }
        }
        pen += cell_width * scale;
    }
    return pen - x;
}

void draw_picture(const TapePlan& plan, std::int64_t tape_frame, std::span<std::uint8_t> i420) {
    const PictureSize size = picture_size(plan.system);
    if (i420.size() != size.i420_bytes()) {
        return;
    }
    const PlannedFrame planned = plan_frame(plan, tape_frame);
    const Yuv bg = backgrounds[planned.recording % std::size(backgrounds)];
    const std::size_t luma_bytes = static_cast<std::size_t>(size.width) * size.height;
    const auto luma = i420.first(luma_bytes);
    std::fill(luma.begin(), luma.end(), bg.y);
    std::fill_n(i420.begin() + static_cast<std::ptrdiff_t>(luma_bytes), luma_bytes / 4, bg.u);
    std::fill_n(i420.begin() + static_cast<std::ptrdiff_t>(luma_bytes + luma_bytes / 4),
                luma_bytes / 4, bg.v);

    const Recording& rec = plan.recordings[planned.recording];
    const int h = size.height;
    char line[96];
    std::snprintf(line, sizeof line, "%zu %s", planned.recording + 1, rec.name.c_str());
    centred(luma, size, h * 8 / 100, 7, line);
    centred(luma, size, h * 36 / 100, 9, to_text(planned.timecode));
    std::snprintf(line, sizeof line, "FRAME %lld  TRACK %lld", static_cast<long long>(tape_frame),
                  static_cast<long long>(tape_frame * tracks_per_frame(plan.system)));
    centred(luma, size, h * 64 / 100, 4, line);
    if (planned.user_bits & 1) {
        const int w = text_width("USER FLAG", 5) + 40;
        fill_rect(luma, size, (size.width - w) / 2, h * 75 / 100 - 10, w, 7 * 5 + 20, black);
        centred(luma, size, h * 75 / 100, 5, "USER FLAG");
    }
    // The seconds marker: one step per frame number across the bottom of the picture.
    const int fps = timecode_fps(plan.system);
    const int step = size.width / fps;
    fill_rect(luma, size, planned.timecode.frames * step, h * 90 / 100, step, h / 20, white);
}

std::int64_t first_sample_of_frame(DvSystem system, std::int64_t tape_frame, int rate_hz) {
    const FrameRate rate = frame_rate(system);
    return tape_frame * rate_hz * rate.den / rate.num;
}

void fill_sound(const TapePlan& plan, std::int64_t tape_frame, std::span<std::int16_t> samples) {
    const PlannedFrame planned = plan_frame(plan, tape_frame);
    const Recording& rec = plan.recordings[planned.recording];
    // The first three frames of each second carry the pip, an octave above the tone.
    const bool pip = planned.timecode.frames < 3;
    const double hz = rec.tone_hz * (pip ? 2.0 : 1.0);
    const double amplitude = pip ? 12000.0 : 6000.0;
    const std::int64_t first = first_sample_of_frame(plan.system, tape_frame, plan.audio_rate_hz);
    for (std::size_t i = 0; i + 1 < samples.size(); i += audio_channels) {
        const auto n = static_cast<double>(first + static_cast<std::int64_t>(i / audio_channels));
        const auto value = static_cast<std::int16_t>(std::lround(
            amplitude * std::sin(2.0 * std::numbers::pi * hz * n / plan.audio_rate_hz)));
        samples[i] = value;
        samples[i + 1] = static_cast<std::int16_t>(value / 2);
    }
}

}  // namespace kc::deck
