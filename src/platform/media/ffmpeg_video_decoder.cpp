#include "platform/media/detail/ffmpeg_util.h"
#include "platform/media/detail/picture_converter.h"
#include "platform/media/video_decoder.h"

#include <cmath>
#include <deque>
#include <optional>

namespace orvelle {

namespace {

// How far ahead frameAt decodes forward instead of seeking.
constexpr double forwardDecodeWindow = 1.0;

} // namespace

struct VideoDecoder::State {
    std::filesystem::path path;
    VideoDecoderOptions options;
    detail::InputPtr input;
    AVStream* stream = nullptr;
    int streamIndex = 0;
    detail::CodecContextPtr codec;
    detail::PacketPtr packet = detail::makePacket();
    std::optional<detail::PictureConverter> converter;
    int outputWidth = 0;
    int outputHeight = 0;
    int64_t startTicks = 0; // the container's start in stream ticks
    double frameRate = 0;
    bool demuxerEnded = false;
    bool decoderEnded = false;
    // Decoded frames not handed out yet, in presentation order.
    std::deque<detail::FramePtr> pending;
    // The frame handed out last; frameAt may hand it out again.
    detail::FramePtr current;
    bool hasCurrent = false;
    std::vector<detail::FramePtr> spare;

    detail::FramePtr takeSpare() {
        if (spare.empty()) {
            return detail::makeFrame();
        }
        detail::FramePtr frame = std::move(spare.back());
        spare.pop_back();
        return frame;
    }

    void recycle(detail::FramePtr frame) {
        av_frame_unref(frame.get());
        spare.push_back(std::move(frame));
    }

    int64_t ticks(const AVFrame* frame) const {
        const int64_t value = frame->best_effort_timestamp != AV_NOPTS_VALUE
                                  ? frame->best_effort_timestamp
                                  : frame->pts;
        return value == AV_NOPTS_VALUE ? 0 : value - startTicks;
    }

    double seconds(int64_t value) const {
        return static_cast<double>(value) * av_q2d(stream->time_base);
    }

    int64_t ticksForSeconds(double time) const {
        return static_cast<int64_t>(std::llround(time / av_q2d(stream->time_base)));
    }

    double frameDurationSeconds(const AVFrame* frame) const {
        if (frame->pkt_duration > 0) {
            return seconds(frame->pkt_duration);
        }
        return frameRate > 0 ? 1.0 / frameRate : 0;
    }

    // Decodes one more frame into the pending queue. False at the end of the stream.
    bool decodeMore() {
        if (decoderEnded) {
            return false;
        }
        detail::FramePtr frame = takeSpare();
        while (true) {
            const int received = avcodec_receive_frame(codec.get(), frame.get());
            if (received == 0) {
                pending.push_back(std::move(frame));
                return true;
            }
            if (received == AVERROR_EOF) {
                decoderEnded = true;
                recycle(std::move(frame));
                return false;
            }
            if (received != AVERROR(EAGAIN)) {
                recycle(std::move(frame));
                detail::throwMediaError("Could not decode the video of " + detail::quoted(path),
                                        received);
            }
            feedPacket();
        }
    }

    void feedPacket() {
        detail::feedNextPacket(input.get(), codec.get(), packet.get(), streamIndex, demuxerEnded,
                               "Could not decode the video of " + detail::quoted(path));
    }

    const AVFrame* peek() {
        if (pending.empty() && !decodeMore()) {
            return nullptr;
        }
        return pending.front().get();
    }

    bool advance() {
        if (peek() == nullptr) {
            return false;
        }
        if (current) {
            recycle(std::move(current));
        }
        current = std::move(pending.front());
        pending.pop_front();
        hasCurrent = true;
        return true;
    }

    void resetDecoding() {
        avcodec_flush_buffers(codec.get());
        for (auto& frame : pending) {
            recycle(std::move(frame));
        }
        pending.clear();
        if (current) {
            recycle(std::move(current));
        }
        hasCurrent = false;
        demuxerEnded = false;
        decoderEnded = false;
    }

