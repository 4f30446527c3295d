#include "recording/cursor_recorder.h"

#include "core/files.h"

#include <algorithm>

namespace orvelle {

CursorRecorder::CursorRecorder(CodableRect captureFrame, std::filesystem::path outputURL,
                               PointerSource& pointer, RecorderClock& clock,
                               RepeatingTimerFactory& timers)
    : outputURL_(std::move(outputURL)), pointer_(pointer), clock_(clock), timers_(timers) {
    recording_.captureFrame = captureFrame;
}

CursorRecorder::~CursorRecorder() {
    stopSampling();
}

void CursorRecorder::start() {
    if (startDate_ || ended_) {
        return;
    }
    startDate_ = clock_.now();
    pauseStartedAt_.reset();
    sample();
    startCapturing();
}

void CursorRecorder::pause() {
    if (!startDate_ || ended_ || pauseStartedAt_) {
        return;
    }
    pauseStartedAt_ = clock_.now();
    stopSampling();
}

void CursorRecorder::resume(std::chrono::duration<double> afterPauseDuration) {
    if (!pauseStartedAt_ || ended_) {
        return;
    }
    accumulatedPausedDuration_ += afterPauseDuration;
    pauseStartedAt_.reset();
    sample();
    startCapturing();
}

void CursorRecorder::startCapturing() {
    monitoring_ = true;
    pointer_.startButtonMonitoring([this](int button) { recordClick(button); });
    timer_ = timers_.start(kSampleInterval, [this] { sample(); });
}

void CursorRecorder::stopSampling() {
    timer_.reset();
    stopClickMonitoring();
}

void CursorRecorder::stopClickMonitoring() {
    if (monitoring_) {
        monitoring_ = false;
        pointer_.stopButtonMonitoring();
    }
}

void CursorRecorder::finish() {
    stopSampling();
    ended_ = true;
    recording_.version = CursorRecording::kCurrentVersion;
    recording_.save(outputURL_);
}

void CursorRecorder::cancel() {
    stopSampling();
    ended_ = true;
    removeIgnoringErrors(outputURL_);
}

std::optional<double> CursorRecorder::currentRecordingTime() {
    if (!startDate_) {
        return std::nullopt;
    }
    const TimePoint now = clock_.now();
    std::chrono::duration<double> runningPause{0};
    if (pauseStartedAt_) {
        runningPause = std::max(std::chrono::duration<double>(now - *pauseStartedAt_),
                                std::chrono::duration<double>(0));
    }
    const std::chrono::duration<double> elapsed =
        now - *startDate_ - accumulatedPausedDuration_ - runningPause;
    return std::max(0.0, elapsed.count());
}

bool CursorRecorder::frameHasArea() const {
    const CodableRect& frame = recording_.captureFrame;
    return frame.width > 0 && frame.height > 0;
}

bool CursorRecorder::frameContains(GlobalPointerLocation location) const {
    const CodableRect& frame = recording_.captureFrame;
    return frameHasArea() && location.x >= frame.x && location.x < frame.x + frame.width &&
           location.y >= frame.y && location.y < frame.y + frame.height;
}

void CursorRecorder::sample() {
    if (!frameHasArea()) {
        return;
    }
    const auto time = currentRecordingTime();
    if (!time) {
        return;
    }
    const CodableRect& frame = recording_.captureFrame;
    const GlobalPointerLocation location = pointer_.location();
    CursorSample sample;
    sample.time = *time;
    sample.x = std::clamp((location.x - frame.x) / frame.width, 0.0, 1.0);
    // The file's origin is top left; the screen's is bottom left.
    sample.y = std::clamp(1.0 - (location.y - frame.y) / frame.height, 0.0, 1.0);
    sample.visible = frameContains(location);
    recording_.samples.push_back(sample);
}

void CursorRecorder::recordClick(int button) {
    const auto time = currentRecordingTime();
    if (!time || !frameContains(pointer_.location())) {
        return;
    }
    recording_.clicks.push_back({*time, button});
}

} // namespace orvelle
