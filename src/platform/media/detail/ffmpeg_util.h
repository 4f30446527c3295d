#pragma once

// Internal helpers shared by the FFmpeg adapters; never included outside platform/media.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/error.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include "platform/media/media_error.h"
#include "platform/media/video_frame.h"

#include <filesystem>
#include <memory>
#include <string>

namespace orvelle::detail {

inline std::string ffmpegErrorText(int code) {
    char buffer[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, buffer, sizeof buffer);
    return buffer;
}

// "Could not open \"x.mov\" (No such file or directory)"
[[noreturn]] inline void throwMediaError(const std::string& what, int code) {
    throw MediaError(what + " (" + ffmpegErrorText(code) + ")");
}

inline std::string quoted(const std::filesystem::path& path) {
    return "\"" + path.string() + "\"";
}

struct InputCloser {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct CodecContextFree {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FrameFree {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct PacketFree {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct SwsFree {
    void operator()(SwsContext* context) const { sws_freeContext(context); }
};
struct SwrFree {
    void operator()(SwrContext* context) const { swr_free(&context); }
};
struct AudioFifoFree {
    void operator()(AVAudioFifo* fifo) const { av_audio_fifo_free(fifo); }
};

using InputPtr = std::unique_ptr<AVFormatContext, InputCloser>;
using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextFree>;
using FramePtr = std::unique_ptr<AVFrame, FrameFree>;
using PacketPtr = std::unique_ptr<AVPacket, PacketFree>;
using SwsPtr = std::unique_ptr<SwsContext, SwsFree>;
using SwrPtr = std::unique_ptr<SwrContext, SwrFree>;
using AudioFifoPtr = std::unique_ptr<AVAudioFifo, AudioFifoFree>;

// FFmpeg prints only fatal errors unless ORVELLE_LOG asks for debug output: its failures
// reach the user through MediaError. Called before any FFmpeg work; idempotent.
void configureLogging();

FramePtr makeFrame();
PacketPtr makePacket();

// Opens a file and reads its stream information.
InputPtr openInput(const std::filesystem::path& path);

// The first stream of a type that is not cover art; throws MediaError naming what is missing.
int findStream(AVFormatContext* input, AVMediaType type, const std::filesystem::path& path);

// A decoder for a stream, opened; threadCount 0 lets FFmpeg choose.
CodecContextPtr openDecoder(const AVStream* stream, int threadCount,
                            const std::filesystem::path& path);

// Sends the decoder the next packet of its stream, or the drain signal once the file has no
// more (at its end, or where a truncated file stops being readable; `demuxerEnded` is then
// set). Damaged packets are skipped; any other refusal throws MediaError with `what`.
void feedNextPacket(AVFormatContext* input, AVCodecContext* codec, AVPacket* packet,
                    int streamIndex, bool& demuxerEnded, const std::string& what);

// A stream's duration in seconds: its own, else the container's, else 0.
double streamDurationSeconds(const AVFormatContext* input, const AVStream* stream);

// Seconds that the container's clock is ahead of the file's own zero (its start time).
double containerStartSeconds(const AVFormatContext* input);

// The colour matrix of a picture: what it says, else BT.709 for HD sizes and BT.601 below.
AVColorSpace effectiveColorSpace(AVColorSpace tagged, int height);

// Sets an sws context's matrices between a YUV picture's matrix and range and RGB.
void setColorDetails(SwsContext* context, AVColorSpace yuvSpace, bool yuvFullRange,
                     bool sourceIsYuv, bool destinationIsYuv);

AVPixelFormat pixelFormat(PixelLayout layout);

} // namespace orvelle::detail
