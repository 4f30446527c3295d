#pragma once

// One decoded or to-be-encoded picture in memory. A frame owns its pixels; readers and
// writers reuse a frame's storage when it is handed back to them with the same size.

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvelle {

enum class PixelLayout {
    bgra,    // one plane, 4 bytes a pixel, B G R A; opaque video has A = 255
    yuv420p, // three planes Y, U, V, 8 bits, chroma halved in both directions (BT.709 for
             // HD sizes, BT.601 below 720 lines, limited range)
};

struct VideoFrame {
    PixelLayout layout = PixelLayout::bgra;
    int width = 0;
    int height = 0;
    double presentationTime = 0; // seconds on the file's clock, 0 at its first frame
    double duration = 0;         // seconds this picture stays on screen (best estimate)
    std::array<std::vector<uint8_t>, 3> planes;
    std::array<int, 3> strides{}; // bytes a row, per plane

    int planeCount() const { return layout == PixelLayout::bgra ? 1 : 3; }
    int planeHeight(int plane) const { return plane == 0 ? height : (height + 1) / 2; }
    int planeWidthBytes(int plane) const {
        if (layout == PixelLayout::bgra) {
            return width * 4;
        }
        return plane == 0 ? width : (width + 1) / 2;
    }
    uint8_t* row(int plane, int y) {
        return planes[static_cast<size_t>(plane)].data() +
               static_cast<ptrdiff_t>(y) * strides[static_cast<size_t>(plane)];
    }
    const uint8_t* row(int plane, int y) const {
        return planes[static_cast<size_t>(plane)].data() +
               static_cast<ptrdiff_t>(y) * strides[static_cast<size_t>(plane)];
    }

    // Sizes the planes for this layout and size with tightly aligned rows (32 bytes),
    // keeping the storage when it is already large enough.
    void allocate(PixelLayout newLayout, int newWidth, int newHeight) {
        layout = newLayout;
        width = newWidth;
        height = newHeight;
        for (int plane = 0; plane < 3; ++plane) {
            auto& storage = planes[static_cast<size_t>(plane)];
            if (plane >= planeCount()) {
                strides[static_cast<size_t>(plane)] = 0;
                storage.clear();
                continue;
            }
            const int stride = (planeWidthBytes(plane) + 31) / 32 * 32;
            strides[static_cast<size_t>(plane)] = stride;
            // A little slack past the last row: SIMD converters may read a few bytes over.
            storage.resize(static_cast<size_t>(stride) * static_cast<size_t>(planeHeight(plane)) +
                           64);
        }
    }
};

} // namespace orvelle
