#include "recording/camera_recorder.h"

#include "core/log.h"

#include <algorithm>

namespace orvelle {

CameraRecorderError CameraRecorderError::noCamera() {
    return {CameraRecorderErrorCode::noCamera, "No webcam was found."};
}
CameraRecorderError CameraRecorderError::noMicrophone() {
    return {CameraRecorderErrorCode::noMicrophone, "The selected microphone was not found."};
}
CameraRecorderError CameraRecorderError::cameraAccessDenied() {
    return {CameraRecorderErrorCode::cameraAccessDenied,
            "Camera access was denied: add yourself to the video group or allow Orvelle to use "
            "the camera in your desktop's privacy settings."};
}
CameraRecorderError CameraRecorderError::cannotUseCamera() {
    return {CameraRecorderErrorCode::cannotUseCamera,
            "Could not add the selected camera to the capture session."};
}
CameraRecorderError CameraRecorderError::cannotUseMicrophone() {
    return {CameraRecorderErrorCode::cannotUseMicrophone,
            "Could not add the selected microphone to the webcam capture session."};
}
CameraRecorderError CameraRecorderError::cannotRecordCamera() {
    return {CameraRecorderErrorCode::cannotRecordCamera,
            "Could not configure webcam movie recording."};
}

namespace {

class V4L2CameraSource final : public CameraSource {
public:
    explicit V4L2CameraSource(std::unique_ptr<V4L2CameraStream> stream)
        : stream_(std::move(stream)) {}
    void start(std::function<void(CapturedVideoFrameRef)> deliver) override {
        stream_->start(std::move(deliver));
    }
    void stop() override { stream_->stop(); }

private:
    std::unique_ptr<V4L2CameraStream> stream_;
};

class V4L2CameraSourceProvider final : public CameraSourceProvider {
public:
    std::vector<TrackDevice> devices() override {
        std::vector<TrackDevice> list;
        for (const auto& camera : listV4L2Cameras()) {
            list.push_back({camera.id, camera.name, list.empty()});
        }
        return list;
    }
    std::unique_ptr<CameraSource> open(const std::string& deviceID,
                                       CameraStreamFormat wish) override {
        std::error_code error;
        if (!std::filesystem::exists(deviceID, error)) {
            throw CameraRecorderError::noCamera();
        }
        return std::make_unique<V4L2CameraSource>(
            std::make_unique<V4L2CameraStream>(deviceID, wish));
    }
};

} // namespace

std::unique_ptr<CameraSourceProvider> makeV4L2CameraSourceProvider() {
    return std::make_unique<V4L2CameraSourceProvider>();
}

CameraRecorder::CameraRecorder(Executor& mainThread, std::unique_ptr<CameraSourceProvider> provider)
    : mainThread_(mainThread), provider_(std::move(provider)),
      videoHandlers_(std::make_shared<CaptureSampleHandlerBox<CapturedVideoFrameRef>>()) {}

CameraRecorder::~CameraRecorder() {
    *alive_ = false;
    stopSession();
}

void CameraRecorder::refreshDevices() {
    const auto list = provider_->devices();
    devices.set(list);
    const auto has = [&](const std::optional<std::string>& id) {
        return id && std::any_of(list.begin(), list.end(),
                                 [&](const TrackDevice& device) { return device.id == *id; });
    };
    if (!has(selectedDeviceID.value())) {
        selectedDeviceID.set(list.empty() ? std::nullopt
                                          : std::optional<std::string>(list.front().id));
    }
}

void CameraRecorder::selectDevice(const std::string& id) {
    selectedDeviceID.set(id);
    if (state_ == State::previewing) {
        stopSession();
        try {
            startSession();
        } catch (const Error& error) {
            fail(error.what());
        }
    }
}

std::string CameraRecorder::deviceName() const {
    for (const auto& device : devices.value()) {
        if (selectedDeviceID.value() == device.id) {
            return device.name;
        }
    }
    return selectedDeviceID.value().value_or("");
}

void CameraRecorder::startSession() {
    if (source_) {
        return;
    }
    if (!selectedDeviceID.value()) {
        throw CameraRecorderError::noCamera();
    }
    auto source = provider_->open(*selectedDeviceID.value(), kRecordingFormat);
    source->start([this, handlers = videoHandlers_](const CapturedVideoFrameRef& frame) {
        {
            std::lock_guard lock(previewMutex_);
            latestPreviewFrame_ = frame;
        }
        handlers->with(frame);
    });
    source_ = std::move(source);
}

void CameraRecorder::stopSession() {
    if (source_) {
        source_->stop();
        source_.reset();
    }
    std::lock_guard lock(previewMutex_);
    latestPreviewFrame_.reset();
}

CapturedVideoFrameRef CameraRecorder::latestPreviewFrame() const {
    std::lock_guard lock(previewMutex_);
    return latestPreviewFrame_;
}

void CameraRecorder::enable() {
    if (state_ != State::idle) {
        return;
    }
    isEnabled.set(true);
    if (devices.value().empty()) {
        refreshDevices();
    }
    if (!selectedDeviceID.value()) {
        statusText.set("No camera");
        detailText.set(CameraRecorderError::noCamera().what());
        return;
    }
    state_ = State::startingPreview;
    statusText.set("Starting camera");
    detailText.set("Preparing webcam capture.");
    try {
        startSession();
    } catch (const Error& error) {
        fail(error.what());
        return;
    }
    state_ = State::previewing;
    statusText.set("Camera enabled");
    detailText.set("Preview is live. Webcam video will record when the main recording starts.");
}

void CameraRecorder::disable() {
    if (state_ == State::recording || state_ == State::paused) {
        stopRecording(false);
    }
    isEnabled.set(false);
    if (state_ != State::idle) {
        stopSession();
        state_ = State::idle;
        statusText.set("Camera off");
        detailText.set(outputURL.value() ? "Camera recording captured." : "Camera disabled.");
    }
}

bool CameraRecorder::prepareRecordingIfEnabled(const std::filesystem::path& screenURL,
                                               std::optional<std::string> microphoneDeviceID) {
    if (state_ != State::previewing) {
        return false;
    }
    if (isEnabled.value() && !selectedDeviceID.value()) {
        fail(CameraRecorderError::noCamera().what());
        return false;
    }
    // The device must still be there: one unplugged since the preview began fails here.
    refreshDevices();
    const auto list = devices.value();
    if (std::none_of(list.begin(), list.end(), [&](const TrackDevice& device) {
            return selectedDeviceID.value() == device.id;
        })) {
        fail(CameraRecorderError::noCamera().what());
        return false;
    }
    try {
        startSession();
    } catch (const Error& error) {
        fail(error.what());
        return false;
    }
    preparedRecording_ = PreparedRecording{screenURL.parent_path(), screenURL.stem().string(),
                                           std::move(microphoneDeviceID)};
    statusText.set("Camera ready");
    detailText.set(preparedRecording_->microphoneDeviceID
                       ? "Webcam video with microphone audio is ready to start."
                       : "Webcam video is ready to start.");
    return true;
}

bool CameraRecorder::startPreparedRecordingIfEnabled(double programStart) {
    if (state_ != State::previewing || !preparedRecording_) {
        return false;
    }
    statusText.set("Starting camera");
    detailText.set("Starting webcam video recording.");
    segmentRecorder_ = std::make_unique<SegmentedSampleBufferRecorder<VideoSegment>>(
        "com.tolvanic.orvelle.segmented-mov", MediaTrackManifest::Kind::camera,
        preparedRecording_->outputDirectory, preparedRecording_->baseName, selectedDeviceID.value(),
        deviceName(), [this, alive = std::weak_ptr<bool>(alive_)](const std::string& message) {
            mainThread_.post([this, alive, message] {
                if (const auto living = alive.lock(); living && *living) {
                    logError("Camera", "writer failed: ", message);
                    fail(message);
                }
            });
        });
    outputURL.set(segmentRecorder_->startSegment(programStart));
    auto* recorder = segmentRecorder_.get();
    videoHandlers_->store(
        [recorder](const CapturedVideoFrameRef& frame) { recorder->append(frame); });
    state_ = State::recording;
    isRecording.set(true);
    lastRecordingStartedAt.set(Date::now());
    statusText.set("Camera recording");
    detailText.set("Recording webcam movie.");
    return true;
}

void CameraRecorder::pauseRecording(std::optional<double> programEnd) {
    if (state_ != State::recording || !segmentRecorder_) {
        return;
    }
    videoHandlers_->clearAndBarrier();
    try {
        segmentRecorder_->finishActiveSegment(programEnd);
    } catch (const Error& error) {
        logError("Camera", "the segment could not be closed at the pause: ", error.what());
    }
    recordedSegments_ = segmentRecorder_->segments();
    state_ = State::paused;
    statusText.set("Camera paused");
    detailText.set("Webcam recording paused.");
}

void CameraRecorder::resumeRecording(std::optional<double> programStart) {
    if (state_ != State::paused || !segmentRecorder_) {
        return;
    }
    segmentRecorder_->startSegment(programStart.value_or(0));
    auto* recorder = segmentRecorder_.get();
    videoHandlers_->store(
        [recorder](const CapturedVideoFrameRef& frame) { recorder->append(frame); });
    state_ = State::recording;
    statusText.set("Camera recording");
    detailText.set("Recording webcam movie.");
}

void CameraRecorder::stopRecording(bool restorePreview) {
    if (state_ != State::recording && state_ != State::paused) {
        return;
    }
    state_ = State::stopping;
    statusText.set("Stopping camera");
    detailText.set("Finalizing the webcam movie.");
    videoHandlers_->clearAndBarrier();
    std::optional<std::string> error;
    if (segmentRecorder_) {
        try {
            recordedSegments_ = segmentRecorder_->finish(std::nullopt);
        } catch (const Error& failure) {
            error = failure.what();
            recordedSegments_ = segmentRecorder_->segments();
        }
        segmentRecorder_.reset();
    }
    isRecording.set(false);
    preparedRecording_.reset();
    if (error) {
        statusText.set("Camera failed");
        detailText.set(*error);
    } else {
        statusText.set("Camera enabled");
        detailText.set(outputURL.value() ? "Camera recording captured." : "Camera stopped.");
    }
    if (restorePreview && isEnabled.value()) {
        state_ = State::previewing;
    } else {
        stopSession();
        state_ = State::idle;
    }
}

void CameraRecorder::cancelRecording() {
    videoHandlers_->clearAndBarrier();
    if (segmentRecorder_) {
        segmentRecorder_->cancel();
        segmentRecorder_.reset();
    }
    recordedSegments_.clear();
    isRecording.set(false);
    preparedRecording_.reset();
    if (state_ == State::recording || state_ == State::paused || state_ == State::stopping) {
        state_ = State::previewing;
    }
}

void CameraRecorder::fail(const std::string& message) {
    isEnabled.set(false);
    isRecording.set(false);
    videoHandlers_->clearAndBarrier();
    if (segmentRecorder_) {
        // What was closed stays: the open segment is closed as far as it got.
        try {
            recordedSegments_ = segmentRecorder_->finish(std::nullopt);
        } catch (const Error&) {
            recordedSegments_ = segmentRecorder_->segments();
        }
        segmentRecorder_.reset();
    }
    stopSession();
    state_ = State::idle;
    statusText.set("Camera failed");
    detailText.set(message);
}

void CameraRecorder::clearOutputIfIdle() {
    if (state_ != State::recording && state_ != State::paused) {
        outputURL.set(std::nullopt);
    }
}

} // namespace orvelle
