#include "platform/image/detail/resample.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace orvelle::detail {

PixelAffine PixelAffine::then(const PixelAffine& n) const {
    return {a * n.a + b * n.c, a * n.b + b * n.d,          c * n.a + d * n.c,
            c * n.b + d * n.d, tx * n.a + ty * n.c + n.tx, tx * n.b + ty * n.d + n.ty};
}

PixelAffine PixelAffine::inverted() const {
    const double det = a * d - b * c;
    if (det == 0 || !std::isfinite(det)) {
        return {};
    }
    const double ia = d / det;
    const double ib = -b / det;
    const double ic = -c / det;
    const double id = a / det;
    return {ia, ib, ic, id, -(tx * ia + ty * ic), -(tx * ib + ty * id)};
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
    const double support = std::max(1.0, 1.0 / scaleInSourcePixels);
    taps.maxCount = static_cast<int>(std::ceil(2 * support)) + 1;
    taps.first.resize(static_cast<size_t>(destinationCount));
    taps.count.resize(static_cast<size_t>(destinationCount));
    taps.weights.assign(static_cast<size_t>(destinationCount * taps.maxCount), 0);
    std::vector<double> raw(static_cast<size_t>(taps.maxCount) + 2);
    for (int i = 0; i < destinationCount; ++i) {
        const double centre = destinationStart + i + 0.5;
        const double u = ((centre - offset) / scale - origin) / pixelSize - 0.5;
        const int low = static_cast<int>(std::floor(u - support)) + 1;
        const int high = static_cast<int>(std::ceil(u + support)) - 1;
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
        std::vector<double> folded(static_cast<size_t>(count), 0.0);
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
            w[k] = static_cast<int32_t>(
                std::lround(folded[static_cast<size_t>(k)] / total * kWeightOne));
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

// Source rows through the horizontal taps, as 16-bit values with 7 fractional bits.
void horizontalPass(const uint8_t* source, const AxisTaps& taps, int16_t* out) {
    const int width = static_cast<int>(taps.first.size());
    const int maxCount = taps.maxCount;
    for (int x = 0; x < width; ++x) {
        const int n = taps.count[static_cast<size_t>(x)];
        const int32_t* w = taps.weights.data() + static_cast<ptrdiff_t>(x) * maxCount;
        const uint8_t* p = source + 4 * taps.first[static_cast<size_t>(x)];
        int32_t b = 0;
        int32_t g = 0;
        int32_t r = 0;
        int32_t a = 0;
        for (int k = 0; k < n; ++k, p += 4) {
            b += w[k] * p[0];
            g += w[k] * p[1];
            r += w[k] * p[2];
            a += w[k] * p[3];
        }
        constexpr int shift = kWeightBits - 7;
        constexpr int half = 1 << (shift - 1);
        out[4 * x + 0] = static_cast<int16_t>((b + half) >> shift);
        out[4 * x + 1] = static_cast<int16_t>((g + half) >> shift);
        out[4 * x + 2] = static_cast<int16_t>((r + half) >> shift);
        out[4 * x + 3] = static_cast<int16_t>((a + half) >> shift);
    }
}

void resampleSeparable(const PlacedSource& source, const PixelAffine& t, bool clampEdges,
                       int regionX, int regionY, cv::Mat& destination) {
    const int width = destination.cols;
    const int height = destination.rows;
    const AxisTaps xTaps = axisTaps(regionX, width, t.a, t.tx, source.originX, source.pixelSize,
                                    source.pixels.cols, clampEdges);
    const AxisTaps yTaps = axisTaps(regionY, height, t.d, t.ty, source.originY, source.pixelSize,
                                    source.pixels.rows, clampEdges);
    const int rowLow = yTaps.lowest();
    const int rowHigh = yTaps.highest();
    if (rowLow > rowHigh || xTaps.lowest() > xTaps.highest()) {
        destination.setTo(cv::Scalar::all(0));
        return;
    }
    const size_t rowValues = static_cast<size_t>(width) * 4;
    thread_local std::vector<int16_t> rows;
    rows.resize(rowValues * static_cast<size_t>(rowHigh - rowLow + 1));
    for (int r = rowLow; r <= rowHigh; ++r) {
        horizontalPass(source.pixels.ptr<uint8_t>(r), xTaps,
                       rows.data() + rowValues * static_cast<size_t>(r - rowLow));
    }
    thread_local std::vector<int32_t> sums;
    sums.resize(rowValues);
    for (int y = 0; y < height; ++y) {
        uint8_t* out = destination.ptr<uint8_t>(y);
        const int n = yTaps.count[static_cast<size_t>(y)];
        if (n == 0) {
            std::fill(out, out + rowValues, uint8_t{0});
            continue;
        }
        const int32_t* w = yTaps.weights.data() + static_cast<ptrdiff_t>(y) * yTaps.maxCount;
        const int first = yTaps.first[static_cast<size_t>(y)];
        int32_t* s = sums.data();
        {
            const int16_t* row = rows.data() + rowValues * static_cast<size_t>(first - rowLow);
            const int32_t weight = w[0];
            for (size_t i = 0; i < rowValues; ++i) {
                s[i] = weight * row[i];
            }
        }
        for (int k = 1; k < n; ++k) {
            const int16_t* row = rows.data() + rowValues * static_cast<size_t>(first + k - rowLow);
            const int32_t weight = w[k];
            for (size_t i = 0; i < rowValues; ++i) {
                s[i] += weight * row[i];
            }
        }
        constexpr int shift = kWeightBits + 7;
        constexpr int32_t half = 1 << (shift - 1);
        for (size_t i = 0; i < rowValues; ++i) {
            out[i] = static_cast<uint8_t>(std::clamp((s[i] + half) >> shift, 0, 255));
        }
        // Columns with no source pixel were summed from nothing; make them transparent.
        for (int x = 0; x < width; ++x) {
            if (xTaps.count[static_cast<size_t>(x)] == 0) {
                std::fill(out + 4 * x, out + 4 * x + 4, uint8_t{0});
            }
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
    for (int j = 0; j < destination.rows; ++j) {
        uint8_t* out = destination.ptr<uint8_t>(j);
        const double y = regionY + j + 0.5;
        for (int i = 0; i < destination.cols; ++i, out += 4) {
            const double x = regionX + i + 0.5;
            const double w = toSource(2, 0) * x + toSource(2, 1) * y + toSource(2, 2);
            const double u = (toSource(0, 0) * x + toSource(0, 1) * y + toSource(0, 2)) / w;
            const double v = (toSource(1, 0) * x + toSource(1, 1) * y + toSource(1, 2)) / w;
            const double su = (u - source.originX) * scale - 0.5;
            const double sv = (v - source.originY) * scale - 0.5;
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
            const int ax = static_cast<int>(std::lround((su - fu) * 256));
            const int ay = static_cast<int>(std::lround((sv - fv) * 256));
            const bool inside = x0 >= 0 && y0 >= 0 && x0 + 1 < sourceWidth && y0 + 1 < sourceHeight;
            if (inside) {
                const uint8_t* p0 = pixels.ptr<uint8_t>(y0) + 4 * x0;
                const uint8_t* p1 = pixels.ptr<uint8_t>(y0 + 1) + 4 * x0;
                for (int c = 0; c < 4; ++c) {
                    const int top = p0[c] * (256 - ax) + p0[c + 4] * ax;
                    const int bottom = p1[c] * (256 - ax) + p1[c + 4] * ax;
                    out[c] =
                        static_cast<uint8_t>((top * (256 - ay) + bottom * ay + (1 << 15)) >> 16);
                }
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
