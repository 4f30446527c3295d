#pragma once

// A program a test starts in the background (a server, a painting client) and ends when
// the test is done.

#include "support/run_program.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace orvelle::testing {

class ChildProcess {
public:
    // Starts the program with the test's environment plus `environment` (an empty value
    // removes a variable); output goes to the test's own stderr, or appended to `log`.
    // `passFd`, when given, is handed to the child as that same descriptor number. Throws
    // std::runtime_error when it cannot start.
    ChildProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                 const std::map<std::string, std::string>& environment = {},
                 std::optional<int> passFd = std::nullopt,
                 const std::optional<std::filesystem::path>& log = std::nullopt);
    // Ends the child (SIGTERM, then SIGKILL after a grace period) unless it has ended.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    int pid() const { return pid_; }
    // Signals the child and waits for it; returns its exit status (-1 when killed by a
    // signal).
    int terminate(int signal = 15);
    // Waits for the child to end by itself; absent on time-out.
    std::optional<int> waitFor(std::chrono::milliseconds timeout);
    bool running();

private:
    int pid_ = -1;
    std::optional<int> status_;
};

// Waits until the predicate holds, polling; false on time-out.
bool waitUntil(const std::function<bool()>& predicate, std::chrono::milliseconds timeout);

} // namespace orvelle::testing