    void seek(double time) {
        const int64_t target = ticksForSeconds(std::max(time, 0.0));
        // Seek to the keyframe before the target; if the container's index lands us after
        // it, step back further.
        double backoff = 0;
        for (int attempt = 0; attempt < 6; ++attempt) {
            resetDecoding();
            const int64_t seekTicks =
                std::max<int64_t>(target - ticksForSeconds(backoff), 0) + startTicks;
            const int flags = AVSEEK_FLAG_BACKWARD;
            if (const int code = av_seek_frame(input.get(), streamIndex, seekTicks, flags);
                code < 0) {
                if (seekTicks <= startTicks) {
                    detail::throwMediaError("Could not seek in " + detail::quoted(path), code);
                }
                backoff = backoff == 0 ? 1 : backoff * 4;
                continue;
            }
            const AVFrame* first = peek();
            if (first != nullptr && ticks(first) > target && seekTicks > startTicks) {
                backoff = backoff == 0 ? 1 : backoff * 4;
                continue;
            }
            break;
        }
        // Decode forward to the frame on screen at the target.
        while (true) {
            const AVFrame* front = peek();
            if (front == nullptr) {
                break;
            }
            if (pending.size() < 2 && !decodeMore()) {
                // The front is the last frame of the stream.
                const double end = seconds(ticks(front)) + frameDurationSeconds(front);
                if (seconds(target) >= end && ticks(front) < target) {
                    recycle(std::move(pending.front()));
                    pending.pop_front();
                }
                break;
            }
            if (ticks(pending[1].get()) <= target) {
                recycle(std::move(pending.front()));
                pending.pop_front();
                continue;
            }
            break;
        }
        if (current) {
            recycle(std::move(current));
        }
        hasCurrent = false;
    }

    void convert(const AVFrame* source, VideoFrame& frame) {
        converter->convert(source, frame, path);
        frame.presentationTime = seconds(ticks(source));
        frame.duration = frameDurationSeconds(source);
    }
};

VideoDecoder::VideoDecoder(const std::filesystem::path& path, VideoDecoderOptions options)
    : state_(std::make_unique<State>()) {
    State& s = *state_;
    s.path = path;
    s.options = options;
    s.input = detail::openInput(path);
    s.streamIndex = detail::findStream(s.input.get(), AVMEDIA_TYPE_VIDEO, path);
    s.stream = s.input->streams[s.streamIndex];
    for (unsigned i = 0; i < s.input->nb_streams; ++i) {
        if (static_cast<int>(i) != s.streamIndex) {
            s.input->streams[i]->discard = AVDISCARD_ALL;
        }
    }
    s.codec = detail::openDecoder(s.stream, options.threadCount, path);
    const int storedWidth = s.codec->width;
    const int storedHeight = s.codec->height;
    if (storedWidth <= 0 || storedHeight <= 0) {
        throw MediaError("The video of " + detail::quoted(path) + " has no picture size.");
    }
    s.outputWidth = options.outputWidth > 0 ? options.outputWidth : storedWidth;
    s.outputHeight = options.outputHeight > 0 ? options.outputHeight : storedHeight;
    s.converter.emplace(options.layout, s.outputWidth, s.outputHeight, options.threadCount);
    // Times count from the container's start, so that a file's streams stay in step.
    if (s.input->start_time != AV_NOPTS_VALUE) {
        s.startTicks = av_rescale_q(s.input->start_time, AV_TIME_BASE_Q, s.stream->time_base);
    } else if (s.stream->start_time != AV_NOPTS_VALUE) {
        s.startTicks = s.stream->start_time;
    }
    if (s.stream->avg_frame_rate.num > 0 && s.stream->avg_frame_rate.den > 0) {
        s.frameRate = av_q2d(s.stream->avg_frame_rate);
    } else if (s.stream->r_frame_rate.num > 0 && s.stream->r_frame_rate.den > 0) {
        s.frameRate = av_q2d(s.stream->r_frame_rate);
    }
}

VideoDecoder::~VideoDecoder() = default;

int VideoDecoder::width() const {
    return state_->outputWidth;
}
int VideoDecoder::height() const {
    return state_->outputHeight;
}
const std::filesystem::path& VideoDecoder::path() const {
    return state_->path;
}
double VideoDecoder::nominalFrameRate() const {
    return state_->frameRate;
}

double VideoDecoder::duration() const {
    return detail::streamDurationSeconds(state_->input.get(), state_->stream);
}

bool VideoDecoder::nextFrame(VideoFrame& frame) {
    if (!state_->advance()) {
        return false;
    }
    state_->convert(state_->current.get(), frame);
    return true;
}

void VideoDecoder::seek(double time) {
    state_->seek(time);
}

bool VideoDecoder::frameAt(double time, VideoFrame& frame) {
    State& s = *state_;
    const int64_t target = s.ticksForSeconds(time);
    const bool forward = s.hasCurrent && s.ticks(s.current.get()) <= target &&
                         time < s.seconds(s.ticks(s.current.get())) + forwardDecodeWindow;
    if (!forward) {
        s.seek(time);
        return nextFrame(frame);
    }
    while (true) {
        const AVFrame* next = s.peek();
        if (next == nullptr || s.ticks(next) > target) {
            break;
        }
        s.advance();
    }
    if (s.peek() == nullptr) {
        const AVFrame* last = s.current.get();
        if (time >= s.seconds(s.ticks(last)) + s.frameDurationSeconds(last)) {
            return false;
        }
    }
    s.convert(s.current.get(), frame);
    return true;
}

} // namespace orvelle
