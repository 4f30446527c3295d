#pragma once

// The one writer of a take's side tracks (camera movie, microphone audio): each run
// between pauses is one file, placed on the take's clock by its programStart. It knows
// nothing of devices; its owner feeds it timed samples from any thread.
//
// Every operation queues a block on the recorder's own serial queue; the ones that give a
// result wait for it. A sample that arrives when no segment is open, after a failure or
// after cancel is ignored. A writer failure during appends is reported once through
// onFailure (on the queue) and ends writing; what was closed stays.

#include "core/error.h"
#include "core/executor.h"
#include "platform/capture/capture_types.h"
#include "platform/media/movie_writer.h"
#include "project/recording_take_builder.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvelle {

enum class RecordingSegmentWriterErrorCode {
    cannotAddWriterInput,
    cannotStartWriter,
    missingPixelBuffer
};

class RecordingSegmentWriterError : public CodedError<RecordingSegmentWriterErrorCode> {
public:
    using CodedError::CodedError;
    static RecordingSegmentWriterError cannotAddWriterInput();
    static RecordingSegmentWriterError cannotStartWriter();
    static RecordingSegmentWriterError missingPixelBuffer();
};

// "<base>-<kind slug>-<nnn>.<extension>" in the folder: the names recovery looks for.
std::filesystem::path trackSegmentURL(const std::filesystem::path& directory,
                                      const std::string& baseName, MediaTrackManifest::Kind kind,
                                      int index, const std::string& extension);

struct RecordedSegmentMedia {
    double mediaDuration = 0;
    std::optional<int> width;
    std::optional<int> height;
};

// A camera run: H.264 in a fragmented QuickTime movie, sized by its first picture.
class VideoSegment {
public:
    using Sample = CapturedVideoFrameRef;
    static constexpr const char* kExtension = "mov";

    VideoSegment(std::filesystem::path url, double programStart);
    ~VideoSegment();
    VideoSegment(const VideoSegment&) = delete;
    VideoSegment& operator=(const VideoSegment&) = delete;

    // Opens the writer at the first sample. Throws.
    void startIfNeeded(const Sample& sample);
    // A picture the encoder has no room for is dropped without a report. Throws.
    void append(const Sample& sample);
    // Closes the file; the length of what it holds. Throws on a writer failure.
    RecordedSegmentMedia finish();
    // Stops writing and removes the file.
    void cancel();

    const std::filesystem::path& url() const { return url_; }
    double programStart() const { return programStart_; }

private:
    std::filesystem::path url_;
    double programStart_;
    std::unique_ptr<MovieWriter> writer_;
    std::optional<double> firstPresentationTime_;
    std::optional<double> lastPresentationEndTime_;
    bool didAppendSamples_ = false;
    int width_ = 0;
    int height_ = 0;
};

// A microphone run: AAC in an m4a file, in fragments so that a file cut short stays
// readable; channels and rate from the first sample.
class AudioSegment {
public:
    using Sample = CapturedAudio;
    static constexpr const char* kExtension = "m4a";

    AudioSegment(std::filesystem::path url, double programStart);
    ~AudioSegment();
    AudioSegment(const AudioSegment&) = delete;
    AudioSegment& operator=(const AudioSegment&) = delete;

    void startIfNeeded(const Sample& sample);
    void append(const Sample& sample);
    RecordedSegmentMedia finish();
    void cancel();

    const std::filesystem::path& url() const { return url_; }
    double programStart() const { return programStart_; }

private:
    std::filesystem::path url_;
    double programStart_;
    std::unique_ptr<AudioFileWriter> writer_;
    std::optional<double> firstPresentationTime_;
    int sampleRate_ = 48000;
    int channelCount_ = 1;
    int64_t framesWritten_ = 0;
    bool didAppendSamples_ = false;
};

template <class Segment>
class SegmentedSampleBufferRecorder {
public:
    SegmentedSampleBufferRecorder(std::string queueName, MediaTrackManifest::Kind kind,
                                  std::filesystem::path outputDirectory, std::string baseName,
                                  std::optional<std::string> deviceID,
                                  std::optional<std::string> deviceName,
                                  std::function<void(std::string)> onFailure);
    // Closes an open segment as far as it got.
    ~SegmentedSampleBufferRecorder();
    SegmentedSampleBufferRecorder(const SegmentedSampleBufferRecorder&) = delete;
    SegmentedSampleBufferRecorder& operator=(const SegmentedSampleBufferRecorder&) = delete;

    // The next numbered file, opened by its first sample: a segment without samples leaves
    // no file. Returns its URL.
    std::filesystem::path startSegment(double programStart);
    // Returns at once.
    void append(typename Segment::Sample sample);
    // Closes the open segment, if any. Its duration on the take's clock is
    // programEnd - programStart when programEnd is given (not below 0), else its media
    // length. Throws the writer's error; the file is then removed.
    void finishActiveSegment(std::optional<double> programEnd);
    std::vector<RecordedMediaSegment> finish(std::optional<double> programEnd);
    std::vector<RecordedMediaSegment> segments();
    // Removes the open file and every closed one; does not wait.
    void cancel();

private:
    void appendOnQueue(const typename Segment::Sample& sample);

    MediaTrackManifest::Kind kind_;
    std::filesystem::path outputDirectory_;
    std::string baseName_;
    std::optional<std::string> deviceID_;
    std::optional<std::string> deviceName_;
    std::function<void(std::string)> onFailure_;
    std::unique_ptr<Segment> activeSegment_;
    std::vector<RecordedMediaSegment> completedSegments_;
    int nextSegmentIndex_ = 1;
    bool isCancelled_ = false;
    bool failed_ = false;
    SerialQueue queue_; // last: destroyed first, while the fields above still exist
};

extern template class SegmentedSampleBufferRecorder<VideoSegment>;
extern template class SegmentedSampleBufferRecorder<AudioSegment>;

} // namespace orvelle
