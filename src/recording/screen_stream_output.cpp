#include "recording/screen_stream_output.h"

#include "core/files.h"
#include "core/log.h"
#include "core/monotonic_clock.h"
#include "recording/audio_placement.h"
#include "recording/segmented_sample_buffer_recorder.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace orvelle {

namespace {

// x264's quantiser for screen pictures: text stays sharp when the editor zooms in (56 dB
// luma PSNR on a scrolling page of text, as good as CRF 20 in 9 % fewer bits), and a
// still screen costs almost nothing.
constexpr int kScreenQuantiser = 18;
constexpr int kSystemAudioRate = 48000;
constexpr int kSystemAudioChannels = 2;

double endTime(double presentationTime, double duration) {
    return std::isfinite(duration) && duration > 0 ? presentationTime + duration : presentationTime;
}

} // namespace

MovieWriterSettings screenMovieSettings(int width, int height, bool includeAudio,
                                        double frameRate) {
    MovieVideoSettings video;
    video.codec = VideoCodec::h264High;
    video.width = width;
    video.height = height;
    video.frameRate = frameRate;
    // A keyframe a second keeps seeking in the editor cheap.
    video.keyframeInterval = std::max(1, static_cast<int>(std::lround(frameRate)));
    video.speed = EncoderSpeed::fastest;
    video.quantiser = kScreenQuantiser;
    // Two pictures in flight keep up at 60 a second with one core busy elsewhere; every
    // further frame thread costs processor time (a tenth more at three on two cores).
    video.encoderThreads = 2;
    MovieWriterSettings settings;
    settings.container = MovieContainer::mov;
    settings.video = video;
    if (includeAudio) {
        MovieAudioSettings audio;
        audio.input = {kSystemAudioRate, kSystemAudioChannels};
        audio.output = {kSystemAudioRate, kSystemAudioChannels};
        audio.bitRate = 128000;
        settings.audio = audio;
    }
    settings.fragmented = true;
    settings.fragmentInterval = 2.0;
    settings.pacing = WriterPacing::realTime;
    settings.createFileWithFirstData = true;
    return settings;
}

bool shouldWrite(const std::optional<int>& status) {
    if (!status) {
        return true;
    }
    return *status == static_cast<int>(CaptureFrameStatus::complete) ||
           *status == static_cast<int>(CaptureFrameStatus::idle) ||
           *status == static_cast<int>(CaptureFrameStatus::started);
}

std::filesystem::path screenSegmentURL(const std::filesystem::path& firstURL, int index) {
    if (index <= 1) {
        return firstURL;
    }
    const std::string extension =
        firstURL.has_extension() ? firstURL.extension().string().substr(1) : "mov";
    return trackSegmentURL(firstURL.parent_path(), firstURL.stem().string(),
                           MediaTrackManifest::Kind::screen, index, extension);
}

// One movie of the screen track: the run between two pauses. It is made ahead of its first
// picture (setting up the encoder takes several frames' time) and placed on the program
// clock when that picture comes; its file appears with it.
class ScreenSegment {
public:
    ScreenSegment(std::filesystem::path segmentURL, int width, int height, bool includeAudio,
                  double frameRate)
        : url(std::move(segmentURL)), hasAudio(includeAudio) {
        removeIgnoringErrors(url);
        writer = std::make_unique<MovieWriter>(
            url, screenMovieSettings(width, height, includeAudio, frameRate));
    }

    void startIfNeeded(const CapturedVideoFrame& frame) {
        if (started) {
            return;
        }
        firstPresentationTime = frame.presentationTime;
        lastPresentationEndTime = endTime(frame.presentationTime, frame.duration);
        started = true;
    }

    // False when the writer had no room for the frame: it is dropped, not reported. The
    // writer holds the stream's buffer until it has encoded it: no copy is made.
    bool appendVideo(const CapturedVideoFrameRef& held) {
        const CapturedVideoFrame& frame = *held;
        startIfNeeded(frame);
        const bool appended = writer->appendLentVideoFrame(
            held, frame.pixels, frame.stride, frame.presentationTime - *firstPresentationTime);
        if (appended) {
            lastPresentationEndTime = endTime(frame.presentationTime, frame.duration);
            didAppendVideo = true;
        }
        return appended;
    }

