#include "core/files.h"
#include "core/monotonic_clock.h"
#include "platform/media/audio_decoder.h"
#include "platform/media/media_probe.h"
#include "project/cursor_recording.h"
#include "recording/camera_recorder.h"
#include "recording/executor_repeating_timer.h"
#include "recording/live_audio_level_meter.h"
#include "recording/microphone_recorder.h"
#include "recording/recording_scratch_store.h"
#include "recording/window_recorder.h"
#include "support/child_process.h"
#include "support/run_program.h"
#include "support/sound_server.h"
#include "support/temporary_directory.h"
#include "support/test_camera.h"
#include "support/test_media.h"
#include "support/x_server.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>

namespace orvelle {
namespace {

using namespace std::chrono_literals;
using testing::TemporaryDirectory;
using Kind = MediaTrackManifest::Kind;
namespace fs = std::filesystem;

// First sample louder than the floor, in seconds from the start of the samples; absent if
// none.
std::optional<double> onset(const std::vector<float>& samples, int channels, float floor = 0.1f) {
    for (size_t i = 0; i < samples.size(); ++i) {
        if (std::abs(samples[i]) > floor) {
            return static_cast<double>(i / channels) / 48000.0;
        }
    }
    return std::nullopt;
}

// A session on a private X server and sound server, with the test's camera and the
// server's microphone, in a store of its own.
class RecordingSession : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("XDG_DATA_HOME", (home_ / "data").c_str(), 1);
        backend_ = makeX11CaptureBackend(x_.display());
        camera_ = std::make_unique<CameraRecorder>(
            mainThread_, std::make_unique<testing::TestCameraProvider>(cameraPresent_));
        microphone_ = std::make_unique<MicrophoneRecorder>(mainThread_);
        recorder_ = std::make_unique<WindowRecorder>(WindowRecorderServices{
            mainThread_,
            [this](const std::function<bool()>& predicate, std::chrono::milliseconds timeout) {
                return mainThread_.runUntil(predicate, timeout);
            },
            *backend_, clock_, timers_, camera_.get(), microphone_.get(), nullptr});
    }
    void TearDown() override {
        recorder_.reset();
        camera_.reset();
        microphone_.reset();
        unsetenv("XDG_DATA_HOME");
    }
    RecorderSourceSelection display() {
        const auto content = backend_->shareableContent();
        return displaySelection(content, content.displays.at(0).id);
    }
    void run(std::chrono::milliseconds duration) {
        const auto until = std::chrono::steady_clock::now() + duration;
        while (std::chrono::steady_clock::now() < until) {
            mainThread_.runFor(10ms);
        }
    }

    testing::XvfbServer x_{640, 360};
    testing::PrivateSoundServer sound_;
    TemporaryDirectory home_;
    RunLoop mainThread_;
    SteadyRecorderClock clock_;
    ExecutorRepeatingTimerFactory timers_{mainThread_};
    std::unique_ptr<CaptureBackend> backend_;
    std::shared_ptr<std::atomic<bool>> cameraPresent_ = std::make_shared<std::atomic<bool>>(true);
    std::unique_ptr<CameraRecorder> camera_;
    std::unique_ptr<MicrophoneRecorder> microphone_;
    std::unique_ptr<WindowRecorder> recorder_;
};

