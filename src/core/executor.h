#pragma once

// Executors: where a piece of work runs. A SerialQueue runs its tasks one at a time, in
// order, on a thread of its own. A RunLoop stands for the main thread: tasks posted to it
// run on whichever thread calls run(), which is the Qt event loop's job in the app.

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace orvelle {

class Executor {
public:
    virtual ~Executor() = default;
    // Thread-safe. Tasks run in the order they were posted.
    virtual void post(std::function<void()> task) = 0;
};

class SerialQueue final : public Executor {
public:
    explicit SerialQueue(std::string name);
    // Runs the tasks already posted, then joins the thread.
    ~SerialQueue() override;

    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    void post(std::function<void()> task) override;
    // Runs the task on the queue and waits for it; rethrows what it throws. Must not be
    // called from the queue itself.
    void sync(const std::function<void()>& task);
    bool isCurrent() const { return std::this_thread::get_id() == thread_.get_id(); }
    const std::string& name() const { return name_; }

private:
    void loop();

    std::string name_;
    std::mutex mutex_; // guards tasks_ and stopping_
    std::condition_variable wake_;
    std::deque<std::function<void()>> tasks_;
    bool stopping_ = false;
    std::thread thread_;
};

class RunLoop final : public Executor {
public:
    void post(std::function<void()> task) override;

    // Runs tasks until stop() is called.
    void run();
    // Runs the tasks that are ready, waiting at most `timeout` for the first one.
    // Returns the number of tasks run.
    size_t runFor(std::chrono::milliseconds timeout);
    // Runs tasks until the predicate holds or the timeout passes; returns the predicate.
    bool runUntil(const std::function<bool()>& predicate, std::chrono::milliseconds timeout);
    void stop();

private:
    std::mutex mutex_; // guards tasks_ and stopped_
    std::condition_variable wake_;
    std::deque<std::function<void()>> tasks_;
    bool stopped_ = false;
};

} // namespace orvelle
