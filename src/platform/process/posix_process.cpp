#include "core/cancellation.h"
#include "platform/process/helper_process_registry.h"
#include "platform/process/process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <mutex>

extern char** environ; // NOLINT(readability-redundant-declaration): POSIX declares it nowhere

namespace orvelle {

namespace {

using Clock = std::chrono::steady_clock;

std::string systemReason(int error) {
    return std::strerror(error);
}

// A file descriptor closed when it goes.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() { close(); }
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            close();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }
    int get() const { return fd_; }
    bool open() const { return fd_ >= 0; }
    void close() {
        if (fd_ >= 0) {
            ::close(fd_);
            fd_ = -1;
        }
    }

private:
    int fd_ = -1;
};

struct Pipe {
    Descriptor read;
    Descriptor write;
};

Pipe makePipe() {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        throw ProcessError(ProcessErrorCode::launchFailed,
                           "Could not make a pipe for a child process: " + systemReason(errno),
                           systemReason(errno));
    }
    return {Descriptor(fds[0]), Descriptor(fds[1])};
}

// Writing to a pipe whose reader has gone must give EPIPE, not end this program.
void ignoreBrokenPipes() {
    static std::once_flag once;
    std::call_once(once, [] { std::signal(SIGPIPE, SIG_IGN); });
}