TEST_F(RecordingSession, TwoPausesKeepEveryTrackOnTheScreensClock) {
    camera_->refreshDevices();
    camera_->enable();
    ASSERT_EQ(camera_->state(), CameraRecorder::State::previewing) << camera_->detailText.value();
    // A microphone that hears what the computer plays: one tone reaches both the system
    // audio and the microphone at the same instant, so any offset between them is ours.
    ASSERT_EQ(
        testing::runProgram("/usr/bin/pactl",
                            {"--server=" + sound_.address(), "load-module", "module-remap-source",
                             "master=test.monitor", "source_name=hearing",
                             "master_channel_map=front-left", "channel_map=mono"})
            .status,
        0);
    microphone_->refreshDevices();
    ASSERT_EQ(microphone_->selectedDeviceID.value(), std::optional<std::string>("microphone"));
    microphone_->selectDevice("hearing");
    microphone_->setEnabled(true);
    ASSERT_TRUE(microphone_->isEnabled.value());

    std::vector<std::string> statuses;
    auto watching = recorder_->statusText.observe(
        [&](const std::string& status) { statuses.push_back(status); });

    recorder_->startSelection(RecorderCaptureMode::display, display());
    ASSERT_EQ(recorder_->state(), WindowRecorder::State::recording)
        << recorder_->detailText.value();
    ASSERT_TRUE(recorder_->outputURL.value());
    const fs::path movie = *recorder_->outputURL.value();
    const fs::path folder = movie.parent_path();
    const std::string base = movie.stem().string();
    EXPECT_TRUE(RecordingScratchStore::isManagedCaptureURL(movie));
    EXPECT_EQ(readFile(folder / RecordingScratchStore::kSentinelName), movie.filename().string());
    EXPECT_TRUE(recorder_->isRecording.value());
    // A take being recorded is no abandoned one, and cannot be recovered under its writer.
    EXPECT_TRUE(RecordingScratchStore::abandonedRecordingScreenURLs().empty());
    EXPECT_TRUE(RecordingScratchStore::isRecordingInProgress(movie));

    // The computer plays a tone in the second run; the system audio and the microphone
    // must place it at the same program time.
    const auto tone = testing::sineTone(1000, 0.5, 48000, 2, 0.6f);
    run(1500ms);
    ASSERT_TRUE(RecordingSessionCoordinator::pause(*recorder_, camera_.get(), microphone_.get()));
    EXPECT_EQ(recorder_->statusText.value(), "Paused");
    EXPECT_TRUE(recorder_->isRecording.value());
    EXPECT_TRUE(recorder_->isPaused.value());
    const std::string elapsedAtPause = recorder_->elapsedText.value();
    run(700ms);
    EXPECT_EQ(recorder_->elapsedText.value(), elapsedAtPause); // the clock stands still
    RecordingSessionCoordinator::resume(*recorder_, camera_.get(), microphone_.get());
    EXPECT_EQ(recorder_->state(), WindowRecorder::State::recording);
    run(600ms);
    sound_.play(tone, "test", 2);
    run(1400ms);
    ASSERT_TRUE(RecordingSessionCoordinator::pause(*recorder_, camera_.get(), microphone_.get()));
    run(500ms);
    RecordingSessionCoordinator::resume(*recorder_, camera_.get(), microphone_.get());
    run(1200ms);
    const auto result = RecordingSessionCoordinator::stopAndOpenEditor(*recorder_, camera_.get(),
                                                                       microphone_.get());
    sound_.waitForPlayback();
    ASSERT_TRUE(result);
    ASSERT_TRUE(result->manifestURL);
    EXPECT_EQ(recorder_->state(), WindowRecorder::State::idle);
    EXPECT_EQ(recorder_->statusText.value(), "Ready");
    EXPECT_EQ(recorder_->detailText.value(), "Recording ready in the editor.");
    EXPECT_EQ(recorder_->elapsedText.value(), "00:00");
    EXPECT_FALSE(fs::exists(folder / RecordingScratchStore::kSentinelName));
    EXPECT_NE(std::find(statuses.begin(), statuses.end(), "Starting"), statuses.end());
    EXPECT_EQ(std::count(statuses.begin(), statuses.end(), "Paused"), 2);

    const auto manifest = TakeManifest::load(movie);
    ASSERT_TRUE(manifest);
    const auto screen = manifest->segmentsFor(Kind::screen);
    const auto camera = manifest->segmentsFor(Kind::camera);
    const auto microphone = manifest->segmentsFor(Kind::microphone);
    const auto system = manifest->segmentsFor(Kind::systemAudio);
    ASSERT_EQ(screen.size(), 3u);
    ASSERT_EQ(camera.size(), 3u);
    ASSERT_EQ(microphone.size(), 3u);
    ASSERT_EQ(system.size(), 3u);
    EXPECT_EQ(manifest->segmentsFor(Kind::cursor).size(), 1u);

    // Files numbered per track.
    const std::vector<std::string> screenNames = {base + ".mov", base + "-screen-002.mov",
                                                  base + "-screen-003.mov"};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(screen[i].url.filename().string(), screenNames[i]);
        EXPECT_EQ(camera[i].url.filename().string(),
                  base + "-camera-00" + std::to_string(i + 1) + ".mov");
        EXPECT_EQ(microphone[i].url.filename().string(),
                  base + "-microphone-00" + std::to_string(i + 1) + ".m4a");
        EXPECT_EQ(system[i].url, screen[i].url);
    }
    // Program time is continuous across the pauses, runs only while recording, and every
    // side file starts where its screen file starts; closed ones end where it ends.
    const double frame = 1.0 / 60;
    EXPECT_DOUBLE_EQ(screen[0].programStart, 0);
    const double expectedRuns[3] = {1.5, 2.0, 1.2};
    for (size_t i = 0; i < 3; ++i) {
        SCOPED_TRACE("run " + std::to_string(i + 1));
        if (i > 0) {
            EXPECT_NEAR(screen[i].programStart, screen[i - 1].programStart + screen[i - 1].duration,
                        1e-9);
        }
        EXPECT_NEAR(screen[i].duration, expectedRuns[i], 0.35);
        EXPECT_NEAR(camera[i].programStart, screen[i].programStart, 1e-9);
        EXPECT_NEAR(microphone[i].programStart, screen[i].programStart, 1e-9);
        const double screenEnd = screen[i].programStart + screen[i].duration;
        if (i < 2) {
            EXPECT_NEAR(camera[i].programStart + camera[i].duration, screenEnd, 1e-9);
            EXPECT_NEAR(microphone[i].programStart + microphone[i].duration, screenEnd, 1e-9);
        } else {
            // The last run is closed by each track itself: within a camera frame of the
            // screen's end (and one more for a picture the busy test feeder handed in late),
            // never beyond it.
            EXPECT_NEAR(camera[i].programStart + camera[i].duration, screenEnd, 2.0 / 30 + frame);
            EXPECT_LE(camera[i].programStart + camera[i].duration, screenEnd + 1e-9);
            EXPECT_NEAR(microphone[i].programStart + microphone[i].duration, screenEnd, 0.1);
            EXPECT_LE(microphone[i].programStart + microphone[i].duration, screenEnd + 1e-9);
        }
        // What each file holds covers its stretch of the program (within the writers' last
        // packet).
        const MediaProbe cameraFile = probeMediaFile(camera[i].url);
        EXPECT_GE(cameraFile.duration, camera[i].duration - 0.1);
        const MediaProbe microphoneFile = probeMediaFile(microphone[i].url);
        EXPECT_GE(microphoneFile.duration, microphone[i].duration - 0.1);
    }

    // The tone: in the system audio of the second screen file, at the program time it was
    // played, and at the same program time in the microphone's second file.
    const auto systemSamples = decodeAudioFile(screen[1].url, {48000, 2});
    const auto microphoneSamples = decodeAudioFile(microphone[1].url, {48000, 1});
    const auto systemOnset = onset(systemSamples, 2);
    const auto microphoneOnset = onset(microphoneSamples, 1);
    ASSERT_TRUE(systemOnset) << "the played tone is missing from the system audio";
    ASSERT_TRUE(microphoneOnset) << "the tone is missing from the microphone track";
    // The resume happened 600 ms of recording before the tone was asked for; the player
    // needs a moment to start.
    EXPECT_GT(*systemOnset, 0.45);
    EXPECT_LT(*systemOnset, 2.0 - 0.5); // the whole tone within the run
    EXPECT_NEAR(*systemOnset, *microphoneOnset, 0.1);
    // Nothing of it leaked into the first run or the third.
    EXPECT_FALSE(onset(decodeAudioFile(screen[0].url, {48000, 2}), 2));
    EXPECT_FALSE(onset(decodeAudioFile(screen[2].url, {48000, 2}), 2));

    // The editor's model of the take opens with its tracks in sync.
    EXPECT_NEAR(manifest->duration(), screen[2].programStart + screen[2].duration, 1e-9);
}

