#include "platform/media/detail/ffmpeg_util.h"
#include "platform/media/media_probe.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

#include <cmath>

namespace orvelle {

namespace {

double seconds(int64_t value, AVRational timeBase) {
    if (value == AV_NOPTS_VALUE || value <= 0) {
        return 0;
    }
    return static_cast<double>(value) * av_q2d(timeBase);
}

std::optional<double> positiveRate(AVRational rate) {
    if (rate.num <= 0 || rate.den <= 0) {
        return std::nullopt;
    }
    const double value = av_q2d(rate);
    return std::isfinite(value) && value > 0 ? std::optional(value) : std::nullopt;
}

VideoStreamInfo describeVideo(const AVStream* stream) {
    const AVCodecParameters* codec = stream->codecpar;
    VideoStreamInfo info;
    info.streamIndex = stream->index;
    info.codecName = avcodec_get_name(codec->codec_id);
    info.codedWidth = codec->width;
    info.codedHeight = codec->height;
    info.naturalWidth = codec->width;
    info.naturalHeight = codec->height;
    const uint8_t* matrix = av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr);
    if (matrix != nullptr) {
        const auto* m = reinterpret_cast<const int32_t*>(matrix);
        const double rotation = av_display_rotation_get(m);
        if (std::isfinite(rotation)) {
            info.rotationDegrees = rotation;
            // Apply the transform to the size vector and keep the magnitudes.
            const double radians = rotation * M_PI / 180.0;
            const double c = std::cos(radians);
            const double s = std::sin(radians);
            const double w = codec->width;
            const double h = codec->height;
            info.naturalWidth = std::round(std::fabs(w * c - h * s) * 1000.0) / 1000.0;
            info.naturalHeight = std::round(std::fabs(w * s + h * c) * 1000.0) / 1000.0;
        }
    }
    info.nominalFrameRate = positiveRate(stream->avg_frame_rate);
    if (auto base = positiveRate(stream->r_frame_rate)) {
        info.minFrameDuration = 1.0 / *base;
    }
    info.duration = seconds(stream->duration, stream->time_base);
    return info;
}

AudioStreamInfo describeAudio(const AVStream* stream) {
    const AVCodecParameters* codec = stream->codecpar;
    AudioStreamInfo info;
    info.streamIndex = stream->index;
    info.codecName = avcodec_get_name(codec->codec_id);
    info.sampleRate = codec->sample_rate;
    info.channelCount = codec->ch_layout.nb_channels;
    info.duration = seconds(stream->duration, stream->time_base);
    return info;
}

} // namespace

MediaProbe probeMediaFile(const std::filesystem::path& path) {
    const detail::InputPtr context = detail::openInput(path);
    MediaProbe probe;
    probe.formatName = context->iformat != nullptr ? context->iformat->name : "";
    double longest = 0;
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        const AVStream* stream = context->streams[i];
        if (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) {
            continue;
        }
        if (stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
            probe.videoStreams.push_back(describeVideo(stream));
            longest = std::max(longest, probe.videoStreams.back().duration);
        } else if (stream->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) {
            probe.audioStreams.push_back(describeAudio(stream));
            longest = std::max(longest, probe.audioStreams.back().duration);
        }
    }
    if (probe.videoStreams.empty() && probe.audioStreams.empty()) {
        throw MediaError("\"" + path.string() + "\" holds no video or audio.");
    }
    probe.duration = longest > 0 ? longest : seconds(context->duration, AV_TIME_BASE_Q);
    return probe;
}

} // namespace orvelle
