#pragma once

// The one object that owns a take while it is made: it runs the start in its fixed order,
// publishes its status for the recorder window, pauses and resumes the screen, stops and
// finalises in the fixed order, and decides which failures end the take. Main thread.
//
// A window (or the command line) drives it: startSelection, then either a source given at
// once or sourceChosen / cancelSelection; RecordingSessionCoordinator pauses, resumes and
// stops all tracks together; discardRecording throws the take away; handleFailure is where
// every failure ends up. Waits during the start (the first frame, the start cue) run the
// main thread's work through `runMainThreadUntil`, so a stop pressed meanwhile is seen.

#include "core/executor.h"
#include "editor/published.h"
#include "recording/capture_backend.h"
#include "recording/orvelle_error.h"
#include "recording/recorder_source_selection.h"
#include "recording/screen_capture_engine.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvelle {

class CameraRecorder;
class MicrophoneRecorder;
class RecordingCuePlayer;

// The start-up trace in the log ("RecordingStartup"): each step with the time since the
// previous one and since the start.
class RecordingStartupTrace {
public:
    RecordingStartupTrace();
    void mark(const std::string& step);
    void finish();

private:
    double startedAt_;
    double previousAt_;
};

struct WindowRecorderServices {
    Executor& mainThread;
    // Runs the main thread's queued work until the predicate holds or the time passes;
    // returns the predicate's last value.
    std::function<bool(const std::function<bool()>&, std::chrono::milliseconds)> runMainThreadUntil;
    CaptureBackend& backend;
    RecorderClock& clock;             // the pointer recorder's clock
    RepeatingTimerFactory& timers;    // the pointer recorder's and the elapsed clock's ticks
    CameraRecorder* camera = nullptr; // absent: no camera track
    MicrophoneRecorder* microphone = nullptr; // absent: no microphone track
    RecordingCuePlayer* cues = nullptr;       // absent: no cues
};

class WindowRecorder {
public:
    enum class State { idle, selecting, starting, recording, paused, stopping };

    explicit WindowRecorder(WindowRecorderServices services);
    ~WindowRecorder();
    WindowRecorder(const WindowRecorder&) = delete;
    WindowRecorder& operator=(const WindowRecorder&) = delete;

    Published<std::string> statusText{"Ready"};
    Published<std::string> detailText{"Start a recording and choose a display or window."};
    Published<std::string> elapsedText{"00:00"};
    Published<std::optional<std::filesystem::path>> outputURL;
    Published<bool> isRecording{false};
    Published<bool> isPaused{false};
    Published<std::optional<Date>> lastRecordingStartedAt;
    // The area being recorded (global screen pixels, from the bottom left), for the window's
    // boundary marks; absent when nothing is recorded or the frame is unknown.
    Published<std::optional<CaptureRect>> activeCaptureFrame;
    // The title over the recorded area while starting or stopping ("Starting recorder",
    // "Stopping recorder"); absent when nothing is to be shown.
    Published<std::optional<std::string>> startupOverlayTitle;
    // System audio into the screen movie; read at the start of a take.
    Published<bool> systemAudioEnabled{true};
    // The last take's failure in plain words, for the salvage alert; cleared at a start.
    Published<std::optional<std::string>> lastFailure;

    State state() const { return state_; }
    ScreenCaptureEngine& engine() { return engine_; }
    // The screen segments of the last finished take.
    const std::vector<RecordedMediaSegment>& screenSegments() const { return screenSegments_; }
    // Frames the screen track lost: the stream's skipped ticks and the writer's drops.
    int64_t droppedScreenFrames() const { return droppedScreenFrames_; }
    bool recordedSystemAudio() const { return recordedSystemAudio_; }

    // From idle. With a source of the same mode the take starts at once; otherwise the
    // window lets the user choose and calls sourceChosen or cancelSelection.
    void startSelection(RecorderCaptureMode mode,
                        const std::optional<RecorderSourceSelection>& selected = std::nullopt);
    void sourceChosen(const RecorderSourceSelection& selection);
    void cancelSelection();

    // The program end, absent unless recording.
    std::optional<double> pauseRecording();
    void resumeRecording(std::optional<double> programStart);
    // The screen URL when the take was kept and has a movie.
    std::optional<std::filesystem::path>
    stopCurrentRecording(bool finishWriter, std::optional<std::string> finalDetail,
                         bool restoreInputPreviews);
    // Stops and throws away every file of the take.
    void discardRecording();
    // The quit path: a running take is stopped and its manifest written; nothing opens.
    void stopAndPersistForTermination();
    // Ends the take, keeping what was written. Idle and stopping ignore it.
    void handleFailure(const std::string& message);

    // "%02d:%02d" of the end of the last segment.
    static std::string formattedProgramDuration(const std::vector<RecordedMediaSegment>& segments);

private:
    void beginRecording(const RecorderSourceSelection& selection);
    void startRecording(const RecorderSourceSelection& selection);
    bool stillStarting() const { return state_ == State::starting; }
    void markFirstFrameRecorded(Date date);
    void startElapsedTimer();
    void stopElapsedTimer(bool reset);
    void updateElapsedText();

    WindowRecorderServices services_;
    State state_ = State::idle;
    ScreenCaptureEngine engine_;
    RecorderCaptureMode pendingCaptureMode_ = RecorderCaptureMode::display;
    std::optional<std::chrono::steady_clock::time_point> recordingStartedAt_;
    double accumulatedPausedDuration_ = 0;
    std::optional<std::chrono::steady_clock::time_point> pauseStartedAt_;
    std::unique_ptr<RepeatingTimer> elapsedTimer_;
    std::optional<std::filesystem::path> preparedMovieURL_; // the take's folder exists
    std::vector<RecordedMediaSegment> screenSegments_;
    int64_t droppedScreenFrames_ = 0;
    bool recordedSystemAudio_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

// The calls the recorder window makes for all tracks at once.
namespace RecordingSessionCoordinator {

struct TakeResult {
    std::filesystem::path screenURL;
    std::optional<std::filesystem::path> manifestURL; // absent: the manifest failed twice
};

// The screen pauses first; its program end closes the camera's and the microphone's files.
std::optional<double> pause(WindowRecorder& screen, CameraRecorder* camera,
                            MicrophoneRecorder* microphone);
// From paused: every track opens its next file at the screen's program end.
void resume(WindowRecorder& screen, CameraRecorder* camera, MicrophoneRecorder* microphone);
// Stops a running take and writes its manifest (tried twice). `openEditor` is called with
// the movie when the take was kept; absent when nothing was kept.
std::optional<TakeResult>
stopAndOpenEditor(WindowRecorder& screen, CameraRecorder* camera, MicrophoneRecorder* microphone,
                  const std::function<void(const std::filesystem::path&)>& openEditor = {});
// Writes the manifest of a stopped take from the three recorders' segments, once more on a
// failure. The manifest's URL, absent when both tries failed.
std::optional<std::filesystem::path> writeManifest(const std::filesystem::path& screenURL,
                                                   const WindowRecorder& screen,
                                                   CameraRecorder* camera,
                                                   MicrophoneRecorder* microphone);

} // namespace RecordingSessionCoordinator

} // namespace orvelle
