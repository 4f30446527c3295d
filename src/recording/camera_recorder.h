#pragma once

// The webcam side of a take: previews the chosen camera while enabled and, during a take,
// writes its pictures as numbered H.264 movies beside the screen movie, one per run between
// pauses. Main thread; pictures arrive on the source's thread and go straight to the
// segment writer's queue.

#include "core/executor.h"
#include "editor/published.h"
#include "recording/camera_source.h"
#include "recording/capture_sample_handler_box.h"
#include "recording/segmented_sample_buffer_recorder.h"

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace orvelle {

enum class CameraRecorderErrorCode {
    noCamera,
    noMicrophone,
    cameraAccessDenied,
    cannotUseCamera,
    cannotUseMicrophone,
    cannotRecordCamera
};

class CameraRecorderError : public CodedError<CameraRecorderErrorCode> {
public:
    using CodedError::CodedError;
    static CameraRecorderError noCamera();
    static CameraRecorderError noMicrophone();
    static CameraRecorderError cameraAccessDenied();
    static CameraRecorderError cannotUseCamera();
    static CameraRecorderError cannotUseMicrophone();
    static CameraRecorderError cannotRecordCamera();
};

class CameraRecorder {
public:
    enum class State { idle, startingPreview, previewing, recording, paused, stopping };

    struct PreparedRecording {
        std::filesystem::path outputDirectory;
        std::string baseName;
        std::optional<std::string> microphoneDeviceID;
    };

    // What is asked of the camera: 1920x1080 at 30 frames a second, or the nearest it has.
    static constexpr CameraStreamFormat kRecordingFormat{1920, 1080, 30};

    CameraRecorder(Executor& mainThread, std::unique_ptr<CameraSourceProvider> provider);
    ~CameraRecorder();
    CameraRecorder(const CameraRecorder&) = delete;
    CameraRecorder& operator=(const CameraRecorder&) = delete;

    Published<std::vector<TrackDevice>> devices;
    Published<std::string> statusText{""};
    Published<std::string> detailText{""};
    Published<std::optional<std::filesystem::path>> outputURL;
    Published<bool> isEnabled{false};
    Published<bool> isRecording{false};
    Published<std::optional<Date>> lastRecordingStartedAt;
    Published<std::optional<std::string>> selectedDeviceID;

    State state() const { return state_; }

    void refreshDevices();
    void selectDevice(const std::string& id);
    // Starts the preview; from idle only.
    void enable();
    void disable();
    bool prepareRecordingIfEnabled(const std::filesystem::path& screenURL,
                                   std::optional<std::string> microphoneDeviceID);
    bool startPreparedRecordingIfEnabled(double programStart);
    void pauseRecording(std::optional<double> programEnd);
    void resumeRecording(std::optional<double> programStart);
    void stopRecording(bool restorePreview);
    void clearOutputIfIdle();
    // Removes every file written in this take (a discarded take).
    void cancelRecording();

    // The newest picture, for the launcher's preview; null before the first.
    CapturedVideoFrameRef latestPreviewFrame() const;
    const std::vector<RecordedMediaSegment>& recordedSegments() const { return recordedSegments_; }

private:
    void fail(const std::string& message);
    void startSession();
    void stopSession();
    std::string deviceName() const;

    Executor& mainThread_;
    std::unique_ptr<CameraSourceProvider> provider_;
    std::unique_ptr<CameraSource> source_;
    State state_ = State::idle;
    std::optional<PreparedRecording> preparedRecording_;
    std::unique_ptr<SegmentedSampleBufferRecorder<VideoSegment>> segmentRecorder_;
    std::vector<RecordedMediaSegment> recordedSegments_;
    std::shared_ptr<CaptureSampleHandlerBox<CapturedVideoFrameRef>> videoHandlers_;
    mutable std::mutex previewMutex_;
    CapturedVideoFrameRef latestPreviewFrame_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace orvelle
