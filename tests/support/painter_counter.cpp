#include "support/painter_counter.h"

#include "platform/media/video_decoder.h"
#include "x11_painter/painter_layout.h"

#include <cstdlib>

namespace orvelle::testing {

std::optional<int> readPainterCounter(const VideoFrame& frame, int x, int y) {
    int value = 0;
    for (int bit = 0; bit < painter::kCounterBits; ++bit) {
        const int cx = x + bit * painter::kBlock + painter::kBlock / 2;
        const int cy = y + painter::kBlock / 2;
        if (cx < 0 || cy < 0 || cx >= frame.width || cy >= frame.height) {
            return std::nullopt;
        }
        // The mean of the block's middle, away from compression's ringing at its edges.
        int sum = 0;
        int count = 0;
        for (int dy = -4; dy <= 4; ++dy) {
            const uint8_t* row = frame.row(0, cy + dy);
            for (int dx = -4; dx <= 4; ++dx) {
                const uint8_t* pixel = row + static_cast<ptrdiff_t>(cx + dx) * 4;
                sum += (pixel[0] + pixel[1] + pixel[2]) / 3;
                ++count;
            }
        }
        const int mean = sum / count;
        if (mean > 170) {
            value |= 1 << bit;
        } else if (mean > 80) {
            return std::nullopt;
        }
    }
    return value;
}

std::vector<RecordedCounter> readPainterCounters(const std::filesystem::path& movie, int x, int y) {
    VideoDecoder decoder(movie);
    VideoFrame frame;
    std::vector<RecordedCounter> counters;
    while (decoder.nextFrame(frame)) {
        counters.push_back({frame.presentationTime, readPainterCounter(frame, x, y)});
    }
    return counters;
}

bool isPainterBackground(const VideoFrame& frame, int x, int y, int width, int height,
                         int tolerance) {
    for (int row = std::max(0, y); row < std::min(frame.height, y + height); ++row) {
        const uint8_t* line = frame.row(0, row);
        for (int col = std::max(0, x); col < std::min(frame.width, x + width); ++col) {
            const uint8_t* pixel = line + static_cast<ptrdiff_t>(col) * 4;
            if (std::abs(pixel[0] - painter::kBackgroundBlue) > tolerance ||
                std::abs(pixel[1] - painter::kBackgroundGreen) > tolerance ||
                std::abs(pixel[2] - painter::kBackgroundRed) > tolerance) {
                return false;
            }
        }
    }
    return true;
}

} // namespace orvelle::testing
