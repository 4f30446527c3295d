#include "platform/media/detail/bgra_to_yuv420p.h"

#include "platform/media/detail/row_kernel.h"

#include <cstddef>

namespace orvelle::detail {

namespace {

// BT.709 (Kr 0.2126, Kb 0.0722) scaled to 219 steps of luma and 224 of chroma, times 2^16.
// The chroma rows sum to zero so that greys land on 128 exactly.
constexpr int32_t yr = 11966, yg = 40254, yb = 4064;
constexpr int32_t ur = -6596, ug = -22188, ub = 28784;
constexpr int32_t vr = 28784, vg = -26145, vb = -2639;
constexpr int shift = 16;
constexpr int32_t lumaOffset = (16 << shift) + (1 << (shift - 1));
// Chroma is computed from the sum of four pixels: two more bits to shift away.
constexpr int32_t chromaOffset = (128 << (shift + 2)) + (1 << (shift + 1));

// Pixels as little-endian words: B in the low byte, then G, R, A.
inline int32_t blue(uint32_t pixel) {
    return static_cast<int32_t>(pixel & 0xffu);
}
inline int32_t green(uint32_t pixel) {
    return static_cast<int32_t>((pixel >> 8) & 0xffu);
}
inline int32_t red(uint32_t pixel) {
    return static_cast<int32_t>((pixel >> 16) & 0xffu);
}

ORVELLE_ROW_KERNEL void lumaRow(const uint32_t* __restrict pixels, uint8_t* __restrict luma,
                                int width) {
    for (int i = 0; i < width; ++i) {
        const uint32_t p = pixels[i];
        luma[i] = static_cast<uint8_t>((yr * red(p) + yg * green(p) + yb * blue(p) + lumaOffset) >>
                                       shift);
    }
}

// One row of U and V from the 2x2 blocks of two pixel rows; `pairs` blocks of two columns.
ORVELLE_ROW_KERNEL void chromaRow(const uint32_t* __restrict upper,
                                  const uint32_t* __restrict lower, uint8_t* __restrict u,
                                  uint8_t* __restrict v, int pairs) {
    for (int i = 0; i < pairs; ++i) {
        const uint32_t a = upper[2 * i], b = upper[2 * i + 1];
        const uint32_t c = lower[2 * i], d = lower[2 * i + 1];
        const int32_t r = red(a) + red(b) + red(c) + red(d);
        const int32_t g = green(a) + green(b) + green(c) + green(d);
        const int32_t bl = blue(a) + blue(b) + blue(c) + blue(d);
        u[i] = static_cast<uint8_t>((ur * r + ug * g + ub * bl + chromaOffset) >> (shift + 2));
        v[i] = static_cast<uint8_t>((vr * r + vg * g + vb * bl + chromaOffset) >> (shift + 2));
    }
}

const uint32_t* pixelRow(const uint8_t* bgra, int stride, int row) {
    // The frames we are handed are at least 4-byte aligned, rows a multiple of 4 bytes.
    return reinterpret_cast<const uint32_t*>(bgra + static_cast<ptrdiff_t>(row) * stride);
}

} // namespace

void bgraToYuv420pBt709(const uint8_t* bgra, int stride, int width, int height,
                        const Yuv420pPlanes& output, BandRunner& bands) {
    const int pairs = width / 2;
    bands.runRows(height, [&](int top, int bottom) {
        for (int row = top; row < bottom; row += 2) {
            const uint32_t* upper = pixelRow(bgra, stride, row);
            const uint32_t* lower = row + 1 < height ? pixelRow(bgra, stride, row + 1) : upper;
            lumaRow(upper, output.planes[0] + static_cast<ptrdiff_t>(row) * output.strides[0],
                    width);
            if (row + 1 < height) {
                lumaRow(lower,
                        output.planes[0] + static_cast<ptrdiff_t>(row + 1) * output.strides[0],
                        width);
            }
            uint8_t* u = output.planes[1] + static_cast<ptrdiff_t>(row / 2) * output.strides[1];
            uint8_t* v = output.planes[2] + static_cast<ptrdiff_t>(row / 2) * output.strides[2];
            chromaRow(upper, lower, u, v, pairs);
            if (width % 2 != 0) {
                // The last column stands for both columns of its block.
                const uint32_t edge[4] = {upper[width - 1], upper[width - 1], lower[width - 1],
                                          lower[width - 1]};
                chromaRow(edge, edge + 2, u + pairs, v + pairs, 1);
            }
        }
    });
}

} // namespace orvelle::detail
