#pragma once

// BGRA pictures into yuv420p with the BT.709 matrix in limited range, as the movie writer
// hands them to H.264 encoders of HD movies: fixed-point arithmetic, two rows at a time with
// each chroma sample the mean of a 2x2 block, split into bands over the runner's threads.
// Alpha is ignored. Odd sizes repeat the last column and row into the last chroma sample.

#include "platform/media/detail/band_runner.h"

#include <array>
#include <cstdint>

namespace orvelle::detail {

struct Yuv420pPlanes {
    std::array<uint8_t*, 3> planes{}; // Y, U, V
    std::array<int, 3> strides{};     // bytes a row, per plane
};

// On processors with AVX2 the rows go through hand-vectorised kernels that give the same
// bytes; `vectorKernels` false keeps to the portable ones (for comparing the two).
void bgraToYuv420pBt709(const uint8_t* bgra, int stride, int width, int height,
                        const Yuv420pPlanes& output, BandRunner& bands, bool vectorKernels = true);

} // namespace orvelle::detail
