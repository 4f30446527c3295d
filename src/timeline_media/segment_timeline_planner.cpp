#include "timeline_media/segment_timeline_planner.h"

#include <cmath>

namespace orvelle::SegmentTimelinePlanner {

std::vector<SpanTicks> spanTicks(const std::vector<PlannedSpan>& spans) {
    constexpr double halfTick = 0.5 / static_cast<double>(kMediaTimescale);
    std::vector<SpanTicks> ticks;
    ticks.reserve(spans.size());
    for (size_t i = 0; i < spans.size(); ++i) {
        const PlannedSpan& span = spans[i];
        int64_t editStart = mediaTicks(span.editStart);
        int64_t mediaStart = mediaTicks(span.mediaStart);
        int64_t takeStart = mediaTicks(span.takeStart);
        if (i > 0 && std::fabs(span.editStart - spans[i - 1].editEnd) < halfTick) {
            const PlannedSpan& before = spans[i - 1];
            const SpanTicks& previous = ticks.back();
            editStart = previous.edit.end();
            const bool continues =
                span.segment == before.segment && span.speed == before.speed &&
                std::fabs(span.mediaStart - (before.mediaStart + before.length)) < halfTick;
            if (continues) {
                mediaStart = previous.media.end();
                takeStart = previous.take.end();
            }
        }
        const int64_t editDuration = std::max<int64_t>(mediaTicks(span.editEnd) - editStart, 0);
        const int64_t mediaDuration =
            span.speed == 1.0
                ? editDuration
                : std::max<int64_t>(mediaTicks(span.mediaStart + span.length) - mediaStart, 0);
        ticks.push_back(
            {{takeStart, mediaDuration}, {mediaStart, mediaDuration}, {editStart, editDuration}});
    }
    return ticks;
}

} // namespace orvelle::SegmentTimelinePlanner
