#pragma once

// Preview pictures already drawn, so that scrubbing back over them answers without decoding
// or drawing. A picture is a pure function of the project's value, the preview's size and
// the instant, as long as it shows no motion (a still frame: after a seek, while paused,
// while scrubbing), and only such pictures are kept. The least recently used go first once
// the pictures together pass the byte limit. Thread-safe.

#include "platform/image/bitmap.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <mutex>
#include <optional>

namespace orvelle {

struct PreviewFrameKey {
    uint64_t snapshotKey = 0;
    int width = 0;
    int height = 0;
    int frameRate = 0;
    int64_t frameIndex = 0; // the instant: frameIndex / frameRate edit seconds

    friend auto operator<=>(const PreviewFrameKey&, const PreviewFrameKey&) = default;
};

struct PreviewFrameCacheStatistics {
    size_t frameCount = 0;
    size_t byteCount = 0;
    size_t byteLimit = 0;
    uint64_t hits = 0;
    uint64_t misses = 0;
};

class PreviewFrameCache {
public:
    static constexpr size_t kDefaultByteLimit = size_t{192} << 20;

    explicit PreviewFrameCache(size_t byteLimit = kDefaultByteLimit);

    // The picture, which counts as just used; absent when it is not kept.
    std::optional<Bitmap> find(const PreviewFrameKey& key);
    // Keeps a picture (it must not change afterwards); a picture larger than the whole
    // limit is not kept.
    void insert(const PreviewFrameKey& key, const Bitmap& picture);
    void clear();

    PreviewFrameCacheStatistics statistics() const;

private:
    struct Entry {
        Bitmap picture;
        std::list<PreviewFrameKey>::iterator use;
    };
    static size_t bytes(const Bitmap& picture);

    mutable std::mutex lock_;
    size_t byteLimit_;
    size_t byteCount_ = 0;
    uint64_t hits_ = 0;
    uint64_t misses_ = 0;
    std::map<PreviewFrameKey, Entry> entries_;
    std::list<PreviewFrameKey> uses_; // most recent first
};

} // namespace orvelle
