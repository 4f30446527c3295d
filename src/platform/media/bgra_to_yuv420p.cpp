#include "platform/media/detail/bgra_to_yuv420p.h"

#include "platform/media/detail/row_kernel.h"

#include <cstddef>

#if defined(__x86_64__) && defined(__GNUC__)
#define ORVELLE_AVX2_KERNELS 1
#include <immintrin.h>
#else
#define ORVELLE_AVX2_KERNELS 0
#endif

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

#if ORVELLE_AVX2_KERNELS
// The same arithmetic, 32 luma or 16 chroma samples at a time, bit for bit: pixels widened to
// 16-bit lanes and multiplied pairwise into 32-bit sums (vpmaddwd). Green's luma weight does
// not fit 16 bits, so green fills the unused alpha lane too and each half carries half of it.
constexpr int32_t ygHalf = yg / 2;
static_assert(yg == 2 * ygHalf, "green's luma weight splits into two equal halves");

__attribute__((target("avx2"))) inline __m256i lumaOfEight(__m256i pixels, __m256i lowPixels,
                                                           __m256i highPixels, __m256i weights,
                                                           __m256i offset) {
    // Words B, G, R, G of pixels 0-1 and of pixels 2-3 of each 128-bit lane.
    const __m256i low = _mm256_shuffle_epi8(pixels, lowPixels);
    const __m256i high = _mm256_shuffle_epi8(pixels, highPixels);
    const __m256i sums =
        _mm256_hadd_epi32(_mm256_madd_epi16(low, weights), _mm256_madd_epi16(high, weights));
    return _mm256_srai_epi32(_mm256_add_epi32(sums, offset), shift);
}

// Luma of the first `width` rounded down to 32 pixels; returns how many were done.
__attribute__((target("avx2"))) int lumaRowAvx2(const uint32_t* pixels, uint8_t* luma, int width) {
    const __m256i lowPixels =
        _mm256_setr_epi8(0, -1, 1, -1, 2, -1, 1, -1, 4, -1, 5, -1, 6, -1, 5, -1, 0, -1, 1, -1, 2,
                         -1, 1, -1, 4, -1, 5, -1, 6, -1, 5, -1);
    const __m256i highPixels =
        _mm256_setr_epi8(8, -1, 9, -1, 10, -1, 9, -1, 12, -1, 13, -1, 14, -1, 13, -1, 8, -1, 9, -1,
                         10, -1, 9, -1, 12, -1, 13, -1, 14, -1, 13, -1);
    const __m256i weights = _mm256_setr_epi16(yb, ygHalf, yr, ygHalf, yb, ygHalf, yr, ygHalf, yb,
                                              ygHalf, yr, ygHalf, yb, ygHalf, yr, ygHalf);
    const __m256i offset = _mm256_set1_epi32(lumaOffset);
    // Lanes hold pixels 0-3 and 4-7 of each eight; packing interleaves the lanes.
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    int i = 0;
    for (; i + 32 <= width; i += 32) {
        __m256i y[4];
        for (int part = 0; part < 4; ++part) {
            const __m256i eight =
                _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels + i + 8 * part));
            y[part] = lumaOfEight(eight, lowPixels, highPixels, weights, offset);
        }
        const __m256i packed =
            _mm256_packus_epi16(_mm256_packs_epi32(y[0], y[1]), _mm256_packs_epi32(y[2], y[3]));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(luma + i),
                            _mm256_permutevar8x32_epi32(packed, order));
    }
    return i;
}

// The 2x2 sums of B, G, R (and alpha) of eight pixels of two rows, as 16-bit lanes: blocks
// 0-1 in the low 128 bits, 2-3 in the high.
__attribute__((target("avx2"))) inline __m256i blockSums(const uint32_t* upper,
                                                         const uint32_t* lower) {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(upper));
    const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(lower));
    const __m256i low =
        _mm256_add_epi16(_mm256_unpacklo_epi8(a, zero), _mm256_unpacklo_epi8(b, zero));
    const __m256i high =
        _mm256_add_epi16(_mm256_unpackhi_epi8(a, zero), _mm256_unpackhi_epi8(b, zero));
    // Each half of `low` holds two pixels of a block; add the second onto the first.
    const __m256i lowBlocks = _mm256_add_epi16(low, _mm256_srli_si256(low, 8));
    const __m256i highBlocks = _mm256_add_epi16(high, _mm256_srli_si256(high, 8));
    return _mm256_unpacklo_epi64(lowBlocks, highBlocks);
}

