#pragma once

// Reading back what orvelle-x11-painter drew: its tick counter in a recorded picture.

#include "platform/media/video_frame.h"

#include <filesystem>
#include <optional>
#include <vector>

namespace orvelle::testing {

// The counter whose blocks start at (x, y) in a BGRA frame (the window's top left plus
// the painter's margin); absent when a block is neither clearly black nor clearly white.
std::optional<int> readPainterCounter(const VideoFrame& frame, int x, int y);

struct RecordedCounter {
    double time = 0;            // the frame's presentation time
    std::optional<int> counter; // absent where unreadable
};

// Every frame of a movie's video, decoded to BGRA, with its counter at (x, y).
std::vector<RecordedCounter> readPainterCounters(const std::filesystem::path& movie, int x, int y);

// True when every pixel of the rectangle is within `tolerance` of the painter's background.
bool isPainterBackground(const VideoFrame& frame, int x, int y, int width, int height,
                         int tolerance = 24);

} // namespace orvelle::testing
