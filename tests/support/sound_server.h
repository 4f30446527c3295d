#pragma once

// A private sound server for tests: a PulseAudio daemon with one null sink ("test") on a
// socket in a folder of its own, started here and stopped when the object goes away. While
// it lives PULSE_SERVER names it, so every sound client of the test process, and every
// program the test starts, plays into it and nowhere else. What the sink plays can be
// recorded from its monitor.

#include "support/temporary_directory.h"

#include <sys/types.h>

#include <filesystem>
#include <map>
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

    // What the null sink plays from now until stopRecording(), as 48 kHz stereo float.
    void startRecording();
    std::vector<float> stopRecording();

private:
    TemporaryDirectory folder_;
    std::string address_;
    pid_t daemon_ = -1;
    pid_t keeper_ = -1;
    pid_t recorder_ = -1;
    std::optional<std::string> previousServer_;
};

} // namespace orvelle::testing
