#include "platform/capture/capture_tick_clock.h"

#include <algorithm>

namespace orvelle {

CaptureTickClock::Clock::duration CaptureTickClock::toleranceFor(Clock::duration period) {
    return std::max(period,
                    std::chrono::duration_cast<Clock::duration>(std::chrono::milliseconds(50)));
}

CaptureTickClock::CaptureTickClock(Clock::time_point origin, Clock::duration period,
                                   Clock::duration tolerance)
    : origin_(origin), period_(std::max(period, Clock::duration(1))),
      tolerance_(std::max(tolerance, Clock::duration(0))) {}

double CaptureTickClock::dueSeconds() const {
    return std::chrono::duration<double>(due().time_since_epoch()).count();
}

int64_t CaptureTickClock::passOverLateTicks(Clock::time_point now) {
    const Clock::duration overdue = now - deadline();
    if (overdue <= Clock::duration(0)) {
        return 0;
    }
    // The first tick whose deadline is still ahead (or now).
    const int64_t lost = (overdue + period_ - Clock::duration(1)) / period_;
    tick_ += lost;
    return lost;
}

} // namespace orvelle
