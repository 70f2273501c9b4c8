#include "dv/dv_small_image.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "dv/dv_ac_codes.h"

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

// A block's DC coefficient: twice its mean less 128.
int dc_of(const std::uint8_t* dct_block) {
    const int dc = (dct_block[0] << 1) | (dct_block[1] >> 7);
    return (dc & 0x100) ? dc - 0x200 : dc;
}

// A block's mean from its DC coefficient, rounded.
std::uint8_t mean_of(const std::uint8_t* dct_block) {
    return static_cast<std::uint8_t>(std::clamp((dc_of(dct_block) + 257) / 2, 0, 255));
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

namespace {

// `value` into `columns` x `rows` pixels of a plane `stride` bytes wide.
template <int columns, int rows = columns>
void fill(std::uint8_t* at, std::size_t stride, std::uint8_t value) {
    for (int i = 0; i < rows; ++i) {
        for (int j = 0; j < columns; ++j) {
            at[static_cast<std::size_t>(i) * stride + static_cast<std::size_t>(j)] = value;
        }
    }
}

// The lowest frequencies of a luma block, turned into `side` x `side` pixels, each the
// average of the block's pixels it stands for as far as those frequencies make them.
//
// A block codes its coefficients in a scan order of its DCT mode. An 8-8 block is one 8 x 8
// transform, scanned in zigzag. A 2-4-8 block (a moving picture, whose two fields differ)
// is two 4 x 8 transforms, of the sums and of the differences of each pair of lines,
// scanned in pairs (sum, difference) along the diagonals of a 4 x 8 grid; averaging a
// line pair leaves the sums alone. A coefficient's quantisation step is 2 to the power of a
// shift from the macroblock's quantiser number, the block's class and the area of the scan
// (places 1-5, 6-20, 21-42, 43-63); the coder multiplied it by a weight before quantising.
// Scan orders, weights and steps were checked against libav's decoding of generated tapes.
template <int side>
class LowFrequencies {
  public:
    LowFrequencies() {
        const auto cs = [](int k) { return std::cos(k * std::numbers::pi / 16); };
        const double w[8] = {1,
                             cs(4) / (4 * cs(7) * cs(2)),
                             cs(4) / (2 * cs(6)),
                             1 / (2 * cs(5)),
                             7.0 / 8,
                             cs(4) / cs(3),
                             cs(4) / cs(2),
                             cs(4) / cs(1)};
        // The n-point basis function `u` averaged over the samples of cell `i` of `side`.
        const auto basis = [](int n, int i, int u) {
            const double a = std::sqrt((u == 0 ? 1.0 : 2.0) / n);
            const int cell = n / side;
            double sum = 0;
            for (int k = i * cell; k < (i + 1) * cell; ++k) {
                sum += a * std::cos((2 * k + 1) * u * std::numbers::pi / (2 * n));
            }
            return sum / cell;
        };
        const auto set = [&](int mode, int index, int v, int u, bool sums) {
            if (!sums || v >= side || u >= side) {
                return;
            }
            auto& pixels = pixels_[mode][static_cast<std::size_t>(index)];
            for (int i = 0; i < side; ++i) {
                for (int j = 0; j < side; ++j) {
                    // A line pair's average is half its sum; the 4-point sums carry a
                    // square root of 2 more than an 8-point transform's coefficients.
                    const double vertical = mode == 0 ? basis(8, i, v) / w[v]
                                                      : basis(4, i, v) * std::sqrt(0.5) / w[2 * v];
                    pixels[static_cast<std::size_t>(i * 4 + j)] =
                        static_cast<float>(2 * vertical * basis(8, j, u) / w[u]);
                }
            }
            shown_[mode][static_cast<std::size_t>(index)] = true;
            last_index_[mode] = std::max(last_index_[mode], index);
        };
        int index = 0;
        for (int diagonal = 0; diagonal < 15; ++diagonal) {
            for (int k = 0; k <= diagonal; ++k) {
                const int v = diagonal % 2 == 0 ? diagonal - k : k;
                const int u = diagonal - v;
                if (v < 8 && u < 8) {
                    set(0, index++, v, u, true);
                }
            }
        }
        index = 0;
        for (int diagonal = 0; diagonal < 11; ++diagonal) {
            const bool down = diagonal == 1 || diagonal % 2 == 0;
            for (int k = 0; k < 4; ++k) {
                const int v = down ? k : 3 - k;
                const int u = diagonal - v;
                if (u >= 0 && u < 8) {
                    set(1, index++, v, u, true);
                    set(1, index++, v, u, false);
                }
            }
        }
    }

    // `out` is the block's first pixel in a plane `stride` bytes wide.
    void decode(std::span<const std::uint8_t> block, int quantiser, std::uint8_t* out,
                std::size_t stride) const {
        const float mean = static_cast<float>(dc_of(block.data())) / 2 + 128;
        // Most blocks of a plain picture end at once: their first code, in the low bits of
        // the second byte, is the end of the block.
        if ((block[1] & 0x0f) == 0b0110) {
            fill<side>(out, stride,
                       static_cast<std::uint8_t>(std::clamp(mean, 0.0f, 255.0f) + 0.5f));
            return;
        }
        const int mode = (block[1] >> 6) & 1;
        std::array<AcCoefficient, 64> coefficients;
        const int count = read_own_coefficients(block, last_index_[mode], coefficients);
        // All 16 sums, whatever the side: fixed counts the compiler turns into vector code.
        std::array<float, 16> sum;
        sum.fill(mean);
        bool flat = true;
        const Shifts& shifts = shifts_[static_cast<std::size_t>(quantiser & 15)]
                                      [static_cast<std::size_t>((block[1] >> 4) & 3)];
        for (int c = 0; c < count; ++c) {
            const AcCoefficient coefficient = coefficients[static_cast<std::size_t>(c)];
            if (!shown_[mode][coefficient.index]) {
                continue;
            }
            const int area = coefficient.index <= 5    ? 0
                             : coefficient.index <= 20 ? 1
                             : coefficient.index <= 42 ? 2
                                                       : 3;
            const auto value = static_cast<float>(coefficient.amplitude * (1 << shifts[area]));
            flat = false;
            const std::array<float, 16>& pixels = pixels_[mode][coefficient.index];
            for (std::size_t k = 0; k < 16; ++k) {
                sum[k] += value * pixels[k];
            }
        }
        if (flat) {  // most blocks of a plain picture: no need for the arithmetic
            const auto value = static_cast<std::uint8_t>(std::clamp(mean, 0.0f, 255.0f) + 0.5f);
            fill<side>(out, stride, value);
            return;
        }
        std::array<std::uint8_t, 16> pixels;
        for (std::size_t k = 0; k < 16; ++k) {
            pixels[k] = static_cast<std::uint8_t>(std::clamp(sum[k], 0.0f, 255.0f) + 0.5f);
        }
        for (int i = 0; i < side; ++i) {
            for (int j = 0; j < side; ++j) {
                out[static_cast<std::size_t>(i) * stride + static_cast<std::size_t>(j)] =
                    pixels[static_cast<std::size_t>(i * 4 + j)];
            }
        }
    }

  private:
    using Shifts = std::array<int, 4>;

    // The shifts of the four areas for each quantiser number and class. Classes 2 and 3 as
    // measured (class 3 quantises twice as coarsely); classes 0 and 1, finer by six and three
    // quantiser numbers, carry no AC coefficients in any encoder at hand.
    static std::array<std::array<Shifts, 4>, 16> make_shifts() {
        constexpr int class_offset[4] = {6, 3, 0, 1};
        constexpr Shifts by_index[16] = {{3, 3, 4, 4}, {3, 3, 4, 4}, {2, 3, 3, 4}, {2, 3, 3, 4},
                                         {2, 2, 3, 3}, {2, 2, 3, 3}, {1, 2, 2, 3}, {1, 2, 2, 3},
                                         {1, 1, 2, 2}, {1, 1, 2, 2}, {0, 1, 1, 2}, {0, 1, 1, 2},
                                         {0, 0, 1, 1}, {0, 0, 1, 1}, {0, 0, 0, 1}, {0, 0, 0, 0}};
        std::array<std::array<Shifts, 4>, 16> shifts{};
        for (int quantiser = 0; quantiser < 16; ++quantiser) {
            for (int klass = 0; klass < 4; ++klass) {
                Shifts& these =
                    shifts[static_cast<std::size_t>(quantiser)][static_cast<std::size_t>(klass)];
                these = by_index[std::min(quantiser + class_offset[klass], 15)];
                for (int& shift : these) {
                    shift += klass == 3 ? 1 : 0;
                }
            }
        }
        return shifts;
    }

    const std::array<std::array<Shifts, 4>, 16> shifts_ = make_shifts();
    // Per DCT mode and scan place: whether the coefficient shows at this size, and what it
    // adds to each pixel (i, j) at [i * 4 + j] per unit of amplitude times step.
    std::array<std::array<bool, 64>, 2> shown_{};
    std::array<std::array<std::array<float, 16>, 64>, 2> pixels_{};
    std::array<int, 2> last_index_{};
};

template <int side>
const LowFrequencies<side>& low_frequencies() {
    static const LowFrequencies<side> low;
    return low;
}

// Every video block of `frame` into `out`, `side` pixels a side per DCT block and a colour
// value per `rows_per_colour` rows. Both are fixed at compile time so that the many tiny
// fills become plain stores.
template <int side, int rows_per_colour>
void decode_blocks(std::span<const std::uint8_t> frame, DvSystem system, const YuvPlanes& out) {
    // A block's colour: half its width and its height over the rows per value (on the
    // eighth-size picture a value shared with the neighbouring blocks of its macroblock).
    constexpr int colour_columns = side > 1 ? side / 2 : 1;
    constexpr int colour_height = side > rows_per_colour ? side / rows_per_colour : 1;
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
                const auto x = static_cast<std::size_t>(places[b][0] * side);
                const auto y = static_cast<std::size_t>(places[b][1] * side);
                std::uint8_t* luma_out = out.plane[0] + y * out.stride[0] + x;
                const std::uint8_t* luma = block + dct_block_offsets[b];
                if constexpr (side == 1) {
                    *luma_out = mean_of(luma);
                } else {
                    low_frequencies<side>().decode({luma, 14}, block[3] & 0x0f, luma_out,
                                                   out.stride[0]);
                }
                const std::size_t colour_y = y / rows_per_colour;
                fill<colour_columns, colour_height>(out.plane[1] + colour_y * out.stride[1] + x / 2,
                                                    out.stride[1], cb);
                fill<colour_columns, colour_height>(out.plane[2] + colour_y * out.stride[2] + x / 2,
                                                    out.stride[2], cr);
            }
        }
    }
}

}  // namespace

