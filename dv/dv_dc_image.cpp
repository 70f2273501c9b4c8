#include "dv/dv_dc_image.h"

#include <algorithm>
#include <array>

namespace kc::dv {
namespace {

constexpr int video_blocks_per_sequence = 135;
// The DCT blocks of a compressed macroblock, after its ID and status byte.
constexpr std::array<std::size_t, 6> dct_block_offsets{4, 18, 32, 46, 60, 70};
constexpr int super_block_rows_shift[5] = {2, 6, 8, 0, 4};
constexpr int super_block_columns[5] = {2, 1, 3, 0, 4};
// 525-60: the first macroblock column of each super block column.
constexpr int first_column_525[5] = {0, 4, 9, 13, 18};

// Video block v of a sequence comes after the sequence's six leading blocks and after
// one audio block per 15 video blocks, its own included.
constexpr std::size_t video_block_offset(int sequence, int v) {
    return static_cast<std::size_t>(sequence) * dif_sequence_bytes +
           static_cast<std::size_t>(6 + (v / 15) * 16 + 1 + v % 15) * dif_block_bytes;
}

// A block's mean from its DC coefficient, rounded.
std::uint8_t mean_of(const std::uint8_t* dct_block) {
    int dc = (dct_block[0] << 1) | (dct_block[1] >> 7);
    if (dc & 0x100) {
        dc -= 0x200;
    }
    return static_cast<std::uint8_t>(std::clamp((dc + 257) / 2, 0, 255));
}

// The picture positions, in 8 x 8 blocks, of luma blocks Y0..Y3 of macroblock `k` of the
// super block at (`row`, `column`).
std::array<std::array<int, 2>, 4> luma_blocks(DvSystem system, int row, int column, int k) {
    auto square = [](int x, int y) {
        return std::array<std::array<int, 2>, 4>{{{x, y}, {x + 1, y}, {x, y + 1}, {x + 1, y + 1}}};
    };
    if (system == DvSystem::pal_625_50) {
        const int c = k / 3;
        const int r = c % 2 == 0 ? k % 3 : 2 - k % 3;
        return square(column * 18 + c * 2, row * 6 + r * 2);
    }
    if (column == 4 && k >= 24) {
        return square(88, row * 6 + (k - 24) * 2);
    }
    const int kk = k + (column == 1 || column == 3 ? 3 : 0);
    const int c = kk / 6;
    const int r = c % 2 == 0 ? kk % 6 : 5 - kk % 6;
    const int x = (first_column_525[column] + c) * 4;
    const int y = row * 6 + r;
    return {{{x, y}, {x + 1, y}, {x + 2, y}, {x + 3, y}}};
}

}  // namespace

std::optional<DcImage> decode_dc_image(std::span<const std::uint8_t> frame, DvSystem system) {
    if (frame.size() < frame_bytes(system)) {
        return std::nullopt;
    }
    DcImage image;
    image.width = dc_image_width(system);
    image.height = dc_image_height(system);
    const auto pixels = static_cast<std::size_t>(image.width * image.height);
    image.y.assign(pixels, 128);
    image.cb.assign(pixels, 128);
    image.cr.assign(pixels, 128);
    const int sequences = sequences_per_frame(system);
    for (int i = 0; i < sequences; ++i) {
        for (int v = 0; v < video_blocks_per_sequence; ++v) {
            const std::uint8_t* block = frame.data() + video_block_offset(i, v);
            if (static_cast<DifSection>(block[0] >> 5) != DifSection::video) {
                continue;
            }
            const int p = v % 5;
            const auto places = luma_blocks(system, (i + super_block_rows_shift[p]) % sequences,
                                            super_block_columns[p], v / 5);
            const std::uint8_t cr = mean_of(block + dct_block_offsets[4]);
            const std::uint8_t cb = mean_of(block + dct_block_offsets[5]);
            for (std::size_t b = 0; b < places.size(); ++b) {
                const auto at = static_cast<std::size_t>(places[b][1] * image.width + places[b][0]);
                image.y[at] = mean_of(block + dct_block_offsets[b]);
                image.cb[at] = cb;
                image.cr[at] = cr;
            }
        }
    }
    return image;
}

namespace {

// BT.601 studio range in 16.16 fixed point.
struct Rgb {
    std::uint8_t r, g, b;
};
Rgb rgb_of(const DcImage& image, std::size_t i) {
    auto clamp8 = [](int v) { return static_cast<std::uint8_t>(std::clamp(v >> 16, 0, 255)); };
    const int y = 76309 * (image.y[i] - 16) + 32768;
    const int cb = image.cb[i] - 128;
    const int cr = image.cr[i] - 128;
    return {clamp8(y + 104597 * cr), clamp8(y - 25675 * cb - 53279 * cr), clamp8(y + 132201 * cb)};
}

}  // namespace

std::vector<std::uint8_t> to_rgb24(const DcImage& image) {
    std::vector<std::uint8_t> rgb(image.y.size() * 3);
    for (std::size_t i = 0; i < image.y.size(); ++i) {
        const Rgb p = rgb_of(image, i);
        rgb[3 * i] = p.r;
        rgb[3 * i + 1] = p.g;
        rgb[3 * i + 2] = p.b;
    }
    return rgb;
}

void write_bgrx(const DcImage& image, std::uint8_t* out, std::size_t stride) {
    for (int row = 0; row < image.height; ++row) {
        std::uint8_t* line = out + static_cast<std::size_t>(row) * stride;
        for (int x = 0; x < image.width; ++x) {
            const Rgb p = rgb_of(image, static_cast<std::size_t>(row * image.width + x));
            line[4 * x] = p.b;
            line[4 * x + 1] = p.g;
            line[4 * x + 2] = p.r;
            line[4 * x + 3] = 0xff;
        }
    }
}

}  // namespace kc::dv
