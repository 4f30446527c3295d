#pragma once

// Draws the sample take's screen: a desktop with a code editor, a browser and a terminal,
// as the script has them at each instant. The pointer is not drawn: a take's screen movie
// never holds it (it is drawn at export from the pointer file). Frames are made in time
// order, and each one only redraws what changed since the one before. One thread.

#include "platform/media/video_frame.h"
#include "sample_take/sample_script.h"

#include <cstdint>
#include <memory>

namespace orvelle::SampleTake {

class DesktopPainter {
public:
    // The picture's size in pixels; the 1920x1080 design is scaled to its width.
    DesktopPainter(const SampleScript& script, int width, int height);
    ~DesktopPainter();
    DesktopPainter(const DesktopPainter&) = delete;
    DesktopPainter& operator=(const DesktopPainter&) = delete;

    // Brings the picture to the script's state at `time`, which never goes back.
    void advance(double time);

    // The picture: BGRA rows from the top, opaque.
    const std::uint8_t* pixels() const;
    int stride() const;
    int width() const;
    int height() const;
    // The same picture as an encoder takes it (yuv420p). Only the parts that changed are
    // converted again, which is most of the time it takes to make a frame.
    const VideoFrame& videoFrame() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace orvelle::SampleTake