TEST_F(RecordingSession, FailuresDecideWhatIsKept) {
    // A camera that is gone when the take starts cancels it: no sentinel, no movie, and the
    // store holds nothing of it.
    camera_->refreshDevices();
    camera_->enable();
    ASSERT_EQ(camera_->state(), CameraRecorder::State::previewing);
    *cameraPresent_ = false;
    recorder_->startSelection(RecorderCaptureMode::display, display());
    EXPECT_EQ(recorder_->state(), WindowRecorder::State::idle);
    EXPECT_EQ(recorder_->statusText.value(), "Recording failed");
    EXPECT_EQ(recorder_->detailText.value(),
              "Webcam recording did not start, so the screen recording was canceled.");
    EXPECT_TRUE(RecordingScratchStore::abandonedRecordingScreenURLs().empty());
    EXPECT_FALSE(recorder_->outputURL.value());
    const fs::path store = RecordingScratchStore::capturesDirectory(false);
    EXPECT_TRUE(!fs::exists(store) || fs::is_empty(store));

    // A failure after a pause keeps the closed segment and the tail of the open one.
    *cameraPresent_ = true;
    camera_->disable();
    recorder_->startSelection(RecorderCaptureMode::display, display());
    ASSERT_EQ(recorder_->state(), WindowRecorder::State::recording);
    run(800ms);
    RecordingSessionCoordinator::pause(*recorder_, camera_.get(), microphone_.get());
    RecordingSessionCoordinator::resume(*recorder_, camera_.get(), microphone_.get());
    run(800ms);
    recorder_->handleFailure("The window closed.");
    EXPECT_EQ(recorder_->state(), WindowRecorder::State::idle);
    EXPECT_EQ(recorder_->statusText.value(), "Recording failed — saved");
    EXPECT_EQ(recorder_->detailText.value().rfind("The window closed. Everything up to 00:0", 0),
              0u)
        << recorder_->detailText.value();
    ASSERT_TRUE(recorder_->outputURL.value());
    const auto manifest = TakeManifest::load(*recorder_->outputURL.value());
    ASSERT_TRUE(manifest);
    EXPECT_EQ(manifest->segmentsFor(Kind::screen).size(), 2u);
    recorder_->handleFailure("again"); // idle: nothing happens
    EXPECT_EQ(recorder_->statusText.value(), "Recording failed — saved");

    // A discarded take leaves nothing behind, in the store or out of it.
    recorder_->startSelection(RecorderCaptureMode::display, display());
    ASSERT_EQ(recorder_->state(), WindowRecorder::State::recording);
    const fs::path discarded = *recorder_->outputURL.value();
    run(500ms);
    recorder_->discardRecording();
    EXPECT_EQ(recorder_->detailText.value(), "Recording discarded.");
    EXPECT_FALSE(recorder_->outputURL.value());
    EXPECT_FALSE(fs::exists(discarded.parent_path()));

    // The selection's own states.
    recorder_->startSelection(RecorderCaptureMode::area);
    EXPECT_EQ(recorder_->state(), WindowRecorder::State::selecting);
    EXPECT_EQ(recorder_->statusText.value(), "Choose a area");
    recorder_->cancelSelection();
    EXPECT_EQ(recorder_->detailText.value(), "Area selection canceled.");
    recorder_->startSelection(RecorderCaptureMode::device);
    EXPECT_EQ(recorder_->statusText.value(), "Device capture unavailable");
    EXPECT_EQ(recorder_->state(), WindowRecorder::State::idle);
    EXPECT_EQ(WindowRecorder::formattedProgramDuration({}), "00:00");
    EXPECT_EQ(
        WindowRecorder::formattedProgramDuration({{Kind::screen, "a.mov", 6000, 5.9, 0, 5.9}}),
        "100:05");
}

TEST(LiveAudioLevelMeter, ReadsLoudnessOnTheDecibelScaleAndFallsToSilence) {
    LiveAudioLevelMeter meter(0.1);
    std::vector<float> loud(4800, 0.0f);
    for (size_t i = 0; i < loud.size(); ++i) {
        loud[i] = (i % 2 == 0) ? 0.4f : -0.4f; // -8 dB RMS: full scale
    }
    double now = 100;
    std::optional<float> level;
    for (int i = 0; i < 30; ++i, now += 0.11) {
        level = meter.process(loud.data(), loud.size(), now);
    }
    ASSERT_TRUE(level);
    EXPECT_NEAR(*level, 1.0f, 0.01f);
    EXPECT_FALSE(meter.process(loud.data(), loud.size(), now - 0.05)); // too soon
    const std::vector<int16_t> quiet(4800, 0);
    for (int i = 0; i < 40; ++i, now += 0.11) {
        level = meter.process(quiet.data(), quiet.size(), now);
    }
    ASSERT_TRUE(level);
    EXPECT_EQ(*level, 0.0f); // exactly nothing, not a small number
    EXPECT_FALSE(meter.process(static_cast<const float*>(nullptr), 0, now + 1));
}

} // namespace
} // namespace orvelle
