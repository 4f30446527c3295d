#include "recording/microphone_recorder.h"

#include "core/log.h"
#include "core/monotonic_clock.h"
#include "platform/audio/audio_devices.h"

#include <algorithm>
#include <chrono>

namespace orvelle {

MicrophoneRecorderError MicrophoneRecorderError::noMicrophone() {
    return {MicrophoneRecorderErrorCode::noMicrophone, "No microphone was found."};
}

MicrophoneRecorderError MicrophoneRecorderError::cannotUseMicrophone() {
    return {MicrophoneRecorderErrorCode::cannotUseMicrophone,
            "Could not add the selected microphone to the capture session."};
}

MicrophoneRecorder::MicrophoneRecorder(Executor& mainThread)
    : mainThread_(mainThread),
      sampleHandlers_(std::make_shared<CaptureSampleHandlerBox<CapturedAudio>>()) {}

MicrophoneRecorder::~MicrophoneRecorder() {
    *alive_ = false;
    stopSession();
    if (segmentRecorder_) {
        segmentRecorder_->finish(std::nullopt);
    }
}

void MicrophoneRecorder::refreshDevices() {
    std::vector<TrackDevice> list;
    std::optional<std::string> defaultID;
    try {
        for (const auto& device : listAudioDevices().microphones) {
            list.push_back({device.id, device.name, device.isDefault});
            if (device.isDefault) {
                defaultID = device.id;
            }
        }
    } catch (const Error& error) {
        logWarning("Microphone", "no microphones listed: ", error.what());
    }
    devices.set(list);
    const auto has = [&](const std::optional<std::string>& id) {
        return id && std::any_of(list.begin(), list.end(),
                                 [&](const TrackDevice& device) { return device.id == *id; });
    };
    if (has(selectedDeviceID.value())) {
        return;
    }
    if (has(defaultID)) {
        selectedDeviceID.set(defaultID);
    } else {
        selectedDeviceID.set(list.empty() ? std::nullopt
                                          : std::optional<std::string>(list.front().id));
    }
}

void MicrophoneRecorder::selectDevice(const std::string& id) {
    if (selectedDeviceID.value() == id) {
        return;
    }
    selectedDeviceID.set(id);
    if (input_ && !isRecording.value()) {
        stopSession();
        if (isEnabled.value()) {
            try {
                startSession();
            } catch (const Error& error) {
                detailText.set(error.what());
            }
        }
    }
}

std::string MicrophoneRecorder::deviceName() const {
    for (const auto& device : devices.value()) {
        if (selectedDeviceID.value() == device.id && !device.name.empty()) {
            return device.name;
        }
    }
    return "selected microphone";
}

void MicrophoneRecorder::deliver(const float* samples, size_t frames, double time) {
    if (const auto level = levelMeter_.process(samples, frames * kChannelCount, monotonicNow())) {
        mainThread_.post([this, alive = std::weak_ptr<bool>(alive_), value = *level] {
            if (const auto living = alive.lock(); living && *living) {
                inputLevel.set(isEnabled.value() ? value : 0.0f);
            }
        });
    }
    CapturedAudio audio;
    audio.samples.assign(samples, samples + frames * kChannelCount);
    audio.sampleRate = kSampleRate;
    audio.channelCount = kChannelCount;
    audio.presentationTime = time;
    sampleHandlers_->with(audio);
}

void MicrophoneRecorder::startSession() {
    if (input_) {
        return;
    }
    if (!selectedDeviceID.value()) {
        refreshDevices();
    }
    if (!selectedDeviceID.value()) {
        throw MicrophoneRecorderError::noMicrophone();
    }
    AudioInputOptions options;
    options.sourceName = *selectedDeviceID.value();
    options.sampleRate = kSampleRate;
    options.channelCount = kChannelCount;
    options.streamName = "Microphone";
    auto input = std::make_unique<AudioInput>(options);
    input->start([this](const float* samples, size_t frames,
                        double time) { deliver(samples, frames, time); },
                 [this, alive = std::weak_ptr<bool>(alive_)](const std::string& message) {
                     // The microphone went away: the take keeps what was written, the screen goes
                     // on.
                     mainThread_.post([this, alive, message] {
                         if (const auto living = alive.lock(); living && *living) {
                             logError("Microphone", message);
                             detailText.set(message);
                         }
                     });
                 });
    input_ = std::move(input);
}

void MicrophoneRecorder::stopSession() {
    if (input_) {
        input_->stop();
        input_.reset();
    }
}

void MicrophoneRecorder::setEnabled(bool enabled) {
    if (!enabled) {
        isEnabled.set(false);
        if (!isRecording.value()) {
            stopSession();
        }
        inputLevel.set(0);
        detailText.set("Microphone disabled.");
        return;
    }
    isEnabled.set(true);
    detailText.set("Starting microphone meter.");
    try {
        startSession();
        detailText.set(deviceName() + " is ready to record.");
    } catch (const MicrophoneRecorderError& error) {
        detailText.set(error.what());
    } catch (const Error& error) {
        detailText.set(error.what());
    }
}

bool MicrophoneRecorder::prepareSidecarRecordingIfEnabled(const std::filesystem::path& screenURL) {
    if (!isEnabled.value()) {
        return false;
    }
    refreshDevices();
    if (!selectedDeviceID.value()) {
        detailText.set(MicrophoneRecorderError::noMicrophone().what());
        return false;
    }
    try {
        startSession();
    } catch (const Error& error) {
        stopSession();
        detailText.set(error.what());
        return false;
    }
    preparedRecording_ = PreparedRecording{screenURL.parent_path(), screenURL.stem().string()};
    detailText.set(deviceName() + " is ready to record.");
    return true;
}

bool MicrophoneRecorder::startPreparedSidecarRecordingIfEnabled(double programStart) {
    if (!preparedRecording_ || !input_) {
        return false;
    }
    detailText.set("Recording " + deviceName() + ".");
    segmentRecorder_ = std::make_unique<SegmentedSampleBufferRecorder<AudioSegment>>(
        "com.tolvanic.orvelle.segmented-m4a", MediaTrackManifest::Kind::microphone,
        preparedRecording_->outputDirectory, preparedRecording_->baseName, selectedDeviceID.value(),
        deviceName(), [this, alive = std::weak_ptr<bool>(alive_)](const std::string& message) {
            mainThread_.post([this, alive, message] {
                if (const auto living = alive.lock(); living && *living) {
                    logError("Microphone", "writer failed: ", message);
                    detailText.set(message);
                }
            });
        });
    outputURL.set(segmentRecorder_->startSegment(programStart));
    auto* recorder = segmentRecorder_.get();
    sampleHandlers_->store([recorder](const CapturedAudio& audio) { recorder->append(audio); });
    isRecording.set(true);
    isPaused.set(false);
    lastRecordingStartedAt.set(Date::now());
    return true;
}

void MicrophoneRecorder::pauseRecording(std::optional<double> programEnd) {
    if (!isRecording.value() || isPaused.value() || !segmentRecorder_) {
        return;
    }
    sampleHandlers_->clearAndBarrier();
    try {
        segmentRecorder_->finishActiveSegment(programEnd);
    } catch (const Error& error) {
        logError("Microphone", "the segment could not be closed at the pause: ", error.what());
    }
    recordedSegments_ = segmentRecorder_->segments();
    isPaused.set(true);
    detailText.set("Microphone recording paused.");
}

void MicrophoneRecorder::resumeRecording(std::optional<double> programStart) {
    if (!isPaused.value() || !segmentRecorder_) {
        return;
    }
    segmentRecorder_->startSegment(programStart.value_or(0));
    auto* recorder = segmentRecorder_.get();
    sampleHandlers_->store([recorder](const CapturedAudio& audio) { recorder->append(audio); });
    isPaused.set(false);
    detailText.set("Recording " + deviceName() + ".");
}

void MicrophoneRecorder::stopRecordingIfNeeded(bool restoreMetering) {
    if (!isRecording.value() || !segmentRecorder_) {
        return;
    }
    sampleHandlers_->clearAndBarrier();
    std::optional<std::string> error;
    try {
        recordedSegments_ = segmentRecorder_->finish(std::nullopt);
    } catch (const Error& failure) {
        error = failure.what();
        recordedSegments_ = segmentRecorder_->segments();
    }
    segmentRecorder_.reset();
    finishRecording(error, restoreMetering);
}

void MicrophoneRecorder::finishRecording(const std::optional<std::string>& error,
                                         bool restoreMetering) {
    if (error) {
        detailText.set(*error);
    } else {
        detailText.set(recordedSegments_.empty() ? "Microphone recording stopped."
                                                 : "Microphone recording captured.");
    }
    isRecording.set(false);
    isPaused.set(false);
    preparedRecording_.reset();
    if (!(restoreMetering && isEnabled.value())) {
        stopSession();
    }
}

void MicrophoneRecorder::cancelRecording() {
    sampleHandlers_->clearAndBarrier();
    if (segmentRecorder_) {
        segmentRecorder_->cancel();
        segmentRecorder_.reset();
    }
    recordedSegments_.clear();
    isRecording.set(false);
    isPaused.set(false);
    preparedRecording_.reset();
}

void MicrophoneRecorder::clearOutputIfIdle() {
    if (!isRecording.value()) {
        outputURL.set(std::nullopt);
    }
}

} // namespace orvelle
