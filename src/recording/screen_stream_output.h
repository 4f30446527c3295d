#pragma once

// The screen track's writer: receives a capture stream's pictures (and system audio, when
// asked) and writes them to numbered movies, one segment per run between pauses. The
// screen track is a take's master: its first written frame is program time 0, and its
// closed segments tell the other tracks where they are.
//
// Every mutable field belongs to the sample queue. Deliveries queue a block there and
// return; the control calls (arm, pause, resume, finish, segments) wait for their block;
// cancel does not wait. The three callbacks run on the sample queue: owners that live on
// the main thread hop there themselves.
//
// States: configured (frames flow, none written); armed (a segment opens at the next good
// frame); paused (no segment open); finished or cancelled (final). The next segment's
// encoder is set up ahead, when the output is made and at each pause; its file appears
// with its first frame.

#include "core/date.h"
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

// How the screen track is encoded: H.264 in a fragmented QuickTime movie, paced for real
// time. The figures behind the choice are in docs/capture.md.
MovieWriterSettings screenMovieSettings(int width, int height, bool includeAudio,
                                        double frameRate = 60);

// A frame passes the status filter when its status is complete, idle or started, or when
// it reports none; blank, suspended and anything later are dropped.
bool shouldWrite(const std::optional<int>& status);

// Segment n of a track whose first file is `firstURL`: the first file itself, then
// "<base>-screen-002.<ext>" and so on ("mov" when the first has no extension).
std::filesystem::path screenSegmentURL(const std::filesystem::path& firstURL, int index);

class ScreenSegment;

struct ScreenStreamStatistics {
    int64_t framesReceived = 0;         // good frames while armed and accepting
    int64_t framesWritten = 0;          // handed to the encoder
    int64_t framesDroppedByWriter = 0;  // the encoder's queue was full
    int64_t writerBacklogHighWater = 0; // most pictures that ever waited for the encoder
    double maxDeliveryDelay = 0;        // seconds from capture to the sample queue, worst
};

class ScreenStreamOutput final : public CaptureStreamOutput {
public:
    struct Callbacks {
        std::function<void()> onReadyFrame;         // once, first usable frame, armed or not
        std::function<void(Date)> onFirstFrame;     // once, first frame written
        std::function<void(std::string)> onFailure; // once
    };

    struct FinishResult {
        std::vector<RecordedMediaSegment> segments;
        std::optional<std::string> tailError; // the last segment's; earlier ones are kept
    };

    ScreenStreamOutput(std::filesystem::path firstOutputURL, int width, int height,
                       bool includeAudio, Callbacks callbacks, double frameRate = 60);
    // Waits for the queued blocks; an open segment is closed as far as it got.
    ~ScreenStreamOutput() override;
    ScreenStreamOutput(const ScreenStreamOutput&) = delete;
    ScreenStreamOutput& operator=(const ScreenStreamOutput&) = delete;

    void streamDidOutputVideoFrame(CapturedVideoFrameRef frame) override;
    void streamDidOutputAudio(const CapturedAudio& audio) override;
    void streamDidStop(const std::string& errorMessage) override;

    // From the next good frame on, frames are written.
    void armWriting();
    // Closes the open segment; returns the program end (where the next segment starts).
    // Throws Error when the segment could not be finished (its file is removed).
    double pauseRecording();
    // Accepts frames again; the next one opens the next numbered segment at programStart
    // (not below 0), or where the last one ended when absent.
    void resumeRecording(std::optional<double> programStart);
    // Closes the open segment; the closed segments survive a failed tail.
    FinishResult finish();
    std::vector<RecordedMediaSegment> segments();
    // Removes every file of the track; does not wait.
    void cancel();

    ScreenStreamStatistics statistics();
    const std::filesystem::path& firstOutputURL() const { return firstOutputURL_; }

private:
    void handleVideo(const CapturedVideoFrameRef& frame);
    void handleAudio(const CapturedAudio& audio);
    void prepareNextSegment();
    ScreenSegment* activeSegmentForWriting();
    // Returns nextProgramStart afterwards, or the segment's error.
    double finishActiveSegmentOnQueue(std::optional<std::string>& error);
    void fail(const std::string& message);

    std::filesystem::path firstOutputURL_;
    int width_;
    int height_;
    bool includeAudio_;
    Callbacks callbacks_;
    double frameRate_;

    // The sample queue's state.
    bool writingArmed_ = false;
    bool acceptsSamples_ = false;
    bool readyFrameSignaled_ = false;
    bool firstFrameSignaled_ = false;
    bool failed_ = false;
    bool isCancelled_ = false;
    std::unique_ptr<ScreenSegment> activeSegment_; // being written, or made ahead
    std::vector<RecordedMediaSegment> completedSegments_;
    int nextSegmentIndex_ = 1;
    double nextProgramStart_ = 0;
    ScreenStreamStatistics statistics_;

    // Last member: destroyed first, so its remaining blocks still see the fields above.
    SerialQueue sampleQueue_{"com.tolvanic.orvelle.samples"};
};

} // namespace orvelle
