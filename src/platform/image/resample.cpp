#include "platform/image/detail/resample.h"

#include "platform/image/image_geometry.h"

#include <emmintrin.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace orvelle::detail {

// Pixel space has its own type so that it is never mixed with the plane's; the algebra is
// the plane transform's.
namespace {

AffineTransform asPlane(const PixelAffine& t) {
    return {t.a, t.b, t.c, t.d, t.tx, t.ty};
}

PixelAffine asPixels(const AffineTransform& t) {
    return {t.a, t.b, t.c, t.d, t.tx, t.ty};
}

} // namespace

PixelAffine PixelAffine::then(const PixelAffine& n) const {
    return asPixels(asPlane(*this).then(asPlane(n)));
}

PixelAffine PixelAffine::inverted() const {
    return asPixels(asPlane(*this).inverted());
}

bool PixelAffine::isIntegerTranslation() const {
    return a == 1 && b == 0 && c == 0 && d == 1 && tx == std::round(tx) && ty == std::round(ty);
}

double PixelAffine::linearScale() const {
    return std::sqrt(std::abs(a * d - b * c));
}

namespace {

constexpr int kWeightBits = 14;
constexpr int kWeightOne = 1 << kWeightBits;

// The source pixels and weights that make each destination pixel along one axis.
struct AxisTaps {
    int maxCount = 0;
    std::vector<int> first;
    std::vector<int> count;
    std::vector<int32_t> weights; // maxCount per destination pixel

