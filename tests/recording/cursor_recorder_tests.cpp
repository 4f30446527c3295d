#include "core/files.h"
#include "recording/cursor_recorder.h"
#include "support/temporary_directory.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

using namespace std::chrono_literals;
using testing::TemporaryDirectory;

// The pointer of a desktop we do not have: a position the test sets, and presses it sends.
class ScriptedPointer : public PointerSource {
public:
    GlobalPointerLocation location() override { return at; }
    void startButtonMonitoring(std::function<void(int)> onButtonDown) override {
        press = std::move(onButtonDown);
    }
    void stopButtonMonitoring() override { press = nullptr; }
    bool monitoring() const { return static_cast<bool>(press); }
    void click(int button) {
        if (press) {
            press(button);
        }
    }

    GlobalPointerLocation at{};
    std::function<void(int)> press;
};

class ManualClock : public RecorderClock {
public:
    std::chrono::steady_clock::time_point now() override { return time; }
    void advance(std::chrono::duration<double> by) {
        time += std::chrono::duration_cast<std::chrono::steady_clock::duration>(by);
    }
    std::chrono::steady_clock::time_point time{std::chrono::hours(1000)};
};

class ManualTimers : public RepeatingTimerFactory {
public:
    class Timer : public RepeatingTimer {
    public:
        explicit Timer(ManualTimers& owner) : owner_(owner) {}
        ~Timer() override { owner_.tick = nullptr; }

    private:
        ManualTimers& owner_;
    };
    std::unique_ptr<RepeatingTimer> start(std::chrono::nanoseconds every,
                                          std::function<void()> onTick) override {
        interval = every;
        tick = std::move(onTick);
        return std::make_unique<Timer>(*this);
    }
    bool running() const { return static_cast<bool>(tick); }

    std::chrono::nanoseconds interval{};
    std::function<void()> tick;
};

class RecordingThePointer : public ::testing::Test {
protected:
    // A 200 x 100 frame whose bottom left corner lies at (100, 50).
    CursorRecorder makeRecorder(CodableRect frame = {100, 50, 200, 100}) {
        return CursorRecorder(frame, folder_ / "Take.cursor.json", pointer_, clock_, timers_);
    }
    // One timer tick after a sixtieth of a second with the pointer at a place.
    void tickAt(CursorRecorder&, double x, double y) {
        clock_.advance(1.0s / 60);
        pointer_.at = {x, y};
        ASSERT_TRUE(timers_.running());
        timers_.tick();
    }

    TemporaryDirectory folder_;
    ScriptedPointer pointer_;
    ManualClock clock_;
    ManualTimers timers_;
};

TEST_F(RecordingThePointer, SamplesSixtyTimesASecondRelativeToTheFrameFromItsTopLeft) {
    auto recorder = makeRecorder();
    EXPECT_FALSE(recorder.currentRecordingTime());
    pointer_.at = {100, 150}; // the frame's top left corner, on the screen's bottom-left axes
    recorder.start();
    EXPECT_EQ(timers_.interval, CursorRecorder::kSampleInterval);
    tickAt(recorder, 200, 100); // the centre
    tickAt(recorder, 150, 75);
    ASSERT_EQ(recorder.samples().size(), 3u);
    // The top edge itself lies outside a half-open frame.
    EXPECT_EQ(recorder.samples()[0], (CursorSample{0, 0, 0, false}));
    EXPECT_NEAR(recorder.samples()[1].time, 1.0 / 60, 1e-9);
    EXPECT_EQ(recorder.samples()[1].x, 0.5);
    EXPECT_EQ(recorder.samples()[1].y, 0.5);
    EXPECT_TRUE(recorder.samples()[1].visible);
    EXPECT_EQ(recorder.samples()[2].x, 0.25);
    EXPECT_EQ(recorder.samples()[2].y, 0.75);
}

TEST_F(RecordingThePointer, KeepsThePointerAtTheEdgeOutsideTheFrame) {
    auto recorder = makeRecorder();
    recorder.start();
    tickAt(recorder, 1000, -300);
    tickAt(recorder, 0, 400);
    EXPECT_EQ(recorder.samples()[1], (CursorSample{recorder.samples()[1].time, 1, 1, false}));
    EXPECT_EQ(recorder.samples()[2], (CursorSample{recorder.samples()[2].time, 0, 0, false}));
}

