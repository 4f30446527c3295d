#include "platform/image/detail/pixel_kernels.h"

#include <emmintrin.h>

#include <algorithm>
#include <cmath>

namespace orvelle::detail {

namespace {

uint8_t toByte(double value) {
    return static_cast<uint8_t>(std::lround(std::clamp(value, 0.0, 1.0) * 255.0));
}

// x / 255, rounded, for x in 0...65025, on eight 16-bit lanes.
inline __m128i divideBy255(__m128i x) {
    x = _mm_add_epi16(x, _mm_set1_epi16(128));
    return _mm_srli_epi16(_mm_add_epi16(x, _mm_srli_epi16(x, 8)), 8);
}

inline int divideBy255(int x) {
    x += 128;
    return (x + (x >> 8)) >> 8;
}

// The alpha of each of two pixels held as 16-bit lanes, repeated over its four lanes.
inline __m128i broadcastAlpha(__m128i pixels16) {
    return _mm_shufflehi_epi16(_mm_shufflelo_epi16(pixels16, 0xFF), 0xFF);
}

// a * f / 255 for two pixels of 16-bit lanes.
inline __m128i scale16(__m128i a, __m128i f) {
    return divideBy255(_mm_mullo_epi16(a, f));
}

const __m128i kAlphaMask = _mm_set1_epi32(static_cast<int>(0xFF000000u));

// Runs `vector` on 4 pixels at a time and `scalar` on the rest, row by row.
template <class Vector, class Scalar>
void forEachPixel(cv::Mat& destination, const cv::Mat& other, Vector vector, Scalar scalar) {
    CV_Assert(destination.type() == CV_8UC4 && other.type() == CV_8UC4 &&
              destination.size() == other.size());
    const int width = destination.cols;
    for (int y = 0; y < destination.rows; ++y) {
        uint8_t* d = destination.ptr<uint8_t>(y);
        const uint8_t* o = other.ptr<uint8_t>(y);
        int x = 0;
        for (; x + 4 <= width; x += 4) {
            vector(d + 4 * x, o + 4 * x);
        }
        for (; x < width; ++x) {
            scalar(d + 4 * x, o + 4 * x);
        }
    }
}

} // namespace

Bgra premultipliedBgra(double red, double green, double blue, double alpha) {
    const double a = std::clamp(alpha, 0.0, 1.0);
    return {toByte(blue * a), toByte(green * a), toByte(red * a), toByte(a)};
}

void fill(cv::Mat& destination, Bgra color) {
    destination.setTo(cv::Scalar(color[0], color[1], color[2], color[3]));
}

void blendOver(cv::Mat& destination, const cv::Mat& source) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i full = _mm_set1_epi16(255);
    forEachPixel(
        destination, source,
        [&](uint8_t* d, const uint8_t* s) {
            const __m128i src = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
            const __m128i alpha = _mm_and_si128(src, kAlphaMask);
            const int opaque = _mm_movemask_epi8(_mm_cmpeq_epi32(alpha, kAlphaMask));
            if (opaque == 0xFFFF) {
                _mm_storeu_si128(reinterpret_cast<__m128i*>(d), src);
                return;
            }
            if (_mm_movemask_epi8(_mm_cmpeq_epi32(src, zero)) == 0xFFFF) {
                return;
            }
            const __m128i dst = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d));
            const __m128i sLo = _mm_unpacklo_epi8(src, zero);
            const __m128i sHi = _mm_unpackhi_epi8(src, zero);
            const __m128i dLo = _mm_unpacklo_epi8(dst, zero);
            const __m128i dHi = _mm_unpackhi_epi8(dst, zero);
            const __m128i lo =
                _mm_add_epi16(sLo, scale16(dLo, _mm_sub_epi16(full, broadcastAlpha(sLo))));
            const __m128i hi =
                _mm_add_epi16(sHi, scale16(dHi, _mm_sub_epi16(full, broadcastAlpha(sHi))));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(lo, hi));
        },
        [](uint8_t* d, const uint8_t* s) {
            const int inverse = 255 - s[3];
            for (int c = 0; c < 4; ++c) {
                d[c] = static_cast<uint8_t>(std::min(255, s[c] + divideBy255(d[c] * inverse)));
            }
        });
}

