#include "support/child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <thread>

namespace orvelle::testing {

ChildProcess::ChildProcess(const std::filesystem::path& program,
                           const std::vector<std::string>& arguments,
                           const std::map<std::string, std::string>& environment,
                           std::optional<int> passFd,
                           const std::optional<std::filesystem::path>& log) {
    ProgramLaunch launch(program, arguments, environment);
    // fork and exec rather than posix_spawn: the child asks to be ended with the thread
    // that started it, so a test killed by its time-out leaves no server behind. Between
    // fork and exec only async-signal-safe calls are made.
    const pid_t pid = ::fork();
    if (pid < 0) {
        throw std::runtime_error("could not start " + program.string() + ": " +
                                 std::strerror(errno));
    }
    if (pid == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        // A group of its own: a test's Ctrl-C does not reach it.
        ::setpgid(0, 0);
        if (passFd) {
            const int flags = ::fcntl(*passFd, F_GETFD);
            ::fcntl(*passFd, F_SETFD, flags & ~FD_CLOEXEC);
        }
        if (log) {
            const int input = ::open("/dev/null", O_RDONLY);
            const int output = ::open(log->c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
            if (input < 0 || output < 0) {
                ::_exit(127);
            }
            ::dup2(input, STDIN_FILENO);
            ::dup2(output, STDOUT_FILENO);
            ::dup2(output, STDERR_FILENO);
        }
        ::execve(launch.argv[0], launch.argv.data(), launch.envp.data());
        ::_exit(127);
    }
    pid_ = pid;
}

ChildProcess::~ChildProcess() {
    if (pid_ > 0 && !status_) {
        ::kill(pid_, SIGTERM);
        if (!waitFor(std::chrono::seconds(5))) {
            ::kill(pid_, SIGKILL);
            waitFor(std::chrono::seconds(5));
        }
    }
}

std::optional<int> ChildProcess::waitFor(std::chrono::milliseconds timeout) {
    if (status_) {
        return status_;
    }
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (true) {
        int status = 0;
        const pid_t done = ::waitpid(pid_, &status, WNOHANG);
        if (done == pid_) {
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            return status_;
        }
        if (done < 0 && errno != EINTR) {
            status_ = -1;
            return status_;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return std::nullopt;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

bool ChildProcess::running() {
    return !waitFor(std::chrono::milliseconds(0));
}

int ChildProcess::terminate(int signal) {
    if (!status_) {
        ::kill(pid_, signal);
    }
    if (auto status = waitFor(std::chrono::seconds(20))) {
        return *status;
    }
    ::kill(pid_, SIGKILL);
    return waitFor(std::chrono::seconds(5)).value_or(-1);
}

bool waitUntil(const std::function<bool()>& predicate, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!predicate()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

} // namespace orvelle::testing
