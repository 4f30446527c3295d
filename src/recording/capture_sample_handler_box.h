#pragma once

// The one object a device's delivery thread shares with its recorder: a replaceable
// handler. A delivery runs under the box's lock, so clearAndBarrier() returns only when no
// delivery is still in flight: after it, nothing reaches the old handler.

#include <functional>
#include <mutex>

namespace orvelle {

template <class Value>
class CaptureSampleHandlerBox {
public:
    using Handler = std::function<void(const Value&)>;

    void with(const Value& value) {
        std::lock_guard lock(mutex_);
        if (handler_) {
            handler_(value);
        }
    }
    void store(Handler handler) {
        std::lock_guard lock(mutex_);
        handler_ = std::move(handler);
    }
    void clearAndBarrier() { store(nullptr); }

private:
    std::mutex mutex_;
    Handler handler_;
};

} // namespace orvelle