    int lowest() const {
        int low = INT32_MAX;
        for (size_t i = 0; i < first.size(); ++i) {
            if (count[i] > 0) {
                low = std::min(low, first[i]);
            }
        }
        return low;
    }
    int highest() const {
        int high = INT32_MIN;
        for (size_t i = 0; i < first.size(); ++i) {
            if (count[i] > 0) {
                high = std::max(high, first[i] + count[i] - 1);
            }
        }
        return high;
    }
};

// Destination coordinate = scale * source coordinate + offset (pixel space). The source's
// pixel i covers [origin + i * pixelSize, origin + (i + 1) * pixelSize].
AxisTaps axisTaps(int destinationStart, int destinationCount, double scale, double offset,
                  double origin, double pixelSize, int sourceCount, bool clampEdges) {
    AxisTaps taps;
    const double scaleInSourcePixels = std::abs(scale) * pixelSize;
    // Bilinear down to three quarters of the size, where it still sees every pixel; below
    // that a tent as wide as a destination pixel averages what falls under it.
    const double support = scaleInSourcePixels >= 0.75 ? 1.0 : 1.0 / scaleInSourcePixels;
    // At most this many source centres lie strictly within the support of a point.
    taps.maxCount = static_cast<int>(std::ceil(2 * support));
    taps.first.resize(static_cast<size_t>(destinationCount));
    taps.count.resize(static_cast<size_t>(destinationCount));
    taps.weights.assign(static_cast<size_t>(destinationCount) * static_cast<size_t>(taps.maxCount),
                        0);
    // Scratch rows for one pixel's weights, reused: this runs for every column of a band.
    std::vector<double> raw(static_cast<size_t>(taps.maxCount) + 2);
    std::vector<double> folded(static_cast<size_t>(taps.maxCount) + 2);
    for (int i = 0; i < destinationCount; ++i) {
        const double centre = destinationStart + i + 0.5;
        const double u = ((centre - offset) / scale - origin) / pixelSize - 0.5;
        const int low = static_cast<int>(std::floor(u - support)) + 1;
        const int high =
            std::min(static_cast<int>(std::ceil(u + support)) - 1, low + taps.maxCount - 1);
        double total = 0;
        raw.assign(static_cast<size_t>(std::max(high - low + 1, 0)), 0.0);
        for (int s = low; s <= high; ++s) {
            const double w = std::max(0.0, 1.0 - std::abs(s - u) / support);
            raw[static_cast<size_t>(s - low)] = w;
            total += w;
        }
        int first = std::max(low, 0);
        int last = std::min(high, sourceCount - 1);
        if (clampEdges) {
            first = std::clamp(low, 0, sourceCount - 1);
            last = std::clamp(high, 0, sourceCount - 1);
        }
        const int count = std::max(last - first + 1, 0);
        taps.first[static_cast<size_t>(i)] = first;
        taps.count[static_cast<size_t>(i)] = count;
        if (count == 0 || total <= 0) {
            taps.count[static_cast<size_t>(i)] = 0;
            continue;
        }
        folded.assign(static_cast<size_t>(count), 0.0);
        for (int s = low; s <= high; ++s) {
            int target = s;
            if (clampEdges) {
                target = std::clamp(s, 0, sourceCount - 1);
            } else if (s < 0 || s >= sourceCount) {
                continue;
            }
            folded[static_cast<size_t>(target - first)] += raw[static_cast<size_t>(s - low)];
        }
        int32_t* w = taps.weights.data() + static_cast<ptrdiff_t>(i) * taps.maxCount;
        int sum = 0;
        double kept = 0;
        int largest = 0;
        for (int k = 0; k < count; ++k) {
            kept += folded[static_cast<size_t>(k)];
            w[k] = static_cast<int32_t>(folded[static_cast<size_t>(k)] / total * kWeightOne + 0.5);
            sum += w[k];
            if (w[k] > w[largest]) {
                largest = k;
            }
        }
        // Whole coverage must sum exactly to one, or flat areas would drift by a level.
        if (std::abs(kept - total) < 1e-9) {
            w[largest] += kWeightOne - sum;
        }
    }
    return taps;
}

// Source rows through the horizontal taps, as 16-bit values with 7 fractional bits. Two
// taps at a time: the pair's pixels interleaved channel by channel meet their two weights
// in one multiply-add.
void horizontalPass(const uint8_t* source, const AxisTaps& taps, int16_t* out) {
    const int width = static_cast<int>(taps.first.size());
    const int maxCount = taps.maxCount;
    const __m128i zero = _mm_setzero_si128();
    const __m128i round = _mm_set1_epi32(1 << (kWeightBits - 7 - 1));
    if (maxCount <= 2) {
        // Bilinear: at most one pair a pixel, read as one eight-byte load.
        for (int x = 0; x < width; ++x) {
            const int32_t* w = taps.weights.data() + static_cast<ptrdiff_t>(x) * 2;
            const uint8_t* p = source + 4 * taps.first[static_cast<size_t>(x)];
            const int n = taps.count[static_cast<size_t>(x)];
            __m128i pixels;
            if (n == 2) {
                pixels = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
            } else {
                int32_t one = 0;
                if (n == 1) {
                    std::memcpy(&one, p, 4);
                }
                pixels = _mm_cvtsi32_si128(one);
            }
            const __m128i wide = _mm_unpacklo_epi8(pixels, zero);
            const __m128i interleaved = _mm_unpacklo_epi16(wide, _mm_srli_si128(wide, 8));
            const __m128i weights = _mm_set1_epi32((w[1] << 16) | (w[0] & 0xFFFF));
            const __m128i sum = _mm_add_epi32(round, _mm_madd_epi16(interleaved, weights));
            const __m128i scaled = _mm_srai_epi32(sum, kWeightBits - 7);
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 4 * x),
                             _mm_packs_epi32(scaled, scaled));
        }
        return;
    }
    for (int x = 0; x < width; ++x) {
        const int n = taps.count[static_cast<size_t>(x)];
        const int32_t* w = taps.weights.data() + static_cast<ptrdiff_t>(x) * maxCount;
        const uint8_t* p = source + 4 * taps.first[static_cast<size_t>(x)];
        __m128i sum = round;
        int k = 0;
        for (; k + 2 <= n; k += 2, p += 8) {
            const __m128i wide =
                _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)), zero);
            const __m128i interleaved = _mm_unpacklo_epi16(wide, _mm_srli_si128(wide, 8));
            const __m128i weights = _mm_set1_epi32((w[k + 1] << 16) | (w[k] & 0xFFFF));
            sum = _mm_add_epi32(sum, _mm_madd_epi16(interleaved, weights));
        }
        if (k < n) {
            int32_t last;
            std::memcpy(&last, p, 4);
            const __m128i wide = _mm_unpacklo_epi8(_mm_cvtsi32_si128(last), zero);
            const __m128i interleaved = _mm_unpacklo_epi16(wide, zero);
            const __m128i weights = _mm_set1_epi32(w[k] & 0xFFFF);
            sum = _mm_add_epi32(sum, _mm_madd_epi16(interleaved, weights));
        }
        const __m128i scaled = _mm_srai_epi32(sum, kWeightBits - 7);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 4 * x), _mm_packs_epi32(scaled, scaled));
    }
}

