#include "export/render_export_codec.h"

#include <algorithm>
#include <cmath>

namespace orvelle::RenderExportCodec {

int64_t videoBitRate(int width, int height, RenderExportQuality quality) {
    double bitsPerPixel = 5.2;
    switch (quality) {
    case RenderExportQuality::standard:
        bitsPerPixel = 2.8;
        break;
    case RenderExportQuality::high:
        bitsPerPixel = 5.2;
        break;
    case RenderExportQuality::best:
        bitsPerPixel = 8.0;
        break;
    }
    const double area = static_cast<double>(std::max(width, 0)) * std::max(height, 0);
    return std::max(static_cast<int64_t>(std::trunc(area * bitsPerPixel)), kMinimumVideoBitRate);
}

MovieWriterSettings writerSettings(RenderExportFileType fileType, RenderExportQuality quality,
                                   int width, int height, int fps, bool withAudio) {
    MovieWriterSettings settings;
    MovieVideoSettings video;
    video.width = width;
    video.height = height;
    video.frameRate = fps;
    if (fileType == RenderExportFileType::mov) {
        settings.container = MovieContainer::mov;
        video.codec = VideoCodec::proRes422Proxy;
    } else {
        settings.container = MovieContainer::mp4;
        video.codec = VideoCodec::h264High;
        video.averageBitRate = videoBitRate(width, height, quality);
    }
    settings.video = video;
    if (withAudio) {
        MovieAudioSettings audio;
        audio.input = {48000, 2};
        audio.output = {48000, 2};
        audio.bitRate = kAudioBitRate;
        settings.audio = audio;
    }
    settings.pacing = WriterPacing::offline;
    return settings;
}

std::string_view videoCodecName(RenderExportFileType fileType) {
    return fileType == RenderExportFileType::mov ? "ProRes 422 Proxy" : "H.264 High";
}

} // namespace orvelle::RenderExportCodec