TEST_F(RecordingThePointer, RecordsPressesInsideTheFrameOnly) {
    auto recorder = makeRecorder();
    recorder.start();
    clock_.advance(2s);
    pointer_.at = {150, 60};
    pointer_.click(0);
    pointer_.at = {50, 60};
    pointer_.click(1);
    pointer_.at = {299, 149};
    pointer_.click(4);
    ASSERT_EQ(recorder.clicks().size(), 2u);
    EXPECT_EQ(recorder.clicks()[0], (CursorClick{2, 0}));
    EXPECT_EQ(recorder.clicks()[1], (CursorClick{2, 4}));
}

TEST_F(RecordingThePointer, PausedTimeStandsStillAndResumesWithoutAGap) {
    auto recorder = makeRecorder();
    pointer_.at = {150, 100};
    recorder.start();
    clock_.advance(2s);
    recorder.pause();
    EXPECT_TRUE(recorder.isPaused());
    EXPECT_FALSE(timers_.running());
    EXPECT_FALSE(pointer_.monitoring());
    recorder.pause(); // ignored
    clock_.advance(5s);
    EXPECT_NEAR(*recorder.currentRecordingTime(), 2, 1e-9);
    pointer_.click(0); // not monitored while paused
    recorder.resume(5s);
    EXPECT_TRUE(timers_.running());
    EXPECT_TRUE(pointer_.monitoring());
    ASSERT_EQ(recorder.samples().size(), 2u);
    EXPECT_NEAR(recorder.samples()[1].time, 2, 1e-9);
    recorder.resume(5s); // ignored: no pause runs
    tickAt(recorder, 150, 100);
    EXPECT_NEAR(recorder.samples()[2].time, 2 + 1.0 / 60, 1e-9);
    EXPECT_TRUE(recorder.clicks().empty());
}

TEST_F(RecordingThePointer, TimeNeverGoesNegative) {
    auto recorder = makeRecorder();
    recorder.start();
    clock_.advance(1s);
    recorder.pause();
    clock_.advance(1s);
    // The session measured a longer pause than the pointer's clock did.
    recorder.resume(3s);
    EXPECT_EQ(*recorder.currentRecordingTime(), 0);
}

TEST_F(RecordingThePointer, FinishWritesTheFileThatReadsBackTheSame) {
    auto recorder = makeRecorder();
    pointer_.at = {120, 70};
    recorder.start();
    tickAt(recorder, 130, 80);
    pointer_.click(1);
    recorder.finish();
    EXPECT_FALSE(timers_.running());
    EXPECT_FALSE(pointer_.monitoring());
    const auto file = CursorRecording::load(recorder.outputURL());
    EXPECT_EQ(file.version, 1);
    EXPECT_EQ(file.captureFrame, (CodableRect{100, 50, 200, 100}));
    EXPECT_EQ(file.samples, recorder.samples());
    EXPECT_EQ(file.clicks, recorder.clicks());
}

TEST_F(RecordingThePointer, AFrameWithoutAreaGetsNoSamplesButStillAFile) {
    auto recorder = makeRecorder({0, 0, 0, 100});
    recorder.start();
    tickAt(recorder, 0, 0);
    pointer_.click(0);
    recorder.finish();
    const auto file = CursorRecording::load(recorder.outputURL());
    EXPECT_TRUE(file.samples.empty());
    EXPECT_TRUE(file.clicks.empty());
}

TEST_F(RecordingThePointer, AFinishThatCannotWriteReportsTheFailure) {
    CursorRecorder recorder({0, 0, 10, 10}, folder_ / "missing" / "Take.cursor.json", pointer_,
                            clock_, timers_);
    recorder.start();
    EXPECT_THROW(recorder.finish(), FileError);
}

TEST_F(RecordingThePointer, CancelRemovesTheFileAndStopsEverything) {
    auto recorder = makeRecorder();
    recorder.start();
    recorder.finish();
    ASSERT_TRUE(fileExists(recorder.outputURL()));
    auto second = makeRecorder();
    second.start();
    second.cancel();
    EXPECT_FALSE(fileExists(second.outputURL()));
    EXPECT_FALSE(timers_.running());
    EXPECT_FALSE(pointer_.monitoring());
    second.cancel(); // nothing left to remove: ignored
}

TEST_F(RecordingThePointer, StopsTheTimerWhenDestroyed) {
    {
        auto recorder = makeRecorder();
        recorder.start();
        ASSERT_TRUE(timers_.running());
    }
    EXPECT_FALSE(timers_.running());
    EXPECT_FALSE(pointer_.monitoring());
}

} // namespace
} // namespace orvelle
