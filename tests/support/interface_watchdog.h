#pragma once

// How long an application's interface thread goes without answering, measured from outside
// as a window manager does it: a _NET_WM_PING message is sent to the window every few
// milliseconds over a connection of our own, and the time until the toolkit's answer comes
// back on the root window is the longest the application's event loop was held up.

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>

namespace orvelle::testing {

class InterfaceWatchdog {
public:
    // `window` as xdotool prints it (a decimal X window id) on `display` (":12").
    InterfaceWatchdog(const std::string& display, const std::string& window);
    ~InterfaceWatchdog();
    InterfaceWatchdog(const InterfaceWatchdog&) = delete;
    InterfaceWatchdog& operator=(const InterfaceWatchdog&) = delete;

    // Forgets what was measured so far: a new stretch to watch begins.
    void restart();
    // The longest wait for an answer since the start (or restart), the one under way
    // included; and how many pings were answered.
    std::chrono::milliseconds longestStall() const;
    int answered() const;

private:
    void run(const std::stop_token& stop);

    std::string display_;
    unsigned window_ = 0;
    mutable std::mutex mutex_;
    std::chrono::steady_clock::duration longest_{};
    std::chrono::steady_clock::time_point pendingSince_{};
    bool pending_ = false;
    int answered_ = 0;
    std::jthread thread_;
};

} // namespace orvelle::testing
