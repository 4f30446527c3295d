#include "support/sound_server.h"

#include "platform/media/audio_decoder.h"
#include "support/run_program.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace orvelle::testing {

namespace {

namespace fs = std::filesystem;

pid_t spawn(const std::vector<std::string>& words, const std::vector<std::string>& environment,
            const fs::path& log) {
    std::vector<std::string> argvWords = words;
    std::vector<char*> argv;
    for (auto& word : argvWords) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    // The given variables replace the inherited ones of the same name.
    std::vector<std::string> pairs = environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string pair = *entry;
        const std::string name = pair.substr(0, pair.find('=') + 1);
        if (std::none_of(environment.begin(), environment.end(),
                         [&](const std::string& given) { return given.starts_with(name); })) {
            pairs.push_back(pair);
        }
    }
    std::vector<char*> envp;
    for (auto& pair : pairs) {
        envp.push_back(pair.data());
    }
    envp.push_back(nullptr);
    // Found on PATH before the fork: the child only opens, duplicates and executes.
    std::string program = words[0];
    if (program.find('/') == std::string::npos) {
        const char* path = std::getenv("PATH");
        std::string directories = path != nullptr ? path : "/usr/bin:/bin";
        for (size_t from = 0; from <= directories.size();) {
            const size_t colon = std::min(directories.find(':', from), directories.size());
            const fs::path candidate = fs::path(directories.substr(from, colon - from)) / program;
            if (::access(candidate.c_str(), X_OK) == 0) {
                program = candidate.string();
                break;
            }
            from = colon + 1;
        }
    }
    if (::access(program.c_str(), X_OK) != 0) {
        throw std::runtime_error("cannot start " + words[0] + " (scripts/bootstrap installs it)");
    }
    const pid_t parent = ::getpid();
    const pid_t pid = ::fork();
    if (pid < 0) {
        throw std::runtime_error("cannot start " + words[0] + ": " + std::strerror(errno));
    }
    if (pid == 0) {
        // A test that dies before its fixture ends takes its servers with it.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent) {
            ::_exit(127);
        }
        const int input = ::open("/dev/null", O_RDONLY);
        const int output = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        if (input < 0 || output < 0) {
            ::_exit(127);
        }
        ::dup2(input, STDIN_FILENO);
        ::dup2(output, STDOUT_FILENO);
        ::dup2(output, STDERR_FILENO);
        ::execve(program.c_str(), argv.data(), envp.data());
        ::_exit(127);
    }
    return pid;
}

// Ends a process: politely, then not.
void end(pid_t pid, int signal) {
    if (pid <= 0) {
        return;
    }
    ::kill(pid, signal);
    for (int i = 0; i < 200; ++i) {
        if (::waitpid(pid, nullptr, WNOHANG) == pid) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
}

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

std::string readWhole(const fs::path& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace

PrivateSoundServer::PrivateSoundServer() {
    const fs::path runtime = folder_ / "runtime";
    fs::create_directories(runtime);
    fs::permissions(runtime, fs::perms::owner_all, fs::perm_options::replace);
    const fs::path socketPath = runtime / "pulse.sock";
    address_ = "unix:" + socketPath.string();
    daemon_ =
        spawn({"pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no",
               "--disable-shm=yes", "--log-target=stderr", "-L",
               "module-null-sink sink_name=test rate=48000", "-L",
               "module-null-sink sink_name=voice rate=48000 channels=1", "-L",
               "module-remap-source master=voice.monitor source_name=microphone "
               "channels=1 source_properties=device.description=Test-Microphone",
               "-L", "module-native-protocol-unix auth-anonymous=1 socket=" + socketPath.string()},
              {"HOME=" + folder_.path().string(), "XDG_RUNTIME_DIR=" + runtime.string()},
              folder_ / "daemon.log");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!accepts(socketPath)) {
        if (::waitpid(daemon_, nullptr, WNOHANG) == daemon_ ||
            std::chrono::steady_clock::now() > deadline) {
            daemon_ = -1;
            throw std::runtime_error("the private sound server did not start:\n" +
                                     readWhole(folder_ / "daemon.log"));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    // A null sink with no stream at a short latency sleeps in blocks of two seconds, and a
    // stream that comes meanwhile waits for the block to end, which no sound card does. A
    // silent stream at 20 ms keeps it clocked like one; the sink is ready once it wakes on
    // that schedule.
    keeper_ = spawn({"pacat", "--server=" + address_, "--device=test", "--latency-msec=20",
                     "--format=s16le", "--rate=48000", "--channels=2", "--raw", "/dev/zero"},
                    {}, folder_ / "keeper.log");
    voiceKeeper_ = spawn({"pacat", "--server=" + address_, "--device=voice", "--latency-msec=20",
                          "--format=s16le", "--rate=48000", "--channels=1", "--raw", "/dev/zero"},
                         {}, folder_ / "voice-keeper.log");
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
                                     readWhole(folder_ / "daemon.log") +
                                     readWhole(folder_ / "keeper.log"));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    if (const char* previous = std::getenv("PULSE_SERVER")) {
        previousServer_ = previous;
    }
    ::setenv("PULSE_SERVER", address_.c_str(), 1);
}

PrivateSoundServer::~PrivateSoundServer() {
    end(recorder_, SIGINT);
    for (const pid_t player : players_) {
        end(player, SIGTERM);
    }
    end(voiceKeeper_, SIGTERM);
    end(keeper_, SIGTERM);
    end(daemon_, SIGTERM);
    if (previousServer_) {
        ::setenv("PULSE_SERVER", previousServer_->c_str(), 1);
    } else {
        ::unsetenv("PULSE_SERVER");
    }
}

void PrivateSoundServer::play(const std::vector<float>& samples, const std::string& sink,
                              int channelCount) {
    const fs::path file = folder_ / ("play-" + std::to_string(players_.size()) + ".raw");
    {
        std::ofstream out(file, std::ios::binary);
        out.write(reinterpret_cast<const char*>(samples.data()),
                  static_cast<std::streamsize>(samples.size() * sizeof(float)));
    }
    players_.push_back(spawn({"pacat", "--server=" + address_, "--device=" + sink,
                              "--latency-msec=20", "--format=float32le", "--rate=48000",
                              "--channels=" + std::to_string(channelCount), "--raw", file.string()},
                             {}, folder_ / "player.log"));
}

void PrivateSoundServer::waitForPlayback() {
    for (const pid_t player : players_) {
        ::waitpid(player, nullptr, 0);
    }
    players_.clear();
}

void PrivateSoundServer::startRecording() {
    end(recorder_, SIGINT);
    fs::remove(folder_ / "recording.wav");
    recorder_ = spawn({"parecord", "--server=" + address_, "--device=test.monitor",
                       "--file-format=wav", "--format=float32le", "--rate=48000", "--channels=2",
                       "--latency-msec=20", (folder_ / "recording.wav").string()},
                      {}, folder_ / "recorder.log");
}

std::vector<float> PrivateSoundServer::stopRecording() {
    end(recorder_, SIGINT);
    recorder_ = -1;
    const fs::path file = folder_ / "recording.wav";
    if (!fs::exists(file)) {
        throw std::runtime_error("nothing was recorded:\n" + readWhole(folder_ / "recorder.log"));
    }
    return decodeAudioFile(file, {48000, 2});
}

} // namespace orvelle::testing
