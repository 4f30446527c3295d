#pragma once

// Records the pointer beside a screen capture: its position about 60 times a second and
// every button press, relative to the capture frame, on the wall clock minus pauses. The
// data stay in memory until finish() writes the pointer data file in one go.
//
// Main thread only: the pointer source's button callbacks and the timer's ticks must be
// delivered there. The recorder owns its timer and its monitoring, so nothing calls into
// it after it is gone.

#include "project/cursor_recording.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

namespace orvelle {

// A point in global screen coordinates, in the capture frame's terms: origin at the
// bottom left, y growing upwards.
struct GlobalPointerLocation {
    double x = 0;
    double y = 0;

    friend bool operator==(const GlobalPointerLocation&, const GlobalPointerLocation&) = default;
};

// Where the pointer is, and the presses of its buttons anywhere on the screen.
class PointerSource {
public:
    virtual ~PointerSource() = default;
    virtual GlobalPointerLocation location() = 0;
    // Until stopped, calls onButtonDown with the button's number (0 left, 1 right, others
    // as the system numbers them) on the main thread at each press. Starting again
    // replaces the callback.
    virtual void startButtonMonitoring(std::function<void(int button)> onButtonDown) = 0;
    virtual void stopButtonMonitoring() = 0;
};

// The clock the pointer's times are measured on: monotonic, in real seconds.
class RecorderClock {
public:
    virtual ~RecorderClock() = default;
    virtual std::chrono::steady_clock::time_point now() = 0;
};

class SteadyRecorderClock final : public RecorderClock {
public:
    std::chrono::steady_clock::time_point now() override {
        return std::chrono::steady_clock::now();
    }
};

// A repeating timer; it stops when destroyed.
class RepeatingTimer {
public:
    virtual ~RepeatingTimer() = default;
};

class RepeatingTimerFactory {
public:
    virtual ~RepeatingTimerFactory() = default;
    // Calls tick on the main thread every interval until the timer is destroyed. The
    // timer's own jitter is not corrected.
    virtual std::unique_ptr<RepeatingTimer> start(std::chrono::nanoseconds interval,
                                                  std::function<void()> tick) = 0;
};

class CursorRecorder {
public:
    static constexpr std::chrono::nanoseconds kSampleInterval{1'000'000'000 / 60};

    // The frame is in global coordinates, origin bottom left. A frame without area gets no
    // samples, but finish() still writes a file with empty lists.
    CursorRecorder(CodableRect captureFrame, std::filesystem::path outputURL,
                   PointerSource& pointer, RecorderClock& clock, RepeatingTimerFactory& timers);
    ~CursorRecorder();
    CursorRecorder(const CursorRecorder&) = delete;
    CursorRecorder& operator=(const CursorRecorder&) = delete;

    // Time 0 is now: called just after the screen writer is armed, so the pointer's clock
    // lies within a frame of the movie's. Takes a first sample at once.
    void start();
    // Ignored unless running and not paused.
    void pause();
    // Ignored unless paused. The pause's length is the session's own measure, so that the
    // pointer's clock and the movie's agree.
    void resume(std::chrono::duration<double> afterPauseDuration);
    // Stops the timer and the button monitoring; the data stay for finish().
    void stopSampling();
    void stopClickMonitoring();
    // Writes the pointer data file atomically. Throws FileError.
    void finish();
    // Stops everything and removes the output file, ignoring a failure to remove it.
    void cancel();

    // Seconds since start minus pauses, never negative; absent before start.
    std::optional<double> currentRecordingTime();
    // Appends one sample of the pointer, also outside the frame (at the edge, not visible).
    void sample();
    // Records a press when the pointer is inside the frame.
    void recordClick(int button);

    const std::vector<CursorSample>& samples() const { return recording_.samples; }
    const std::vector<CursorClick>& clicks() const { return recording_.clicks; }
    const std::filesystem::path& outputURL() const { return outputURL_; }
    bool isPaused() const { return pauseStartedAt_.has_value(); }

private:
    using TimePoint = std::chrono::steady_clock::time_point;

    bool frameHasArea() const;
    bool frameContains(GlobalPointerLocation location) const;
    void startCapturing();

    CursorRecording recording_;
    std::filesystem::path outputURL_;
    PointerSource& pointer_;
    RecorderClock& clock_;
    RepeatingTimerFactory& timers_;
    std::optional<TimePoint> startDate_;
    std::chrono::duration<double> accumulatedPausedDuration_{0};
    std::optional<TimePoint> pauseStartedAt_;
    std::unique_ptr<RepeatingTimer> timer_;
    bool monitoring_ = false;
    bool ended_ = false;
};

} // namespace orvelle
