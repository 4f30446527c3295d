#include "platform/media/audio_decoder.h"
#include "platform/media/detail/ffmpeg_util.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

namespace orvelle {

namespace {

// Decoding after a seek starts this early so that codecs with overlapping frames (AAC,
// MP3) have warmed up by the target.
constexpr double seekPreroll = 0.25;

AVChannelLayout layoutFor(const AVChannelLayout& tagged) {
    AVChannelLayout layout{};
    if (tagged.order == AV_CHANNEL_ORDER_UNSPEC || tagged.nb_channels <= 0) {
        av_channel_layout_default(&layout, std::max(tagged.nb_channels, 1));
    } else {
        av_channel_layout_copy(&layout, &tagged);
    }
    return layout;
}

} // namespace

struct AudioDecoder::State {
    std::filesystem::path path;
    AudioFormat output;
    detail::InputPtr input;
    AVStream* stream = nullptr;
    int streamIndex = 0;
    detail::CodecContextPtr codec;
    detail::PacketPtr packet = detail::makePacket();
    detail::FramePtr frame = detail::makeFrame();
    detail::SwrPtr resampler;
    // The input the resampler was made for.
    int resamplerRate = 0;
    AVSampleFormat resamplerFormat = AV_SAMPLE_FMT_NONE;
    AVChannelLayout resamplerLayout{};
    double startSeconds = 0;
    bool demuxerEnded = false;
    bool decoderEnded = false;
    bool resamplerFlushed = false;
    // Converted samples not read yet, from `bufferStart` on.
    std::vector<float> buffer;
    size_t bufferStart = 0;
    // The output frame index of the next sample to read.
    int64_t position = 0;
    // Set after open and seek: the next decoded frame is placed by its time stamp, with
    // silence or trimming so that reading resumes exactly at `position`.
    bool aligning = true;
    // Output frame index of the sample that the resampler will hand out next.
    int64_t producedPosition = 0;
    // Input samples still to drop so that the resampler starts on the output's sample grid.
    int64_t inputSkip = 0;
    // Where the stream says it ends (encoder padding after it is not handed out), and
    // whether decoding found data well past that, so that the figure is not trusted.
    int64_t endFrame = -1;
    bool endTrusted = true;

    ~State() { av_channel_layout_uninit(&resamplerLayout); }

    size_t bufferedFrames() const {
        return (buffer.size() - bufferStart) / static_cast<size_t>(output.channelCount);
    }

    void makeResampler(const AVFrame* source) {
        AVChannelLayout inputLayout = layoutFor(source->ch_layout);
        AVChannelLayout outputLayout{};
        av_channel_layout_default(&outputLayout, output.channelCount);
        SwrContext* raw = nullptr;
        int code = swr_alloc_set_opts2(&raw, &outputLayout, AV_SAMPLE_FMT_FLT, output.sampleRate,
                                       &inputLayout, static_cast<AVSampleFormat>(source->format),
                                       source->sample_rate, 0, nullptr);
        resampler.reset(raw);
        if (code >= 0) {
            // A long windowed-sinc filter: the resampler's high-quality setting.
            av_opt_set_int(raw, "filter_size", 64, 0);
            av_opt_set_int(raw, "phase_shift", 10, 0);
            av_opt_set_int(raw, "linear_interp", 1, 0);
            av_opt_set_int(raw, "exact_rational", 1, 0);
            av_opt_set_double(raw, "cutoff", 0.97, 0);
            const int inputs = inputLayout.nb_channels;
            // Mono from stereo is the average and stereo from mono is a copy on both
            // sides; FFmpeg's own matrix would lower both by 3 dB.
            if (inputs == 2 && output.channelCount == 1) {
                const double matrix[2] = {0.5, 0.5};
                swr_set_matrix(raw, matrix, 2);
            } else if (inputs == 1 && output.channelCount == 2) {
                const double matrix[2] = {1.0, 1.0};
                swr_set_matrix(raw, matrix, 1);
            }
            code = swr_init(raw);
        }
        av_channel_layout_uninit(&resamplerLayout);
        resamplerLayout = inputLayout;
        av_channel_layout_uninit(&outputLayout);
        resamplerRate = source->sample_rate;
        resamplerFormat = static_cast<AVSampleFormat>(source->format);
        if (code < 0) {
            resampler.reset();
            detail::throwMediaError("Could not convert the audio of " + detail::quoted(path), code);
        }
    }