// One destination row from its source rows (16-bit, 7 fractional bits) and their weights.
void verticalPass(const int16_t* const* rows, const int32_t* w, int n, size_t values,
                  uint8_t* out) {
    const __m128i round = _mm_set1_epi32(1 << (kWeightBits + 7 - 1));
    // Eight values at a time; rows are taken in pairs, interleaved, against paired weights.
    // A last odd row pairs with nothing at weight 0.
    size_t i = 0;
    if (n == 2) {
        const __m128i weights = _mm_set1_epi32((w[1] << 16) | (w[0] & 0xFFFF));
        for (; i + 8 <= values; i += 8) {
            const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[0] + i));
            const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[1] + i));
            const __m128i low =
                _mm_add_epi32(round, _mm_madd_epi16(_mm_unpacklo_epi16(a, b), weights));
            const __m128i high =
                _mm_add_epi32(round, _mm_madd_epi16(_mm_unpackhi_epi16(a, b), weights));
            const __m128i packed = _mm_packs_epi32(_mm_srai_epi32(low, kWeightBits + 7),
                                                   _mm_srai_epi32(high, kWeightBits + 7));
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi16(packed, packed));
        }
    }
    for (; i + 8 <= values; i += 8) {
        __m128i low = round;
        __m128i high = round;
        for (int k = 0; k < n; k += 2) {
            const bool single = k + 1 >= n;
            const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[k] + i));
            const __m128i b =
                single ? _mm_setzero_si128()
                       : _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[k + 1] + i));
            const __m128i weights =
                _mm_set1_epi32(((single ? 0 : w[k + 1]) << 16) | (w[k] & 0xFFFF));
            low = _mm_add_epi32(low, _mm_madd_epi16(_mm_unpacklo_epi16(a, b), weights));
            high = _mm_add_epi32(high, _mm_madd_epi16(_mm_unpackhi_epi16(a, b), weights));
        }
        const __m128i packed = _mm_packs_epi32(_mm_srai_epi32(low, kWeightBits + 7),
                                               _mm_srai_epi32(high, kWeightBits + 7));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi16(packed, packed));
    }
    for (; i < values; ++i) {
        int32_t sum = 1 << (kWeightBits + 7 - 1);
        for (int k = 0; k < n; ++k) {
            sum += w[k] * rows[k][i];
        }
        out[i] = static_cast<uint8_t>(std::clamp(sum >> (kWeightBits + 7), 0, 255));
    }
}

// The taps of the columns are the same for every band of a frame; the last few are kept.
const AxisTaps& columnTaps(int regionX, int width, const PixelAffine& t, const PlacedSource& source,
                           bool clampEdges) {
    struct Entry {
        int regionX = 0, width = 0, sourceCount = 0;
        double scale = 0, offset = 0, origin = 0, pixelSize = 0;
        bool clampEdges = false;
        AxisTaps taps;
        bool sameAs(const Entry& o) const {
            return regionX == o.regionX && width == o.width && sourceCount == o.sourceCount &&
                   scale == o.scale && offset == o.offset && origin == o.origin &&
                   pixelSize == o.pixelSize && clampEdges == o.clampEdges;
        }
    };
    // A frame samples several pictures (wallpaper, screen, pointer, camera) in each band.
    constexpr size_t kKept = 8;
    thread_local std::array<Entry, kKept> kept;
    thread_local size_t next = 0;
    Entry wanted{regionX,    width, source.pixels.cols, t.a, t.tx, source.originX, source.pixelSize,
                 clampEdges, {}};
    for (Entry& entry : kept) {
        if (!entry.taps.first.empty() && entry.sameAs(wanted)) {
            return entry.taps;
        }
    }
    wanted.taps = axisTaps(regionX, width, t.a, t.tx, source.originX, source.pixelSize,
                           source.pixels.cols, clampEdges);
    Entry& slot = kept[next];
    next = (next + 1) % kKept;
    slot = std::move(wanted);
    return slot.taps;
}

