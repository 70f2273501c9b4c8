// A small picture of an SD DV frame, for a preview or a thumbnail: 1, 2 or 4 pixels a side
// per 8 x 8 DCT block, so an eighth (90 x 72 on 625-50, 90 x 60 on 525-60), a quarter or
// half of the frame's size. The eighth comes from the DC coefficients alone: no
// variable-length decoding, no inverse transform. The larger two also take the lowest AC
// coefficients of each luma block, as many as the picture can show, from the block's own
// bits only, and transform just those; colour stays one value per macroblock. That is far
// less work than decoding the frame and scaling it down.
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

// Pixels a side per 8 x 8 DCT block.
enum class Detail { dc = 1, quarter = 2, half = 4 };

// Colour is constant over a macroblock, so a small picture keeps one value per two pixels
// side by side and, on 625-50, per two rows as well (4:2:0, as that tape samples it); a
// 525-60 macroblock is only one block high, so there it is every row (4:2:2).
constexpr int colour_rows(DvSystem system) {
    return system == DvSystem::pal_625_50 ? 2 : 1;
}

// Studio-range Y of every pixel and Cb, Cr as `colour_rows` says, row by row, top row first.
struct SmallImage {
    int width = 0;
    int height = 0;
    int colour_rows = 1;  // rows per colour value
    std::vector<std::uint8_t> y;
    std::vector<std::uint8_t> cb;
    std::vector<std::uint8_t> cr;
};

constexpr int small_image_width(DvSystem, Detail detail = Detail::dc) {
    return 90 * static_cast<int>(detail);
}
constexpr int small_image_height(DvSystem system, Detail detail = Detail::dc) {
    return (system == DvSystem::pal_625_50 ? 72 : 60) * static_cast<int>(detail);
}

// Where a picture goes as planar Y'CbCr, which a video pipeline scales and converts cheaply:
// each plane's rows `stride` bytes apart, top row first; Cb and Cr are half the width, and
// have height / `colour_rows` rows. Only the picture's own pixels of each row are written.
struct YuvPlanes {
    std::uint8_t* plane[3];  // Y, Cb, Cr
    std::size_t stride[3];
};

// The picture of a whole frame of `system` into `out`; false, and nothing written, when
// `frame` is shorter. Blocks that are not video blocks (a damaged frame) leave mid grey.
bool decode_small_image(std::span<const std::uint8_t> frame, DvSystem system, Detail detail,
                        const YuvPlanes& out);
// The same into a picture of its own; empty when `frame` is shorter.
std::optional<SmallImage> decode_small_image(std::span<const std::uint8_t> frame, DvSystem system,
                                             Detail detail = Detail::dc);

// The picture as 8-bit R, G, B per pixel (ITU-R BT.601), row by row, top row first.
std::vector<std::uint8_t> to_rgb24(const SmallImage& image);

}  // namespace kc::dv