    bool resamplerMatches(const AVFrame* source) const {
        if (!resampler || source->sample_rate != resamplerRate ||
            source->format != resamplerFormat) {
            return false;
        }
        AVChannelLayout layout = layoutFor(source->ch_layout);
        const bool same = av_channel_layout_compare(&layout, &resamplerLayout) == 0;
        av_channel_layout_uninit(&layout);
        return same;
    }

    // Appends resampled output for `source` (nullptr flushes the resampler).
    void convert(const AVFrame* source) {
        if (!resampler) {
            return;
        }
        int inputFrames = source != nullptr ? source->nb_samples : 0;
        const uint8_t* planes[AV_NUM_DATA_POINTERS] = {};
        const uint8_t** sourcePlanes = nullptr;
        if (source != nullptr) {
            const int skip = static_cast<int>(std::min<int64_t>(inputSkip, inputFrames));
            inputSkip -= skip;
            inputFrames -= skip;
            if (inputFrames == 0) {
                return;
            }
            const auto format = static_cast<AVSampleFormat>(source->format);
            const int bytes = av_get_bytes_per_sample(format);
            const int channels = source->ch_layout.nb_channels;
            const bool planar = av_sample_fmt_is_planar(format) != 0;
            const int planeCount = planar ? std::min(channels, AV_NUM_DATA_POINTERS) : 1;
            for (int c = 0; c < planeCount; ++c) {
                planes[c] = source->extended_data[c] +
                            static_cast<ptrdiff_t>(skip) * bytes * (planar ? 1 : channels);
            }
            sourcePlanes = planes;
        }
        const int capacity = swr_get_out_samples(resampler.get(), inputFrames) + 16;
        if (capacity <= 0) {
            return;
        }
        const size_t oldSize = buffer.size();
        buffer.resize(oldSize +
                      static_cast<size_t>(capacity) * static_cast<size_t>(output.channelCount));
        auto* destination = reinterpret_cast<uint8_t*>(buffer.data() + oldSize);
        const int produced =
            swr_convert(resampler.get(), &destination, capacity, sourcePlanes, inputFrames);
        if (produced < 0) {
            buffer.resize(oldSize);
            detail::throwMediaError("Could not convert the audio of " + detail::quoted(path),
                                    produced);
        }
        buffer.resize(oldSize +
                      static_cast<size_t>(produced) * static_cast<size_t>(output.channelCount));
        producedPosition += produced;
    }

    // Places the first frame after a start or seek at its time: silence before it, or the
    // part before `position` dropped. The resampler starts on an input sample that falls on
    // the output's sample grid, so that a read after a seek equals a continuous read.
    void align(const AVFrame* source) {
        aligning = false;
        inputSkip = 0;
        const int64_t stamp = source->best_effort_timestamp != AV_NOPTS_VALUE
                                  ? source->best_effort_timestamp
                                  : source->pts;
        int64_t first = position;
        if (stamp != AV_NOPTS_VALUE) {
            const double time =
                static_cast<double>(stamp) * av_q2d(stream->time_base) - startSeconds;
            const int inputRate = source->sample_rate;
            const int common = std::gcd(inputRate, output.sampleRate);
            const int64_t inputIndex = std::llround(time * inputRate);
            const int64_t period = inputRate / common;
            if (period <= inputRate / 4) {
                const int64_t remainder = ((inputIndex % period) + period) % period;
                inputSkip = remainder == 0 ? 0 : period - remainder;
                first = (inputIndex + inputSkip) / period * (output.sampleRate / common);
            } else {
                first = std::llround(time * output.sampleRate);
            }
        }
        producedPosition = first;
        if (first > position) {
            // A gap before the first sample: silence keeps the clock.
            const size_t silence =
                static_cast<size_t>(first - position) * static_cast<size_t>(output.channelCount);
            buffer.insert(buffer.end(), silence, 0.0f);
        }
    }

