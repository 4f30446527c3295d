#include "core/monotonic_clock.h"
#include "platform/audio/audio_output.h"
#include "platform/media/audio_decoder.h"
#include "platform/media/media_probe.h"
#include "platform/media/video_decoder.h"
#include "project/cursor_recording.h"
#include "recording/executor_repeating_timer.h"
#include "recording/screen_capture_engine.h"
#include "support/painter_counter.h"
#include "support/sound_server.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"
#include "support/x_server.h"
#include "x11_painter/painter_layout.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <fstream>
#include <thread>

namespace orvelle {
namespace {

using namespace std::chrono_literals;
using testing::ChildProcess;
using testing::TemporaryDirectory;
using testing::XvfbServer;

// Screen recordings of a private X server, made the way a session makes them: prepare,
// start, wait for the first picture, arm, pointer data, and at the end stop and finalise.
class RecordingAnX11Desktop : public ::testing::Test {
protected:
    void SetUp() override {
        painter_ = std::make_unique<ChildProcess>(
            ORVELLE_X11_PAINTER,
            std::vector<std::string>{"--geometry", "640x360+200+100", "--title", "Counter",
                                     "--ready", (folder_ / "ready").string()},
            x_.environment());
        ASSERT_TRUE(
            testing::waitUntil([&] { return std::filesystem::exists(folder_ / "ready"); }, 20s));
        std::ifstream(folder_ / "ready") >> window_;
        backend_ = makeX11CaptureBackend(x_.display());
    }

    void start(const RecorderSourceSelection& selection, ScreenCaptureOptions options = {}) {
        ScreenStreamOutput::Callbacks callbacks;
        callbacks.onFailure = [this](std::string message) { failure_ = std::move(message); };
        engine_.install(ScreenCaptureEngine::prepare(*backend_, selection, movie_, callbacks,
                                                     mainThread_, options));
        engine_.startCapture();
        EXPECT_TRUE(engine_.waitUntilReady(2s));
        engine_.armWriting();
        engine_.startCursorRecording(clock_, timers_);
    }
    // Runs the main thread for a while, with `action` (xdotool, say) on another thread.
    void run(std::chrono::milliseconds duration, const std::function<void()>& action = {}) {
        std::thread worker;
        if (action) {
            worker = std::thread(action);
        }
        const auto until = std::chrono::steady_clock::now() + duration;
        for (auto now = std::chrono::steady_clock::now(); now < until;
             now = std::chrono::steady_clock::now()) {
            mainThread_.runFor(std::chrono::duration_cast<std::chrono::milliseconds>(until - now) +
                               1ms);
        }
        if (worker.joinable()) {
            worker.join();
        }
        mainThread_.runFor(50ms);
    }
    ScreenCaptureEngine::FinalizeResult stop() {
        engine_.stopCursorSampling();
        auto active = engine_.detachForTeardown();
        EXPECT_EQ(ScreenCaptureEngine::stopCapture(active), std::nullopt);
        auto result = engine_.finalize(active, true);
        EXPECT_FALSE(result.tailError);
        EXPECT_FALSE(result.cursorError);
        return result;
    }

