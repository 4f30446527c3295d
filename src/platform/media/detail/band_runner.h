#pragma once

// Runs the bands of one job on a few threads: the caller's own and helpers that sleep
// between jobs. Bands are handed out one at a time, so a helper that the system is slow to
// wake never holds up more than the band it took; the caller takes what is left.

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace orvelle::detail {

class BandRunner {
public:
    // `threadCount` counts the caller: 1 runs every band on the caller.
    explicit BandRunner(int threadCount);
    ~BandRunner();
    BandRunner(const BandRunner&) = delete;
    BandRunner& operator=(const BandRunner&) = delete;

    int threadCount() const { return helperCount_ + 1; }
    static int machineThreads();

    // Calls job(band) for every band in [0, bandCount) and returns when all are done;
    // rethrows the first exception a band threw.
    void run(int bandCount, const std::function<void(int band)>& job);

    // Splits the rows [0, height) of a picture into bands of an even number of rows, so that
    // 4:2:0 chroma rows never straddle two, and calls job(top, bottom) for each.
    void runRows(int height, const std::function<void(int top, int bottom)>& job);

private:
    void work();
    void helperLoop();

    int helperCount_;
    std::vector<std::thread> helpers_; // started on the first job with more than one band
    std::mutex mutex_;                 // guards everything below
    std::condition_variable wake_;
    std::condition_variable finished_;
    const std::function<void(int)>* job_ = nullptr;
    int bandCount_ = 0;
    int nextBand_ = 0;
    int unfinished_ = 0;
    uint64_t generation_ = 0;
    bool stopping_ = false;
    std::exception_ptr error_;
};

} // namespace orvelle::detail
