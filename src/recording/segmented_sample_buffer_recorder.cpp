#include "recording/segmented_sample_buffer_recorder.h"

#include "core/files.h"
#include "core/log.h"
#include "recording/audio_placement.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace orvelle {

namespace {

double endTime(double presentationTime, double duration) {
    return std::isfinite(duration) && duration > 0 ? presentationTime + duration : presentationTime;
}

} // namespace

RecordingSegmentWriterError RecordingSegmentWriterError::cannotAddWriterInput() {
    return {RecordingSegmentWriterErrorCode::cannotAddWriterInput,
            "Could not configure the segment writer."};
}

RecordingSegmentWriterError RecordingSegmentWriterError::cannotStartWriter() {
    return {RecordingSegmentWriterErrorCode::cannotStartWriter,
            "Could not start the segment writer."};
}

RecordingSegmentWriterError RecordingSegmentWriterError::missingPixelBuffer() {
    return {RecordingSegmentWriterErrorCode::missingPixelBuffer,
            "The camera sample did not contain a video frame."};
}

std::filesystem::path trackSegmentURL(const std::filesystem::path& directory,
                                      const std::string& baseName, MediaTrackManifest::Kind kind,
                                      int index, const std::string& extension) {
    char number[16];
    std::snprintf(number, sizeof number, "%03d", index);
    return directory / (baseName + "-" + std::string(MediaTrackManifest::fileSlug(kind)) + "-" +
                        number + "." + extension);
}

// A writer that cannot be made is one that could not start: the reason goes to the log,
// the user reads the writer's own words.
template <class Make>
auto makeWriter(const Make& make) {
    try {
        return make();
    } catch (const MediaError& error) {
        logWarning("recording", "segment writer: ", error.what());
        throw RecordingSegmentWriterError::cannotStartWriter();
    }
}

VideoSegment::VideoSegment(std::filesystem::path url, double programStart)
    : url_(std::move(url)), programStart_(programStart) {}

VideoSegment::~VideoSegment() = default;

void VideoSegment::startIfNeeded(const Sample& sample) {
    if (writer_) {
        return;
    }
    if (!sample || sample->pixels == nullptr) {
        throw RecordingSegmentWriterError::missingPixelBuffer();
    }
    width_ = sample->width;
    height_ = sample->height;
    MovieVideoSettings video;
    video.codec = VideoCodec::h264High;
    video.width = width_;
    video.height = height_;
    video.frameRate = 30;
    // x264's fastest preset on one thread, at half as many bits again as the faster preset
    // would need: a better picture for some 40 % less processor time, which the screen
    // encoder beside it needs more.
    video.speed = EncoderSpeed::fastest;
    video.averageBitRate = static_cast<int64_t>(width_) * height_ * 42 / 10;
    video.encoderThreads = 1;
    MovieWriterSettings settings;
    settings.container = MovieContainer::mov;
    settings.video = video;
    settings.fragmented = true;
    settings.fragmentInterval = 2.0;
    settings.pacing = WriterPacing::realTime;
    removeIgnoringErrors(url_);
    writer_ = makeWriter([&] { return std::make_unique<MovieWriter>(url_, settings); });
    firstPresentationTime_ = sample->presentationTime;
    lastPresentationEndTime_ = endTime(sample->presentationTime, sample->duration);
}

void VideoSegment::append(const Sample& sample) {
    if (!writer_ || !sample || sample->pixels == nullptr) {
        return;
    }
    if (sample->width != width_ || sample->height != height_) {
        throw Error("The camera changed its picture size from " + std::to_string(width_) + "x" +
                    std::to_string(height_) + " to " + std::to_string(sample->width) + "x" +
                    std::to_string(sample->height) + " during the recording.");
    }
    if (writer_->appendLentVideoFrame(sample, sample->pixels, sample->stride,
                                      sample->presentationTime - *firstPresentationTime_)) {
        lastPresentationEndTime_ = endTime(sample->presentationTime, sample->duration);
        didAppendSamples_ = true;
    }
}

RecordedSegmentMedia VideoSegment::finish() {
    if (!writer_ || !didAppendSamples_) {
        writer_.reset();
        return {0, std::nullopt, std::nullopt};
    }
    writer_->finish();
    const double length = std::max(0.0, *lastPresentationEndTime_ - *firstPresentationTime_);
    return {length, width_, height_};
}

void VideoSegment::cancel() {
    writer_.reset();
    removeIgnoringErrors(url_);
}

AudioSegment::AudioSegment(std::filesystem::path url, double programStart)
    : url_(std::move(url)), programStart_(programStart) {}

AudioSegment::~AudioSegment() = default;

void AudioSegment::startIfNeeded(const Sample& sample) {
    if (writer_) {
        return;
    }
    const bool described = sample.sampleRate > 0 && sample.channelCount > 0;
    sampleRate_ = described ? sample.sampleRate : 48000;
    channelCount_ = described ? sample.channelCount : 1;
    MovieAudioSettings audio;
    audio.input = {sampleRate_, channelCount_};
    audio.output = {sampleRate_, channelCount_};
    audio.bitRate = 128000;
    removeIgnoringErrors(url_);
    writer_ = makeWriter([&] {
        return std::make_unique<AudioFileWriter>(url_, MovieContainer::m4a, audio, true,
                                                 WriterPacing::realTime, 2.0);
    });
    firstPresentationTime_ = sample.presentationTime;
}

