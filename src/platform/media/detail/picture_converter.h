#pragma once

// Turns a decoder's pictures into the frames a VideoDecoder hands out, written straight into
// the frame's reused storage. The common cases (8 or 10 bit planar YUV of the stored size,
// to BGRA or yuv420p) take fast paths split into bands over a few threads; anything else
// (scaling, other formats) goes through swscale. Not thread-safe: one per decoder.

#include "platform/media/detail/band_runner.h"
#include "platform/media/detail/ffmpeg_util.h"

#include <filesystem>

namespace orvelle::detail {

class PictureConverter {
public:
    // `threadCount` 0: as many threads as the machine has.
    PictureConverter(PixelLayout layout, int width, int height, int threadCount);

    // Converts `source` into `frame`, sized for the layout and output size. Throws
    // MediaError naming `path` when the picture cannot be converted.
    void convert(const AVFrame* source, VideoFrame& frame, const std::filesystem::path& path);

private:
    bool convertInBands(const AVFrame* source, VideoFrame& frame);
    void convertWithScaler(const AVFrame* source, VideoFrame& frame,
                           const std::filesystem::path& path);

    PixelLayout layout_;
    int width_;
    int height_;
    BandRunner bands_;
    SwsPtr scaler_;
};

} // namespace orvelle::detail
