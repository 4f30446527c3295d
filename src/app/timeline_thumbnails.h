#pragma once

// Small pictures of the screen movie along its source time, for the video lane: decoded
// in order on a queue of their own ("com.orvelle.timeline.thumbnails") at a step that
// gives about two hundred over the take, and handed to the main thread in batches as they
// come. Main thread only, apart from that queue.

#include "timeline_media/timeline_composition_source.h"

#include <QImage>
#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>

namespace orvelle {

class SerialQueue;

class TimelineThumbnails {
public:
    static constexpr int kHeight = 90; // pixels

    TimelineThumbnails();
    ~TimelineThumbnails();
    TimelineThumbnails(const TimelineThumbnails&) = delete;
    TimelineThumbnails& operator=(const TimelineThumbnails&) = delete;

    // Starts over for the screen segments of a take (source time is the take's clock);
    // what was under way before is dropped.
    void load(std::vector<TimelineCompositionVideoSegment> segments, double duration);
    // Called on the main thread after each batch.
    void setOnChange(std::function<void()> onChange) { onChange_ = std::move(onChange); }

    // The picture nearest to a source time at or before it; null before the first.
    const QImage* thumbnail(double sourceTime) const;
    double step() const { return step_; }
    size_t count() const { return images_.size(); }
    bool isComplete() const { return complete_; }
    // Width over height of the pictures, 16/9 until the first arrives.
    double aspectRatio() const { return aspectRatio_; }

private:
    std::unique_ptr<SerialQueue> queue_;
    std::shared_ptr<std::atomic<uint64_t>> generation_;
    std::map<int, QImage> images_; // by step index
    double step_ = 1;
    double aspectRatio_ = 16.0 / 9.0;
    bool complete_ = false;
    std::function<void()> onChange_;
};

} // namespace orvelle
