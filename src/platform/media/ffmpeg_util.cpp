#include "platform/media/detail/ffmpeg_util.h"

#include "core/log.h"

#include <mutex>

namespace orvelle::detail {

void configureLogging() {
    static std::once_flag once;
    std::call_once(once, [] {
        av_log_set_level(isLogEnabled(LogLevel::debug) ? AV_LOG_WARNING : AV_LOG_FATAL);
    });
}

FramePtr makeFrame() {
    FramePtr frame(av_frame_alloc());
    if (!frame) {
        throw MediaError("Out of memory for a media frame.");
    }
    return frame;
}

PacketPtr makePacket() {
    PacketPtr packet(av_packet_alloc());
    if (!packet) {
        throw MediaError("Out of memory for a media packet.");
    }
    return packet;
}

InputPtr openInput(const std::filesystem::path& path) {
    configureLogging();
    AVFormatContext* raw = nullptr;
    if (const int code = avformat_open_input(&raw, path.c_str(), nullptr, nullptr); code < 0) {
        throwMediaError("Could not open " + quoted(path), code);
    }
    InputPtr input(raw);
    if (const int code = avformat_find_stream_info(input.get(), nullptr); code < 0) {
        throwMediaError("Could not read the streams of " + quoted(path), code);
    }
    return input;
}

int findStream(AVFormatContext* input, AVMediaType type, const std::filesystem::path& path) {
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVStream* stream = input->streams[i];
        if (stream->codecpar->codec_type == type &&
            (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) == 0) {
            return static_cast<int>(i);
        }
    }
    throw MediaError(quoted(path) + " holds no " +
                     (type == AVMEDIA_TYPE_VIDEO ? std::string("video") : std::string("audio")) +
                     ".");
}

CodecContextPtr openDecoder(const AVStream* stream, int threadCount,
                            const std::filesystem::path& path) {
    const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
    if (codec == nullptr) {
        throw MediaError("No decoder for the " +
                         std::string(avcodec_get_name(stream->codecpar->codec_id)) + " stream of " +
                         quoted(path) + ".");
    }
    CodecContextPtr context(avcodec_alloc_context3(codec));
    if (!context) {
        throw MediaError("Out of memory for a decoder.");
    }
    if (const int code = avcodec_parameters_to_context(context.get(), stream->codecpar); code < 0) {
        throwMediaError("Could not set up the decoder for " + quoted(path), code);
    }
    context->pkt_timebase = stream->time_base;
    context->thread_count = threadCount;
    if (const int code = avcodec_open2(context.get(), codec, nullptr); code < 0) {
        throwMediaError("Could not open the decoder for " + quoted(path), code);
    }
    return context;
}

void feedNextPacket(AVFormatContext* input, AVCodecContext* codec, AVPacket* packet,
                    int streamIndex, bool& demuxerEnded, const std::string& what) {
    while (!demuxerEnded) {
        if (av_read_frame(input, packet) < 0) {
            demuxerEnded = true;
            break;
        }
        if (packet->stream_index != streamIndex) {
            av_packet_unref(packet);
            continue;
        }
        const int sent = avcodec_send_packet(codec, packet);
        av_packet_unref(packet);
        if (sent < 0 && sent != AVERROR(EAGAIN) && sent != AVERROR_INVALIDDATA) {
            throwMediaError(what, sent);
        }
        return;
    }
    avcodec_send_packet(codec, nullptr);
}

double streamDurationSeconds(const AVFormatContext* input, const AVStream* stream) {
    if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0) {
        return static_cast<double>(stream->duration) * av_q2d(stream->time_base);
    }
    if (input->duration != AV_NOPTS_VALUE && input->duration > 0) {
        return static_cast<double>(input->duration) / AV_TIME_BASE;
    }
    return 0;
}

double containerStartSeconds(const AVFormatContext* input) {
    if (input->start_time == AV_NOPTS_VALUE) {
        return 0;
    }
    return static_cast<double>(input->start_time) / AV_TIME_BASE;
}

AVColorSpace effectiveColorSpace(AVColorSpace tagged, int height) {
    switch (tagged) {
    case AVCOL_SPC_BT709:
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_FCC:
    case AVCOL_SPC_SMPTE240M:
        return tagged;
    default:
        return height >= 720 ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
    }
}

void setColorDetails(SwsContext* context, AVColorSpace yuvSpace, bool yuvFullRange,
                     bool sourceIsYuv, bool destinationIsYuv) {
    const int* yuvTable = sws_getCoefficients(yuvSpace);
    const int* sourceTable = sourceIsYuv ? yuvTable : sws_getCoefficients(SWS_CS_DEFAULT);
    const int* destinationTable = destinationIsYuv ? yuvTable : sws_getCoefficients(SWS_CS_DEFAULT);
    const int sourceRange = sourceIsYuv ? (yuvFullRange ? 1 : 0) : 1;
    const int destinationRange = destinationIsYuv ? (yuvFullRange ? 1 : 0) : 1;
    sws_setColorspaceDetails(context, sourceTable, sourceRange, destinationTable, destinationRange,
                             0, 1 << 16, 1 << 16);
}

AVPixelFormat pixelFormat(PixelLayout layout) {
    return layout == PixelLayout::bgra ? AV_PIX_FMT_BGRA : AV_PIX_FMT_YUV420P;
}

} // namespace orvelle::detail