void blendUnder(cv::Mat& destination, const cv::Mat& background) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i full = _mm_set1_epi16(255);
    forEachPixel(
        destination, background,
        [&](uint8_t* d, const uint8_t* b) {
            const __m128i dst = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d));
            const __m128i alpha = _mm_and_si128(dst, kAlphaMask);
            if (_mm_movemask_epi8(_mm_cmpeq_epi32(alpha, kAlphaMask)) == 0xFFFF) {
                return;
            }
            const __m128i bg = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b));
            if (_mm_movemask_epi8(_mm_cmpeq_epi32(dst, zero)) == 0xFFFF) {
                _mm_storeu_si128(reinterpret_cast<__m128i*>(d), bg);
                return;
            }
            const __m128i dLo = _mm_unpacklo_epi8(dst, zero);
            const __m128i dHi = _mm_unpackhi_epi8(dst, zero);
            const __m128i bLo = _mm_unpacklo_epi8(bg, zero);
            const __m128i bHi = _mm_unpackhi_epi8(bg, zero);
            const __m128i lo =
                _mm_add_epi16(dLo, scale16(bLo, _mm_sub_epi16(full, broadcastAlpha(dLo))));
            const __m128i hi =
                _mm_add_epi16(dHi, scale16(bHi, _mm_sub_epi16(full, broadcastAlpha(dHi))));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(lo, hi));
        },
        [](uint8_t* d, const uint8_t* b) {
            const int inverse = 255 - d[3];
            for (int c = 0; c < 4; ++c) {
                d[c] = static_cast<uint8_t>(std::min(255, d[c] + divideBy255(b[c] * inverse)));
            }
        });
}

void blendWithMask(cv::Mat& destination, const cv::Mat& background, const cv::Mat& mask) {
    CV_Assert(destination.size() == background.size() && destination.size() == mask.size());
    const __m128i zero = _mm_setzero_si128();
    const __m128i full = _mm_set1_epi16(255);
    const __m128i green = _mm_set1_epi32(0x0000FF00);
    const int width = destination.cols;
    for (int y = 0; y < destination.rows; ++y) {
        uint8_t* d = destination.ptr<uint8_t>(y);
        const uint8_t* b = background.ptr<uint8_t>(y);
        const uint8_t* m = mask.ptr<uint8_t>(y);
        int x = 0;
        for (; x + 4 <= width; x += 4) {
            const __m128i weights = _mm_loadu_si128(reinterpret_cast<const __m128i*>(m + 4 * x));
            const __m128i g = _mm_and_si128(weights, green);
            if (_mm_movemask_epi8(_mm_cmpeq_epi32(g, green)) == 0xFFFF) {
                continue; // all white: the input as it is
            }
            const __m128i under = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + 4 * x));
            if (_mm_movemask_epi8(_mm_cmpeq_epi32(g, zero)) == 0xFFFF) {
                _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 4 * x), under);
                continue;
            }
            const __m128i in = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d + 4 * x));
            // Each pixel's green repeated over its four 16-bit lanes.
            const __m128i wLo = _mm_shufflehi_epi16(
                _mm_shufflelo_epi16(_mm_unpacklo_epi8(weights, zero), 0x55), 0x55);
            const __m128i wHi = _mm_shufflehi_epi16(
                _mm_shufflelo_epi16(_mm_unpackhi_epi8(weights, zero), 0x55), 0x55);
            const __m128i lo = divideBy255(_mm_add_epi16(
                _mm_mullo_epi16(_mm_unpacklo_epi8(in, zero), wLo),
                _mm_mullo_epi16(_mm_unpacklo_epi8(under, zero), _mm_sub_epi16(full, wLo))));
            const __m128i hi = divideBy255(_mm_add_epi16(
                _mm_mullo_epi16(_mm_unpackhi_epi8(in, zero), wHi),
                _mm_mullo_epi16(_mm_unpackhi_epi8(under, zero), _mm_sub_epi16(full, wHi))));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 4 * x), _mm_packus_epi16(lo, hi));
        }
        for (; x < width; ++x) {
            const int weight = m[4 * x + 1];
            const int inverse = 255 - weight;
            for (int c = 0; c < 4; ++c) {
                const int i = 4 * x + c;
                d[i] = static_cast<uint8_t>(divideBy255(d[i] * weight + b[i] * inverse));
            }
        }
    }
}

