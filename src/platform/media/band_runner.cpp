#include "platform/media/detail/band_runner.h"

#include <algorithm>
#include <utility>

namespace orvelle::detail {

BandRunner::BandRunner(int threadCount) : helperCount_(std::max(threadCount, 1) - 1) {}

BandRunner::~BandRunner() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    for (auto& helper : helpers_) {
        helper.join();
    }
}

void BandRunner::run(int bandCount, const std::function<void(int band)>& job) {
    if (bandCount <= 1 || helperCount_ == 0) {
        for (int band = 0; band < bandCount; ++band) {
            job(band);
        }
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        while (static_cast<int>(helpers_.size()) < helperCount_) {
            helpers_.emplace_back([this] { helperLoop(); });
        }
        job_ = &job;
        bandCount_ = bandCount;
        nextBand_ = 0;
        unfinished_ = bandCount;
        error_ = nullptr;
        ++generation_;
    }
    wake_.notify_all();
    work();
    std::unique_lock lock(mutex_);
    finished_.wait(lock, [this] { return unfinished_ == 0; });
    job_ = nullptr;
    if (error_) {
        std::rethrow_exception(std::exchange(error_, nullptr));
    }
}

int BandRunner::machineThreads() {
    return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

void BandRunner::runRows(int height, const std::function<void(int top, int bottom)>& job) {
    // Several bands a thread, so that a helper the system is slow to wake holds up little.
    const int threads = threadCount();
    int rows = threads == 1 ? height : std::max(32, (height + 4 * threads - 1) / (4 * threads));
    rows += rows % 2;
    const int bandCount = (height + rows - 1) / rows;
    run(bandCount, [&](int band) {
        const int top = band * rows;
        job(top, std::min(height, top + rows));
    });
}

void BandRunner::work() {
    std::unique_lock lock(mutex_);
    while (nextBand_ < bandCount_) {
        const int band = nextBand_++;
        const auto* job = job_;
        lock.unlock();
        std::exception_ptr failure;
        try {
            (*job)(band);
        } catch (...) {
            failure = std::current_exception();
        }
        lock.lock();
        if (failure && !error_) {
            error_ = failure;
        }
        if (--unfinished_ == 0) {
            finished_.notify_all();
        }
    }
}

void BandRunner::helperLoop() {
    uint64_t seen = 0;
    while (true) {
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [&] { return stopping_ || generation_ != seen; });
            if (stopping_) {
                return;
            }
            seen = generation_;
        }
        work();
    }
}

} // namespace orvelle::detail
