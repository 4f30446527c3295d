#pragma once

// The clock of a capture that takes pictures on its own schedule: tick n is due at
// origin + n * period and its picture carries that time, so a movie's pictures stay on a
// grid of the frame rate whenever they were actually taken. A tick may be taken late, up
// to a tolerance after it was due (a grab that came late, a capture thread the system woke
// late): the ticks after it are then taken back to back until the capture has caught up.
// A tick whose time is further in the past than the tolerance when the capture gets to it
// is lost, and counted.

#include <chrono>
#include <cstdint>

namespace orvelle {

class CaptureTickClock {
public:
    using Clock = std::chrono::steady_clock;

    // How late a picture may be taken: three periods at 60 frames a second, never less
    // than one period.
    static Clock::duration toleranceFor(Clock::duration period);

    CaptureTickClock(Clock::time_point origin, Clock::duration period, Clock::duration tolerance);

    // When the next tick is due, and the last moment it may still be taken.
    Clock::time_point due() const { return origin_ + period_ * tick_; }
    Clock::time_point deadline() const { return due() + tolerance_; }
    // The next tick's time in seconds on the clock's own scale.
    double dueSeconds() const;

    // At `now`, passes over the ticks that can no longer be taken; returns how many.
    int64_t passOverLateTicks(Clock::time_point now);
    // The next tick was taken, or lost for another reason.
    void advance() { ++tick_; }

private:
    Clock::time_point origin_;
    Clock::duration period_;
    Clock::duration tolerance_;
    int64_t tick_ = 0;
};

} // namespace orvelle
