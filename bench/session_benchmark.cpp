// A whole take for a minute (by default): the 1920x1080 screen at 60 frames a second under
// a private Xvfb with a client scrolling a page (every pixel changes every frame), a
// 1280x720 camera at 30 frames a second fed by this program (no machine here has a
// webcam), the microphone and the system audio of a private sound server, each hearing a
// tone. Reports per track the frames or samples it should have and those its files hold
// (dropped: goal 0), where each side track ends against the screen (goal: within a
// frame), the processor time of the whole process (and per screen frame written, the
// figure to compare on a shared machine) and the load average before and after.
// With ORVELLE_LOG=info the capture also says why it lost ticks (taken too late, or every
// buffer still with the encoder).
//
// Usage: bench_session [SECONDS]

#include "core/monotonic_clock.h"
#include "platform/media/media_probe.h"
#include "platform/media/video_decoder.h"
#include "project/take_manifest.h"
#include "recording/camera_recorder.h"
#include "recording/executor_repeating_timer.h"
#include "recording/microphone_recorder.h"
#include "recording/window_recorder.h"
#include "support/child_process.h"
#include "support/sound_server.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"
#include "support/x_server.h"

#include <sys/resource.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

namespace {

using namespace orvelle;
using namespace std::chrono_literals;

std::string loadAverage() {
    std::ifstream in("/proc/loadavg");
    std::string oneMinute;
    in >> oneMinute;
    return oneMinute.empty() ? "unknown" : oneMinute;
}

double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// 1280x720 pictures at 30 a second with a moving bar, stamped like a driver's.
class BenchCamera final : public CameraSource {
public:
    ~BenchCamera() override { stop(); }
    void start(std::function<void(CapturedVideoFrameRef)> deliver) override {
        running_ = true;
        thread_ = std::thread([this, deliver = std::move(deliver)] {
            auto due = std::chrono::steady_clock::now();
            for (int number = 0; running_; ++number) {
                struct Owned {
                    std::vector<uint8_t> pixels;
                    CapturedVideoFrame frame;
                };
                auto owned = std::make_shared<Owned>();
                owned->pixels.assign(1280 * 720 * 4, 40);
                const int bar = (number * 8) % 1280;
                for (int row = 0; row < 720; ++row) {
                    std::fill_n(owned->pixels.data() + (row * 1280 + bar) * 4,
                                std::min(64, 1280 - bar) * 4, 220);
                }
                owned->frame = {owned->pixels.data(), 1280 * 4, 1280,        720,
                                monotonicNow(),       1.0 / 30, std::nullopt};
                delivered++;
                deliver({owned, &owned->frame});
                due += std::chrono::microseconds(33333);
                std::this_thread::sleep_until(due);
            }
        });
    }
    void stop() override {
        running_ = false;
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    static inline std::atomic<int64_t> delivered{0};

private:
    std::atomic<bool> running_{false};
    std::thread thread_;
};

class BenchCameraProvider final : public CameraSourceProvider {
public:
    std::vector<TrackDevice> devices() override { return {{"bench", "Bench Camera", true}}; }
    std::unique_ptr<CameraSource> open(const std::string&, CameraStreamFormat) override {
        return std::make_unique<BenchCamera>();
    }
};

int64_t videoFrames(const std::filesystem::path& movie) {
    VideoDecoderOptions options;
    options.layout = PixelLayout::yuv420p;
    VideoDecoder decoder(movie, options);
    VideoFrame frame;
    int64_t count = 0;
    while (decoder.nextFrame(frame)) {
        ++count;
    }
    return count;
}

} // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 60;
    testing::XvfbServer x(1920, 1080);
    testing::PrivateSoundServer sound;
    testing::TemporaryDirectory home;
    setenv("XDG_DATA_HOME", (home / "data").c_str(), 1);
    testing::ChildProcess painter(ORVELLE_X11_PAINTER,
                                  {"--mode", "scroll", "--geometry", "1920x1080+0+0", "--title",
                                   "Scroll", "--ready", (home / "ready").string()},
                                  x.environment());
    testing::waitUntil([&] { return std::filesystem::exists(home / "ready"); }, 20s);