void sourceOut(cv::Mat& destination, const cv::Mat& background) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i full = _mm_set1_epi16(255);
    forEachPixel(
        destination, background,
        [&](uint8_t* d, const uint8_t* b) {
            const __m128i bg = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b));
            if (_mm_movemask_epi8(_mm_cmpeq_epi32(_mm_and_si128(bg, kAlphaMask), zero)) == 0xFFFF) {
                return;
            }
            const __m128i dst = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d));
            const __m128i bLo = _mm_unpacklo_epi8(bg, zero);
            const __m128i bHi = _mm_unpackhi_epi8(bg, zero);
            const __m128i lo =
                scale16(_mm_unpacklo_epi8(dst, zero), _mm_sub_epi16(full, broadcastAlpha(bLo)));
            const __m128i hi =
                scale16(_mm_unpackhi_epi8(dst, zero), _mm_sub_epi16(full, broadcastAlpha(bHi)));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(lo, hi));
        },
        [](uint8_t* d, const uint8_t* b) {
            const int inverse = 255 - b[3];
            for (int c = 0; c < 4; ++c) {
                d[c] = static_cast<uint8_t>(divideBy255(d[c] * inverse));
            }
        });
}

void multiply(cv::Mat& destination, const cv::Mat& other) {
    const __m128i zero = _mm_setzero_si128();
    forEachPixel(
        destination, other,
        [&](uint8_t* d, const uint8_t* o) {
            const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d));
            const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(o));
            const __m128i lo = scale16(_mm_unpacklo_epi8(a, zero), _mm_unpacklo_epi8(b, zero));
            const __m128i hi = scale16(_mm_unpackhi_epi8(a, zero), _mm_unpackhi_epi8(b, zero));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(lo, hi));
        },
        [](uint8_t* d, const uint8_t* o) {
            for (int c = 0; c < 4; ++c) {
                d[c] = static_cast<uint8_t>(divideBy255(d[c] * o[c]));
            }
        });
}

void scaleRow(uint8_t* pixels, int count, int coverage) {
    if (coverage >= 256) {
        return;
    }
    for (int i = 0; i < 4 * count; ++i) {
        pixels[i] = static_cast<uint8_t>((pixels[i] * coverage + 128) >> 8);
    }
}

