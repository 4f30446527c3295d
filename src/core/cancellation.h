#pragma once

#include "core/error.h"

#include <stop_token>

namespace orvelle {

// Cooperative cancellation point: long work calls this between units of work.
inline void throwIfCancelled(const std::stop_token& token) {
    if (token.stop_requested()) {
        throw CancellationError();
    }
}

} // namespace orvelle
