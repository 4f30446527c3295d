#pragma once

// The per-pixel loops of the image operations, on premultiplied BGRA8 buffers of equal
// size (CV_8UC4). Results are rounded, never truncated.

#include <opencv2/core.hpp>

#include <array>
#include <cstdint>

namespace orvelle::detail {

using Bgra = std::array<uint8_t, 4>;

// Premultiplied BGRA8 of a straight colour.
Bgra premultipliedBgra(double red, double green, double blue, double alpha);

void fill(cv::Mat& destination, Bgra color);
// destination = source + destination * (1 - source alpha)
void blendOver(cv::Mat& destination, const cv::Mat& source);
// destination = destination + background * (1 - destination alpha)
void blendUnder(cv::Mat& destination, const cv::Mat& background);
// destination = destination * m + background * (1 - m), m the mask's green channel
void blendWithMask(cv::Mat& destination, const cv::Mat& background, const cv::Mat& mask);
// destination = destination * (1 - background alpha)
void sourceOut(cv::Mat& destination, const cv::Mat& background);
// destination = destination * other, channel by channel
void multiply(cv::Mat& destination, const cv::Mat& other);
// Every channel of a run of pixels times coverage / 256 (0...256).
void scaleRow(uint8_t* pixels, int count, int coverage);
// A matrix with straight-colour semantics: unpremultiply, apply, clamp, premultiply.
struct ColorMatrixCoefficients {
    std::array<std::array<float, 5>, 4> rows; // output r, g, b, a from r, g, b, a, 1
};
void colorMatrix(cv::Mat& destination, const ColorMatrixCoefficients& matrix);

} // namespace orvelle::detail
