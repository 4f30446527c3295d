#include "platform/media/detail/bgra_to_yuv420p.h"
#include "platform/media/detail/ffmpeg_util.h"
#include "platform/media/movie_writer.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <variant>

namespace orvelle {

namespace {

// Video times are kept in this many ticks a second: exact for 24, 25, 30, 50, 60 and the
// 1001-based rates.
constexpr AVRational videoTimeBase{1, 60000};
// ProRes quantiser: at 1080p about the size of the encoder's own rate control, with a
// better picture, and about ten times faster.
constexpr int proResQuantiser = 8;

std::string containerName(MovieContainer container) {
    switch (container) {
    case MovieContainer::mov:
        return "mov";
    case MovieContainer::mp4:
        return "mp4";
    case MovieContainer::m4a:
        return "ipod";
    case MovieContainer::wav:
        return "wav";
    }
    return "mp4";
}

bool isMovieContainer(MovieContainer container) {
    return container == MovieContainer::mov || container == MovieContainer::mp4;
}

// The planes of a picture handed to the writer, whatever holds them.
struct PictureRows {
    PixelLayout layout = PixelLayout::bgra;
    int width = 0;
    int height = 0;
    std::array<const uint8_t*, 3> planes{};
    std::array<int, 3> strides{};

    static PictureRows of(const VideoFrame& frame) {
        PictureRows rows{frame.layout, frame.width, frame.height, {}, {}};
        for (int plane = 0; plane < frame.planeCount(); ++plane) {
            rows.planes[static_cast<size_t>(plane)] =
                frame.planes[static_cast<size_t>(plane)].data();
            rows.strides[static_cast<size_t>(plane)] = frame.strides[static_cast<size_t>(plane)];
        }
        return rows;
    }
    int planeCount() const { return layout == PixelLayout::bgra ? 1 : 3; }
    int planeHeight(int plane) const { return plane == 0 ? height : (height + 1) / 2; }
    int planeWidthBytes(int plane) const {
        if (layout == PixelLayout::bgra) {
            return width * 4;
        }
        return plane == 0 ? width : (width + 1) / 2;
    }
};

} // namespace

std::optional<MovieContainer> containerForPath(const std::filesystem::path& path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (extension == ".mov") {
        return MovieContainer::mov;
    }
    if (extension == ".mp4" || extension == ".m4v") {
        return MovieContainer::mp4;
    }
    if (extension == ".m4a") {
        return MovieContainer::m4a;
    }
    if (extension == ".wav") {
        return MovieContainer::wav;
    }
    return std::nullopt;
}

struct MovieWriter::State {
    std::filesystem::path path;
    MovieWriterSettings settings;
    AVFormatContext* output = nullptr;
    bool headerWritten = false;
    bool finished = false;
    std::string failure; // set once anything failed; the writer then accepts nothing

    // Video
    detail::CodecContextPtr videoEncoder;
    AVStream* videoStream = nullptr;
    detail::FramePtr videoFrame;
    detail::SwsPtr scaler;
    PixelLayout scalerInput = PixelLayout::bgra;
    std::unique_ptr<detail::BandRunner> bands; // for BGRA to BT.709 yuv420p, made on first use
    AVColorSpace colorSpace = AVCOL_SPC_BT709;
    int64_t lastVideoTicks = -1;
    std::atomic<int64_t> videoFrames = 0;
    int64_t droppedFrames = 0;
    int64_t backlogHighWater = 0; // guarded by mutex

    // Audio
    detail::CodecContextPtr audioEncoder;
    AVStream* audioStream = nullptr;
    detail::SwrPtr resampler;
    detail::AudioFifoPtr fifo;
    detail::FramePtr audioFrame;
    int audioFrameSize = 0;
    int64_t audioNextPts = 0;
    int64_t audioInputFrames = 0;

    detail::PacketPtr packet = detail::makePacket();

