// A small picture of an SD DV frame from the DC coefficients alone: one pixel per 8 x 8
// DCT block, 90 x 72 (625-50) or 90 x 60 (525-60). Good enough for a preview or a
// thumbnail, and cheap: no variable-length decoding, no inverse DCT.
//
// Where the DC coefficients are. Each video DIF block is one compressed macroblock: its
// 3-byte ID, a byte of status and quantiser number, then the DCT blocks Y0, Y1, Y2, Y3
// (14 bytes each), Cr and Cb (10 bytes each). Every DCT block starts with its DC
// coefficient, 9 bits two's complement, which is twice the block's mean less 128.
//
// Where the macroblocks go. The picture is cut into super blocks, n rows (12 on 625-50,
// 10 on 525-60) by 5 columns, each of 27 macroblocks. The 135 video blocks of DIF sequence
// i form 27 segments of 5; the p-th macroblock of segment k is macroblock k of the super
// block in row (i + {2, 6, 8, 0, 4}[p]) mod n and column {2, 1, 3, 0, 4}[p].
//   625-50 (4:2:0): macroblocks are 16 x 16 (Y0 Y1 over Y2 Y3, one Cr and Cb over all);
//   a super block is 9 macroblock columns by 3 rows, numbered down the first column, up
//   the next and so on.
//   525-60 (4:1:1): macroblocks are 32 x 8 (Y0 to Y3 left to right, one Cr and Cb over
//   all); 22 columns of them and 6 rows per super block row, numbered down and up the
//   columns in turn. Super block columns 0 and 2 start at macroblock columns 0 and 9 and
//   end with the top half of a column; 1 and 3 start with the bottom half of columns 4 and
//   13; column 4 holds columns 18 to 21 and then, at the right edge, three 16 x 16
//   macroblocks laid out as on 625-50.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "dv/dv_frame.h"

namespace kc::dv {

// Studio-range Y, Cb, Cr of every pixel, row by row, top row first.
struct DcImage {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> y;
    std::vector<std::uint8_t> cb;
    std::vector<std::uint8_t> cr;
};

constexpr int dc_image_width(DvSystem) {
    return 90;
}
constexpr int dc_image_height(DvSystem system) {
    return system == DvSystem::pal_625_50 ? 72 : 60;
}

// The DC picture of a whole frame of `system`; empty when `frame` is shorter. Blocks that
// are not video blocks (a damaged frame) leave mid grey.
std::optional<DcImage> decode_dc_image(std::span<const std::uint8_t> frame, DvSystem system);

// The picture as 8-bit R, G, B per pixel (ITU-R BT.601), row by row, top row first.
std::vector<std::uint8_t> to_rgb24(const DcImage& image);

// The picture as 8-bit B, G, R and an opaque fourth byte per pixel, as the screen takes it,
// into `out`: rows `stride` bytes apart, top row first.
void write_bgrx(const DcImage& image, std::uint8_t* out, std::size_t stride);

}  // namespace kc::dv
