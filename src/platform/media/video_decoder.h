#pragma once

// Reads the pictures of a movie's first video stream, in presentation order, as BGRA or
// planar YUV. Seeks are accurate: after seek(t) the next frame is the one on screen at t.
// Not thread-safe; one decoder per thread. Failures throw MediaError with FFmpeg's reason.

#include "platform/media/media_error.h"
#include "platform/media/video_frame.h"

#include <filesystem>
#include <memory>

namespace orvelle {

struct VideoDecoderOptions {
    PixelLayout layout = PixelLayout::bgra;
    int outputWidth = 0; // 0: the stored size; otherwise frames are scaled to this size
    int outputHeight = 0;
    int threadCount = 0; // 0: as many as the machine has
};

class VideoDecoder {
public:
    explicit VideoDecoder(const std::filesystem::path& path, VideoDecoderOptions options = {});
    ~VideoDecoder();
    VideoDecoder(const VideoDecoder&) = delete;
    VideoDecoder& operator=(const VideoDecoder&) = delete;

    int width() const; // of the frames handed out
    int height() const;
    double duration() const;         // seconds, 0 when unknown
    double nominalFrameRate() const; // frames a second, 0 when unknown
    const std::filesystem::path& path() const;

    // The next picture into `frame` (its storage is reused). False at the end of the stream.
    bool nextFrame(VideoFrame& frame);

    // After this the next frame is the one on screen at `time`: the last whose presentation
    // time is at or before it (the first frame for a time before the start; nothing after
    // the last frame's end).
    void seek(double time);

    // The frame on screen at `time`. Decodes forward from the current position when that is
    // close, seeks otherwise. False past the end of the stream.
    bool frameAt(double time, VideoFrame& frame);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace orvelle