    // Real-time pacing: an encoder thread fed through a short queue.
    struct VideoJob {
        VideoFrame frame; // a copy of the picture, unless it is lent
        double time = 0;
        std::shared_ptr<const void> lender; // keeps lent rows alive until they are encoded
        PictureRows lent;
    };
    struct AudioJob {
        std::vector<float> samples;
    };
    std::thread worker;
    std::mutex mutex;
    std::condition_variable wake;
    std::condition_variable drained;
    std::deque<std::variant<VideoJob, AudioJob>> queue; // guarded by mutex
    std::vector<VideoFrame> framePool;                  // guarded by mutex
    size_t queuedVideo = 0;                             // guarded by mutex
    bool stopping = false;                              // guarded by mutex
    bool busy = false;                                  // guarded by mutex
    std::exception_ptr workerError;                     // guarded by mutex

    ~State() {
        stopWorker();
        if (output != nullptr) {
            if (output->pb != nullptr && (output->oformat->flags & AVFMT_NOFILE) == 0) {
                avio_closep(&output->pb);
            }
            avformat_free_context(output);
        }
    }

    [[noreturn]] void fail(const std::string& what, int code) {
        failure = what + " (" + detail::ffmpegErrorText(code) + ")";
        throw MediaError(failure);
    }

    void checkUsable() const {
        if (!failure.empty()) {
            throw MediaError("The writer of " + detail::quoted(path) +
                             " stopped after an earlier failure: " + failure);
        }
        if (finished) {
            throw MediaError("The writer of " + detail::quoted(path) + " is already finished.");
        }
    }

