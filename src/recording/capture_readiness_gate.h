#pragma once

// Lets a session wait for a stream's first usable picture without making the wait a
// failure: open() is called from the stream's ready-frame callback (any thread); a waiter
// returns when the gate opens or its time-out passes, whichever comes first. Thread-safe.

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace orvelle {

class CaptureReadinessGate {
public:
    void open();
    bool isReady();
    // True when the gate opened in time; false on time-out (which is not a failure).
    bool waitUntilReady(std::chrono::nanoseconds timeout);

private:
    std::mutex mutex_; // guards isReady_
    std::condition_variable opened_;
    bool isReady_ = false;
};

} // namespace orvelle
