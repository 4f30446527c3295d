#pragma once

// Everything the recorder windows drive, in one owner: the desktop's capture backend, the
// webcam, the microphone, the start and stop cues and the WindowRecorder over them. The
// user's device choices (which camera and microphone, whether each is on, system audio,
// the last capture mode) are read from the settings at start and written back as they
// change. Pause, resume and stop go to all tracks together through the session
// coordinator. Main thread only.

#include "core/user_defaults.h"
#include "recording/camera_recorder.h"
#include "recording/camera_source.h"
#include "recording/capture_backend.h"
#include "recording/executor_repeating_timer.h"
#include "recording/microphone_recorder.h"
#include "recording/recording_cue_player.h"
#include "recording/window_recorder.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace orvelle {

using CameraProviderFactory = std::function<std::unique_ptr<CameraSourceProvider>()>;

class RecorderSession {
public:
    // Keys of the user's settings.
    static constexpr const char* kCameraIDKey = "OrvelleSelectedCameraID";
    static constexpr const char* kMicrophoneIDKey = "OrvelleSelectedMicrophoneID";
    static constexpr const char* kCameraEnabledKey = "OrvelleCameraEnabled";
    static constexpr const char* kMicrophoneEnabledKey = "OrvelleMicrophoneEnabled";
    static constexpr const char* kSystemAudioKey = "OrvelleSystemAudioEnabled";
    static constexpr const char* kCaptureModeKey = "OrvelleRecorderCaptureMode";
    static constexpr const char* kAreaKey = "OrvelleRecorderArea";

    RecorderSession(UserDefaults& defaults, const CameraProviderFactory& cameraProvider);
    ~RecorderSession();
    RecorderSession(const RecorderSession&) = delete;
    RecorderSession& operator=(const RecorderSession&) = delete;

    WindowRecorder& recorder() { return *recorder_; }
    CameraRecorder& camera() { return *camera_; }
    MicrophoneRecorder& microphone() { return *microphone_; }
    // Absent when this desktop offers no screen capture; backendProblem() says why.
    CaptureBackend* backend() { return backend_.get(); }
    const std::string& backendProblem() const { return backendProblem_; }
    const std::filesystem::path& settingsURL() const { return defaults_.url(); }
    // The displays and windows to choose from; empty when there is no backend or it
    // cannot list them now.
    ShareableContent shareableContent();

    // Device choices, remembered. Turning the camera or microphone on starts its preview
    // or meter (while no take runs).
    void refreshDevices();
    void setCameraEnabled(bool enabled);
    void selectCamera(const std::string& id);
    void setMicrophoneEnabled(bool enabled);
    void selectMicrophone(const std::string& id);
    void setSystemAudioEnabled(bool enabled);
    RecorderCaptureMode lastCaptureMode() const;
    void rememberCaptureMode(RecorderCaptureMode mode);
    // The last area chosen, global points from the top left.
    std::optional<CaptureRect> lastArea() const;
    void rememberArea(const CaptureRect& area);

    // A take of the selection starts (the call returns when it runs, or has failed).
    void start(const RecorderSourceSelection& selection);
    // Starting, recording or paused.
    bool isActive() const;
    // Recording pauses, paused resumes; all tracks together.
    void togglePause();
    // Stops and writes the take's manifest (tried twice). Absent when nothing was kept.
    std::optional<RecordingSessionCoordinator::TakeResult> stop();
    // Stops and throws every file of the take away.
    void discard();
    // The quit path: a running take is stopped and kept; nothing opens.
    void stopForTermination();

private:
    UserDefaults& defaults_;
    std::unique_ptr<CaptureBackend> backend_;
    std::string backendProblem_;
    SteadyRecorderClock clock_;
    ExecutorRepeatingTimerFactory timers_;
    std::unique_ptr<CameraRecorder> camera_;
    std::unique_ptr<MicrophoneRecorder> microphone_;
    std::unique_ptr<RecordingCuePlayer> cues_;
    std::unique_ptr<CaptureBackend> unavailableBackend_;
    std::unique_ptr<WindowRecorder> recorder_;
};

// Runs the main thread's events until the predicate holds or the time passes (the
// recorder's waits during a start, so that a stop pressed meanwhile is seen).
bool runMainThreadUntil(const std::function<bool()>& predicate, std::chrono::milliseconds timeout);

} // namespace orvelle