void resampleSeparable(const PlacedSource& source, const PixelAffine& t, bool clampEdges,
                       int regionX, int regionY, cv::Mat& destination) {
    const int width = destination.cols;
    const int height = destination.rows;
    const AxisTaps& xTaps = columnTaps(regionX, width, t, source, clampEdges);
    const AxisTaps yTaps = axisTaps(regionY, height, t.d, t.ty, source.originY, source.pixelSize,
                                    source.pixels.rows, clampEdges);
    if (yTaps.lowest() > yTaps.highest() || xTaps.lowest() > xTaps.highest()) {
        destination.setTo(cv::Scalar::all(0));
        return;
    }
    // Source rows pass through the horizontal taps once each, into a ring just deep enough
    // for one destination row's taps, so that the work stays in the cache.
    const size_t rowValues = static_cast<size_t>(width) * 4;
    const int ringSize = yTaps.maxCount + 1;
    thread_local std::vector<int16_t> ring;
    thread_local std::vector<int> ringRow;
    ring.resize(rowValues * static_cast<size_t>(ringSize));
    ringRow.assign(static_cast<size_t>(ringSize), INT32_MIN);
    const auto sourceRow = [&](int r) {
        const auto slot = static_cast<size_t>(((r % ringSize) + ringSize) % ringSize);
        int16_t* row = ring.data() + rowValues * slot;
        if (ringRow[slot] != r) {
            horizontalPass(source.pixels.ptr<uint8_t>(r), xTaps, row);
            ringRow[slot] = r;
        }
        return row;
    };
    thread_local std::vector<int> emptyColumns;
    emptyColumns.clear();
    for (int x = 0; x < width; ++x) {
        if (xTaps.count[static_cast<size_t>(x)] == 0) {
            emptyColumns.push_back(x);
        }
    }
    thread_local std::vector<const int16_t*> rows;
    rows.resize(static_cast<size_t>(yTaps.maxCount));
    for (int y = 0; y < height; ++y) {
        uint8_t* out = destination.ptr<uint8_t>(y);
        const int n = yTaps.count[static_cast<size_t>(y)];
        if (n == 0) {
            std::fill(out, out + rowValues, uint8_t{0});
            continue;
        }
        const int first = yTaps.first[static_cast<size_t>(y)];
        for (int k = 0; k < n; ++k) {
            rows[static_cast<size_t>(k)] = sourceRow(first + k);
        }
        verticalPass(rows.data(), yTaps.weights.data() + static_cast<ptrdiff_t>(y) * yTaps.maxCount,
                     n, rowValues, out);
        // Columns with no source pixel were summed from nothing; make them transparent.
        for (const int x : emptyColumns) {
            std::fill(out + 4 * x, out + 4 * x + 4, uint8_t{0});
        }
    }
}

} // namespace

void resample(const PlacedSource& source, const PixelAffine& transform, bool clampEdges,
              int regionX, int regionY, cv::Mat& destination) {
    if (source.pixels.empty()) {
        destination.setTo(cv::Scalar::all(0));
        return;
    }
    if (transform.isAxisAligned() && transform.a != 0 && transform.d != 0) {
        resampleSeparable(source, transform, clampEdges, regionX, regionY, destination);
        return;
    }
    const PixelAffine inverse = transform.inverted();
    const cv::Matx33d map(inverse.a, inverse.c, inverse.tx, inverse.b, inverse.d, inverse.ty, 0, 0,
                          1);
    resampleProjective(source, map, clampEdges, regionX, regionY, destination);
}

