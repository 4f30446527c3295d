#include "recording/window_recorder.h"

#include "core/files.h"
#include "core/log.h"
#include "core/monotonic_clock.h"
#include "platform/audio/audio_input.h"
#include "project/cursor_recording.h"
#include "recording/camera_recorder.h"
#include "recording/microphone_recorder.h"
#include "recording/recording_cue_player.h"
#include "recording/recording_scratch_store.h"

#include <cmath>
#include <cstdio>

namespace orvelle {

namespace fs = std::filesystem;

namespace {

constexpr const char* kTraceCategory = "RecordingStartup";

std::string twoDigitClock(double seconds) {
    const auto whole = static_cast<long long>(std::max(0.0, std::floor(seconds)));
    char text[32];
    std::snprintf(text, sizeof text, "%02lld:%02lld", whole / 60, whole % 60);
    return text;
}

double programEndOf(const std::vector<RecordedMediaSegment>& segments) {
    double end = 0;
    for (const auto& segment : segments) {
        end = std::max(end, segment.programStart + segment.duration);
    }
    return end;
}

} // namespace

RecordingStartupTrace::RecordingStartupTrace()
    : startedAt_(monotonicNow()), previousAt_(startedAt_) {}

void RecordingStartupTrace::mark(const std::string& step) {
    const double now = monotonicNow();
    char text[64];
    std::snprintf(text, sizeof text, ": +%fs total %fs", now - previousAt_, now - startedAt_);
    logInfo(kTraceCategory, step, text);
    previousAt_ = now;
}

void RecordingStartupTrace::finish() {
    char text[64];
    std::snprintf(text, sizeof text, "recording ready: %fs", monotonicNow() - startedAt_);
    logInfo(kTraceCategory, text);
}

WindowRecorder::WindowRecorder(WindowRecorderServices services) : services_(std::move(services)) {}

WindowRecorder::~WindowRecorder() {
    *alive_ = false;
    elapsedTimer_.reset();
    if (state_ == State::starting || state_ == State::recording || state_ == State::paused) {
        stopCurrentRecording(true, std::nullopt, false);
    }
}

std::string
WindowRecorder::formattedProgramDuration(const std::vector<RecordedMediaSegment>& segments) {
    return twoDigitClock(programEndOf(segments));
}

void WindowRecorder::startSelection(RecorderCaptureMode mode,
                                    const std::optional<RecorderSourceSelection>& selected) {
    if (state_ != State::idle) {
        return;
    }
    if (mode == RecorderCaptureMode::device) {
        statusText.set("Device capture unavailable");
        detailText.set("Device capture is not wired up yet.");
        return;
    }
    pendingCaptureMode_ = mode;
    state_ = State::selecting;
    statusText.set("Choose a " + std::string(recorderCaptureModeWord(mode)));
    switch (mode) {
    case RecorderCaptureMode::window:
        detailText.set("Pick a single window to record.");
        break;
    case RecorderCaptureMode::area:
        detailText.set("Drag to select an area, then click Share This Area.");
        break;
    default:
        detailText.set("Click Share This Display on the display you want to capture.");
        break;
    }
    outputURL.set(std::nullopt);
    lastRecordingStartedAt.set(std::nullopt);
    recordingStartedAt_.reset();
    isPaused.set(false);
    elapsedText.set("00:00");
    if (selected && selected->mode == mode) {
        sourceChosen(*selected);
    }
}

void WindowRecorder::sourceChosen(const RecorderSourceSelection& selection) {
    if (state_ != State::selecting) {
        return;
    }
    statusText.set("Preparing");
    detailText.set(selection.mode == RecorderCaptureMode::area
                       ? std::string("Preparing selected area for recording.")
                       : "Preparing " + selection.title + " for recording.");
    beginRecording(selection);
}

void WindowRecorder::cancelSelection() {
    if (state_ != State::selecting) {
        return;
    }
    statusText.set("Ready");
    detailText.set(recorderCaptureModeLabel(pendingCaptureMode_) + " selection canceled.");
    state_ = State::idle;
}

void WindowRecorder::beginRecording(const RecorderSourceSelection& selection) {
    if (state_ != State::selecting) {
        return;
    }
    state_ = State::starting;
    lastFailure.set(std::nullopt);
    statusText.set("Starting");
    detailText.set("Preparing Orvelle recording.");
    startupOverlayTitle.set("Starting recorder");
    try {
        startRecording(selection);
    } catch (const std::exception& error) {
        handleFailure(error.what());
    }
}

void WindowRecorder::startRecording(const RecorderSourceSelection& selection) {
    RecordingStartupTrace trace;
    // 1. The mode and the selection must agree.
    trace.mark("selection accepted");
    if (selection.mode != pendingCaptureMode_) {
        throw OrvelleError::invalidSelection(pendingCaptureMode_);
    }
    CameraRecorder* camera = services_.camera;
    MicrophoneRecorder* microphone = services_.microphone;
    const bool cameraEnabled = camera != nullptr && camera->isEnabled.value();
    const bool microphoneEnabled = microphone != nullptr && microphone->isEnabled.value();

    // 2-4. Geometry and files.
    trace.mark("recording filter prepared");
    detailText.set("Preparing capture geometry.");
    trace.mark("capture geometry resolved");
    detailText.set("Preparing output files.");
    const fs::path movieURL = RecordingScratchStore::makeScreenRecordingURL(Date::now());
    preparedMovieURL_ = movieURL;
    trace.mark("output paths prepared");

    // 5-6. Writer and stream (stale files at both URLs are removed by prepare).
    detailText.set("Configuring movie writer.");
    ScreenStreamOutput::Callbacks callbacks;
    std::weak_ptr<bool> alive = alive_;
    callbacks.onFirstFrame = [this, alive](Date date) {
        services_.mainThread.post([this, alive, date] {
            if (const auto living = alive.lock(); living && *living) {
                markFirstFrameRecorded(date);
            }
        });
    };
    callbacks.onFailure = [this, alive](const std::string& message) {
        services_.mainThread.post([this, alive, message] {
            if (const auto living = alive.lock(); living && *living) {
                handleFailure(message);
            }
        });
    };
    ScreenCaptureOptions options;
    options.includeAudio = systemAudioEnabled.value();
    if (options.includeAudio) {
        try {
            // Only to learn that a sound server is there.
            AudioInput reachable(AudioInputOptions{});
        } catch (const Error& error) {
            // The take goes on without the computer's sound; the log says why.
            logWarning(kTraceCategory, "no system audio: ", error.what());
            options.includeAudio = false;
        }
    }
    recordedSystemAudio_ = options.includeAudio;
    trace.mark("movie writer configured");
    detailText.set("Configuring screen capture.");
    PreparedScreenCapture prepared = ScreenCaptureEngine::prepare(
        services_.backend, selection, movieURL, callbacks, services_.mainThread, options);
    std::optional<CaptureRect> frame = prepared.captureFrame;
    engine_.install(std::move(prepared));
    trace.mark("screen stream configured");
    if (frame) {
        activeCaptureFrame.set(selection.captureFrame);
    }

    // 7-8. Camera and microphone prepared.
    if (cameraEnabled) {
        detailText.set("Preparing webcam recording.");
        if (!camera->prepareRecordingIfEnabled(movieURL, std::nullopt)) {
            throw OrvelleError::cameraRecordingFailed();
        }
        trace.mark("camera prepared");
    }
    if (microphoneEnabled) {
        detailText.set("Preparing microphone recording.");
        if (!microphone->prepareSidecarRecordingIfEnabled(movieURL)) {
            throw OrvelleError::microphoneRecordingFailed();
        }
        trace.mark("microphone sidecar prepared");
    }

    // 9. From here a crash leaves a recoverable folder.
    outputURL.set(movieURL);
    RecordingScratchStore::writeRecordingSentinel(movieURL);

    // 10-11. The stream starts unarmed; its first frame is awaited at most 2 s.
    detailText.set("Starting screen capture.");
    engine_.startCapture();
    trace.mark("screen capture started");
    const auto gate = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    services_.runMainThreadUntil(
        [&] {
            return !stillStarting() || engine_.waitUntilReady(std::chrono::nanoseconds(0)) ||
                   std::chrono::steady_clock::now() >= gate;
        },
        std::chrono::milliseconds(2100));
    trace.mark("screen capture ready");

    // 12. Stopped or failed meanwhile: the writer is cancelled and nothing remains.
    if (!stillStarting()) {
        if (auto* output = engine_.output()) {
            output->cancel();
        }
        return;
    }

    // 13. The cue sounds in full before anything is written.
    detailText.set("Playing recording cue.");
    startupOverlayTitle.set(std::nullopt);
    if (services_.cues != nullptr && services_.cues->begin(RecordingCuePlayer::Cue::start)) {
        services_.runMainThreadUntil(
            [&] { return !stillStarting() || !services_.cues->isPlaying(); },
            std::chrono::milliseconds(3000));
        services_.cues->stop();
    }
    trace.mark("start cue finished");

    // 14.
    if (!stillStarting()) {
        if (auto* output = engine_.output()) {
            output->cancel();
        }
        return;
    }

    // 15-16. Armed: the next complete frame is program time 0; the pointer starts with it.
    engine_.armWriting();
    trace.mark("movie writer armed");
    engine_.startCursorRecording(services_.clock, services_.timers);

    // 17-19. Camera and microphone start together at program time 0.
    if (cameraEnabled && !camera->startPreparedRecordingIfEnabled(0)) {
        throw OrvelleError::cameraRecordingFailed();
    }
    if (cameraEnabled) {
        trace.mark("camera step finished");
    }
    if (microphoneEnabled && !microphone->startPreparedSidecarRecordingIfEnabled(0)) {
        throw OrvelleError::microphoneRecordingFailed();
    }
    if (microphoneEnabled) {
        trace.mark("microphone sidecar started");
    }

    // 20.
    state_ = State::recording;
    isRecording.set(true);
    isPaused.set(false);
    recordingStartedAt_ = std::chrono::steady_clock::now();
    pauseStartedAt_.reset();
    accumulatedPausedDuration_ = 0;
    statusText.set("Recording");
    detailText.set("Capturing Orvelle recording.");
    startElapsedTimer();
    trace.finish();
}

void WindowRecorder::markFirstFrameRecorded(Date date) {
    if (state_ == State::starting || state_ == State::recording) {
        lastRecordingStartedAt.set(date);
        statusText.set("Recording");
        startupOverlayTitle.set(std::nullopt);
    }
}

std::optional<double> WindowRecorder::pauseRecording() {
    if (state_ != State::recording || engine_.stream() == nullptr) {
        return std::nullopt;
    }
    state_ = State::paused;
    isPaused.set(true);
    pauseStartedAt_ = std::chrono::steady_clock::now();
    statusText.set("Paused");
    detailText.set("Capture paused.");
    elapsedTimer_.reset();
    updateElapsedText();
    try {
        return engine_.pause();
    } catch (const std::exception& error) {
        handleFailure(error.what());
        return std::nullopt;
    }
}

void WindowRecorder::resumeRecording(std::optional<double> programStart) {
    if (state_ != State::paused) {
        return;
    }
    double pause = 0;
    if (pauseStartedAt_) {
        pause = std::max(
            0.0, std::chrono::duration<double>(std::chrono::steady_clock::now() - *pauseStartedAt_)
                     .count());
    }
    accumulatedPausedDuration_ += pause;
    pauseStartedAt_.reset();
    engine_.resume(programStart, std::chrono::duration<double>(pause));
    state_ = State::recording;
    isPaused.set(false);
    statusText.set("Recording");
    detailText.set("Capturing Orvelle recording.");
    startElapsedTimer();
}

void WindowRecorder::updateElapsedText() {
    if (!recordingStartedAt_) {
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    double elapsed = std::chrono::duration<double>(now - *recordingStartedAt_).count() -
                     accumulatedPausedDuration_;
    if (pauseStartedAt_) {
        elapsed -= std::chrono::duration<double>(now - *pauseStartedAt_).count();
    }
    elapsedText.set(twoDigitClock(elapsed));
}

void WindowRecorder::startElapsedTimer() {
    updateElapsedText();
    std::weak_ptr<bool> alive = alive_;
    elapsedTimer_ = services_.timers.start(std::chrono::milliseconds(250), [this, alive] {
        if (const auto living = alive.lock(); living && *living) {
            updateElapsedText();
        }
    });
}

void WindowRecorder::stopElapsedTimer(bool reset) {
    elapsedTimer_.reset();
    if (reset) {
        recordingStartedAt_.reset();
        pauseStartedAt_.reset();
        elapsedText.set("00:00");
    }
}

std::optional<fs::path> WindowRecorder::stopCurrentRecording(bool finishWriter,
                                                             std::optional<std::string> finalDetail,
                                                             bool restoreInputPreviews) {
    if (state_ == State::stopping) {
        return std::nullopt;
    }
    logInfo("Recording", "stop requested: finishWriter=", finishWriter ? 1 : 0,
            " detail=", finalDetail.value_or("none"));
    const State before = state_;
    state_ = State::stopping;
    statusText.set("Stopping");
    detailText.set("Finalizing the movie file.");
    isRecording.set(false);
    isPaused.set(false);
    if (pauseStartedAt_) {
        accumulatedPausedDuration_ += std::max(
            0.0, std::chrono::duration<double>(std::chrono::steady_clock::now() - *pauseStartedAt_)
                     .count());
        pauseStartedAt_.reset();
    }
    elapsedTimer_.reset();

    // 3-5. The engine's parts taken out; the pointer stops being sampled at once.
    droppedScreenFrames_ = engine_.skippedFrames();
    if (auto* output = engine_.output()) {
        droppedScreenFrames_ += output->statistics().framesDroppedByWriter;
    }
    engine_.stopCursorSampling();
    ActiveScreenCapture active = engine_.detachForTeardown();
    CameraRecorder* camera = services_.camera;
    MicrophoneRecorder* microphone = services_.microphone;
    const bool hadActiveCapture = active.stream || active.output ||
                                  (camera != nullptr && camera->isRecording.value()) ||
                                  (microphone != nullptr && microphone->isRecording.value());
    activeCaptureFrame.set(std::nullopt);
    if (hadActiveCapture || before == State::starting) {
        startupOverlayTitle.set("Stopping recorder");
    }

    // 7-10. Stream (and the computer's sound with it), camera, microphone, writer.
    const std::optional<std::string> stopError = ScreenCaptureEngine::stopCapture(active);
    if (camera != nullptr) {
        if (finishWriter) {
            camera->stopRecording(restoreInputPreviews);
        } else {
            camera->cancelRecording();
            camera->stopRecording(restoreInputPreviews);
        }
    }
    if (microphone != nullptr) {
        if (finishWriter) {
            microphone->stopRecordingIfNeeded(restoreInputPreviews);
        } else {
            microphone->cancelRecording();
            microphone->stopRecordingIfNeeded(restoreInputPreviews);
        }
    }
    ScreenCaptureEngine::FinalizeResult result = engine_.finalize(active, finishWriter);
    screenSegments_ = result.screenSegments;

    // 11. The stop cue, when something was recorded.
    startupOverlayTitle.set(std::nullopt);
    if (hadActiveCapture && services_.cues != nullptr &&
        services_.cues->begin(RecordingCuePlayer::Cue::stop)) {
        services_.runMainThreadUntil([&] { return !services_.cues->isPlaying(); },
                                     std::chrono::milliseconds(3000));
        services_.cues->stop();
    }

    // 12. A take that failed before its sentinel leaves no empty folder behind.
    const std::optional<fs::path> movie = outputURL.value();
    if (movie) {
        RecordingScratchStore::removeRecordingSentinel(*movie);
    } else if (preparedMovieURL_) {
        RecordingScratchStore::deleteRecordingFiles(*preparedMovieURL_);
    }
    preparedMovieURL_.reset();
    if (!finishWriter) {
        if (movie) {
            RecordingScratchStore::deleteRecordingFiles(*movie);
        }
        outputURL.set(std::nullopt);
        screenSegments_.clear();
        if (camera != nullptr) {
            camera->clearOutputIfIdle();
        }
        if (microphone != nullptr) {
            microphone->clearOutputIfIdle();
        }
    }

    // 13.
    const std::optional<std::string> error = stopError ? stopError : result.tailError;
    statusText.set(error ? "Stopped with error" : "Ready");
    std::string detail;
    if (error && !screenSegments_.empty()) {
        detail = "Recording stopped early (" + *error + "). Everything up to " +
                 formattedProgramDuration(screenSegments_) + " was saved.";
    } else if (error) {
        detail = *error;
    } else if (finalDetail) {
        detail = *finalDetail;
    } else {
        detail = outputURL.value() ? "Recording ready in the editor." : "Stopped.";
    }
    if (result.cursorError) {
        detail += " Cursor overlay data could not be saved (" + *result.cursorError + ").";
    }
    detailText.set(detail);

    // 14.
    stopElapsedTimer(true);
    state_ = State::idle;
    if (finishWriter && outputURL.value() && !screenSegments_.empty()) {
        return outputURL.value();
    }
    return std::nullopt;
}

void WindowRecorder::discardRecording() {
    if (state_ == State::starting || state_ == State::recording || state_ == State::paused) {
        stopCurrentRecording(false, "Recording discarded.", true);
    }
}

void WindowRecorder::stopAndPersistForTermination() {
    if (state_ != State::starting && state_ != State::recording && state_ != State::paused) {
        return;
    }
    RecordingSessionCoordinator::stopAndOpenEditor(*this, services_.camera, services_.microphone);
}

void WindowRecorder::handleFailure(const std::string& message) {
    if (state_ == State::idle || state_ == State::stopping) {
        return;
    }
    logError("Recording", "recording failure: ", message);
    startupOverlayTitle.set(std::nullopt);
    activeCaptureFrame.set(std::nullopt);
    if (state_ == State::selecting) {
        state_ = State::idle;
        statusText.set("Recording failed");
        detailText.set(message);
        lastFailure.set(message);
        return;
    }
    const auto url = stopCurrentRecording(true, message, true);
    statusText.set("Recording failed");
    detailText.set(message);
    lastFailure.set(message);
    if (url && !screenSegments_.empty()) {
        const auto manifest = RecordingSessionCoordinator::writeManifest(
            *url, *this, services_.camera, services_.microphone);
        if (manifest) {
            statusText.set("Recording failed — saved");
            detailText.set(message + " Everything up to " +
                           formattedProgramDuration(screenSegments_) + " was saved.");
        }
    }
}

namespace RecordingSessionCoordinator {

std::optional<double> pause(WindowRecorder& screen, CameraRecorder* camera,
                            MicrophoneRecorder* microphone) {
    if (screen.state() != WindowRecorder::State::recording) {
        return std::nullopt;
    }
    const auto programEnd = screen.pauseRecording();
    if (camera != nullptr) {
        camera->pauseRecording(programEnd);
    }
    if (microphone != nullptr) {
        microphone->pauseRecording(programEnd);
    }
    return programEnd;
}

void resume(WindowRecorder& screen, CameraRecorder* camera, MicrophoneRecorder* microphone) {
    if (screen.state() != WindowRecorder::State::paused) {
        return;
    }
    std::optional<double> programStart;
    for (const auto& segment : screen.engine().recordedSegments()) {
        programStart =
            std::max(programStart.value_or(0.0), segment.programStart + segment.duration);
    }
    const double start = programStart.value_or(0);
    screen.resumeRecording(start);
    if (camera != nullptr) {
        camera->resumeRecording(start);
    }
    if (microphone != nullptr) {
        microphone->resumeRecording(start);
    }
}

std::optional<fs::path> writeManifest(const fs::path& screenURL, const WindowRecorder& screen,
                                      CameraRecorder* camera, MicrophoneRecorder* microphone) {
    std::optional<fs::path> cursorURL;
    if (fileExists(CursorRecording::fileURL(screenURL))) {
        cursorURL = CursorRecording::fileURL(screenURL);
    }
    // The side tracks end where the screen ends: their last files, closed by the tracks
    // themselves a moment after the screen stopped, are cut there.
    const double screenEnd = programEndOf(screen.screenSegments());
    const auto clipped = [&](std::vector<RecordedMediaSegment> segments) {
        for (auto& segment : segments) {
            const double room = std::max(0.0, screenEnd - segment.programStart);
            if (segment.duration > room) {
                segment.duration = room;
                segment.mediaDuration = std::min(segment.mediaDuration, room);
            }
        }
        std::erase_if(segments, [](const RecordedMediaSegment& s) { return s.duration <= 0; });
        return segments;
    };
    const auto cameraSegments = clipped(camera != nullptr ? camera->recordedSegments()
                                                          : std::vector<RecordedMediaSegment>{});
    const auto microphoneSegments =
        clipped(microphone != nullptr ? microphone->recordedSegments()
                                      : std::vector<RecordedMediaSegment>{});
    for (int attempt = 0; attempt < 2; ++attempt) {
        try {
            TakeManifestWriter::write(screenURL, screen.screenSegments(), cameraSegments,
                                      microphoneSegments, cursorURL);
            return TakeManifest::sidecarURL(screenURL);
        } catch (const Error& error) {
            logError("Recording", "the take's manifest could not be written: ", error.what());
        }
    }
    return std::nullopt;
}

std::optional<TakeResult>
stopAndOpenEditor(WindowRecorder& screen, CameraRecorder* camera, MicrophoneRecorder* microphone,
                  const std::function<void(const fs::path&)>& openEditor) {
    const auto state = screen.state();
    if (state == WindowRecorder::State::starting || state == WindowRecorder::State::recording ||
        state == WindowRecorder::State::paused) {
        screen.stopCurrentRecording(true, std::nullopt, false);
    }
    const auto url = screen.outputURL.value();
    if (!url || screen.screenSegments().empty()) {
        return std::nullopt;
    }
    TakeResult result{*url, writeManifest(*url, screen, camera, microphone)};
    if (openEditor) {
        openEditor(*url);
    }
    return result;
}

} // namespace RecordingSessionCoordinator

} // namespace orvelle