class SpawnActions {
public:
    SpawnActions() { posix_spawn_file_actions_init(&actions_); }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
    posix_spawn_file_actions_t* get() { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
};

class SpawnAttributes {
public:
    SpawnAttributes() { posix_spawnattr_init(&attributes_); }
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    posix_spawnattr_t* get() { return &attributes_; }

private:
    posix_spawnattr_t attributes_{};
};

std::vector<std::string> childEnvironment(const ProcessOptions& options) {
    std::vector<std::string> result;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        const auto name = text.substr(0, text.find('='));
        bool replaced = false;
        for (const auto& [key, value] : options.environment) {
            replaced = replaced || key == name;
        }
        if (!replaced) {
            result.emplace_back(text);
        }
    }
    for (const auto& [key, value] : options.environment) {
        result.push_back(key + "=" + value);
    }
    return result;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    result.reserve(texts.size() + 1);
    for (auto& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

std::string megabytes(std::size_t bytes) {
    const double value = static_cast<double>(bytes) / (1024.0 * 1024.0);
    char text[32];
    std::snprintf(text, sizeof text, value >= 10 ? "%.0f MB" : "%.1f MB", value);
    return text;
}

std::string seconds(std::chrono::milliseconds duration) {
    char text[32];
    std::snprintf(text, sizeof text, "%g s", static_cast<double>(duration.count()) / 1000.0);
    return text;
}

// One started child and everything needed to watch and stop it.
class Child {
public:
    Child(const std::filesystem::path& executable, const ProcessOptions& options)
        : executable_(executable), options_(options) {
        ignoreBrokenPipes();
        Pipe output = makePipe();
        Pipe error = makePipe();
        std::optional<Pipe> input;
        if (options.input) {
            input = makePipe();
        }

        SpawnActions actions;
        if (input) {
            posix_spawn_file_actions_adddup2(actions.get(), input->read.get(), STDIN_FILENO);
        } else {
            posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        }
        posix_spawn_file_actions_adddup2(actions.get(), output.write.get(), STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(actions.get(), error.write.get(), STDERR_FILENO);
        // Whatever else this program has open (without close-on-exec) stays here.
        posix_spawn_file_actions_addclosefrom_np(actions.get(), STDERR_FILENO + 1);
        if (!options.workingDirectory.empty()) {
            posix_spawn_file_actions_addchdir_np(actions.get(), options.workingDirectory.c_str());
        }

        SpawnAttributes attributes;
        short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
        if (options.ownProcessGroup) {
            flags |= POSIX_SPAWN_SETPGROUP;
            posix_spawnattr_setpgroup(attributes.get(), 0);
        }
        posix_spawnattr_setflags(attributes.get(), flags);
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(attributes.get(), &none);
        // Signals this program ignores or handles start with their default action.
        sigset_t all;
        sigfillset(&all);
        posix_spawnattr_setsigdefault(attributes.get(), &all);

        std::vector<std::string> argumentTexts{executable.string()};
        argumentTexts.insert(argumentTexts.end(), options.arguments.begin(),
                             options.arguments.end());
        std::vector<std::string> environmentTexts = childEnvironment(options);
        auto argv = pointers(argumentTexts);
        auto envp = pointers(environmentTexts);

        const int status = ::posix_spawn(&pid_, executable.c_str(), actions.get(), attributes.get(),
                                         argv.data(), envp.data());
        if (status != 0) {
            throw ProcessError(ProcessErrorCode::launchFailed,
                               "Could not start " + executable.string() + ": " +
                                   systemReason(status),
                               systemReason(status));
        }
        if (options.tracked && !HelperProcessRegistry::add(pid_, options.ownProcessGroup)) {
            stopAndReap();
            throw ProcessError(ProcessErrorCode::launchFailed,
                               "Could not start " + executable.string() +
                                   ": too many helper processes are running.",
                               "too many helper processes are running");
        }
        output_ = std::move(output.read);
        error_ = std::move(error.read);
        if (input) {
            input_ = std::move(input->write);
            ::fcntl(input_.get(), F_SETFL, O_NONBLOCK);
        }
        // Without pidfds (kernels before 5.3) the exit is noticed by polling briefly.
        processFD_ = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
    }

    ~Child() {
        if (!reaped_) {
            stopAndReap();
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    ProcessResult run(const std::stop_token& stop) {
        Descriptor wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        std::stop_callback onStop(stop, [&wake] {
            const std::uint64_t one = 1;
            [[maybe_unused]] const auto written = ::write(wake.get(), &one, sizeof one);
        });
        constexpr auto never = Clock::time_point::max();
        const auto deadline = options_.timeout ? Clock::now() + *options_.timeout : never;
        auto drainDeadline = never;

        while (output_.open() || error_.open() || !exited_) {
            if (stop.stop_requested()) {
                stopAndReap();
                throw CancellationError();
            }
            const auto now = Clock::now();
            if (now >= deadline) {
                stopAndReap();
                throw ProcessError(ProcessErrorCode::timedOut,
                                   executable_.filename().string() + " did not finish within " +
                                       seconds(*options_.timeout) + " and was stopped.");
            }
            if (now >= drainDeadline) {
                // The leader is gone but something outside its group still holds a pipe.
                output_.close();
                error_.close();
                break;
            }

            std::vector<pollfd> watched;
            const auto watch = [&watched](const Descriptor& fd, short events) {
                if (fd.open()) {
                    watched.push_back({fd.get(), events, 0});
                }
            };
            watch(output_, POLLIN);
            watch(error_, POLLIN);
            watch(input_, POLLOUT);
            if (!exited_) {
                watch(processFD_, POLLIN);
            }
            watch(wake, POLLIN);

            auto until = std::min(deadline, drainDeadline);
            if (!exited_ && !processFD_.open()) {
                until = std::min(until, now + std::chrono::milliseconds(50));
            }
            const long wait =
                until == never
                    ? -1
                    : std::clamp<long>(
                          std::chrono::ceil<std::chrono::milliseconds>(until - now).count(), 0,
                          3'600'000);
            const int ready = ::poll(watched.data(), watched.size(), static_cast<int>(wait));
            if (ready < 0 && errno != EINTR) {
                stopAndReap();
                throw Error("Could not watch " + executable_.filename().string() + ": " +
                            systemReason(errno));
            }

            try {
                for (const auto& entry : watched) {
                    if (entry.revents == 0) {
                        continue;
                    }
                    if (entry.fd == output_.get()) {
                        readOutput();
                    } else if (entry.fd == error_.get()) {
                        readError();
                    } else if (entry.fd == input_.get()) {
                        writeInput();
                    }
                }
            } catch (...) {
                stopAndReap();
                throw;
            }
            if (!exited_ && leaderHasExited()) {
                exited_ = true;
                killStragglers();
                drainDeadline = Clock::now() + std::chrono::milliseconds(1000);
            }
        }
        reap();
        return std::move(result_);
    }

private:
    void readOutput() {
        char buffer[65536];
        const ssize_t count = ::read(output_.get(), buffer, sizeof buffer);
        if (count <= 0) {
            if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
                output_.close();
            }
            return;
        }
        const std::string_view piece(buffer, static_cast<size_t>(count));
        if (result_.output.size() + piece.size() > options_.outputLimit) {
            throw ProcessError(ProcessErrorCode::outputLimitExceeded,
                               executable_.filename().string() + " wrote more than " +
                                   megabytes(options_.outputLimit) +
                                   " to its standard output and was stopped.");
        }
        result_.output.append(piece);
        if (options_.onOutput) {
            options_.onOutput(piece);
        }
    }

    void readError() {
        char buffer[65536];
        const ssize_t count = ::read(error_.get(), buffer, sizeof buffer);
        if (count <= 0) {
            if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
                error_.close();
            }
            return;
        }
        const std::string_view piece(buffer, static_cast<size_t>(count));
        result_.error.append(piece);
        // Keep the tail; trim in large steps so a flood costs linear time.
        if (result_.error.size() > 2 * options_.errorLimit) {
            result_.error.erase(0, result_.error.size() - options_.errorLimit);
            result_.errorTruncated = true;
        }
        if (options_.onError) {
            options_.onError(piece);
        }
    }

    void writeInput() {
        const std::string& input = *options_.input;
        if (inputWritten_ < input.size()) {
            const ssize_t count =
                ::write(input_.get(), input.data() + inputWritten_, input.size() - inputWritten_);
            if (count > 0) {
                inputWritten_ += static_cast<size_t>(count);
            } else if (errno != EAGAIN && errno != EINTR) {
                input_.close(); // the child stopped reading; the rest is dropped
                return;
            }
        }
        if (inputWritten_ >= input.size()) {
            input_.close();
        }
    }

    bool leaderHasExited() const {
        siginfo_t info{};
        return ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               info.si_pid == pid_;
    }

    pid_t signalTarget() const { return options_.ownProcessGroup ? -pid_ : pid_; }

    // After the leader has gone: whatever it left running in its group goes too.
    void killStragglers() const {
        if (options_.ownProcessGroup) {
            ::kill(-pid_, SIGKILL);
        }
    }

    bool awaitExit(std::chrono::milliseconds limit) const {
        const auto end = Clock::now() + limit;
        while (!leaderHasExited()) {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
            if (left <= 0) {
                return false;
            }
            if (processFD_.open()) {
                pollfd entry{processFD_.get(), POLLIN, 0};
                ::poll(&entry, 1, static_cast<int>(left));
            } else {
                ::usleep(10'000);
            }
        }
        return true;
    }

    // SIGTERM to the child (and its group), SIGKILL after the grace, then the reap.
    void stopAndReap() {
        if (!exited_ && !leaderHasExited()) {
            ::kill(signalTarget(), SIGTERM);
            if (!awaitExit(options_.terminationGrace)) {
                ::kill(signalTarget(), SIGKILL);
            }
        }
        exited_ = true;
        killStragglers();
        reap();
    }

    void reap() {
        if (reaped_) {
            return;
        }
        // Out of the registry before the pid can be reused.
        HelperProcessRegistry::remove(pid_);
        int status = 0;
        while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
        reaped_ = true;
        if (WIFSIGNALED(status)) {
            result_.signal = WTERMSIG(status);
            result_.status = 128 + result_.signal;
        } else {
            result_.status = WEXITSTATUS(status);
        }
    }

    std::filesystem::path executable_;
    const ProcessOptions& options_;
    pid_t pid_ = -1;
    Descriptor output_;
    Descriptor error_;
    Descriptor input_;
    Descriptor processFD_;
    size_t inputWritten_ = 0;
    bool exited_ = false;
    bool reaped_ = false;
    ProcessResult result_;
};

} // namespace

ProcessResult runProcess(const std::filesystem::path& executable, const ProcessOptions& options,
                         const std::stop_token& stop) {
    throwIfCancelled(stop);
    Child child(executable, options);
    return child.run(stop);
}

bool isExecutableFile(const std::filesystem::path& path) {
    std::error_code error;
    return !path.empty() && std::filesystem::is_regular_file(path, error) &&
           ::access(path.c_str(), X_OK) == 0;
}

std::optional<std::filesystem::path> findExecutableInPath(std::string_view name) {
    const char* path = std::getenv("PATH");
    if (path == nullptr || name.empty()) {
        return std::nullopt;
    }
    std::string_view rest(path);
    while (true) {
        const auto end = rest.find(':');
        const auto folder = rest.substr(0, end);
        if (!folder.empty()) {
            auto candidate = std::filesystem::path(folder) / name;
            if (isExecutableFile(candidate)) {
                return candidate;
            }
        }
        if (end == std::string_view::npos) {
            return std::nullopt;
        }
        rest.remove_prefix(end + 1);
    }
}

} // namespace orvelle
