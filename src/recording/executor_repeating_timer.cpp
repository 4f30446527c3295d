#include "recording/executor_repeating_timer.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace orvelle {

namespace {

class ExecutorTimer final : public RepeatingTimer {
public:
    ExecutorTimer(Executor& mainThread, std::chrono::nanoseconds interval,
                  std::function<void()> tick)
        : shared_(std::make_shared<Shared>()) {
        shared_->tick = std::move(tick);
        thread_ = std::thread([this, &mainThread, interval] { run(mainThread, interval); });
    }

    ~ExecutorTimer() override {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        wake_.notify_all();
        thread_.join();
        // On the main thread: a tick already posted sees this and does nothing.
        shared_->alive = false;
    }

private:
    struct Shared {
        std::function<void()> tick;
        std::atomic<bool> alive = true;
        std::atomic<bool> pending = false;
    };

    void run(Executor& mainThread, std::chrono::nanoseconds interval) {
        const auto period = std::max(interval, std::chrono::nanoseconds(1));
        const auto origin = std::chrono::steady_clock::now();
        int64_t tick = 1;
        while (true) {
            const auto due = origin + period * tick;
            {
                std::unique_lock lock(mutex_);
                if (wake_.wait_until(lock, due, [this] { return stopping_; })) {
                    return;
                }
            }
            tick = std::max(tick + 1, (std::chrono::steady_clock::now() - origin) / period + 1);
            if (shared_->pending.exchange(true)) {
                continue;
            }
            mainThread.post([shared = shared_] {
                shared->pending = false;
                if (shared->alive) {
                    shared->tick();
                }
            });
        }
    }

    std::shared_ptr<Shared> shared_;
    std::mutex mutex_; // guards stopping_
    std::condition_variable wake_;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace

std::unique_ptr<RepeatingTimer>
ExecutorRepeatingTimerFactory::start(std::chrono::nanoseconds interval,
                                     std::function<void()> tick) {
    return std::make_unique<ExecutorTimer>(mainThread_, interval, std::move(tick));
}

} // namespace orvelle
