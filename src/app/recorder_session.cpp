#include "app/recorder_session.h"

#include "app/main_thread_executor.h"
#include "core/error.h"
#include "core/log.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

namespace orvelle {

namespace {

// The backend of a session without screen capture (no X server, no portal): every
// attempt fails with the reason, so the window says what to do.
class UnavailableCaptureBackend final : public CaptureBackend {
public:
    explicit UnavailableCaptureBackend(std::string problem) : problem_(std::move(problem)) {}
    std::string_view name() const override { return "none"; }
    ShareableContent shareableContent() override { return {}; }
    std::optional<RecorderSourceSelection> pickWithSystemPicker(RecorderCaptureMode) override {
        throw Error(problem_);
    }
    std::unique_ptr<CaptureStream> makeStream(const CaptureContentFilter&,
                                              const std::optional<CaptureRect>&,
                                              const CaptureStreamConfiguration&,
                                              CaptureStreamOutput&) override {
        throw Error(problem_);
    }
    std::unique_ptr<PointerSource> makePointerSource(Executor&, CaptureStream&, const CaptureRect&,
                                                     int, int) override {
        throw Error(problem_);
    }

private:
    std::string problem_;
};

const char* modeKey(RecorderCaptureMode mode) {
    switch (mode) {
    case RecorderCaptureMode::window:
        return "window";
    case RecorderCaptureMode::area:
        return "area";
    case RecorderCaptureMode::display:
    case RecorderCaptureMode::device:
        break;
    }
    return "display";
}

} // namespace

bool runMainThreadUntil(const std::function<bool()>& predicate, std::chrono::milliseconds timeout) {
    QElapsedTimer timer;
    timer.start();
    while (!predicate()) {
        if (timer.elapsed() >= timeout.count()) {
            return predicate();
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(2);
    }
    return true;
}

RecorderSession::RecorderSession(UserDefaults& defaults,
                                 const CameraProviderFactory& cameraProvider)
    : defaults_(defaults), timers_(mainExecutor()) {
    try {
        backend_ = makeSessionCaptureBackend();
    } catch (const std::exception& error) {
        backendProblem_ = error.what();
        logWarning("Recording", "no screen capture: ", backendProblem_);
        unavailableBackend_ = std::make_unique<UnavailableCaptureBackend>(backendProblem_);
    }
    camera_ = std::make_unique<CameraRecorder>(
        mainExecutor(), cameraProvider ? cameraProvider() : makeV4L2CameraSourceProvider());
    microphone_ = std::make_unique<MicrophoneRecorder>(mainExecutor());
    cues_ = std::make_unique<RecordingCuePlayer>();
    CaptureBackend& backend = backend_ ? *backend_ : *unavailableBackend_;
    recorder_ = std::make_unique<WindowRecorder>(
        WindowRecorderServices{mainExecutor(), runMainThreadUntil, backend, clock_, timers_,
                               camera_.get(), microphone_.get(), cues_.get()});
    recorder_->systemAudioEnabled.set(defaults_.get<bool>(kSystemAudioKey).value_or(true));

    refreshDevices();
}

RecorderSession::~RecorderSession() {
    if (isActive()) {
        stopForTermination();
    }
}

ShareableContent RecorderSession::shareableContent() {
    if (!backend_) {
        return {};
    }
    try {
        return backend_->shareableContent();
    } catch (const std::exception& error) {
        logWarning("Recording", "sources could not be listed: ", error.what());
        return {};
    }
}

void RecorderSession::refreshDevices() {
    camera_->refreshDevices();
    if (const auto id = defaults_.get<std::string>(kCameraIDKey)) {
        for (const auto& device : camera_->devices.value()) {
            if (device.id == *id) {
                camera_->selectDevice(*id);
            }
        }
    }
    microphone_->refreshDevices();
    if (const auto id = defaults_.get<std::string>(kMicrophoneIDKey)) {
        for (const auto& device : microphone_->devices.value()) {
            if (device.id == *id) {
                microphone_->selectDevice(*id);
            }
        }
    }
    // A track is on as the user left it, and only while it has a device: a take never
    // fails for a device that is not there.
    if (isActive()) {
        return;
    }
    const bool cameraWanted =
        defaults_.get<bool>(kCameraEnabledKey).value_or(false) && !camera_->devices.value().empty();
    // A take that ended stopped the camera with it, though it stays switched on: its
    // picture starts again here, for the preview and the next take.
    if (cameraWanted && camera_->state() == CameraRecorder::State::idle) {
        camera_->enable();
    } else if (!cameraWanted && camera_->isEnabled.value()) {
        camera_->disable();
    }
    const bool microphoneWanted = defaults_.get<bool>(kMicrophoneEnabledKey).value_or(true) &&
                                  !microphone_->devices.value().empty();
    if (microphoneWanted != microphone_->isEnabled.value()) {
        microphone_->setEnabled(microphoneWanted);
    }
}

namespace {

void remember(UserDefaults& defaults, const char* key, Json value) {
    try {
        defaults.set(key, std::move(value));
    } catch (const std::exception& error) {
        logWarning("Recording", "the setting ", key, " could not be kept: ", error.what());
    }
}

} // namespace

void RecorderSession::setCameraEnabled(bool enabled) {
    if (enabled) {
        camera_->enable();
    } else {
        camera_->disable();
    }
    remember(defaults_, kCameraEnabledKey, enabled);
}

void RecorderSession::selectCamera(const std::string& id) {
    camera_->selectDevice(id);
    remember(defaults_, kCameraIDKey, id);
}

void RecorderSession::setMicrophoneEnabled(bool enabled) {
    microphone_->setEnabled(enabled);
    remember(defaults_, kMicrophoneEnabledKey, enabled);
}

void RecorderSession::selectMicrophone(const std::string& id) {
    microphone_->selectDevice(id);
    remember(defaults_, kMicrophoneIDKey, id);
}

void RecorderSession::setSystemAudioEnabled(bool enabled) {
    recorder_->systemAudioEnabled.set(enabled);
    remember(defaults_, kSystemAudioKey, enabled);
}

RecorderCaptureMode RecorderSession::lastCaptureMode() const {
    const std::string key = defaults_.get<std::string>(kCaptureModeKey).value_or("display");
    if (key == "window") {
        return RecorderCaptureMode::window;
    }
    if (key == "area") {
        return RecorderCaptureMode::area;
    }
    return RecorderCaptureMode::display;
}

void RecorderSession::rememberCaptureMode(RecorderCaptureMode mode) {
    remember(defaults_, kCaptureModeKey, modeKey(mode));
}

std::optional<CaptureRect> RecorderSession::lastArea() const {
    const auto numbers = defaults_.get<std::vector<double>>(kAreaKey);
    if (!numbers || numbers->size() != 4 || !((*numbers)[2] > 0) || !((*numbers)[3] > 0)) {
        return std::nullopt;
    }
    return CaptureRect{(*numbers)[0], (*numbers)[1], (*numbers)[2], (*numbers)[3]};
}

void RecorderSession::rememberArea(const CaptureRect& area) {
    remember(defaults_, kAreaKey, Json::array({area.x, area.y, area.width, area.height}));
}

void RecorderSession::start(const RecorderSourceSelection& selection) {
    if (recorder_->state() != WindowRecorder::State::idle) {
        return;
    }
    rememberCaptureMode(selection.mode);
    recorder_->startSelection(selection.mode, selection);
}

bool RecorderSession::isActive() const {
    const auto state = recorder_->state();
    return state == WindowRecorder::State::starting || state == WindowRecorder::State::recording ||
           state == WindowRecorder::State::paused;
}

void RecorderSession::togglePause() {
    if (recorder_->state() == WindowRecorder::State::recording) {
        RecordingSessionCoordinator::pause(*recorder_, camera_.get(), microphone_.get());
    } else if (recorder_->state() == WindowRecorder::State::paused) {
        RecordingSessionCoordinator::resume(*recorder_, camera_.get(), microphone_.get());
    }
}

std::optional<RecordingSessionCoordinator::TakeResult> RecorderSession::stop() {
    return RecordingSessionCoordinator::stopAndOpenEditor(*recorder_, camera_.get(),
                                                          microphone_.get());
}

void RecorderSession::discard() {
    recorder_->discardRecording();
}

void RecorderSession::stopForTermination() {
    recorder_->stopAndPersistForTermination();
}

} // namespace orvelle
