#include "cli/interrupt.h"

#include <chrono>

namespace orvelle::cli {

namespace {

volatile std::sig_atomic_t interruptSignal = 0;

extern "C" void recordInterrupt(int signal) {
    interruptSignal = signal;
}

} // namespace

InterruptStop::InterruptStop() {
    interruptSignal = 0;
    struct sigaction action {};
    action.sa_handler = recordInterrupt;
    sigemptyset(&action.sa_mask);
    // Reads and writes in other threads go on rather than fail with EINTR.
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, &oldInterrupt_);
    sigaction(SIGTERM, &action, &oldTerminate_);
    watcher_ = std::thread([this] {
        while (!done_) {
            if (interruptSignal != 0) {
                source_.request_stop();
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    });
}

InterruptStop::~InterruptStop() {
    done_ = true;
    watcher_.join();
    sigaction(SIGINT, &oldInterrupt_, nullptr);
    sigaction(SIGTERM, &oldTerminate_, nullptr);
}

} // namespace orvelle::cli