    // Drops converted samples that lie before `position` (after a seek).
    void trimBeforePosition() {
        const int64_t bufferedStart = producedPosition - static_cast<int64_t>(bufferedFrames());
        if (bufferedStart >= position) {
            return;
        }
        const size_t drop =
            std::min(static_cast<size_t>(position - bufferedStart), bufferedFrames());
        bufferStart += drop * static_cast<size_t>(output.channelCount);
    }

    void feedPacket() {
        detail::feedNextPacket(input.get(), codec.get(), packet.get(), streamIndex, demuxerEnded,
                               "Could not decode the audio of " + detail::quoted(path));
    }

    // Decodes and converts one more frame. False when everything has been handed over.
    bool decodeMore() {
        if (decoderEnded) {
            if (!resamplerFlushed) {
                resamplerFlushed = true;
                convert(nullptr);
                trimBeforePosition();
                return true;
            }
            return false;
        }
        while (true) {
            const int received = avcodec_receive_frame(codec.get(), frame.get());
            if (received == 0) {
                break;
            }
            if (received == AVERROR_EOF) {
                decoderEnded = true;
                return true;
            }
            if (received != AVERROR(EAGAIN)) {
                detail::throwMediaError("Could not decode the audio of " + detail::quoted(path),
                                        received);
            }
            feedPacket();
        }
        if (!resamplerMatches(frame.get())) {
            // A format change mid-stream: hand out what the old resampler holds first.
            if (resampler) {
                convert(nullptr);
            }
            makeResampler(frame.get());
        }
        if (aligning) {
            align(frame.get());
        }
        convert(frame.get());
        av_frame_unref(frame.get());
        trimBeforePosition();
        return true;
    }

    void compact() {
        if (bufferStart > 0 && bufferStart * 2 >= buffer.size()) {
            buffer.erase(buffer.begin(), buffer.begin() + static_cast<ptrdiff_t>(bufferStart));
            bufferStart = 0;
        }
    }