bool decode_small_image(std::span<const std::uint8_t> frame, DvSystem system, Detail detail,
                        const YuvPlanes& out) {
    if (frame.size() < frame_bytes(system)) {
        return false;
    }
    // Mid grey where a damaged frame has no video block.
    const auto width = static_cast<std::size_t>(small_image_width(system, detail));
    const int height = small_image_height(system, detail);
    for (int p = 0; p < 3; ++p) {
        const int rows = p == 0 ? height : height / colour_rows(system);
        for (int row = 0; row < rows; ++row) {
            std::fill_n(out.plane[p] + static_cast<std::size_t>(row) * out.stride[p],
                        p == 0 ? width : width / 2, 128);
        }
    }
    const bool pal = colour_rows(system) == 2;
    switch (detail) {
        case Detail::dc:
            pal ? decode_blocks<1, 2>(frame, system, out) : decode_blocks<1, 1>(frame, system, out);
            break;
        case Detail::quarter:
            pal ? decode_blocks<2, 2>(frame, system, out) : decode_blocks<2, 1>(frame, system, out);
            break;
        case Detail::half:
            pal ? decode_blocks<4, 2>(frame, system, out) : decode_blocks<4, 1>(frame, system, out);
            break;
    }
    return true;
}

std::optional<SmallImage> decode_small_image(std::span<const std::uint8_t> frame, DvSystem system,
                                             Detail detail) {
    SmallImage image;
    image.width = small_image_width(system, detail);
    image.height = small_image_height(system, detail);
    image.colour_rows = colour_rows(system);
    const auto width = static_cast<std::size_t>(image.width);
    const auto pixels = width * static_cast<std::size_t>(image.height);
    image.y.resize(pixels);
    image.cb.resize(pixels / 2 / static_cast<std::size_t>(image.colour_rows));
    image.cr.resize(image.cb.size());
    const YuvPlanes planes{{image.y.data(), image.cb.data(), image.cr.data()},
                           {width, width / 2, width / 2}};
    if (!decode_small_image(frame, system, detail, planes)) {
        return std::nullopt;
    }
    return image;
}

