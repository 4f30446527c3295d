#pragma once

// Reading rendered pixels at stage points (origin bottom left) in the image tests.

#include "platform/image/image.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <string>

namespace orvelle::testing {

// Premultiplied B, G, R, A at the pixel whose lower-left corner is (x, y) of a bitmap
// rendered over `region`.
inline std::array<int, 4> pixelAt(const Bitmap& bitmap, const ImageRect& region, double x,
                                  double y) {
    const int column = static_cast<int>(std::floor(x - region.x));
    const int row = bitmap.height() - 1 - static_cast<int>(std::floor(y - region.y));
    const auto p = bitmap.pixel(column, row);
    return {p[0], p[1], p[2], p[3]};
}

inline std::string describe(const std::array<int, 4>& p) {
    return "(" + std::to_string(p[0]) + ", " + std::to_string(p[1]) + ", " + std::to_string(p[2]) +
           ", " + std::to_string(p[3]) + ")";
}

inline ::testing::AssertionResult near(const std::array<int, 4>& actual,
                                       const std::array<int, 4>& expected, int tolerance) {
    for (size_t i = 0; i < 4; ++i) {
        if (std::abs(actual[i] - expected[i]) > tolerance) {
            return ::testing::AssertionFailure()
                   << "pixel " << describe(actual) << " is not within " << tolerance << " of "
                   << describe(expected);
        }
    }
    return ::testing::AssertionSuccess();
}

// The largest difference of any channel of two bitmaps of one size.
inline int largestDifference(const Bitmap& a, const Bitmap& b) {
    int largest = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            const auto p = a.pixel(x, y);
            const auto q = b.pixel(x, y);
            for (size_t c = 0; c < 4; ++c) {
                largest = std::max(largest, std::abs(int(p[c]) - int(q[c])));
            }
        }
    }
    return largest;
}

} // namespace orvelle::testing
