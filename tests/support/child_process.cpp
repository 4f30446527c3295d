#include "support/child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace orvelle::testing {

ChildProcess::ChildProcess(const std::filesystem::path& program,
                           const std::vector<std::string>& arguments,
                           const std::map<std::string, std::string>& environment,
                           std::optional<int> passFd) {
    std::vector<std::string> words{program.string()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    std::map<std::string, std::string> merged;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const auto equals = text.find('=');
        merged[text.substr(0, equals)] = equals == std::string::npos ? "" : text.substr(equals + 1);
    }
    for (const auto& [key, value] : environment) {
        if (value.empty()) {
            merged.erase(key);
        } else {
            merged[key] = value;
        }
    }
    std::vector<std::string> pairs;
    for (const auto& [key, value] : merged) {
        pairs.push_back(key + "=" + value);
    }
    std::vector<char*> envp;
    for (auto& pair : pairs) {
        envp.push_back(pair.data());
    }
    envp.push_back(nullptr);

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
        ::execve(argv[0], argv.data(), envp.data());
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

std::optional<std::filesystem::path> findProgram(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "/usr/bin:/bin");
    std::string folder;
    while (std::getline(folders, folder, ':')) {
        const auto candidate = std::filesystem::path(folder) / name;
        if (::access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return std::nullopt;
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
