#pragma once

// Owns a session's screen capture: the stream, its writer, the pointer recorder and the
// readiness gate. Main thread. The calls mirror a session's steps: prepare, start, wait
// for the first picture, arm, pause and resume, and at the end detach, stop and finalise.

#include "platform/capture/capture_types.h"
#include "recording/capture_backend.h"
#include "recording/capture_readiness_gate.h"
#include "recording/cursor_recorder.h"
#include "recording/screen_stream_output.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvelle {

// What detachForTeardown takes out of the engine. Declared in an order whose reverse
// (destruction) never leaves a user of a dead object.
struct ActiveScreenCapture {
    std::unique_ptr<ScreenStreamOutput> output;
    std::unique_ptr<CaptureStream> stream;
    std::unique_ptr<PointerSource> pointerSource;
    std::unique_ptr<CursorRecorder> cursorRecorder;
};

// What a session asks of its screen capture beside the source and the file.
struct ScreenCaptureOptions {
    bool includeAudio = false; // system audio (what the speakers play) in the screen movie
    double frameRate = 60;
    std::optional<uint32_t> excludedOverlayWindowID;
};

// A stream, its writer and the pointer beside it, configured and not started.
struct PreparedScreenCapture {
    std::unique_ptr<ScreenStreamOutput> output;
    std::unique_ptr<CaptureStream> stream;
    // Absent without a capture frame, or when the pointer cannot be read: the take then has
    // no pointer data, which is no failure.
    std::unique_ptr<PointerSource> pointerSource;
    std::filesystem::path outputURL;
    std::filesystem::path cursorURL;
    std::optional<CaptureRect> captureFrame; // bottom-left global; absent: no pointer data
    int width = 0;
    int height = 0;
    std::shared_ptr<CaptureReadinessGate> readinessGate;
};

class ScreenCaptureEngine {
public:
    struct FinalizeResult {
        std::vector<RecordedMediaSegment> screenSegments;
        std::optional<std::string> tailError;
        std::optional<std::string> cursorError;
    };

    // The selection's filter with the program's own windows left out, the stream's size
    // and frame, the writer for `outputURL` (stale files there and the pointer file beside
    // it removed), the stream, and the backend's pointer for that frame, whose presses
    // reach the main thread through `mainThread`. The writer's ready-frame callback opens
    // the returned gate before `onReadyFrame` is called. Throws OrvelleError or the
    // backend's Error; a pointer that cannot be read only leaves the take without pointer
    // data.
    static PreparedScreenCapture prepare(CaptureBackend& backend,
                                         const RecorderSourceSelection& selection,
                                         const std::filesystem::path& outputURL,
                                         ScreenStreamOutput::Callbacks callbacks,
                                         Executor& mainThread, ScreenCaptureOptions options = {});

    void install(PreparedScreenCapture prepared);
    // Starts the stream; frames flow but are not written until the writer is armed.
    void startCapture();
    // Pictures the stream could not deliver, and the writer's own figures.
    int64_t skippedFrames() const { return active_.stream ? active_.stream->skippedFrames() : 0; }

    // Waits up to the time-out for the first usable frame; false on time-out.
    bool waitUntilReady(std::chrono::nanoseconds timeout);
    void armWriting();
    // Starts the pointer recorder (time 0 is now: call it just after armWriting); nothing
    // without a capture frame or a pointer. The timer's ticks must reach the main thread.
    void startCursorRecording(RecorderClock& clock, RepeatingTimerFactory& timers);
    // Stop begins: the pointer is sampled no more and its presses are not watched; the
    // data stay for finalize().
    void stopCursorSampling();

    // The program end, absent without a writer. The stream runs on; its frames are
    // dropped until resume. Throws Error when the segment could not be closed.
    std::optional<double> pause();
    void resume(std::optional<double> programStart,
                std::chrono::duration<double> afterPauseDuration);

    ActiveScreenCapture detachForTeardown();
    // Stops the stream; its error, if any.
    static std::optional<std::string> stopCapture(ActiveScreenCapture& active);
    // finishWriter: the writer finishes and the pointer file is written; otherwise both
    // are cancelled and their files removed.
    FinalizeResult finalize(ActiveScreenCapture& active, bool finishWriter);

    const std::vector<RecordedMediaSegment>& recordedSegments() const { return recordedSegments_; }
    ScreenStreamOutput* output() { return active_.output.get(); }
    CaptureStream* stream() { return active_.stream.get(); }
    CursorRecorder* cursorRecorder() { return active_.cursorRecorder.get(); }

private:
    ActiveScreenCapture active_;
    std::filesystem::path cursorURL_;
    std::optional<CaptureRect> captureFrame_;
    std::shared_ptr<CaptureReadinessGate> readinessGate_;
    std::vector<RecordedMediaSegment> recordedSegments_;
};

} // namespace orvelle
