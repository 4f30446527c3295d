#pragma once

// The microphone side of a take: meters the chosen microphone while enabled and, during a
// take, writes its sound as numbered m4a files beside the screen movie, one per run between
// pauses. Main thread; the sound arrives on the sound server's thread and goes straight to
// the segment writer's queue. Its state is its flags: off, metering, prepared, recording,
// paused.

#include "core/executor.h"
#include "editor/published.h"
#include "platform/audio/audio_input.h"
#include "recording/capture_sample_handler_box.h"
#include "recording/live_audio_level_meter.h"
#include "recording/segmented_sample_buffer_recorder.h"
#include "recording/track_device.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvelle {

enum class MicrophoneRecorderErrorCode { noMicrophone, cannotUseMicrophone };

class MicrophoneRecorderError : public CodedError<MicrophoneRecorderErrorCode> {
public:
    using CodedError::CodedError;
    static MicrophoneRecorderError noMicrophone();        // "No microphone was found."
    static MicrophoneRecorderError cannotUseMicrophone(); // "Could not add the selected ..."
};

class MicrophoneRecorder {
public:
    struct PreparedRecording {
        std::filesystem::path outputDirectory;
        std::string baseName;
    };

    // Sample rate and channels of what is recorded.
    static constexpr int kSampleRate = 48000;
    static constexpr int kChannelCount = 1;

    explicit MicrophoneRecorder(Executor& mainThread);
    ~MicrophoneRecorder();
    MicrophoneRecorder(const MicrophoneRecorder&) = delete;
    MicrophoneRecorder& operator=(const MicrophoneRecorder&) = delete;

    Published<std::vector<TrackDevice>> devices;
    Published<bool> isEnabled{false};
    Published<bool> isRecording{false};
    Published<std::string> detailText{""};
    Published<std::optional<std::filesystem::path>> outputURL;
    Published<std::optional<Date>> lastRecordingStartedAt;
    Published<float> inputLevel{0};
    Published<bool> isPaused{false};
    Published<std::optional<std::string>> selectedDeviceID;

    // The sound server's microphones; the selection stays while its device is there, else
    // the server's default, else the first. A server that cannot be reached lists none.
    void refreshDevices();
    void selectDevice(const std::string& id);
    // On: metering starts; off: it stops and the level reads 0.
    void setEnabled(bool enabled);
    void toggleEnabled() { setEnabled(!isEnabled.value()); }

    bool prepareSidecarRecordingIfEnabled(const std::filesystem::path& screenURL);
    bool startPreparedSidecarRecordingIfEnabled(double programStart);
    void pauseRecording(std::optional<double> programEnd);
    void resumeRecording(std::optional<double> programStart);
    void stopRecordingIfNeeded(bool restoreMetering);
    void clearOutputIfIdle();
    // Removes every file written in this take (a discarded take).
    void cancelRecording();

    const std::vector<RecordedMediaSegment>& recordedSegments() const { return recordedSegments_; }
    std::string deviceName() const;

private:
    void startSession();
    void stopSession();
    void deliver(const float* samples, size_t frames, double time);
    void finishRecording(const std::optional<std::string>& error, bool restoreMetering);

    Executor& mainThread_;
    std::unique_ptr<AudioInput> input_;
    std::shared_ptr<CaptureSampleHandlerBox<CapturedAudio>> sampleHandlers_;
    LiveAudioLevelMeter levelMeter_{0.1};
    std::optional<PreparedRecording> preparedRecording_;
    std::unique_ptr<SegmentedSampleBufferRecorder<AudioSegment>> segmentRecorder_;
    std::vector<RecordedMediaSegment> recordedSegments_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace orvelle
