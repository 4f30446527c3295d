#pragma once

// A fixed set of picture buffers that a stream fills and lends out as frames. A buffer
// comes back when the last holder of its frame lets go; the buffers themselves live until
// the pool and every frame lent from it are gone, so a frame may outlive its stream.
// Thread-safe.

#include "platform/capture/capture_types.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace orvelle {

class CaptureFramePool {
public:
    struct Buffer {
        uint8_t* pixels = nullptr;
        size_t size = 0;
        std::function<void()> release; // frees the memory; called once, at the very end
    };

    // Buffers of heap memory, `count` of `size` bytes each.
    static std::shared_ptr<CaptureFramePool> withHeapBuffers(int count, size_t size);
    // Buffers the caller allocated (shared memory, say); the pool frees them.
    explicit CaptureFramePool(std::vector<Buffer> buffers);
    ~CaptureFramePool();
    CaptureFramePool(const CaptureFramePool&) = delete;
    CaptureFramePool& operator=(const CaptureFramePool&) = delete;

    // A free buffer's index, or absent when every buffer is lent out.
    std::optional<size_t> acquire();
    // The same, waiting until `until` for a buffer to come back.
    std::optional<size_t> acquire(std::chrono::steady_clock::time_point until);
    // Gives back a buffer acquired but not lent out.
    void giveBack(size_t index);
    const Buffer& buffer(size_t index) const { return buffers_[index]; }
    size_t size() const { return buffers_.size(); }

    // Lends the acquired buffer as a frame; `frame.pixels` should point into it. The pool
    // is kept alive by the frame.
    static CapturedVideoFrameRef lend(const std::shared_ptr<CaptureFramePool>& pool, size_t index,
                                      CapturedVideoFrame frame);

private:
    std::vector<Buffer> buffers_;
    std::optional<size_t> takeFree(); // with mutex_ held

    std::mutex mutex_; // guards free_
    std::condition_variable returned_;
    std::vector<bool> free_;
};

} // namespace orvelle