    void appendAudio(const CapturedAudio& audio) {
        if (!hasAudio || !started || audio.channelCount != kSystemAudioChannels ||
            audio.sampleRate != kSystemAudioRate) {
            return;
        }
        const size_t frames = audio.frameCount();
        // Sound from before the segment's first picture is not part of it.
        const double bufferEnd =
            audio.presentationTime + static_cast<double>(frames) / audio.sampleRate;
        if (bufferEnd <= *firstPresentationTime) {
            return;
        }
        const AudioPlacement placement =
            placeAudio(*firstPresentationTime, audioFramesWritten, audio.sampleRate,
                       audio.presentationTime, frames);
        if (placement.silenceFrames > 0) {
            const std::vector<float> silence(placement.silenceFrames * kSystemAudioChannels, 0.0f);
            writer->appendAudio(silence.data(), placement.silenceFrames);
            audioFramesWritten += static_cast<int64_t>(placement.silenceFrames);
        }
        const size_t kept = frames - placement.skipFrames;
        if (kept > 0) {
            writer->appendAudio(audio.samples.data() + placement.skipFrames * kSystemAudioChannels,
                                kept);
            audioFramesWritten += static_cast<int64_t>(kept);
        }
    }

    // The segment's length in seconds; 0 when nothing was written. Throws on a writer
    // failure.
    double finish() {
        if (!started || !didAppendVideo) {
            writer.reset();
            return 0;
        }
        backlogHighWater = writer->videoBacklogHighWater();
        writer->finish();
        if (!firstPresentationTime || !lastPresentationEndTime) {
            return 0;
        }
        return std::max(0.0, *lastPresentationEndTime - *firstPresentationTime);
    }

    void cancel() {
        writer.reset();
        removeIgnoringErrors(url);
    }

    std::filesystem::path url;
    double programStart = 0;
    std::unique_ptr<MovieWriter> writer;
    bool hasAudio = false;
    std::optional<double> firstPresentationTime;
    std::optional<double> lastPresentationEndTime;
    bool started = false;
    bool didAppendVideo = false;
    int64_t audioFramesWritten = 0;
    int64_t backlogHighWater = 0;
};

ScreenStreamOutput::ScreenStreamOutput(std::filesystem::path firstOutputURL, int width, int height,
                                       bool includeAudio, Callbacks callbacks, double frameRate)
    : firstOutputURL_(std::move(firstOutputURL)), width_(width), height_(height),
      includeAudio_(includeAudio), callbacks_(std::move(callbacks)), frameRate_(frameRate) {
    sampleQueue_.post([this] { prepareNextSegment(); });
}

ScreenStreamOutput::~ScreenStreamOutput() {
    sampleQueue_.sync([this] {
        if (activeSegment_) {
            try {
                activeSegment_->finish();
            } catch (const std::exception& error) {
                logWarning("capture", "closing a screen segment at teardown: ", error.what());
            }
            activeSegment_.reset();
        }
    });
}

void ScreenStreamOutput::streamDidOutputVideoFrame(CapturedVideoFrameRef frame) {
    sampleQueue_.post([this, frame = std::move(frame)] { handleVideo(frame); });
}

void ScreenStreamOutput::prepareNextSegment() {
    if (activeSegment_ || isCancelled_ || failed_) {
        return;
    }
    try {
        activeSegment_ =
            std::make_unique<ScreenSegment>(screenSegmentURL(firstOutputURL_, nextSegmentIndex_),
                                            width_, height_, includeAudio_, frameRate_);
        ++nextSegmentIndex_;
    } catch (const std::exception& error) {
        // Made again at the first picture, which reports what fails then.
        logWarning("capture", "setting up the screen encoder ahead: ", error.what());
    }
}

void ScreenStreamOutput::streamDidOutputAudio(const CapturedAudio& audio) {
    sampleQueue_.post([this, audio] { handleAudio(audio); });
}

void ScreenStreamOutput::streamDidStop(const std::string& errorMessage) {
    sampleQueue_.post([this, errorMessage] { fail(errorMessage); });
}

void ScreenStreamOutput::handleVideo(const CapturedVideoFrameRef& held) {
    const CapturedVideoFrame& frame = *held;
    if (isCancelled_ || failed_) {
        return;
    }
    if (frame.pixels == nullptr || frame.width != width_ || frame.height != height_) {
        return;
    }
    if (!shouldWrite(frame.status)) {
        return;
    }
    if (!readyFrameSignaled_) {
        readyFrameSignaled_ = true;
        if (callbacks_.onReadyFrame) {
            callbacks_.onReadyFrame();
        }
    }
    if (!writingArmed_ || !acceptsSamples_) {
        return;
    }
    ++statistics_.framesReceived;
    statistics_.maxDeliveryDelay =
        std::max(statistics_.maxDeliveryDelay, monotonicNow() - frame.presentationTime);
    ScreenSegment* segment = activeSegmentForWriting();
    if (segment == nullptr) {
        return;
    }
    bool appended = false;
    try {
        appended = segment->appendVideo(held);
    } catch (const std::exception& error) {
        fail(error.what());
        return;
    }
    if (!appended) {
        ++statistics_.framesDroppedByWriter;
        return;
    }
    ++statistics_.framesWritten;
    if (!firstFrameSignaled_) {
        firstFrameSignaled_ = true;
        if (callbacks_.onFirstFrame) {
            callbacks_.onFirstFrame(Date::now());
        }
    }
}

