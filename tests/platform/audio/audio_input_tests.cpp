#include "core/monotonic_clock.h"
#include "platform/audio/audio_input.h"
#include "platform/audio/audio_output.h"
#include "support/scoped_environment.h"
#include "support/sound_server.h"
#include "support/test_media.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

namespace orvelle {
namespace {

using namespace std::chrono_literals;

struct Recorded {
    std::mutex mutex;
    std::vector<float> samples;
    std::vector<std::pair<double, size_t>> blocks; // time, frames
    std::atomic<int> endings = 0;
    std::string endMessage;
    std::condition_variable ended;

    AudioInput::CaptureCallback samplesCallback() {
        return [this](const float* interleaved, size_t frames, double time) {
            std::lock_guard lock(mutex);
            samples.insert(samples.end(), interleaved, interleaved + frames * 2);
            blocks.emplace_back(time, frames);
        };
    }
    AudioInput::EndCallback endCallback() {
        return [this](const std::string& message) {
            std::lock_guard lock(mutex);
            endMessage = message;
            ++endings;
            ended.notify_all();
        };
    }
};

// A tone played into the private server's sink comes back from its monitor, timed on the
// monotonic clock, in blocks that abut, and nothing arrives after stop().
TEST(AudioInput, RecordsWhatTheSpeakersPlayWithTimesThatFollowTheSamples) {
    testing::PrivateSoundServer server;
    AudioOutput output;
    double phase = 0;
    output.start([&](float* samples, size_t frames) {
        for (size_t i = 0; i < frames; ++i) {
            samples[2 * i] = samples[2 * i + 1] = static_cast<float>(0.5 * std::sin(phase));
            phase += 2 * M_PI * 660 / 48000;
        }
    });

    AudioInput input(AudioInputOptions{kSystemAudioSource});
    for (int run = 0; run < 2; ++run) { // a second run starts a fresh count
        Recorded recorded;
        const double started = monotonicNow();
        input.start(recorded.samplesCallback(), recorded.endCallback());
        ASSERT_TRUE(input.isRunning());
        std::this_thread::sleep_for(1200ms);
        const double stopped = monotonicNow();
        input.stop();
        EXPECT_FALSE(input.isRunning());
        const size_t blocksAtStop = recorded.blocks.size();
        std::this_thread::sleep_for(100ms);

        std::lock_guard lock(recorded.mutex);
        EXPECT_EQ(recorded.blocks.size(), blocksAtStop) << "delivered after stop()";
        EXPECT_EQ(recorded.endings.load(), 0);
        ASSERT_GT(recorded.blocks.size(), 10u) << "run " << run;
        // The first sound is from about the start (a block and the server's latency at most
        // before it), the last ends before the stop.
        EXPECT_GT(recorded.blocks.front().first, started - 0.2) << "run " << run;
        EXPECT_LT(recorded.blocks.front().first, started + 0.3) << "run " << run;
        const auto& [lastTime, lastFrames] = recorded.blocks.back();
        EXPECT_LE(lastTime + static_cast<double>(lastFrames) / 48000, stopped + 0.01);
        int abutting = 0;
        for (size_t i = 1; i < recorded.blocks.size(); ++i) {
            const auto& [time, frames] = recorded.blocks[i - 1];
            abutting += std::abs(time + static_cast<double>(frames) / 48000 -
                                 recorded.blocks[i].first) < 1e-6;
        }
        EXPECT_GE(abutting, static_cast<int>(recorded.blocks.size()) - 2);
        const double seconds = static_cast<double>(recorded.samples.size()) / 2 / 48000;
        EXPECT_NEAR(seconds, stopped - started, 0.25);
        EXPECT_EQ(input.framesCaptured(), static_cast<int64_t>(recorded.samples.size() / 2));
        const std::vector<float> tail(recorded.samples.begin() + 48000, recorded.samples.end());
        EXPECT_NEAR(testing::estimateFrequency(tail, 48000, 2), 660, 3) << "run " << run;
    }
    output.stop();
}

TEST(AudioInput, RefusalsAndAServerThatGoesAwaySayWhatHappened) {
    auto server = std::make_unique<testing::PrivateSoundServer>();
    AudioInput unknown(AudioInputOptions{"no-such-source"});
    if (const auto error = testing::thrown<AudioInputError>(
            [&] { unknown.start([](const float*, size_t, double) {}); })) {
        EXPECT_NE(std::string(error->what()).find("\"no-such-source\""), std::string::npos)
            << error->what();
    }
    EXPECT_FALSE(unknown.isRunning());

    Recorded recorded;
    AudioInput input(AudioInputOptions{kSystemAudioSource});
    input.start(recorded.samplesCallback(), recorded.endCallback());
    server.reset(); // the daemon quits while the run goes on
    {
        std::unique_lock lock(recorded.mutex);
        EXPECT_TRUE(recorded.ended.wait_for(lock, 5s, [&] { return recorded.endings > 0; }));
        EXPECT_NE(recorded.endMessage.find("Recording sound stopped"), std::string::npos);
    }
    EXPECT_FALSE(input.isRunning());
    input.stop();
    EXPECT_EQ(recorded.endings.load(), 1);

    // No server at all.
    const testing::ScopedEnvironment noServer("PULSE_SERVER",
                                              "unix:/nonexistent/orvelle-test/pulse.sock");
    EXPECT_NE(testing::messageOf<AudioInputError>([] { AudioInput nowhere; }).find("PULSE_SERVER"),
              std::string::npos);
}

} // namespace
} // namespace orvelle