void colorMatrix(cv::Mat& destination, const ColorMatrixCoefficients& matrix) {
    const auto& m = matrix.rows;
    const bool noBias = m[0][4] == 0 && m[1][4] == 0 && m[2][4] == 0 && m[3][4] == 0;
    const bool alphaKept = m[3][0] == 0 && m[3][1] == 0 && m[3][2] == 0;
    const bool colourDiagonal = m[0][1] == 0 && m[0][2] == 0 && m[0][3] == 0 && m[1][0] == 0 &&
                                m[1][2] == 0 && m[1][3] == 0 && m[2][0] == 0 && m[2][1] == 0 &&
                                m[2][3] == 0;
    const int width = destination.cols;
    if (noBias && alphaKept && colourDiagonal && m[3][3] >= 0 && m[3][3] <= 1) {
        // Each channel scaled on its own: on premultiplied pixels a colour factor c becomes
        // c * alpha' / alpha with alpha' = alpha * k, which is c * k.
        const float k = m[3][3];
        std::array<int, 4> factor{};
        factor[0] = static_cast<int>(std::lround(std::max(0.f, m[2][2] * k) * 256));
        factor[1] = static_cast<int>(std::lround(std::max(0.f, m[1][1] * k) * 256));
        factor[2] = static_cast<int>(std::lround(std::max(0.f, m[0][0] * k) * 256));
        factor[3] = static_cast<int>(std::lround(k * 256));
        // Factors in 256ths, at most 256 for alpha; colour is held to the new alpha below.
        const __m128i zero = _mm_setzero_si128();
        const __m128i factors = _mm_setr_epi16(
            static_cast<int16_t>(std::min(factor[0], 32767)),
            static_cast<int16_t>(std::min(factor[1], 32767)),
            static_cast<int16_t>(std::min(factor[2], 32767)), static_cast<int16_t>(factor[3]),
            static_cast<int16_t>(std::min(factor[0], 32767)),
            static_cast<int16_t>(std::min(factor[1], 32767)),
            static_cast<int16_t>(std::min(factor[2], 32767)), static_cast<int16_t>(factor[3]));
        const bool colourWithinAlpha = factor[0] <= factor[3] && factor[1] <= factor[3] &&
                                       factor[2] <= factor[3] && factor[0] <= 256 &&
                                       factor[1] <= 256 && factor[2] <= 256;
        const __m128i half = _mm_set1_epi16(128);
        for (int y = 0; y < destination.rows; ++y) {
            uint8_t* p = destination.ptr<uint8_t>(y);
            int x = 0;
            if (colourWithinAlpha) {
                // No channel can outgrow alpha: a plain scale, four pixels at a time.
                for (; x + 4 <= width; x += 4) {
                    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 4 * x));
                    const __m128i lo = _mm_srli_epi16(
                        _mm_add_epi16(_mm_mullo_epi16(_mm_unpacklo_epi8(v, zero), factors), half),
                        8);
                    const __m128i hi = _mm_srli_epi16(
                        _mm_add_epi16(_mm_mullo_epi16(_mm_unpackhi_epi8(v, zero), factors), half),
                        8);
                    _mm_storeu_si128(reinterpret_cast<__m128i*>(p + 4 * x),
                                     _mm_packus_epi16(lo, hi));
                }
            }
            for (; x < width; ++x) {
                uint8_t* q = p + 4 * x;
                const int alpha = (q[3] * factor[3] + 128) >> 8;
                for (int c = 0; c < 3; ++c) {
                    q[c] = static_cast<uint8_t>(std::min(alpha, (q[c] * factor[c] + 128) >> 8));
                }
                q[3] = static_cast<uint8_t>(alpha);
            }
        }
        return;
    }
    for (int y = 0; y < destination.rows; ++y) {
        uint8_t* p = destination.ptr<uint8_t>(y);
        for (int x = 0; x < width; ++x, p += 4) {
            const float a = p[3] / 255.f;
            std::array<float, 4> in{0, 0, 0, a};
            if (a > 0) {
                in[0] = p[2] / 255.f / a;
                in[1] = p[1] / 255.f / a;
                in[2] = p[0] / 255.f / a;
            }
            std::array<float, 4> out{};
            for (int c = 0; c < 4; ++c) {
                out[c] = std::clamp(m[c][0] * in[0] + m[c][1] * in[1] + m[c][2] * in[2] +
                                        m[c][3] * in[3] + m[c][4],
                                    0.f, 1.f);
            }
            p[0] = static_cast<uint8_t>(std::lround(out[2] * out[3] * 255));
            p[1] = static_cast<uint8_t>(std::lround(out[1] * out[3] * 255));
            p[2] = static_cast<uint8_t>(std::lround(out[0] * out[3] * 255));
            p[3] = static_cast<uint8_t>(std::lround(out[3] * 255));
        }
    }
}

} // namespace orvelle::detail
