#include "speech/runtime/pipeline.h"

#include "core/blocking_queue.h"
#include "core/executor.h"
#include "speech/runtime/greedy_tdt_decoder.h"

#include <pthread.h>

#include <chrono>
#include <exception>
#include <map>
#include <mutex>
#include <thread>

namespace orvelle::Pipeline {

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

struct MelItem {
    size_t index = 0;
    MelFeatureExtractor::Features features;
};

struct EncoderItem {
    size_t index = 0;
    EncoderOutput encoder;
};

struct ChunkResult {
    std::vector<int> tokenIds;
    std::vector<int> frameIndices;
    std::vector<int> durations;
    int encoderFrames = 0;
};

class ChunkResultAccumulator {
public:
    void store(size_t index, ChunkResult result) {
        std::lock_guard lock(lock_);
        map_[index] = std::move(result);
    }
    size_t count() {
        std::lock_guard lock(lock_);
        return map_.size();
    }
    // Called once every task has ended.
    std::map<size_t, ChunkResult> take() {
        std::lock_guard lock(lock_);
        return std::move(map_);
    }

private:
    std::map<size_t, ChunkResult> map_; // guarded by lock_
    std::mutex lock_;
};

// Keeps the first error only.
class ErrorSlot {
public:
    void store(std::exception_ptr error) {
        std::lock_guard lock(lock_);
        if (!error_) {
            error_ = std::move(error);
        }
    }
    bool holdsError() {
        std::lock_guard lock(lock_);
        return error_ != nullptr;
    }
    std::exception_ptr error() {
        std::lock_guard lock(lock_);
        return error_;
    }

private:
    std::exception_ptr error_; // guarded by lock_
    std::mutex lock_;
};

class AtomicDouble {
public:
    void add(double amount) {
        std::lock_guard lock(lock_);
        value_ += amount;
    }
    double value() {
        std::lock_guard lock(lock_);
        return value_;
    }

private:
    double value_ = 0; // guarded by lock_
    std::mutex lock_;
};

// The concurrent "parakeet.decode" work: a thread per task, all joined by wait().
class DispatchGroup {
public:
    ~DispatchGroup() { wait(); }
    template <class Task>
    void dispatch(Task&& task) {
        threads_.emplace_back(std::forward<Task>(task));
        pthread_setname_np(threads_.back().native_handle(), "parakeet.decode");
    }
    void wait() {
        for (auto& thread : threads_) {
            if (thread.joinable()) {
                thread.join();
            }
        }
        threads_.clear();
    }

private:
    std::vector<std::thread> threads_;
};

} // namespace

Result run(std::span<const std::span<const float>> chunks,
           const MelFeatureExtractor& featureExtractor, ModelRunner& runner,
           const Progress& progress) {
    Result result;
    if (chunks.empty()) {
        return result;
    }
    BlockingQueue<MelItem> melQueue(2);
    BlockingQueue<EncoderItem> encoderQueue(std::max<size_t>(runner.workerCount() + 1, 2));
    ErrorSlot errorSlot;
    AtomicDouble melSeconds;
    AtomicDouble encoderSeconds;
    AtomicDouble decoderSeconds;
    double encoderWaitSeconds = 0; // written by the encoder stage, read after it ends
    ChunkResultAccumulator accumulator;
    DispatchGroup decodeGroup;
    {
        SerialQueue melStage("parakeet.mel");
        SerialQueue encoderStage("parakeet.encoder");
        melStage.post([&] {
            for (size_t index = 0; index < chunks.size(); ++index) {
                if (errorSlot.holdsError()) {
                    break;
                }
                try {
                    const auto start = Clock::now();
                    MelItem item{index, featureExtractor.extract(chunks[index])};
                    melSeconds.add(secondsSince(start));
                    melQueue.put(std::move(item));
                } catch (...) {
                    errorSlot.store(std::current_exception());
                    break;
                }
            }
            melQueue.close();
        });
        encoderStage.post([&] {
            bool first = true;
            for (;;) {
                const auto waitStart = Clock::now();
                std::optional<MelItem> item = melQueue.take();
                if (item && !first) {
                    encoderWaitSeconds += secondsSince(waitStart);
                }
                first = false;
                if (!item || errorSlot.holdsError()) {
                    break;
                }
                try {
                    const auto start = Clock::now();
                    EncoderItem encoded{item->index, runner.runEncoder(item->features)};
                    encoderSeconds.add(secondsSince(start));
                    encoderQueue.put(std::move(encoded));
                } catch (...) {
                    errorSlot.store(std::current_exception());
                    break;
                }
            }
            encoderQueue.close();
        });

        // The calling thread dispatches the decoding.
        for (;;) {
            std::optional<EncoderItem> item = encoderQueue.take();
            if (!item || errorSlot.holdsError()) {
                break;
            }
            DecoderWorker* worker = runner.acquireWorker();
            if (worker == nullptr) {
                break;
            }
            decodeGroup.dispatch([&, worker, item = std::move(*item)] {
                try {
                    auto output =
                        GreedyTDTDecoder::decode(item.encoder, *worker, runner.blankTokenId(),
                                                 runner.durations(), runner.maxSymbolsPerStep());
                    decoderSeconds.add(output.elapsedSeconds);
                    accumulator.store(
                        item.index,
                        ChunkResult{std::move(output.tokenIds), std::move(output.frameIndices),
                                    std::move(output.durations),
                                    static_cast<int>(item.encoder.hiddenShape.size() > 1
                                                         ? item.encoder.hiddenShape[1]
                                                         : 0)});
                    if (progress) {
                        progress(accumulator.count(), chunks.size());
                    }
                } catch (...) {
                    errorSlot.store(std::current_exception());
                }
                runner.releaseWorker(worker);
            });
        }
        decodeGroup.wait();
        // Wakes a stage still blocked on a full queue after a failure.
        melQueue.close();
        encoderQueue.close();
    } // the stages' threads are joined here
    if (const auto error = errorSlot.error()) {
        std::rethrow_exception(error);
    }

    // Frame numbers run over the whole input: each chunk adds its full encoder length.
    auto results = accumulator.take();
    int offset = 0;
    for (size_t index = 0; index < chunks.size(); ++index) {
        const auto found = results.find(index);
        if (found == results.end()) {
            continue;
        }
        const ChunkResult& chunk = found->second;
        result.tokenIds.insert(result.tokenIds.end(), chunk.tokenIds.begin(), chunk.tokenIds.end());
        result.durations.insert(result.durations.end(), chunk.durations.begin(),
                                chunk.durations.end());
        for (const int frame : chunk.frameIndices) {
            result.frameIndices.push_back(frame + offset);
        }
        offset += chunk.encoderFrames;
    }
    result.melSeconds = melSeconds.value();
    result.encoderSeconds = encoderSeconds.value();
    result.decoderSeconds = decoderSeconds.value();
    result.encoderWaitSeconds = encoderWaitSeconds;
    return result;
}

} // namespace orvelle::Pipeline
