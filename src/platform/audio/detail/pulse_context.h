#pragma once

// The connection both sound directions share: a threaded main loop and a context on the
// server named by PULSE_SERVER, or the user's own.

#include <pulse/pulseaudio.h>

#include <optional>
#include <string>

namespace orvelle::detail {

// Holds a main loop's lock for a scope.
class PulseLock {
public:
    explicit PulseLock(pa_threaded_mainloop* loop) : loop_(loop) {
        pa_threaded_mainloop_lock(loop_);
    }
    ~PulseLock() { pa_threaded_mainloop_unlock(loop_); }
    PulseLock(const PulseLock&) = delete;
    PulseLock& operator=(const PulseLock&) = delete;

private:
    pa_threaded_mainloop* loop_;
};

struct PulseContext {
    pa_threaded_mainloop* mainloop = nullptr;
    pa_context* context = nullptr;

    PulseContext() = default;
    // Disconnects and stops the loop; streams must be closed first.
    ~PulseContext();
    PulseContext(const PulseContext&) = delete;
    PulseContext& operator=(const PulseContext&) = delete;

    // Connects and waits until the context is ready. Returns the reason it is not, in
    // words for the user (with what to do), or nothing.
    std::optional<std::string> connect(const std::string& applicationName);
    bool isReady() const; // under the lock

    // "No sound server could be reached (...): start ...".
    static std::string unreachable(int error);
    std::string lastError() const { return pa_strerror(pa_context_errno(context)); }
};

} // namespace orvelle::detail