void ScreenStreamOutput::handleAudio(const CapturedAudio& audio) {
    if (isCancelled_ || failed_ || !writingArmed_ || !acceptsSamples_) {
        return;
    }
    if (audio.samples.empty() || !activeSegment_) {
        return; // audio never opens a segment
    }
    try {
        activeSegment_->appendAudio(audio);
    } catch (const std::exception& error) {
        fail(error.what());
    }
}

ScreenSegment* ScreenStreamOutput::activeSegmentForWriting() {
    if (!activeSegment_) {
        try {
            activeSegment_ = std::make_unique<ScreenSegment>(
                screenSegmentURL(firstOutputURL_, nextSegmentIndex_), width_, height_,
                includeAudio_, frameRate_);
            ++nextSegmentIndex_;
        } catch (const std::exception& error) {
            fail(error.what());
            return nullptr;
        }
    }
    if (!activeSegment_->started) {
        activeSegment_->programStart = nextProgramStart_;
    }
    return activeSegment_.get();
}

double ScreenStreamOutput::finishActiveSegmentOnQueue(std::optional<std::string>& error) {
    acceptsSamples_ = false;
    if (!activeSegment_ || !activeSegment_->started) {
        return nextProgramStart_; // one made ahead waits for the next run
    }
    std::unique_ptr<ScreenSegment> segment = std::move(activeSegment_);
    double duration = 0;
    try {
        duration = segment->finish();
    } catch (const std::exception& failure) {
        error = failure.what();
    }
    statistics_.writerBacklogHighWater =
        std::max(statistics_.writerBacklogHighWater, segment->backlogHighWater);
    if (isCancelled_ || error) {
        segment->cancel();
        return nextProgramStart_;
    }
    if (duration > 0) {
        RecordedMediaSegment recorded;
        recorded.kind = MediaTrackManifest::Kind::screen;
        recorded.url = segment->url;
        recorded.programStart = segment->programStart;
        recorded.duration = duration;
        recorded.mediaStart = 0;
        recorded.mediaDuration = duration;
        recorded.width = width_;
        recorded.height = height_;
        recorded.trackID = "screen";
        completedSegments_.push_back(recorded);
        nextProgramStart_ = std::max(nextProgramStart_, segment->programStart + duration);
    } else {
        segment->cancel();
    }
    return nextProgramStart_;
}

void ScreenStreamOutput::fail(const std::string& message) {
    if (failed_) {
        return;
    }
    failed_ = true;
    acceptsSamples_ = false;
    if (callbacks_.onFailure) {
        callbacks_.onFailure(message);
    }
}

void ScreenStreamOutput::armWriting() {
    sampleQueue_.sync([this] {
        writingArmed_ = true;
        acceptsSamples_ = true;
    });
}

double ScreenStreamOutput::pauseRecording() {
    double programEnd = 0;
    std::optional<std::string> error;
    sampleQueue_.sync([&] { programEnd = finishActiveSegmentOnQueue(error); });
    // The next run's encoder is set up while the recording is paused.
    sampleQueue_.post([this] { prepareNextSegment(); });
    if (error) {
        throw Error(*error);
    }
    return programEnd;
}

void ScreenStreamOutput::resumeRecording(std::optional<double> programStart) {
    sampleQueue_.sync([this, programStart] {
        if (isCancelled_) {
            return;
        }
        if (programStart) {
            nextProgramStart_ = std::isfinite(*programStart) ? std::max(0.0, *programStart) : 0;
        }
        acceptsSamples_ = true;
    });
}

ScreenStreamOutput::FinishResult ScreenStreamOutput::finish() {
    FinishResult result;
    sampleQueue_.sync([&] {
        finishActiveSegmentOnQueue(result.tailError);
        result.segments = completedSegments_;
    });
    return result;
}

std::vector<RecordedMediaSegment> ScreenStreamOutput::segments() {
    std::vector<RecordedMediaSegment> segments;
    sampleQueue_.sync([&] { segments = completedSegments_; });
    return segments;
}

void ScreenStreamOutput::cancel() {
    sampleQueue_.post([this] {
        isCancelled_ = true;
        acceptsSamples_ = false;
        if (activeSegment_) {
            activeSegment_->cancel();
            activeSegment_.reset();
        }
        for (const auto& segment : completedSegments_) {
            removeIgnoringErrors(segment.url);
        }
        completedSegments_.clear();
    });
}

ScreenStreamStatistics ScreenStreamOutput::statistics() {
    ScreenStreamStatistics statistics;
    sampleQueue_.sync([&] {
        statistics = statistics_;
        if (activeSegment_ && activeSegment_->writer) {
            statistics.writerBacklogHighWater = std::max(
                statistics.writerBacklogHighWater, activeSegment_->writer->videoBacklogHighWater());
        }
    });
    return statistics;
}

} // namespace orvelle
