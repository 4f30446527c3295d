#pragma once

// Work that must not hold up the interface: it runs on a serial queue of its own and its
// result (or its failure's text) comes back on the main thread, unless the owner is gone
// by then, in which case it is dropped without a word.

#include "app/main_thread_executor.h"
#include "core/error.h"

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace orvelle {

class BackgroundWork {
public:
    explicit BackgroundWork(std::string queueName) : queue_(std::move(queueName)) {}
    // Waits for the task under way; results still to come are dropped.
    ~BackgroundWork() { *alive_ = false; }
    BackgroundWork(const BackgroundWork&) = delete;
    BackgroundWork& operator=(const BackgroundWork&) = delete;

    template <class Result>
    void run(std::function<Result()> work, std::function<void(Result)> deliver,
             std::function<void(const std::string&)> failed = nullptr) {
        std::shared_ptr<bool> alive = alive_;
        queue_.post([work = std::move(work), deliver = std::move(deliver),
                     failed = std::move(failed), alive]() mutable {
            std::optional<Result> result;
            std::string failure;
            try {
                result.emplace(work());
            } catch (const std::exception& error) {
                failure = error.what();
            }
            mainExecutor().post([result = std::move(result), failure, deliver = std::move(deliver),
                                 failed = std::move(failed), alive]() mutable {
                if (!*alive) {
                    return;
                }
                if (result) {
                    deliver(std::move(*result));
                } else if (failed) {
                    failed(failure);
                }
            });
        });
    }

    SerialQueue& queue() { return queue_; }

private:
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    SerialQueue queue_; // last: its tasks finish before the rest goes
};

} // namespace orvelle