void AudioSegment::append(const Sample& sample) {
    if (!writer_ || sample.sampleRate != sampleRate_ || sample.channelCount != channelCount_) {
        return;
    }
    const size_t frames = sample.frameCount();
    const AudioPlacement placement = placeAudio(*firstPresentationTime_, framesWritten_,
                                                sampleRate_, sample.presentationTime, frames);
    const auto channels = static_cast<size_t>(channelCount_);
    if (placement.silenceFrames > 0) {
        const std::vector<float> silence(placement.silenceFrames * channels, 0.0f);
        writer_->append(silence.data(), placement.silenceFrames);
        framesWritten_ += static_cast<int64_t>(placement.silenceFrames);
    }
    const size_t kept = frames - placement.skipFrames;
    if (kept > 0) {
        writer_->append(sample.samples.data() + placement.skipFrames * channels, kept);
        framesWritten_ += static_cast<int64_t>(kept);
        didAppendSamples_ = true;
    }
}

RecordedSegmentMedia AudioSegment::finish() {
    if (!writer_ || !didAppendSamples_) {
        writer_.reset();
        return {0, std::nullopt, std::nullopt};
    }
    writer_->finish();
    return {static_cast<double>(framesWritten_) / sampleRate_, std::nullopt, std::nullopt};
}

void AudioSegment::cancel() {
    writer_.reset();
    removeIgnoringErrors(url_);
}

template <class Segment>
SegmentedSampleBufferRecorder<Segment>::SegmentedSampleBufferRecorder(
    std::string queueName, MediaTrackManifest::Kind kind, std::filesystem::path outputDirectory,
    std::string baseName, std::optional<std::string> deviceID,
    std::optional<std::string> deviceName, std::function<void(std::string)> onFailure)
    : kind_(kind), outputDirectory_(std::move(outputDirectory)), baseName_(std::move(baseName)),
      deviceID_(std::move(deviceID)), deviceName_(std::move(deviceName)),
      onFailure_(std::move(onFailure)), queue_(std::move(queueName)) {}

template <class Segment>
SegmentedSampleBufferRecorder<Segment>::~SegmentedSampleBufferRecorder() {
    queue_.sync([this] {
        if (activeSegment_) {
            try {
                activeSegment_->finish();
            } catch (const std::exception& error) {
                logWarning("recording", "closing a segment at teardown: ", error.what());
            }
            activeSegment_.reset();
        }
    });
}

template <class Segment>
std::filesystem::path SegmentedSampleBufferRecorder<Segment>::startSegment(double programStart) {
    std::filesystem::path url;
    queue_.sync([&] {
        url = trackSegmentURL(outputDirectory_, baseName_, kind_, nextSegmentIndex_,
                              Segment::kExtension);
        ++nextSegmentIndex_;
        activeSegment_ = std::make_unique<Segment>(url, programStart);
    });
    return url;
}

template <class Segment>
void SegmentedSampleBufferRecorder<Segment>::append(typename Segment::Sample sample) {
    queue_.post([this, sample = std::move(sample)] { appendOnQueue(sample); });
}

template <class Segment>
void SegmentedSampleBufferRecorder<Segment>::appendOnQueue(const typename Segment::Sample& sample) {
    if (isCancelled_ || failed_ || !activeSegment_) {
        return;
    }
    try {
        activeSegment_->startIfNeeded(sample);
        activeSegment_->append(sample);
    } catch (const std::exception& error) {
        failed_ = true;
        if (onFailure_) {
            onFailure_(error.what());
        }
    }
}

template <class Segment>
void SegmentedSampleBufferRecorder<Segment>::finishActiveSegment(std::optional<double> programEnd) {
    std::optional<std::string> failure;
    queue_.sync([&] {
        if (!activeSegment_) {
            return;
        }
        std::unique_ptr<Segment> segment = std::move(activeSegment_);
        RecordedSegmentMedia media;
        try {
            media = segment->finish();
        } catch (const std::exception& error) {
            segment->cancel();
            failure = error.what();
            return;
        }
        if (!(media.mediaDuration > 0) || isCancelled_) {
            segment->cancel();
            return;
        }
        RecordedMediaSegment recorded;
        recorded.kind = kind_;
        recorded.url = segment->url();
        recorded.programStart = segment->programStart();
        recorded.duration =
            programEnd ? std::max(0.0, *programEnd - segment->programStart()) : media.mediaDuration;
        recorded.mediaStart = 0;
        recorded.mediaDuration = media.mediaDuration;
        recorded.width = media.width;
        recorded.height = media.height;
        recorded.deviceID = deviceID_;
        recorded.deviceName = deviceName_;
        recorded.trackID = std::string(MediaTrackManifest::defaultTrackID(kind_));
        completedSegments_.push_back(std::move(recorded));
    });
    if (failure) {
        throw Error(*failure);
    }
}

template <class Segment>
std::vector<RecordedMediaSegment>
SegmentedSampleBufferRecorder<Segment>::finish(std::optional<double> programEnd) {
    finishActiveSegment(programEnd);
    return segments();
}

template <class Segment>
std::vector<RecordedMediaSegment> SegmentedSampleBufferRecorder<Segment>::segments() {
    std::vector<RecordedMediaSegment> segments;
    queue_.sync([&] { segments = completedSegments_; });
    return segments;
}

template <class Segment>
void SegmentedSampleBufferRecorder<Segment>::cancel() {
    queue_.post([this] {
        isCancelled_ = true;
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

template class SegmentedSampleBufferRecorder<VideoSegment>;
template class SegmentedSampleBufferRecorder<AudioSegment>;

} // namespace orvelle
