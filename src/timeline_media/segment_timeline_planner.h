#pragma once

// Lays a take's media segments under an edit's clips: for each clip in order, the parts of
// each segment it covers, placed end to end in edit time at the clip's speed. Where a
// segment's file is shorter than the take says, it gives what it has and the edit time
// after it stays empty. Pure; any thread.

#include "timeline/timeline_state.h"
#include "timeline_media/media_composition.h"

#include <algorithm>
#include <vector>

namespace orvelle {

// A run of media on the take's clock, in seconds.
template <class Media>
struct SegmentTimelineSource {
    Media media;
    double programStart = 0;
    double programEnd = 0;
    double mediaStart = 0;
    double mediaDuration = 0;
};

template <class Media>
struct SegmentTimelineInsertion {
    TimelineClip clip;
    Media media;
    MediaTimeRange timelineSourceRange; // take time
    MediaTimeRange sourceRange;         // the media's own time
    MediaTimeRange editTimeRange;       // edit time
    int mediaIndex = 0;                 // the segment's index
    MediaTimeRange mediaBounds;         // the segment's media range
};

namespace SegmentTimelinePlanner {

// Overlaps and lengths not above this are nothing.
inline constexpr double kMinimumLength = 0.001;

// One insertion's instants in seconds, before they become ticks.
struct PlannedSpan {
    int segment = 0; // index of the segment it plays
    double speed = 1;
    double takeStart = 0;
    double mediaStart = 0;
    double length = 0; // seconds of media
    double editStart = 0;
    double editEnd = 0;
};

struct SpanTicks {
    MediaTimeRange take;
    MediaTimeRange media;
    MediaTimeRange edit;
};

// The ticks of spans in edit order. Rounding a start and a length separately would let
// two joined insertions overlap or part by a tick (80 samples played twice or dropped), so
// edit ranges are rounded at both ends, and a span that starts where the one before it ends
// (within half a tick) starts on exactly that tick; where it also goes on in the same media
// at the same speed, its media starts exactly where the previous one's ended. At speed 1
// the media lasts exactly as long as the edit range, so that it plays at exactly speed 1.
std::vector<SpanTicks> spanTicks(const std::vector<PlannedSpan>& spans);

template <class Media>
std::vector<SegmentTimelineInsertion<Media>>
mediaInsertions(const std::vector<TimelineClip>& clips,
                const std::vector<SegmentTimelineSource<Media>>& segments) {
    std::vector<PlannedSpan> spans;
    std::vector<const TimelineClip*> spanClips;
    double cursor = 0;
    for (const auto& clip : clips) {
        const double speed = clip.sanitisedSpeed();
        for (size_t index = 0; index < segments.size(); ++index) {
            const auto& segment = segments[index];
            const double lo = std::max(segment.programStart, clip.start.seconds);
            const double hi = std::min(segment.programEnd, clip.end.seconds);
            double length = hi - lo;
            if (!(length > kMinimumLength)) {
                continue;
            }
            const double mediaOffset = lo - segment.programStart + segment.mediaStart;
            const double available = segment.mediaStart + segment.mediaDuration - mediaOffset;
            const bool shortened = available < length;
            length = std::min(length, available);
            if (!(length > kMinimumLength)) {
                continue;
            }
            // The end as the next clip's or segment's start is computed, so that the two
            // are the same number where they touch.
            const double end = shortened ? lo + length : hi;
            spans.push_back({static_cast<int>(index), speed, lo, mediaOffset, length,
                             cursor + (lo - clip.start.seconds) / speed,
                             cursor + (end - clip.start.seconds) / speed});
            spanClips.push_back(&clip);
        }
        cursor += std::max(clip.end.seconds - clip.start.seconds, 0.0) / speed;
    }
    std::vector<size_t> order(spans.size());
    for (size_t i = 0; i < order.size(); ++i) {
        order[i] = i;
    }
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return spans[a].editStart < spans[b].editStart; });
    std::vector<PlannedSpan> ordered;
    ordered.reserve(spans.size());
    for (const size_t i : order) {
        ordered.push_back(spans[i]);
    }
    const auto ticks = spanTicks(ordered);
    std::vector<SegmentTimelineInsertion<Media>> insertions;
    insertions.reserve(ordered.size());
    for (size_t k = 0; k < ordered.size(); ++k) {
        const auto& segment = segments[static_cast<size_t>(ordered[k].segment)];
        insertions.push_back(
            {*spanClips[order[k]], segment.media, ticks[k].take, ticks[k].media, ticks[k].edit,
             ordered[k].segment,
             MediaTimeRange::fromSeconds(segment.mediaStart, segment.mediaDuration)});
    }
    return insertions;
}

} // namespace SegmentTimelinePlanner

} // namespace orvelle
