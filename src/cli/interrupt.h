#pragma once

// Ctrl-C (and a polite kill) as a stop request: while an InterruptStop lives, SIGINT and
// SIGTERM no longer end the program but trigger its stop token, so that long work can stop
// cleanly and remove what it half made. The old handlers come back when it goes away.

#include <atomic>
#include <csignal>
#include <stop_token>
#include <thread>

namespace orvelle::cli {

// The exit status of a command stopped by Ctrl-C, as a shell reports one killed by SIGINT.
inline constexpr int kInterruptedStatus = 130;

class InterruptStop {
public:
    InterruptStop();
    ~InterruptStop();
    InterruptStop(const InterruptStop&) = delete;
    InterruptStop& operator=(const InterruptStop&) = delete;

    std::stop_token token() const { return source_.get_token(); }
    bool interrupted() const { return source_.stop_requested(); }

private:
    std::stop_source source_;
    struct sigaction oldInterrupt_ {};
    struct sigaction oldTerminate_ {};
    std::atomic<bool> done_ = false;
    // The handler only sets a flag; this thread turns it into the stop request, since a
    // stop source may not be touched from a signal handler.
    std::thread watcher_;
};

} // namespace orvelle::cli
