#include "core/executor.h"

#include <pthread.h>

#include <exception>

namespace orvelle {

SerialQueue::SerialQueue(std::string name) : name_(std::move(name)) {
    thread_ = std::thread([this] { loop(); });
    // Thread names are limited to 15 characters; keep the most specific end.
    std::string shortName = name_.size() > 15 ? name_.substr(name_.size() - 15) : name_;
    pthread_setname_np(thread_.native_handle(), shortName.c_str());
}

SerialQueue::~SerialQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

void SerialQueue::post(std::function<void()> task) {
    {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    wake_.notify_one();
}

void SerialQueue::sync(const std::function<void()>& task) {
    std::mutex doneMutex;
    std::condition_variable doneSignal;
    bool done = false;
    std::exception_ptr failure;
    post([&] {
        try {
            task();
        } catch (...) {
            failure = std::current_exception();
        }
        std::lock_guard lock(doneMutex);
        done = true;
        doneSignal.notify_one();
    });
    std::unique_lock lock(doneMutex);
    doneSignal.wait(lock, [&] { return done; });
    if (failure) {
        std::rethrow_exception(failure);
    }
}

void SerialQueue::loop() {
    for (;;) {
        std::function<void()> task;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
            if (tasks_.empty()) {
                return;
            }
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
    }
}

void RunLoop::post(std::function<void()> task) {
    {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    wake_.notify_one();
}

void RunLoop::run() {
    {
        std::lock_guard lock(mutex_);
        stopped_ = false;
    }
    for (;;) {
        std::function<void()> task;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return stopped_ || !tasks_.empty(); });
            if (stopped_) {
                return;
            }
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
    }
}

size_t RunLoop::runFor(std::chrono::milliseconds timeout) {
    std::deque<std::function<void()>> ready;
    {
        std::unique_lock lock(mutex_);
        wake_.wait_for(lock, timeout, [this] { return !tasks_.empty(); });
        ready.swap(tasks_);
    }
    for (auto& task : ready) {
        task();
    }
    return ready.size();
}

bool RunLoop::runUntil(const std::function<bool()>& predicate, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!predicate()) {
        const auto now = std::chrono::steady_clock::now();
        if (now >= deadline) {
            return predicate();
        }
        runFor(std::min(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now),
                        std::chrono::milliseconds(10)));
    }
    return true;
}

void RunLoop::stop() {
    {
        std::lock_guard lock(mutex_);
        stopped_ = true;
    }
    wake_.notify_all();
}

} // namespace orvelle
