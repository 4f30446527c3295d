#include "recording/capture_readiness_gate.h"

namespace orvelle {

void CaptureReadinessGate::open() {
    {
        std::lock_guard lock(mutex_);
        isReady_ = true;
    }
    opened_.notify_all();
}

bool CaptureReadinessGate::isReady() {
    std::lock_guard lock(mutex_);
    return isReady_;
}

bool CaptureReadinessGate::waitUntilReady(std::chrono::nanoseconds timeout) {
    std::unique_lock lock(mutex_);
    return opened_.wait_for(lock, timeout, [this] { return isReady_; });
}

} // namespace orvelle