namespace {

// BT.601 studio range in 16.16 fixed point.
struct Rgb {
    std::uint8_t r, g, b;
};
Rgb rgb_of(const SmallImage& image, std::size_t i) {
    auto clamp8 = [](int v) { return static_cast<std::uint8_t>(std::clamp(v >> 16, 0, 255)); };
    const int y = 76309 * (image.y[i] - 16) + 32768;
    const auto width = static_cast<std::size_t>(image.width);
    const std::size_t colour =
        i / width / static_cast<std::size_t>(image.colour_rows) * (width / 2) + i % width / 2;
    const int cb = image.cb[colour] - 128;
    const int cr = image.cr[colour] - 128;
    return {clamp8(y + 104597 * cr), clamp8(y - 25675 * cb - 53279 * cr), clamp8(y + 132201 * cb)};
}

}  // namespace

std::vector<std::uint8_t> to_rgb24(const SmallImage& image) {
    std::vector<std::uint8_t> rgb(image.y.size() * 3);
    for (std::size_t i = 0; i < image.y.size(); ++i) {
        const Rgb p = rgb_of(image, i);
        rgb[3 * i] = p.r;
        rgb[3 * i + 1] = p.g;
        rgb[3 * i + 2] = p.b;
    }
    return rgb;
}

}  // namespace kc::dv
