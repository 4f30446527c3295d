#include "playback/preview_frame_cache.h"

namespace orvelle {

PreviewFrameCache::PreviewFrameCache(size_t byteLimit) : byteLimit_(byteLimit) {}

size_t PreviewFrameCache::bytes(const Bitmap& picture) {
    return picture.stride() * static_cast<size_t>(std::max(picture.height(), 0));
}

std::optional<Bitmap> PreviewFrameCache::find(const PreviewFrameKey& key) {
    const std::lock_guard guard(lock_);
    const auto found = entries_.find(key);
    if (found == entries_.end()) {
        ++misses_;
        return std::nullopt;
    }
    ++hits_;
    uses_.splice(uses_.begin(), uses_, found->second.use);
    return found->second.picture;
}

void PreviewFrameCache::insert(const PreviewFrameKey& key, const Bitmap& picture) {
    const size_t size = bytes(picture);
    const std::lock_guard guard(lock_);
    if (size > byteLimit_ || picture.empty()) {
        return;
    }
    if (const auto found = entries_.find(key); found != entries_.end()) {
        byteCount_ -= bytes(found->second.picture);
        uses_.erase(found->second.use);
        entries_.erase(found);
    }
    while (byteCount_ + size > byteLimit_ && !uses_.empty()) {
        const auto oldest = entries_.find(uses_.back());
        byteCount_ -= bytes(oldest->second.picture);
        entries_.erase(oldest);
        uses_.pop_back();
    }
    uses_.push_front(key);
    entries_.emplace(key, Entry{picture, uses_.begin()});
    byteCount_ += size;
}

void PreviewFrameCache::clear() {
    const std::lock_guard guard(lock_);
    entries_.clear();
    uses_.clear();
    byteCount_ = 0;
}

PreviewFrameCacheStatistics PreviewFrameCache::statistics() const {
    const std::lock_guard guard(lock_);
    return {entries_.size(), byteCount_, byteLimit_, hits_, misses_};
}

} // namespace orvelle
