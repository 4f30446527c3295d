#include "platform/audio/audio_output.h"
#include "support/scoped_environment.h"
#include "support/sound_server.h"
#include "support/test_media.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <thread>

namespace orvelle {
namespace {

using namespace std::chrono_literals;

TEST(AudioOutput, PlaysWhatItPullsAndClocksWhatWasHeard) {
    testing::PrivateSoundServer server;
    AudioOutput output;
    std::atomic<int64_t> pulled = 0;
    double phase = 0;
    const auto tone = [&](float* samples, size_t frames) {
        for (size_t i = 0; i < frames; ++i) {
            const auto value = static_cast<float>(0.5 * std::sin(phase));
            samples[2 * i] = value;
            samples[2 * i + 1] = value;
            phase += 2 * M_PI * 440 / 48000;
        }
        pulled += static_cast<int64_t>(frames);
    };

    for (int run = 0; run < 2; ++run) { // each run has a clock of its own
        server.startRecording();
        const auto started = std::chrono::steady_clock::now();
        output.start(tone);
        ASSERT_TRUE(output.isRunning());
        std::this_thread::sleep_for(150ms);
        const double early = output.playedSeconds();
        const double sinceStart =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        const auto from = std::chrono::steady_clock::now();
        std::this_thread::sleep_for(1s);
        const double wall =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - from).count();
        const double played = output.playedSeconds() - early;
        // The server's clock runs with the wall clock, behind what was handed over by the
        // sound still on its way.
        EXPECT_NEAR(played, wall, 0.05) << "run " << run;
        EXPECT_LE(early, sinceStart + 0.005); // nothing is heard before it was sent
        EXPECT_GE(static_cast<double>(pulled.load()) / 48000, output.playedSeconds());
        EXPECT_GT(output.latencySeconds(), 0);
        EXPECT_LT(output.latencySeconds(), 0.3);
        output.stop();
        const std::vector<float> heard = server.stopRecording();

        EXPECT_FALSE(output.isRunning());
        EXPECT_EQ(output.playedSeconds(), 0);
        const int64_t afterStop = pulled.load();
        std::this_thread::sleep_for(100ms);
        EXPECT_EQ(pulled.load(), afterStop) << "pulled after stop()";
        ASSERT_GT(heard.size(), 48000u);
        EXPECT_NEAR(testing::estimateFrequency(heard, 48000, 2), 440, 3);
        pulled = 0;
    }
    EXPECT_TRUE(output.isConnected());
}

TEST(AudioOutput, SaysWhatToDoWhenThereIsNoSoundServer) {
    const testing::ScopedEnvironment nowhere("PULSE_SERVER",
                                             "unix:/nonexistent/orvelle-test/pulse.sock");
    if (const auto error = testing::thrown<AudioOutputError>([&] { AudioOutput output; })) {
        EXPECT_NE(std::string(error->what()).find("No sound server could be reached"),
                  std::string::npos);
        EXPECT_NE(std::string(error->what()).find("PULSE_SERVER"), std::string::npos);
    }
}

} // namespace
} // namespace orvelle