    RunLoop mainThread;
    SteadyRecorderClock clock;
    ExecutorRepeatingTimerFactory timers(mainThread);
    auto backend = makeX11CaptureBackend(x.display());
    CameraRecorder camera(mainThread, std::make_unique<BenchCameraProvider>());
    camera.refreshDevices();
    camera.enable();
    MicrophoneRecorder microphone(mainThread);
    microphone.refreshDevices();
    microphone.setEnabled(true);
    WindowRecorder recorder(
        {mainThread,
         [&](const std::function<bool()>& predicate, std::chrono::milliseconds timeout) {
             return mainThread.runUntil(predicate, timeout);
         },
         *backend, clock, timers, &camera, &microphone, nullptr});
    const auto content = backend->shareableContent();
    const double cpuBefore = processorSeconds();
    const std::string loadBefore = loadAverage();
    recorder.startSelection(RecorderCaptureMode::display,
                            displaySelection(content, content.displays.at(0).id));
    if (recorder.state() != WindowRecorder::State::recording) {
        std::fprintf(stderr, "bench_session: the take did not start: %s\n",
                     recorder.detailText.value().c_str());
        return 1;
    }
    const int64_t cameraAtStart = BenchCamera::delivered.load();
    // A tone in both sound paths, all the way through.
    sound.play(testing::sineTone(440, seconds + 2, 48000, 2, 0.3f), "test", 2);
    sound.play(testing::sineTone(330, seconds + 2, 48000, 1, 0.3f), "voice", 1);
    const auto until =
        std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::nanoseconds>(
                                               std::chrono::duration<double>(seconds));
    while (std::chrono::steady_clock::now() < until) {
        mainThread.runFor(20ms);
    }
    const int64_t cameraDelivered = BenchCamera::delivered.load() - cameraAtStart;
    const auto result =
        RecordingSessionCoordinator::stopAndOpenEditor(recorder, &camera, &microphone);
    const double cpu = processorSeconds() - cpuBefore;
    const std::string loadAfter = loadAverage();
    if (!result || !result->manifestURL) {
        std::fprintf(stderr, "bench_session: no take\n");
        return 1;
    }
    const auto manifest = TakeManifest::load(result->screenURL);
    const auto screen = manifest->segmentsFor(MediaTrackManifest::Kind::screen).at(0);
    const auto cameraSegment = manifest->segmentsFor(MediaTrackManifest::Kind::camera).at(0);
    const auto microphoneSegment =
        manifest->segmentsFor(MediaTrackManifest::Kind::microphone).at(0);
    const int64_t screenFrames = videoFrames(screen.url);
    const int64_t cameraFrames = videoFrames(cameraSegment.url);
    const MediaProbe screenProbe = probeMediaFile(screen.url);
    const MediaProbe microphoneProbe = probeMediaFile(microphoneSegment.url);
    const double systemAudio =
        screenProbe.firstAudio() ? screenProbe.lengthOf(*screenProbe.firstAudio()) : 0;
    std::printf("A take of %.1f s (%.3f s of program): screen 1920x1080 at 60, camera 1280x720 at "
                "30, microphone and system audio at 48 kHz\n",
                seconds, screen.duration);
    std::printf("%-14s %10s %10s %10s %14s\n", "track", "expected", "in file", "dropped",
                "end vs screen");
    const auto row = [&](const char* name, double expected, double kept, double end) {
        std::printf("%-14s %10.0f %10.0f %10.0f %11.1f ms\n", name, expected, kept,
                    std::max(0.0, expected - kept), (end - screen.duration) * 1000);
    };
    row("screen", screen.duration * 60, static_cast<double>(screenFrames), screen.duration);
    row("camera", static_cast<double>(cameraDelivered), static_cast<double>(cameraFrames),
        cameraSegment.programStart + cameraSegment.duration);
    row("microphone", screen.duration * 48000, microphoneProbe.duration * 48000,
        microphoneProbe.duration);
    row("system audio", screen.duration * 48000, systemAudio * 48000, systemAudio);
    std::printf("screen frames lost by the capture and the writer: %lld\n",
                static_cast<long long>(recorder.droppedScreenFrames()));
    std::printf("processor: %.1f s for the take, %.0f %% of one core, %.1f ms a screen frame "
                "written\n",
                cpu, cpu / seconds * 100,
                screenFrames > 0 ? cpu * 1000 / static_cast<double>(screenFrames) : 0.0);
    std::printf("load average: %s before the take, %s after\n", loadBefore.c_str(),
                loadAfter.c_str());
    return 0;
}
