#include "app/timeline_thumbnails.h"

#include "app/main_thread_executor.h"
#include "core/executor.h"
#include "core/log.h"
#include "platform/media/video_decoder.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace orvelle {

namespace {

constexpr double kWantedCount = 200;
constexpr size_t kBatch = 12;

} // namespace

TimelineThumbnails::TimelineThumbnails()
    : queue_(std::make_unique<SerialQueue>("com.orvelle.timeline.thumbnails")),
      generation_(std::make_shared<std::atomic<uint64_t>>(0)) {}

TimelineThumbnails::~TimelineThumbnails() {
    ++*generation_; // the task under way stops at its next picture
    queue_.reset();
}

void TimelineThumbnails::load(std::vector<TimelineCompositionVideoSegment> segments,
                              double duration) {
    const uint64_t generation = ++*generation_;
    images_.clear();
    complete_ = false;
    step_ = std::clamp(duration / kWantedCount, 0.25, 10.0);
    const double step = step_;
    auto generations = generation_;
    auto delivered =
        std::make_shared<std::function<void(std::vector<std::pair<int, QImage>>, bool)>>(
            [this, generation, generations](std::vector<std::pair<int, QImage>> batch, bool last) {
                if (generations->load() != generation) {
                    return;
                }
                for (auto& [index, image] : batch) {
                    aspectRatio_ = static_cast<double>(image.width()) / image.height();
                    images_[index] = std::move(image);
                }
                complete_ = last;
                if (onChange_) {
                    onChange_();
                }
            });
    queue_->post([segments = std::move(segments), duration, step, generation, generations,
                  delivered] {
        const auto stale = [&] { return generations->load() != generation; };
        const auto send = [&](std::vector<std::pair<int, QImage>> batch, bool last) {
            mainExecutor().post(
                [delivered, batch = std::move(batch), last, generations, generation]() mutable {
                    if (generations->load() == generation) {
                        (*delivered)(std::move(batch), last);
                    }
                });
        };
        std::vector<std::pair<int, QImage>> batch;
        const int count = std::max(1, static_cast<int>(std::ceil(duration / step)));
        int index = 0;
        for (const auto& segment : segments) {
            const VideoStreamInfo& video = segment.videoTrack;
            if (stale() || video.codedWidth <= 0 || video.codedHeight <= 0) {
                continue;
            }
            try {
                VideoDecoderOptions options;
                options.threadCount = 2;
                options.outputHeight = kHeight;
                options.outputWidth = std::max(
                    2, static_cast<int>(std::lround(kHeight * video.codedWidth /
                                                    static_cast<double>(video.codedHeight))) /
                           2 * 2);
                VideoDecoder decoder(segment.url, options);
                VideoFrame frame;
                const double segmentEnd = segment.programStart + segment.duration;
                for (index = std::max(
                         index, static_cast<int>(std::ceil(segment.programStart / step - 1e-9)));
                     index < count && index * step < segmentEnd && !stale(); ++index) {
                    const double mediaTime =
                        segment.mediaStart + index * step - segment.programStart;
                    if (!decoder.frameAt(mediaTime, frame)) {
                        break;
                    }
                    QImage image(frame.row(0, 0), frame.width, frame.height, frame.strides[0],
                                 QImage::Format_ARGB32_Premultiplied);
                    batch.emplace_back(index, image.copy());
                    if (batch.size() >= kBatch) {
                        send(std::exchange(batch, {}), false);
                    }
                }
            } catch (const std::exception& error) {
                logWarning("app", "no timeline pictures for ", segment.url.string(), ": ",
                           error.what());
            }
        }
        if (!stale()) {
            send(std::move(batch), true);
        }
    });
}

const QImage* TimelineThumbnails::thumbnail(double sourceTime) const {
    if (images_.empty()) {
        return nullptr;
    }
    const int index = static_cast<int>(std::floor(std::max(0.0, sourceTime) / step_ + 1e-6));
    auto found = images_.upper_bound(index);
    if (found == images_.begin()) {
        return &found->second;
    }
    --found;
    return &found->second;
}

} // namespace orvelle
