#include "recording/capture_backend.h"

namespace orvelle {

StreamPointerSource::StreamPointerSource(CaptureStream& stream, const CaptureRect& captureFrame,
                                         int streamWidth, int streamHeight)
    : stream_(stream), frame_(captureFrame), width_(streamWidth), height_(streamHeight) {}

GlobalPointerLocation StreamPointerSource::location() {
    const auto position = stream_.pointerPosition();
    if (!position || !position->visible || width_ <= 0 || height_ <= 0) {
        // Outside the frame: the recorder keeps the pointer at the edge, not visible.
        return {frame_.x - 1, frame_.y - 1};
    }
    // The stream's pixels run from the top left; the frame's y grows upwards.
    return {frame_.x + position->x / width_ * frame_.width,
            frame_.y + frame_.height - position->y / height_ * frame_.height};
}

} // namespace orvelle
