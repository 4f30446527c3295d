#pragma once

#include <chrono>

namespace orvelle {

// Seconds on the monotonic clock (steady_clock): the time base of captured pictures and
// sound, which wall-clock changes never move.
inline double monotonicNow() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

} // namespace orvelle
