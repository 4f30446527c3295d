#pragma once

// The still a source picker shows: a short stream of the source is run until it gives a
// usable picture, which is cropped to a centred square. The first pictures of a stream
// are often black, so up to twelve are tried; a black one is kept and returned when
// nothing better comes, or when the time-out passes.

#include "platform/capture/capture_types.h"
#include "recording/capture_backend.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace orvelle {

// An opaque picture, B, G, R, X rows without padding.
struct PreviewStill {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> pixels;
};

class SourcePreviewFrameGrabber final : public CaptureStreamOutput {
public:
    static constexpr int kFramesTriedPastBlack = 12;

    // Makes the stream (for this grabber as its output), runs it and stops it. Absent
    // when no picture came in time. Throws the stream's start error, and its stop error
    // when it ended before giving a picture.
    static std::optional<PreviewStill>
    capture(const std::function<std::unique_ptr<CaptureStream>(CaptureStreamOutput&)>& makeStream,
            std::chrono::nanoseconds timeout);

    // The picture's centre, cropped to its shorter side.
    static PreviewStill squareCropped(const CapturedVideoFrame& frame);
    // The picture's mean colour has red, green and blue each below 8.
    static bool isMostlyBlack(const PreviewStill& still);

    void streamDidOutputVideoFrame(CapturedVideoFrameRef frame) override;
    void streamDidOutputAudio(const CapturedAudio&) override {}
    void streamDidStop(const std::string& errorMessage) override;

    // Waits until a picture is chosen or the time-out passes (the black one kept, if any,
    // is then the result); the result is given once. Throws Error when the stream ended
    // before giving one.
    std::optional<PreviewStill> waitForStill(std::chrono::nanoseconds timeout);

private:
    std::mutex mutex_; // guards everything below
    std::condition_variable done_;
    bool finished_ = false;
    std::optional<PreviewStill> result_;
    std::optional<PreviewStill> blackCandidate_;
    std::optional<std::string> streamError_;
    int frameCount_ = 0;
};

// The still of a chosen source: a stream of it at ten pictures a second, for at most two
// seconds. Absent when the source gave no picture; a source that cannot be streamed
// throws.
std::optional<PreviewStill> captureSourcePreview(CaptureBackend& backend,
                                                 const RecorderSourceSelection& selection);

} // namespace orvelle