    void openVideo(const MovieVideoSettings& video) {
        if (video.width <= 0 || video.height <= 0 || video.width % 2 != 0 ||
            video.height % 2 != 0) {
            throw MediaError("A movie needs an even, positive picture size, not " +
                             std::to_string(video.width) + "x" + std::to_string(video.height) +
                             ".");
        }
        const bool proRes = video.codec == VideoCodec::proRes422Proxy;
        if (proRes && settings.container != MovieContainer::mov) {
            throw MediaError("ProRes can only be written into a mov file.");
        }
        const char* encoderName = proRes ? "prores_ks" : "libx264";
        const AVCodec* codec = avcodec_find_encoder_by_name(encoderName);
        if (codec == nullptr) {
            throw MediaError(std::string("The video encoder ") + encoderName +
                             " is not available in this FFmpeg.");
        }
        videoEncoder.reset(avcodec_alloc_context3(codec));
        AVCodecContext* encoder = videoEncoder.get();
        encoder->width = video.width;
        encoder->height = video.height;
        encoder->time_base = videoTimeBase;
        const double rate =
            video.frameRate > 0 && std::isfinite(video.frameRate) ? video.frameRate : 60.0;
        encoder->framerate = av_d2q(rate, 100000);
        encoder->sample_aspect_ratio = {1, 1};
        colorSpace = detail::effectiveColorSpace(AVCOL_SPC_UNSPECIFIED, video.height);
        encoder->colorspace = colorSpace;
        encoder->color_range = AVCOL_RANGE_MPEG;
        const bool hd = colorSpace == AVCOL_SPC_BT709;
        encoder->color_primaries = hd ? AVCOL_PRI_BT709 : AVCOL_PRI_SMPTE170M;
        encoder->color_trc = hd ? AVCOL_TRC_BT709 : AVCOL_TRC_SMPTE170M;
        encoder->thread_count = std::max(0, video.encoderThreads);
        AVDictionary* options = nullptr;
        if (proRes) {
            encoder->pix_fmt = AV_PIX_FMT_YUV422P10LE;
            encoder->profile = 0; // Proxy
            encoder->flags |= AV_CODEC_FLAG_QSCALE;
            encoder->global_quality = proResQuantiser * FF_QP2LAMBDA;
            av_dict_set(&options, "profile", "proxy", 0);
        } else {
            encoder->pix_fmt = AV_PIX_FMT_YUV420P;
            if (video.quantiser) {
                av_dict_set(&options, "qp", std::to_string(*video.quantiser).c_str(), 0);
            } else {
                encoder->bit_rate = video.averageBitRate > 0 ? video.averageBitRate
                                                             : static_cast<int64_t>(video.width) *
                                                                   video.height * 28 / 10;
            }
            encoder->gop_size = video.keyframeInterval > 0
                                    ? video.keyframeInterval
                                    : static_cast<int>(std::lround(rate * 2));
            av_dict_set(&options, "profile", "high", 0);
            const bool live = settings.pacing == WriterPacing::realTime;
            const char* preset = video.speed == EncoderSpeed::fastest        ? "ultrafast"
                                 : video.speed == EncoderSpeed::fast || live ? "superfast"
                                                                             : "faster";
            av_dict_set(&options, "preset", preset, 0);
            if (live) {
                // No B-frames and no look-ahead, but frame threads rather than the tune's
                // sliced ones: slices of one picture wait for each other and for the
                // conversion before them, frames in flight do not.
                av_dict_set(&options, "tune", "zerolatency", 0);
                av_dict_set(&options, "x264-params", "sliced-threads=0", 0);
            }
        }
        if ((output->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
            encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        }
        const int code = avcodec_open2(encoder, codec, &options);
        av_dict_free(&options);
        if (code < 0) {
            fail("Could not open the video encoder for " + detail::quoted(path), code);
        }
        videoStream = avformat_new_stream(output, nullptr);
        if (videoStream == nullptr) {
            throw MediaError("Out of memory for a video stream.");
        }
        videoStream->time_base = videoTimeBase;
        videoStream->avg_frame_rate = encoder->framerate;
        if (const int copied = avcodec_parameters_from_context(videoStream->codecpar, encoder);
            copied < 0) {
            fail("Could not set up the video stream of " + detail::quoted(path), copied);
        }
        videoFrame = detail::makeFrame();
        videoFrame->format = encoder->pix_fmt;
        videoFrame->width = encoder->width;
        videoFrame->height = encoder->height;
        if (const int allocated = av_frame_get_buffer(videoFrame.get(), 0); allocated < 0) {
            fail("Out of memory for a video frame", allocated);
        }
    }

    void openAudio(const MovieAudioSettings& audio) {
        if (audio.input.sampleRate <= 0 || audio.input.channelCount <= 0 ||
            audio.output.sampleRate <= 0 || audio.output.channelCount <= 0) {
            throw MediaError("The audio format of " + detail::quoted(path) + " is not valid.");
        }
        const bool wav = settings.container == MovieContainer::wav;
        const AVCodec* codec = nullptr;
        AVSampleFormat sampleFormat = AV_SAMPLE_FMT_FLTP;
        if (wav) {
            const bool integer = audio.wavFormat == WavSampleFormat::int16;
            codec = avcodec_find_encoder(integer ? AV_CODEC_ID_PCM_S16LE : AV_CODEC_ID_PCM_F32LE);
            sampleFormat = integer ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_FLT;
        } else {
            codec = avcodec_find_encoder_by_name("aac");
        }
        if (codec == nullptr) {
            throw MediaError("The audio encoder is not available in this FFmpeg.");
        }
        audioEncoder.reset(avcodec_alloc_context3(codec));
        AVCodecContext* encoder = audioEncoder.get();
        encoder->sample_fmt = sampleFormat;
        encoder->sample_rate = audio.output.sampleRate;
        av_channel_layout_default(&encoder->ch_layout, audio.output.channelCount);
        encoder->time_base = {1, audio.output.sampleRate};
        if (!wav) {
            encoder->bit_rate = audio.bitRate > 0 ? audio.bitRate : 192000;
        }
        if ((output->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
            encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        }
        if (const int code = avcodec_open2(encoder, codec, nullptr); code < 0) {
            fail("Could not open the audio encoder for " + detail::quoted(path), code);
        }
        audioStream = avformat_new_stream(output, nullptr);
        if (audioStream == nullptr) {
            throw MediaError("Out of memory for an audio stream.");
        }
        audioStream->time_base = encoder->time_base;
        if (const int copied = avcodec_parameters_from_context(audioStream->codecpar, encoder);
            copied < 0) {
            fail("Could not set up the audio stream of " + detail::quoted(path), copied);
        }
        audioFrameSize = encoder->frame_size > 0 ? encoder->frame_size : 4096;

        AVChannelLayout inputLayout{};
        av_channel_layout_default(&inputLayout, audio.input.channelCount);
        SwrContext* raw = nullptr;
        int code = swr_alloc_set_opts2(&raw, &encoder->ch_layout, sampleFormat,
                                       audio.output.sampleRate, &inputLayout, AV_SAMPLE_FMT_FLT,
                                       audio.input.sampleRate, 0, nullptr);
        av_channel_layout_uninit(&inputLayout);
        resampler.reset(raw);
        if (code >= 0) {
            av_opt_set_int(raw, "filter_size", 64, 0);
            av_opt_set_int(raw, "phase_shift", 10, 0);
            av_opt_set_int(raw, "linear_interp", 1, 0);
            av_opt_set_int(raw, "exact_rational", 1, 0);
            if (audio.input.channelCount == 2 && audio.output.channelCount == 1) {
                const double matrix[2] = {0.5, 0.5};
                swr_set_matrix(raw, matrix, 2);
            } else if (audio.input.channelCount == 1 && audio.output.channelCount == 2) {
                const double matrix[2] = {1.0, 1.0};
                swr_set_matrix(raw, matrix, 1);
            }
            code = swr_init(raw);
        }
        if (code < 0) {
            fail("Could not set up the audio conversion for " + detail::quoted(path), code);
        }
        fifo.reset(av_audio_fifo_alloc(sampleFormat, audio.output.channelCount, audioFrameSize));
        audioFrame = detail::makeFrame();
    }

    void open() {
        detail::configureLogging();
        const std::string format = containerName(settings.container);
        if (const int code =
                avformat_alloc_output_context2(&output, nullptr, format.c_str(), path.c_str());
            code < 0) {
            fail("Could not make a " + format + " file at " + detail::quoted(path), code);
        }
        if (isMovieContainer(settings.container)) {
            if (!settings.video) {
                throw MediaError("A movie file needs video settings.");
            }
            openVideo(*settings.video);
        } else if (settings.video) {
            throw MediaError("An audio file cannot hold video.");
        }
        if (settings.audio) {
            openAudio(*settings.audio);
        } else if (!settings.video) {
            throw MediaError("An audio file needs audio settings.");
        }
        if (!settings.createFileWithFirstData) {
            createFile();
        }
    }

    void createFile() {
        if (headerWritten) {
            return;
        }
        if (const int code = avio_open(&output->pb, path.c_str(), AVIO_FLAG_WRITE); code < 0) {
            fail("Could not create " + detail::quoted(path), code);
        }
        AVDictionary* options = nullptr;
        // The index is written with the first fragment (delay_moov) so that it can hold the
        // edit that hides the AAC encoder's priming samples.
        if (settings.fragmented && settings.container != MovieContainer::wav) {
            const double interval =
                settings.fragmentInterval > 0 && std::isfinite(settings.fragmentInterval)
                    ? settings.fragmentInterval
                    : 1.0;
            const std::string microseconds = std::to_string(std::llround(interval * 1e6));
            // Each fragment reaches the file as soon as it is cut, not when the I/O
            // buffer happens to fill: a still screen makes fragments smaller than it.
            av_dict_set(&options, "flush_packets", "1", 0);
            if (settings.video) {
                // A fragment at each keyframe once the interval has passed.
                av_dict_set(&options, "movflags",
                            "frag_keyframe+empty_moov+delay_moov+default_base_moof", 0);
                av_dict_set(&options, "min_frag_duration", microseconds.c_str(), 0);
            } else {
                av_dict_set(&options, "movflags", "empty_moov+delay_moov+default_base_moof", 0);
                av_dict_set(&options, "frag_duration", microseconds.c_str(), 0);
            }
        }
        const int code = avformat_write_header(output, &options);
        av_dict_free(&options);
        if (code < 0) {
            fail("Could not write the header of " + detail::quoted(path), code);
        }
        headerWritten = true;
    }

    // Writes every packet the encoder has ready (all of them when draining).
    void drainEncoder(AVCodecContext* encoder, AVStream* stream) {
        while (true) {
            const int received = avcodec_receive_packet(encoder, packet.get());
            if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
                return;
            }
            if (received < 0) {
                fail("Could not encode " + detail::quoted(path), received);
            }
            av_packet_rescale_ts(packet.get(), encoder->time_base, stream->time_base);
            packet->stream_index = stream->index;
            if (const int written = av_interleaved_write_frame(output, packet.get()); written < 0) {
                fail("Could not write to " + detail::quoted(path), written);
            }
        }
    }

    void encodeVideo(const PictureRows& frame, double time) {
        AVCodecContext* encoder = videoEncoder.get();
        if (const int code = av_frame_make_writable(videoFrame.get()); code < 0) {
            fail("Out of memory for a video frame", code);
        }
        const PixelLayout layout = frame.layout;
        const uint8_t* sources[4] = {frame.planes[0], frame.planes[1], frame.planes[2], nullptr};
        int strides[4] = {frame.strides[0], frame.strides[1], frame.strides[2], 0};
        if (layout == PixelLayout::yuv420p && encoder->pix_fmt == AV_PIX_FMT_YUV420P) {
            for (int plane = 0; plane < 3; ++plane) {
                av_image_copy_plane(videoFrame->data[plane], videoFrame->linesize[plane],
                                    sources[plane], strides[plane], frame.planeWidthBytes(plane),
                                    frame.planeHeight(plane));
            }
        } else if (layout == PixelLayout::bgra && encoder->pix_fmt == AV_PIX_FMT_YUV420P &&
                   colorSpace == AVCOL_SPC_BT709) {
            // The export's common case, several times faster than the scaler.
            if (!bands) {
                bands = std::make_unique<detail::BandRunner>(detail::BandRunner::machineThreads());
            }
            const detail::Yuv420pPlanes planes{
                {videoFrame->data[0], videoFrame->data[1], videoFrame->data[2]},
                {videoFrame->linesize[0], videoFrame->linesize[1], videoFrame->linesize[2]}};
            detail::bgraToYuv420pBt709(sources[0], strides[0], encoder->width, encoder->height,
                                       planes, *bands);
        } else {
            if (!scaler || scalerInput != layout) {
                scaler.reset(sws_getContext(
                    encoder->width, encoder->height, detail::pixelFormat(layout), encoder->width,
                    encoder->height, encoder->pix_fmt, SWS_BILINEAR, nullptr, nullptr, nullptr));
                if (!scaler) {
                    throw MediaError("Could not convert pictures for " + detail::quoted(path) +
                                     ".");
                }
                scalerInput = layout;
                const bool sourceIsYuv = layout == PixelLayout::yuv420p;
                detail::setColorDetails(scaler.get(), colorSpace, false, sourceIsYuv, true);
            }
            sws_scale(scaler.get(), sources, strides, 0, encoder->height, videoFrame->data,
                      videoFrame->linesize);
        }
        videoFrame->pts = std::llround(time * videoTimeBase.den / videoTimeBase.num);
        if (const int sent = avcodec_send_frame(encoder, videoFrame.get()); sent < 0) {
            fail("Could not encode the video of " + detail::quoted(path), sent);
        }
        ++videoFrames;
        drainEncoder(encoder, videoStream);
    }

    // Hands full encoder frames from the FIFO to the encoder; with `flush`, the rest too.
    void encodeAudioFromFifo(bool flush) {
        AVCodecContext* encoder = audioEncoder.get();
        while (av_audio_fifo_size(fifo.get()) >= audioFrameSize ||
               (flush && av_audio_fifo_size(fifo.get()) > 0)) {
            const int available = av_audio_fifo_size(fifo.get());
            const bool smallLast =
                (encoder->codec->capabilities & AV_CODEC_CAP_SMALL_LAST_FRAME) != 0 ||
                (encoder->codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) != 0 ||
                encoder->frame_size == 0;
            const int count = std::min(available, audioFrameSize);
            av_frame_unref(audioFrame.get());
            audioFrame->format = encoder->sample_fmt;
            audioFrame->sample_rate = encoder->sample_rate;
            av_channel_layout_copy(&audioFrame->ch_layout, &encoder->ch_layout);
            audioFrame->nb_samples = smallLast ? count : audioFrameSize;
            if (const int code = av_frame_get_buffer(audioFrame.get(), 0); code < 0) {
                fail("Out of memory for audio", code);
            }
            if (audioFrame->nb_samples > count) {
                av_samples_set_silence(audioFrame->extended_data, 0, audioFrame->nb_samples,
                                       encoder->ch_layout.nb_channels, encoder->sample_fmt);
            }
            av_audio_fifo_read(fifo.get(), reinterpret_cast<void**>(audioFrame->extended_data),
                               count);
            audioFrame->pts = audioNextPts;
            audioNextPts += audioFrame->nb_samples;
            if (const int sent = avcodec_send_frame(encoder, audioFrame.get()); sent < 0) {
                fail("Could not encode the audio of " + detail::quoted(path), sent);
            }
            drainEncoder(encoder, audioStream);
        }
    }

    void convertAudio(const float* interleaved, size_t frameCount) {
        AVCodecContext* encoder = audioEncoder.get();
        const int inputFrames = static_cast<int>(frameCount);
        const int capacity = swr_get_out_samples(resampler.get(), inputFrames) + 16;
        if (capacity <= 0) {
            return;
        }
        uint8_t** planes = nullptr;
        int lineSize = 0;
        if (const int code = av_samples_alloc_array_and_samples(&planes, &lineSize,
                                                                encoder->ch_layout.nb_channels,
                                                                capacity, encoder->sample_fmt, 0);
            code < 0) {
            fail("Out of memory for audio", code);
        }
        const auto* input = reinterpret_cast<const uint8_t*>(interleaved);
        const int produced = swr_convert(resampler.get(), planes, capacity,
                                         interleaved != nullptr ? &input : nullptr, inputFrames);
        int written = 0;
        if (produced > 0) {
            written = av_audio_fifo_write(fifo.get(), reinterpret_cast<void**>(planes), produced);
        }
        av_freep(&planes[0]);
        av_freep(&planes);
        if (produced < 0) {
            fail("Could not convert the audio for " + detail::quoted(path), produced);
        }
        if (written < produced) {
            fail("Out of memory for audio", AVERROR(ENOMEM));
        }
    }

    void encodeAudio(const float* interleaved, size_t frameCount) {
        constexpr size_t chunk = 1 << 15;
        const auto channels = static_cast<size_t>(settings.audio->input.channelCount);
        for (size_t done = 0; done < frameCount; done += chunk) {
            const size_t count = std::min(chunk, frameCount - done);
            convertAudio(interleaved + done * channels, count);
            audioInputFrames += static_cast<int64_t>(count);
            encodeAudioFromFifo(false);
        }
    }

    void finishEncoding() {
        if (audioEncoder) {
            convertAudio(nullptr, 0);
            encodeAudioFromFifo(true);
            avcodec_send_frame(audioEncoder.get(), nullptr);
            drainEncoder(audioEncoder.get(), audioStream);
        }
        if (videoEncoder) {
            avcodec_send_frame(videoEncoder.get(), nullptr);
            drainEncoder(videoEncoder.get(), videoStream);
        }
        if (const int code = av_write_trailer(output); code < 0) {
            fail("Could not finish " + detail::quoted(path), code);
        }
        if (const int code = avio_closep(&output->pb); code < 0) {
            fail("Could not close " + detail::quoted(path), code);
        }
    }

    // Checks the picture and its time; encodes it at once (offline) or copies it once into
    // a pooled frame for the encoder thread (real time).
    bool appendPicture(const PictureRows& rows, double time,
                       std::shared_ptr<const void> lender = nullptr) {
        checkUsable();
        if (!videoEncoder) {
            throw MediaError(detail::quoted(path) + " has no video track.");
        }
        if (rows.width != videoEncoder->width || rows.height != videoEncoder->height) {
            throw MediaError("A " + std::to_string(rows.width) + "x" + std::to_string(rows.height) +
                             " picture does not fit the " + std::to_string(videoEncoder->width) +
                             "x" + std::to_string(videoEncoder->height) + " movie " +
                             detail::quoted(path) + ".");
        }
        const int64_t ticks = std::llround(time * videoTimeBase.den / videoTimeBase.num);
        if (!std::isfinite(time) || ticks <= lastVideoTicks || time < 0) {
            return false;
        }
        createFile();
        if (settings.pacing == WriterPacing::offline) {
            lastVideoTicks = ticks;
            encodeVideo(rows, time);
            return true;
        }
        rethrowWorkerError();
        std::unique_lock lock(mutex);
        if (queuedVideo >= static_cast<size_t>(std::max(1, settings.realTimeQueueLimit))) {
            ++droppedFrames;
            return false;
        }
        if (lender) {
            lastVideoTicks = ticks;
            ++queuedVideo;
            backlogHighWater = std::max(backlogHighWater, static_cast<int64_t>(queuedVideo));
            queue.emplace_back(VideoJob{VideoFrame{}, time, std::move(lender), rows});
            lock.unlock();
            wake.notify_one();
            return true;
        }
        VideoFrame copy;
        if (!framePool.empty()) {
            copy = std::move(framePool.back());
            framePool.pop_back();
        }
        lock.unlock();
        copy.allocate(rows.layout, rows.width, rows.height);
        for (int plane = 0; plane < copy.planeCount(); ++plane) {
            av_image_copy_plane(copy.planes[static_cast<size_t>(plane)].data(),
                                copy.strides[static_cast<size_t>(plane)],
                                rows.planes[static_cast<size_t>(plane)],
                                rows.strides[static_cast<size_t>(plane)],
                                copy.planeWidthBytes(plane), copy.planeHeight(plane));
        }
        copy.presentationTime = time;
        lock.lock();
        lastVideoTicks = ticks;
        ++queuedVideo;
        backlogHighWater = std::max(backlogHighWater, static_cast<int64_t>(queuedVideo));
        queue.emplace_back(VideoJob{std::move(copy), time, nullptr, {}});
        lock.unlock();
        wake.notify_one();
        return true;
    }

    // Real-time pacing.
    void startWorker() {
        worker = std::thread([this] { runWorker(); });
    }

    void runWorker() {
        while (true) {
            std::variant<VideoJob, AudioJob> job;
            {
                std::unique_lock lock(mutex);
                wake.wait(lock, [this] { return stopping || !queue.empty(); });
                if (queue.empty()) {
                    return;
                }
                job = std::move(queue.front());
                queue.pop_front();
                busy = true;
            }
            std::exception_ptr error;
            try {
                if (auto* video = std::get_if<VideoJob>(&job)) {
                    encodeVideo(video->lender ? video->lent : PictureRows::of(video->frame),
                                video->time);
                } else {
                    const auto& audio = std::get<AudioJob>(job);
                    encodeAudio(audio.samples.data(),
                                audio.samples.size() /
                                    static_cast<size_t>(settings.audio->input.channelCount));
                }
            } catch (...) {
                error = std::current_exception();
            }
            std::lock_guard lock(mutex);
            busy = false;
            if (auto* video = std::get_if<VideoJob>(&job)) {
                --queuedVideo;
                if (video->lender) {
                    video->lender.reset();
                } else {
                    framePool.push_back(std::move(video->frame));
                }
            }
            if (error && !workerError) {
                workerError = error;
            }
            if (queue.empty()) {
                drained.notify_all();
            }
        }
    }

    void rethrowWorkerError() {
        std::exception_ptr error;
        {
            std::lock_guard lock(mutex);
            error = workerError;
        }
        if (error) {
            try {
                std::rethrow_exception(error);
            } catch (const MediaError& mediaError) {
                if (failure.empty()) {
                    failure = mediaError.what();
                }
                throw;
            }
        }
    }

    void waitForWorker() {
        std::unique_lock lock(mutex);
        drained.wait(lock, [this] { return queue.empty() && !busy; });
    }

    void stopWorker() {
        if (!worker.joinable()) {
            return;
        }
        {
            std::lock_guard lock(mutex);
            stopping = true;
        }
        wake.notify_all();
        worker.join();
    }
};

MovieWriter::MovieWriter(const std::filesystem::path& path, MovieWriterSettings settings)
    : state_(std::make_unique<State>()) {
    state_->path = path;
    state_->settings = settings;
    state_->open();
    if (state_->settings.pacing == WriterPacing::realTime) {
        state_->startWorker();
    }
}

MovieWriter::~MovieWriter() {
    if (state_ && state_->headerWritten && !state_->finished && state_->failure.empty()) {
        try {
            finish();
        } catch (const std::exception&) {
            // Closing as far as it got is all a destructor can do.
        }
    }
}

const std::filesystem::path& MovieWriter::path() const {
    return state_->path;
}
int64_t MovieWriter::videoFramesWritten() const {
    return state_->videoFrames;
}
int64_t MovieWriter::audioFramesWritten() const {
    return state_->audioInputFrames;
}

int64_t MovieWriter::droppedVideoFrames() const {
    std::lock_guard lock(state_->mutex);
    return state_->droppedFrames;
}

int64_t MovieWriter::videoBacklogHighWater() const {
    std::lock_guard lock(state_->mutex);
    return state_->backlogHighWater;
}

bool MovieWriter::appendVideoFrame(const VideoFrame& frame, double time) {
    return state_->appendPicture(PictureRows::of(frame), time);
}

bool MovieWriter::appendVideoFrame(const uint8_t* bgra, int stride, double time) {
    const int width = state_->videoEncoder ? state_->videoEncoder->width : 0;
    const int height = state_->videoEncoder ? state_->videoEncoder->height : 0;
    return state_->appendPicture(PictureRows{PixelLayout::bgra, width, height, {bgra}, {stride}},
                                 time);
}

bool MovieWriter::appendLentVideoFrame(std::shared_ptr<const void> lender, const uint8_t* bgra,
                                       int stride, double time) {
    const int width = state_->videoEncoder ? state_->videoEncoder->width : 0;
    const int height = state_->videoEncoder ? state_->videoEncoder->height : 0;
    return state_->appendPicture(PictureRows{PixelLayout::bgra, width, height, {bgra}, {stride}},
                                 time, std::move(lender));
}

void MovieWriter::appendAudio(const float* interleaved, size_t frameCount) {
    State& s = *state_;
    s.checkUsable();
    if (!s.audioEncoder) {
        throw MediaError(detail::quoted(s.path) + " has no audio track.");
    }
    if (frameCount == 0) {
        return;
    }
    s.createFile();
    if (s.settings.pacing == WriterPacing::offline) {
        s.encodeAudio(interleaved, frameCount);
        return;
    }
    s.rethrowWorkerError();
    const auto channels = static_cast<size_t>(s.settings.audio->input.channelCount);
    State::AudioJob job;
    job.samples.assign(interleaved, interleaved + frameCount * channels);
    {
        std::lock_guard lock(s.mutex);
        s.queue.emplace_back(std::move(job));
    }
    s.wake.notify_one();
}

void MovieWriter::finish() {
    State& s = *state_;
    s.checkUsable();
    if (s.worker.joinable()) {
        s.waitForWorker();
        s.stopWorker();
        s.rethrowWorkerError();
    }
    s.createFile();
    s.finished = true;
    try {
        s.finishEncoding();
    } catch (...) {
        s.finished = false;
        throw;
    }
}

AudioFileWriter::AudioFileWriter(const std::filesystem::path& path, MovieContainer container,
                                 MovieAudioSettings settings, bool fragmented, WriterPacing pacing,
                                 double fragmentInterval)
    : writer_(path, MovieWriterSettings{container, std::nullopt, settings, fragmented, pacing,
                                        fragmentInterval}) {}

AudioFileWriter::~AudioFileWriter() = default;

void AudioFileWriter::append(const float* interleaved, size_t frameCount) {
    writer_.appendAudio(interleaved, frameCount);
}

void AudioFileWriter::finish() {
    writer_.finish();
}

int64_t AudioFileWriter::framesWritten() const {
    return writer_.audioFramesWritten();
}

} // namespace orvelle
