#include "recording/source_preview_frame_grabber.h"

#include "core/error.h"
#include "recording/screen_stream_output.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace orvelle {

PreviewStill SourcePreviewFrameGrabber::squareCropped(const CapturedVideoFrame& frame) {
    const int side = std::min(frame.width, frame.height);
    const int left = (frame.width - side) / 2;
    const int top = (frame.height - side) / 2;
    PreviewStill still{side, side, std::vector<uint8_t>(static_cast<size_t>(side) * side * 4)};
    for (int row = 0; row < side; ++row) {
        std::memcpy(still.pixels.data() + static_cast<size_t>(row) * side * 4,
                    frame.pixels + static_cast<size_t>(top + row) * frame.stride +
                        static_cast<size_t>(left) * 4,
                    static_cast<size_t>(side) * 4);
    }
    return still;
}

bool SourcePreviewFrameGrabber::isMostlyBlack(const PreviewStill& still) {
    uint64_t sums[3] = {0, 0, 0};
    const size_t pixels = still.pixels.size() / 4;
    if (pixels == 0) {
        return true;
    }
    for (size_t index = 0; index < pixels; ++index) {
        for (int channel = 0; channel < 3; ++channel) {
            sums[channel] += still.pixels[index * 4 + static_cast<size_t>(channel)];
        }
    }
    return std::all_of(std::begin(sums), std::end(sums),
                       [pixels](uint64_t sum) { return sum / pixels < 8; });
}

void SourcePreviewFrameGrabber::streamDidOutputVideoFrame(CapturedVideoFrameRef frame) {
    std::lock_guard lock(mutex_);
    if (finished_ || frame->pixels == nullptr || frame->width <= 0 || frame->height <= 0 ||
        !shouldWrite(frame->status)) {
        return;
    }
    PreviewStill still = squareCropped(*frame);
    ++frameCount_;
    if (!isMostlyBlack(still)) {
        result_ = std::move(still);
        finished_ = true;
    } else {
        if (!blackCandidate_) {
            blackCandidate_ = std::move(still);
        }
        if (frameCount_ >= kFramesTriedPastBlack) {
            result_ = std::move(blackCandidate_);
            finished_ = true;
        }
    }
    if (finished_) {
        done_.notify_all();
    }
}

void SourcePreviewFrameGrabber::streamDidStop(const std::string& errorMessage) {
    std::lock_guard lock(mutex_);
    if (!finished_) {
        streamError_ = errorMessage;
        finished_ = true;
        done_.notify_all();
    }
}

std::optional<PreviewStill>
SourcePreviewFrameGrabber::waitForStill(std::chrono::nanoseconds timeout) {
    std::unique_lock lock(mutex_);
    if (!done_.wait_for(lock, timeout, [&] { return finished_; })) {
        result_ = std::move(blackCandidate_);
        finished_ = true;
    }
    if (streamError_) {
        throw Error(*streamError_);
    }
    return std::exchange(result_, std::nullopt);
}

std::optional<PreviewStill> SourcePreviewFrameGrabber::capture(
    const std::function<std::unique_ptr<CaptureStream>(CaptureStreamOutput&)>& makeStream,
    std::chrono::nanoseconds timeout) {
    SourcePreviewFrameGrabber grabber;
    auto stream = makeStream(grabber);
    stream->start();
    std::optional<PreviewStill> still;
    try {
        still = grabber.waitForStill(timeout);
    } catch (...) {
        stream->stop();
        throw;
    }
    stream->stop();
    return still;
}

std::optional<PreviewStill> captureSourcePreview(CaptureBackend& backend,
                                                 const RecorderSourceSelection& selection) {
    const auto [width, height] = ScreenCaptureGeometry::captureDimensions(
        selection.filter, selection.mode, selection.sourceRect);
    CaptureStreamConfiguration configuration;
    configuration.width = width;
    configuration.height = height;
    configuration.frameRate = 10;
    configuration.queueDepth = 1;
    return SourcePreviewFrameGrabber::capture(
        [&](CaptureStreamOutput& output) {
            return backend.makeStream(selection.filter, selection.sourceRect, configuration,
                                      output);
        },
        std::chrono::seconds(2));
}

} // namespace orvelle