// One chroma plane's eight samples from the block sums of blocks 0-3 and 4-7, in order.
__attribute__((target("avx2"))) inline __m256i
chromaOfEight(__m256i first, __m256i second, __m256i weights, __m256i offset, __m256i blockOrder) {
    // hadd leaves blocks 0 1 4 5 | 2 3 6 7.
    const __m256i sums =
        _mm256_hadd_epi32(_mm256_madd_epi16(first, weights), _mm256_madd_epi16(second, weights));
    return _mm256_permutevar8x32_epi32(_mm256_srai_epi32(_mm256_add_epi32(sums, offset), shift + 2),
                                       blockOrder);
}

// U and V of the first `pairs` rounded down to 16 blocks; returns how many were done.
__attribute__((target("avx2"))) int chromaRowAvx2(const uint32_t* upper, const uint32_t* lower,
                                                  uint8_t* u, uint8_t* v, int pairs) {
    const __m256i uWeights =
        _mm256_setr_epi16(ub, ug, ur, 0, ub, ug, ur, 0, ub, ug, ur, 0, ub, ug, ur, 0);
    const __m256i vWeights =
        _mm256_setr_epi16(vb, vg, vr, 0, vb, vg, vr, 0, vb, vg, vr, 0, vb, vg, vr, 0);
    const __m256i offset = _mm256_set1_epi32(chromaOffset);
    const __m256i blockOrder = _mm256_setr_epi32(0, 1, 4, 5, 2, 3, 6, 7);
    // After packing: U 0-3, V 0-3 | U 4-7, V 4-7 as 32-bit groups.
    const __m256i planeOrder = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    int i = 0;
    for (; i + 16 <= pairs; i += 16) {
        for (int half = 0; half < 2; ++half) {
            const int block = i + 8 * half;
            const __m256i first = blockSums(upper + 2 * block, lower + 2 * block);
            const __m256i second = blockSums(upper + 2 * block + 8, lower + 2 * block + 8);
            const __m256i words =
                _mm256_packs_epi32(chromaOfEight(first, second, uWeights, offset, blockOrder),
                                   chromaOfEight(first, second, vWeights, offset, blockOrder));
            const __m256i bytes =
                _mm256_permutevar8x32_epi32(_mm256_packus_epi16(words, words), planeOrder);
            const __m128i both = _mm256_castsi256_si128(bytes);
            _mm_storel_epi64(reinterpret_cast<__m128i*>(u + block), both);
            _mm_storel_epi64(reinterpret_cast<__m128i*>(v + block), _mm_unpackhi_epi64(both, both));
        }
    }
    return i;
}

bool hasAvx2() {
    static const bool supported = __builtin_cpu_supports("avx2");
    return supported;
}
#endif

const uint32_t* pixelRow(const uint8_t* bgra, int stride, int row) {
    // The frames we are handed are at least 4-byte aligned, rows a multiple of 4 bytes.
    return reinterpret_cast<const uint32_t*>(bgra + static_cast<ptrdiff_t>(row) * stride);
}

} // namespace

void bgraToYuv420pBt709(const uint8_t* bgra, int stride, int width, int height,
                        const Yuv420pPlanes& output, BandRunner& bands, bool vectorKernels) {
    const int pairs = width / 2;
#if ORVELLE_AVX2_KERNELS
    const bool avx2 = vectorKernels && hasAvx2();
#else
    (void)vectorKernels;
    constexpr bool avx2 = false;
#endif
    const auto luma = [&](const uint32_t* pixels, uint8_t* out) {
        int done = 0;
#if ORVELLE_AVX2_KERNELS
        if (avx2) {
            done = lumaRowAvx2(pixels, out, width);
        }
#endif
        lumaRow(pixels + done, out + done, width - done);
    };
    const auto chroma = [&](const uint32_t* upper, const uint32_t* lower, uint8_t* u, uint8_t* v) {
        int done = 0;
#if ORVELLE_AVX2_KERNELS
        if (avx2) {
            done = chromaRowAvx2(upper, lower, u, v, pairs);
        }
#endif
        chromaRow(upper + 2 * done, lower + 2 * done, u + done, v + done, pairs - done);
    };
    bands.runRows(height, [&](int top, int bottom) {
        for (int row = top; row < bottom; row += 2) {
            const uint32_t* upper = pixelRow(bgra, stride, row);
            const uint32_t* lower = row + 1 < height ? pixelRow(bgra, stride, row + 1) : upper;
            luma(upper, output.planes[0] + static_cast<ptrdiff_t>(row) * output.strides[0]);
            if (row + 1 < height) {
                luma(lower, output.planes[0] + static_cast<ptrdiff_t>(row + 1) * output.strides[0]);
            }
            uint8_t* u = output.planes[1] + static_cast<ptrdiff_t>(row / 2) * output.strides[1];
            uint8_t* v = output.planes[2] + static_cast<ptrdiff_t>(row / 2) * output.strides[2];
            chroma(upper, lower, u, v);
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