    XvfbServer x_{1280, 720};
    TemporaryDirectory folder_;
    std::filesystem::path movie_ = folder_ / "Take.mov";
    std::unique_ptr<ChildProcess> painter_;
    uint32_t window_ = 0;
    std::unique_ptr<CaptureBackend> backend_;
    RunLoop mainThread_;
    SteadyRecorderClock clock_;
    ExecutorRepeatingTimerFactory timers_{mainThread_};
    ScreenCaptureEngine engine_;
    std::string failure_;
};

TEST_F(RecordingAnX11Desktop, ADisplayMovieHasTheScreensSizeRateAndPicturesWithoutThePointer) {
    x_.xdotool({"mousemove", "700", "400"}); // over the painter's background
    start(displaySelection(backend_->shareableContent(),
                           backend_->shareableContent().displays[0].id));
    run(1500ms);
    const auto result = stop();
    ASSERT_EQ(result.screenSegments.size(), 1U);
    EXPECT_EQ(result.screenSegments[0].width, 1280);
    EXPECT_EQ(result.screenSegments[0].height, 720);
    const auto probe = probeMediaFile(movie_);
    ASSERT_NE(probe.firstVideo(), nullptr);
    EXPECT_EQ(probe.firstVideo()->codedWidth, 1280);

    VideoDecoder decoder(movie_);
    VideoFrame frame;
    std::vector<std::pair<double, int>> counters;
    int frames = 0;
    while (decoder.nextFrame(frame)) {
        ++frames;
        // Every picture sits on the 60 Hz grid of the capture clock.
        const double ticks = frame.presentationTime * 60;
        ASSERT_NEAR(ticks, std::round(ticks), 0.01) << frame.presentationTime;
        ASSERT_TRUE(testing::isPainterBackground(frame, 698, 398, 20, 24))
            << "a pointer is drawn at " << frame.presentationTime;
        if (auto counter = testing::readPainterCounter(frame, 200 + painter::kMargin,
                                                       100 + painter::kMargin)) {
            counters.emplace_back(frame.presentationTime, *counter);
        }
    }
    // About 1.5 s at 60 frames a second, less what a loaded machine skipped.
    EXPECT_GE(frames, 30);
    ASSERT_GE(counters.size(), static_cast<size_t>(frames) * 3 / 4);
    for (size_t index = 1; index < counters.size(); ++index) {
        EXPECT_GE(counters[index].second, counters[index - 1].second);
    }
    // The movie's clock and the painter's agree.
    const double movieSpan = counters.back().first - counters.front().first;
    EXPECT_NEAR(counters.back().second - counters.front().second, movieSpan * 60, 15);
    EXPECT_TRUE(failure_.empty()) << failure_;
}

// What the speakers play goes into the screen movie on the pictures' clock: a tone that
// begins 0.8 s after arming sounds 0.8 s into the movie (plus the speakers' latency), and
// the sound lasts as long as the pictures.
TEST_F(RecordingAnX11Desktop, SystemAudioIsInTheMovieOnThePicturesClock) {
    testing::PrivateSoundServer sound;
    AudioOutput speakers;
    std::atomic<double> toneFrom = 1e300;
    std::atomic<double> toneEmitted = 0;
    double phase = 0;
    speakers.start([&](float* samples, size_t frames) {
        const double now = monotonicNow();
        const bool tone = now >= toneFrom;
        if (tone && toneEmitted == 0) {
            toneEmitted = now;
        }
        for (size_t i = 0; i < frames; ++i) {
            const float value = tone ? static_cast<float>(0.5 * std::sin(phase)) : 0.0f;
            samples[2 * i] = samples[2 * i + 1] = value;
            phase += 2 * M_PI * 660 / 48000;
        }
    });
    ScreenCaptureOptions options;
    options.includeAudio = true;
    start(areaSelection(backend_->shareableContent(), {200, 100, 320, 240}), options);
    const double armed = monotonicNow();
    toneFrom = armed + 0.8;
    run(2000ms);
    const auto result = stop();
    speakers.stop();
    ASSERT_EQ(result.screenSegments.size(), 1U);
    EXPECT_TRUE(failure_.empty()) << failure_;

    const auto probe = probeMediaFile(movie_);
    ASSERT_NE(probe.firstAudio(), nullptr) << "no sound in the movie";
    EXPECT_EQ(probe.firstAudio()->sampleRate, 48000);
    const std::vector<float> heard = decodeAudioFile(movie_, AudioFormat{48000, 2});
    const double seconds = static_cast<double>(heard.size()) / 2 / 48000;
    EXPECT_NEAR(seconds, result.screenSegments[0].duration, 0.15);
    size_t onset = 0;
    while (onset < heard.size() / 2 && std::abs(heard[2 * onset]) < 0.1f) {
        ++onset;
    }
    ASSERT_LT(onset, heard.size() / 2) << "the tone is not in the movie";
    const double expected = toneEmitted - armed;
    EXPECT_GT(static_cast<double>(onset) / 48000, expected - 0.05);
    EXPECT_LT(static_cast<double>(onset) / 48000, expected + 0.3);
    const std::vector<float> tone(heard.begin() + static_cast<std::ptrdiff_t>(onset + 4800) * 2,
                                  heard.end() - 4800 * 2);
    EXPECT_NEAR(testing::estimateFrequency(tone, 48000, 2), 660, 5);
}

TEST_F(RecordingAnX11Desktop, AnAreaOfOddSizeComesOutEven) {
    start(areaSelection(backend_->shareableContent(), {190, 90, 401, 203}));
    run(600ms);
    const auto result = stop();
    ASSERT_EQ(result.screenSegments.size(), 1U);
    EXPECT_EQ(result.screenSegments[0].width, 402);
    EXPECT_EQ(result.screenSegments[0].height, 204);
    const auto counters =
        testing::readPainterCounters(movie_, 10 + painter::kMargin, 10 + painter::kMargin);
    ASSERT_FALSE(counters.empty());
    EXPECT_TRUE(counters.back().counter.has_value());
    const auto probe = probeMediaFile(movie_);
    EXPECT_EQ(probe.firstVideo()->codedWidth, 402);
    EXPECT_EQ(probe.firstVideo()->codedHeight, 204);
}

TEST_F(RecordingAnX11Desktop, AWindowMovieFollowsItsWindow) {
    start(windowSelection(backend_->shareableContent(), window_));
    run(800ms, [&] {
        std::this_thread::sleep_for(200ms);
        x_.xdotool({"windowmove", std::to_string(window_), "500", "300"});
        std::this_thread::sleep_for(200ms);
        x_.xdotool({"windowmove", std::to_string(window_), "20", "20"});
    });
    const auto result = stop();
    ASSERT_EQ(result.screenSegments.size(), 1U);
    EXPECT_EQ(result.screenSegments[0].width, 640);
    const auto counters = testing::readPainterCounters(movie_, painter::kMargin, painter::kMargin);
    size_t readable = 0;
    for (const auto& seen : counters) {
        readable += seen.counter ? 1 : 0;
    }
    // The window's own picture wherever it went.
    EXPECT_GE(readable, counters.size() * 9 / 10);
    EXPECT_GE(counters.size(), 20U);
}

TEST_F(RecordingAnX11Desktop, PausedRunsAreNumberedSegmentsWhoseProgramTimesAddUp) {
    start(displaySelection(backend_->shareableContent(),
                           backend_->shareableContent().displays[0].id));
    run(700ms);
    const auto programEnd = engine_.pause();
    ASSERT_TRUE(programEnd);
    const auto pausedAt = std::chrono::steady_clock::now();
    run(500ms);
    double resumeAt = 0;
    for (const auto& segment : engine_.recordedSegments()) {
        resumeAt = std::max(resumeAt, segment.programStart + segment.duration);
    }
    engine_.resume(resumeAt, std::chrono::steady_clock::now() - pausedAt);
    run(700ms);
    const auto result = stop();
    ASSERT_EQ(result.screenSegments.size(), 2U);
    const auto& first = result.screenSegments[0];
    const auto& second = result.screenSegments[1];
    EXPECT_EQ(second.url, folder_ / "Take-screen-002.mov");
    EXPECT_DOUBLE_EQ(first.programStart, 0);
    EXPECT_NEAR(*programEnd, first.duration, 1e-9);
    EXPECT_NEAR(second.programStart, first.programStart + first.duration, 1e-9);
    // Each file's length is its segment's.
    for (const auto& segment : result.screenSegments) {
        const auto probe = probeMediaFile(segment.url);
        EXPECT_NEAR(probe.lengthOf(*probe.firstVideo()), segment.duration, 0.05);
    }
    // The pointer's clock skipped the pause as well: its last sample lies near the end of
    // the take, not half a second past it.
    const auto pointer = CursorRecording::load(CursorRecording::fileURL(movie_));
    ASSERT_FALSE(pointer.samples.empty());
    EXPECT_NEAR(pointer.samples.back().time, second.programStart + second.duration, 0.25);
}

TEST_F(RecordingAnX11Desktop, ClicksLandInThePointerDataAtTheirPlaceInTheFrame) {
    start(areaSelection(backend_->shareableContent(), {200, 100, 640, 360}));
    run(1500ms, [&] {
        x_.xdotool({"mousemove", "520", "280", "click", "1"}); // the area's centre
        std::this_thread::sleep_for(200ms);
        x_.xdotool({"mousemove", "1000", "650", "click", "1"}); // outside: not a click
        std::this_thread::sleep_for(200ms);
        x_.xdotool({"mousemove", "280", "190", "click", "3"}); // an eighth, a quarter in
        std::this_thread::sleep_for(200ms);
    });
    stop();
    const auto pointer = CursorRecording::load(CursorRecording::fileURL(movie_));
    EXPECT_EQ(pointer.captureFrame, (CodableRect{200, 260, 640, 360}));
    ASSERT_EQ(pointer.clicks.size(), 2U);
    EXPECT_EQ(pointer.clicks[0].button, 0);
    EXPECT_EQ(pointer.clicks[1].button, 1);
    EXPECT_LT(pointer.clicks[0].time, pointer.clicks[1].time);
    const auto sampledAt = [&](double x, double y) {
        return std::any_of(pointer.samples.begin(), pointer.samples.end(), [&](const auto& s) {
            return s.visible && std::abs(s.x - x) < 1e-6 && std::abs(s.y - y) < 1e-6;
        });
    };
    EXPECT_TRUE(sampledAt(0.5, 0.5));
    EXPECT_TRUE(sampledAt(0.125, 0.25));
    EXPECT_TRUE(std::any_of(pointer.samples.begin(), pointer.samples.end(),
                            [](const auto& s) { return !s.visible && s.x == 1 && s.y == 1; }));
}

} // namespace
} // namespace orvelle
