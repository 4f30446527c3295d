#pragma once

// The pointer recorder's timer in a running program: a thread that wakes at a fixed
// period (from the monotonic clock, late ticks skipped) and posts each tick to the main
// thread's executor. A tick still waiting there is not posted twice; a timer destroyed on
// the main thread calls no tick afterwards.

#include "core/executor.h"
#include "recording/cursor_recorder.h"

namespace orvelle {

class ExecutorRepeatingTimerFactory final : public RepeatingTimerFactory {
public:
    explicit ExecutorRepeatingTimerFactory(Executor& mainThread) : mainThread_(mainThread) {}
    std::unique_ptr<RepeatingTimer> start(std::chrono::nanoseconds interval,
                                          std::function<void()> tick) override;

private:
    Executor& mainThread_;
};

} // namespace orvelle
