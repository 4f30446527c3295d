#include "support/sound_server.h"

#include "core/files.h"
#include "platform/media/audio_decoder.h"
#include "support/run_program.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace orvelle::testing {

namespace {

namespace fs = std::filesystem;

bool accepts(const fs::path& socketPath) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0) {
        return false;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath.c_str(), sizeof(address.sun_path) - 1);
    const bool connected =
        ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return connected;
}

// The sink's latency as the server reports it, in microseconds; absent when it says none.
std::optional<long> sinkLatency(const std::string& address) {
    const ProgramResult listed =
        runProgram("/usr/bin/pactl", {"--server=" + address, "list", "sinks"});
    const auto at = listed.out.find("Latency: ");
    if (listed.status != 0 || at == std::string::npos) {
        return std::nullopt;
    }
    return std::strtol(listed.out.c_str() + at + 9, nullptr, 10);
}

} // namespace

PrivateSoundServer::PrivateSoundServer() {
    const fs::path runtime = folder_ / "runtime";
    fs::create_directories(runtime);
    fs::permissions(runtime, fs::perms::owner_all, fs::perm_options::replace);
    const fs::path socketPath = runtime / "pulse.sock";
    address_ = "unix:" + socketPath.string();
    daemon_ = start(
        {"pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no",
         "--disable-shm=yes", "--log-target=stderr", "-L",
         "module-null-sink sink_name=test rate=48000", "-L",
         "module-null-sink sink_name=voice rate=48000 channels=1", "-L",
         "module-remap-source master=voice.monitor source_name=microphone "
         "channels=1 source_properties=device.description=Test-Microphone",
         "-L", "module-native-protocol-unix auth-anonymous=1 socket=" + socketPath.string()},
        "daemon.log", {{"HOME", folder_.path().string()}, {"XDG_RUNTIME_DIR", runtime.string()}});
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!accepts(socketPath)) {
        if (!daemon_->running() || std::chrono::steady_clock::now() > deadline) {
            throw std::runtime_error("the private sound server did not start:\n" +
                                     readFile(folder_ / "daemon.log"));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    // A null sink with no stream at a short latency sleeps in blocks of two seconds, and a
    // stream that comes meanwhile waits for the block to end, which no sound card does. A
    // silent stream at 20 ms keeps it clocked like one; the sink is ready once it wakes on
    // that schedule.
    keeper_ = start({"pacat", "--server=" + address_, "--device=test", "--latency-msec=20",
                     "--format=s16le", "--rate=48000", "--channels=2", "--raw", "/dev/zero"},
                    "keeper.log");
    voiceKeeper_ = start({"pacat", "--server=" + address_, "--device=voice", "--latency-msec=20",
                          "--format=s16le", "--rate=48000", "--channels=1", "--raw", "/dev/zero"},
                         "voice-keeper.log");
    runProgram("/usr/bin/pactl", {"--server=" + address_, "set-default-sink", "test"});
    runProgram("/usr/bin/pactl", {"--server=" + address_, "set-default-source", "microphone"});
    const auto settled = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (;;) {
        const auto latency = sinkLatency(address_);
        if (latency && *latency < 50000) {
            break;
        }
        if (std::chrono::steady_clock::now() > settled) {
            throw std::runtime_error("the private sound server's sink never settled:\n" +
                                     readFile(folder_ / "daemon.log") +
                                     readFile(folder_ / "keeper.log"));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    if (const char* previous = std::getenv("PULSE_SERVER")) {
        previousServer_ = previous;
    }
    ::setenv("PULSE_SERVER", address_.c_str(), 1);
}

PrivateSoundServer::~PrivateSoundServer() {
    if (recorder_) {
        recorder_->terminate(SIGINT);
    }
    players_.clear();
    voiceKeeper_.reset();
    keeper_.reset();
    daemon_.reset();
    if (previousServer_) {
        ::setenv("PULSE_SERVER", previousServer_->c_str(), 1);
    } else {
        ::unsetenv("PULSE_SERVER");
    }
}

std::unique_ptr<ChildProcess>
PrivateSoundServer::start(const std::vector<std::string>& words, const std::string& log,
                          const std::map<std::string, std::string>& environment) {
    const auto program = findProgram(words[0]);
    if (!program) {
        throw std::runtime_error("cannot start " + words[0] + " (scripts/bootstrap installs it)");
    }
    return std::make_unique<ChildProcess>(*program,
                                          std::vector<std::string>(words.begin() + 1, words.end()),
                                          environment, std::nullopt, folder_ / log);
}

void PrivateSoundServer::play(const std::vector<float>& samples, const std::string& sink,
                              int channelCount) {
    const fs::path file = folder_ / ("play-" + std::to_string(players_.size()) + ".raw");
    {
        std::ofstream out(file, std::ios::binary);
        out.write(reinterpret_cast<const char*>(samples.data()),
                  static_cast<std::streamsize>(samples.size() * sizeof(float)));
    }
    players_.push_back(start({"pacat", "--server=" + address_, "--device=" + sink,
                              "--latency-msec=20", "--format=float32le", "--rate=48000",
                              "--channels=" + std::to_string(channelCount), "--raw", file.string()},
                             "player.log"));
}

void PrivateSoundServer::waitForPlayback() {
    for (const auto& player : players_) {
        player->waitFor(std::chrono::hours(1));
    }
    players_.clear();
}

void PrivateSoundServer::startRecording() {
    if (recorder_) {
        recorder_->terminate(SIGINT);
    }
    fs::remove(folder_ / "recording.wav");
    recorder_ = start({"parecord", "--server=" + address_, "--device=test.monitor",
                       "--file-format=wav", "--format=float32le", "--rate=48000", "--channels=2",
                       "--latency-msec=20", (folder_ / "recording.wav").string()},
                      "recorder.log");
}

std::vector<float> PrivateSoundServer::stopRecording() {
    if (recorder_) {
        recorder_->terminate(SIGINT);
        recorder_.reset();
    }
    const fs::path file = folder_ / "recording.wav";
    if (!fs::exists(file)) {
        throw std::runtime_error("nothing was recorded:\n" + readFile(folder_ / "recorder.log"));
    }
    return decodeAudioFile(file, {48000, 2});
}

} // namespace orvelle::testing
