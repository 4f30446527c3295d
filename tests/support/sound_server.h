#pragma once

// A private sound server for tests: a PulseAudio daemon on a socket in a folder of its own,
// with a null sink "test" (the default output) and a microphone "microphone" (the default
// input) that hears what is played into the null sink "voice", started here and stopped when the
// object goes away. While it lives PULSE_SERVER names it, so every sound client of the test
// process, and every program the test starts, plays into it and nowhere else. What the sink plays
// can be recorded from its monitor.

#include "support/child_process.h"
#include "support/temporary_directory.h"

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvelle::testing {

class PrivateSoundServer {
public:
    // Throws std::runtime_error with the daemon's log when it does not come up.
    PrivateSoundServer();
    ~PrivateSoundServer();
    PrivateSoundServer(const PrivateSoundServer&) = delete;
    PrivateSoundServer& operator=(const PrivateSoundServer&) = delete;

    const std::string& address() const { return address_; } // "unix:/.../pulse.sock"
    std::map<std::string, std::string> environment() const { return {{"PULSE_SERVER", address_}}; }

    // Plays interleaved 48 kHz float samples into a sink ("test": what the computer plays,
    // "voice": what the microphone hears); returns at once.
    void play(const std::vector<float>& samples, const std::string& sink = "test",
              int channelCount = 2);
    // Waits until everything given to play() has been played.
    void waitForPlayback();

    // What the null sink plays from now until stopRecording(), as 48 kHz stereo float.
    void startRecording();
    std::vector<float> stopRecording();

private:
    // Starts a program of the sound server's found on PATH, its output in `log`.
    std::unique_ptr<ChildProcess> start(const std::vector<std::string>& words,
                                        const std::string& log,
                                        const std::map<std::string, std::string>& environment = {});

    TemporaryDirectory folder_;
    std::string address_;
    std::unique_ptr<ChildProcess> daemon_;
    std::unique_ptr<ChildProcess> keeper_;
    std::unique_ptr<ChildProcess> recorder_;
    std::unique_ptr<ChildProcess> voiceKeeper_;
    std::vector<std::unique_ptr<ChildProcess>> players_;
    std::optional<std::string> previousServer_;
};

} // namespace orvelle::testing