void resampleProjective(const PlacedSource& source, const cv::Matx33d& toSource, bool clampEdges,
                        int regionX, int regionY, cv::Mat& destination) {
    // Each pixel's source point is computed from its absolute position, never accumulated
    // along the row, so that any split of a region into pieces gives the same pixels.
    const cv::Mat& pixels = source.pixels;
    const int sourceWidth = pixels.cols;
    const int sourceHeight = pixels.rows;
    const double scale = 1 / source.pixelSize;
    const auto fetch = [&](int x, int y, int c) -> int {
        if (clampEdges) {
            x = std::clamp(x, 0, sourceWidth - 1);
            y = std::clamp(y, 0, sourceHeight - 1);
        } else if (x < 0 || y < 0 || x >= sourceWidth || y >= sourceHeight) {
            return 0;
        }
        return pixels.ptr<uint8_t>(y)[4 * x + c];
    };
    const __m128i zero = _mm_setzero_si128();
    thread_local std::vector<double> us;
    thread_local std::vector<double> vs;
    thread_local std::vector<double> ws;
    us.resize(static_cast<size_t>(destination.cols));
    vs.resize(static_cast<size_t>(destination.cols));
    ws.resize(static_cast<size_t>(destination.cols));
    for (int j = 0; j < destination.rows; ++j) {
        uint8_t* out = destination.ptr<uint8_t>(j);
        const double y = regionY + j + 0.5;
        // The row's source points first, in a loop the compiler can vectorise.
        for (int i = 0; i < destination.cols; ++i) {
            const double x = regionX + i + 0.5;
            const double w = toSource(2, 0) * x + toSource(2, 1) * y + toSource(2, 2);
            const double u = (toSource(0, 0) * x + toSource(0, 1) * y + toSource(0, 2)) / w;
            const double v = (toSource(1, 0) * x + toSource(1, 1) * y + toSource(1, 2)) / w;
            ws[static_cast<size_t>(i)] = w;
            us[static_cast<size_t>(i)] = (u - source.originX) * scale - 0.5;
            vs[static_cast<size_t>(i)] = (v - source.originY) * scale - 0.5;
        }
        for (int i = 0; i < destination.cols; ++i, out += 4) {
            const double w = ws[static_cast<size_t>(i)];
            const double su = us[static_cast<size_t>(i)];
            const double sv = vs[static_cast<size_t>(i)];
            if (!(w > 0) || !(su > -2) || !(sv > -2) || !(su < sourceWidth + 1) ||
                !(sv < sourceHeight + 1)) {
                if (!clampEdges || !(w > 0)) {
                    std::fill(out, out + 4, uint8_t{0});
                    continue;
                }
            }
            const double fu = std::floor(su);
            const double fv = std::floor(sv);
            const int x0 = static_cast<int>(std::clamp(fu, -4.0, sourceWidth + 4.0));
            const int y0 = static_cast<int>(std::clamp(fv, -4.0, sourceHeight + 4.0));
            const int ax = static_cast<int>((su - fu) * 256 + 0.5);
            const int ay = static_cast<int>((sv - fv) * 256 + 0.5);
            const bool inside = x0 >= 0 && y0 >= 0 && x0 + 1 < sourceWidth && y0 + 1 < sourceHeight;
            if (inside) {
                // Both rows' pixel pairs interleaved against (256 - ax, ax), then the rows
                // against (256 - ay, ay).
                const uint8_t* p0 = pixels.ptr<uint8_t>(y0) + 4 * x0;
                const uint8_t* p1 = pixels.ptr<uint8_t>(y0 + 1) + 4 * x0;
                const __m128i across = _mm_set1_epi32((ax << 16) | (256 - ax));
                const __m128i top16 =
                    _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p0)), zero);
                const __m128i bottom16 =
                    _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p1)), zero);
                const __m128i top =
                    _mm_madd_epi16(_mm_unpacklo_epi16(top16, _mm_srli_si128(top16, 8)), across);
                const __m128i bottom = _mm_madd_epi16(
                    _mm_unpacklo_epi16(bottom16, _mm_srli_si128(bottom16, 8)), across);
                // Halved to fit 16 bits, then the rows meet their weights in one multiply-add.
                const __m128i one = _mm_set1_epi32(1);
                const __m128i rows16 =
                    _mm_packs_epi32(_mm_srai_epi32(_mm_add_epi32(top, one), 1),
                                    _mm_srai_epi32(_mm_add_epi32(bottom, one), 1));
                const __m128i down = _mm_set1_epi32((ay << 16) | (256 - ay));
                const __m128i sum = _mm_srai_epi32(
                    _mm_add_epi32(
                        _mm_madd_epi16(_mm_unpacklo_epi16(rows16, _mm_srli_si128(rows16, 8)), down),
                        _mm_set1_epi32(1 << 14)),
                    15);
                const __m128i packed = _mm_packs_epi32(sum, sum);
                const int32_t pixel = _mm_cvtsi128_si32(_mm_packus_epi16(packed, packed));
                std::memcpy(out, &pixel, 4);
                continue;
            }
            for (int c = 0; c < 4; ++c) {
                const int top = fetch(x0, y0, c) * (256 - ax) + fetch(x0 + 1, y0, c) * ax;
                const int bottom =
                    fetch(x0, y0 + 1, c) * (256 - ax) + fetch(x0 + 1, y0 + 1, c) * ax;
                out[c] = static_cast<uint8_t>((top * (256 - ay) + bottom * ay + (1 << 15)) >> 16);
            }
        }
    }
}

} // namespace orvelle::detail
