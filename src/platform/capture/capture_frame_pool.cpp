#include "platform/capture/capture_frame_pool.h"

#include <cstdlib>
#include <new>

namespace orvelle {

std::shared_ptr<CaptureFramePool> CaptureFramePool::withHeapBuffers(int count, size_t size) {
    std::vector<Buffer> buffers;
    for (int index = 0; index < count; ++index) {
        // Rows start 64-byte aligned, as vector code likes them.
        const size_t rounded = (size + 63) / 64 * 64;
        auto* pixels = static_cast<uint8_t*>(std::aligned_alloc(64, rounded));
        if (pixels == nullptr) {
            for (auto& made : buffers) {
                made.release();
            }
            throw std::bad_alloc();
        }
        buffers.push_back({pixels, size, [pixels] { std::free(pixels); }});
    }
    return std::make_shared<CaptureFramePool>(std::move(buffers));
}

CaptureFramePool::CaptureFramePool(std::vector<Buffer> buffers)
    : buffers_(std::move(buffers)), free_(buffers_.size(), true) {}

CaptureFramePool::~CaptureFramePool() {
    for (auto& buffer : buffers_) {
        if (buffer.release) {
            buffer.release();
        }
    }
}

std::optional<size_t> CaptureFramePool::takeFree() {
    for (size_t index = 0; index < free_.size(); ++index) {
        if (free_[index]) {
            free_[index] = false;
            return index;
        }
    }
    return std::nullopt;
}

std::optional<size_t> CaptureFramePool::acquire() {
    std::lock_guard lock(mutex_);
    return takeFree();
}

std::optional<size_t> CaptureFramePool::acquire(std::chrono::steady_clock::time_point until) {
    std::unique_lock lock(mutex_);
    std::optional<size_t> index;
    returned_.wait_until(lock, until, [&] { return (index = takeFree()).has_value(); });
    return index;
}

void CaptureFramePool::giveBack(size_t index) {
    {
        std::lock_guard lock(mutex_);
        free_[index] = true;
    }
    returned_.notify_one();
}

CapturedVideoFrameRef CaptureFramePool::lend(const std::shared_ptr<CaptureFramePool>& pool,
                                             size_t index, CapturedVideoFrame frame) {
    auto* held = new CapturedVideoFrame(frame);
    return {held, [pool, index](const CapturedVideoFrame* done) {
                delete done;
                pool->giveBack(index);
            }};
}

} // namespace orvelle