    void seek(double time) {
        time = std::max(time, 0.0);
        position = std::llround(time * output.sampleRate);
        buffer.clear();
        bufferStart = 0;
        const double start = std::max(time - seekPreroll, 0.0);
        const int64_t ticks =
            static_cast<int64_t>(std::floor((start + startSeconds) / av_q2d(stream->time_base)));
        avcodec_flush_buffers(codec.get());
        if (const int code = av_seek_frame(input.get(), streamIndex, ticks,
                                           AVSEEK_FLAG_BACKWARD | AVSEEK_FLAG_ANY);
            code < 0 && ticks > 0) {
            // Some files (raw streams) cannot seek by time; read from the start instead.
            if (const int again = av_seek_frame(input.get(), streamIndex, 0,
                                                AVSEEK_FLAG_BACKWARD | AVSEEK_FLAG_ANY);
                again < 0) {
                detail::throwMediaError("Could not seek in " + detail::quoted(path), again);
            }
        }
        if (resampler) {
            // A fresh resampler: nothing of the old position may leak into the new one.
            resampler.reset();
            resamplerRate = 0;
        }
        demuxerEnded = false;
        decoderEnded = false;
        resamplerFlushed = false;
        aligning = true;
    }
};

AudioDecoder::AudioDecoder(const std::filesystem::path& path, AudioFormat output)
    : state_(std::make_unique<State>()) {
    if (output.sampleRate <= 0 || output.channelCount <= 0 || output.channelCount > 8) {
        throw MediaError("Cannot decode audio to " + std::to_string(output.sampleRate) +
                         " Hz with " + std::to_string(output.channelCount) + " channels.");
    }
    State& s = *state_;
    s.path = path;
    s.output = output;
    s.input = detail::openInput(path);
    s.streamIndex = detail::findStream(s.input.get(), AVMEDIA_TYPE_AUDIO, path);
    s.stream = s.input->streams[s.streamIndex];
    for (unsigned i = 0; i < s.input->nb_streams; ++i) {
        if (static_cast<int>(i) != s.streamIndex) {
            s.input->streams[i]->discard = AVDISCARD_ALL;
        }
    }
    s.codec = detail::openDecoder(s.stream, 1, path);
    s.startSeconds = detail::containerStartSeconds(s.input.get());
    if (s.stream->duration != AV_NOPTS_VALUE && s.stream->duration > 0) {
        const double streamStart =
            s.stream->start_time != AV_NOPTS_VALUE
                ? static_cast<double>(s.stream->start_time) * av_q2d(s.stream->time_base)
                : s.startSeconds;
        const double end = streamStart - s.startSeconds +
                           static_cast<double>(s.stream->duration) * av_q2d(s.stream->time_base);
        s.endFrame = std::llround(end * output.sampleRate);
    }
}

AudioDecoder::~AudioDecoder() = default;

const AudioFormat& AudioDecoder::format() const {
    return state_->output;
}
int AudioDecoder::sourceSampleRate() const {
    return state_->codec->sample_rate;
}
int AudioDecoder::sourceChannelCount() const {
    return state_->codec->ch_layout.nb_channels;
}
const std::filesystem::path& AudioDecoder::path() const {
    return state_->path;
}
int64_t AudioDecoder::position() const {
    return state_->position;
}

double AudioDecoder::duration() const {
    return detail::streamDurationSeconds(state_->input.get(), state_->stream);
}

size_t AudioDecoder::read(float* destination, size_t frameCount) {
    State& s = *state_;
    const auto channels = static_cast<size_t>(s.output.channelCount);
    // Padding past the stream's stated end is held back until decoding shows whether the
    // stream really ends there.
    const auto tolerance = static_cast<int64_t>(s.output.sampleRate / 10);
    size_t written = 0;
    while (written < frameCount) {
        size_t available = s.bufferedFrames();
        if (s.endTrusted && s.endFrame >= 0) {
            if (s.producedPosition > s.endFrame + tolerance) {
                s.endTrusted = false;
            } else {
                available = static_cast<size_t>(std::clamp<int64_t>(
                    s.endFrame - s.position, 0, static_cast<int64_t>(available)));
            }
        }
        if (available == 0) {
            if (s.bufferedFrames() == 0) {
                s.buffer.clear();
                s.bufferStart = 0;
            }
            if (!s.decodeMore()) {
                break;
            }
            continue;
        }
        const size_t take = std::min(frameCount - written, available);
        std::memcpy(destination + written * channels, s.buffer.data() + s.bufferStart,
                    take * channels * sizeof(float));
        s.bufferStart += take * channels;
        written += take;
        s.position += static_cast<int64_t>(take);
        s.compact();
    }
    return written;
}

void AudioDecoder::seek(double time) {
    state_->seek(time);
}

std::vector<float> decodeAudioFile(const std::filesystem::path& path, AudioFormat output,
                                   double start, double length) {
    AudioDecoder decoder(path, output);
    if (start > 0) {
        decoder.seek(start);
    }
    const auto channels = static_cast<size_t>(output.channelCount);
    std::vector<float> samples;
    const bool bounded = length >= 0;
    const size_t wanted =
        bounded ? static_cast<size_t>(std::llround(length * output.sampleRate)) : 0;
    if (bounded) {
        samples.resize(wanted * channels);
        const size_t got = decoder.read(samples.data(), wanted);
        samples.resize(got * channels);
        return samples;
    }
    constexpr size_t block = 16384;
    size_t total = 0;
    while (true) {
        samples.resize((total + block) * channels);
        const size_t got = decoder.read(samples.data() + total * channels, block);
        total += got;
        if (got < block) {
            break;
        }
    }
    samples.resize(total * channels);
    return samples;
}

} // namespace orvelle
