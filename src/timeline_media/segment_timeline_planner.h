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

template <class Media>
std::vector<SegmentTimelineInsertion<Media>>
mediaInsertions(const std::vector<TimelineClip>& clips,
                const std::vector<SegmentTimelineSource<Media>>& segments) {
    std::vector<SegmentTimelineInsertion<Media>> insertions;
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
            length = std::min(length, available);
            if (!(length > kMinimumLength)) {
                continue;
            }
            const double editStart = cursor + (lo - clip.start.seconds) / speed;
            insertions.push_back(
                {clip, segment.media, MediaTimeRange::fromSeconds(lo, length),
                 MediaTimeRange::fromSeconds(mediaOffset, length),
                 MediaTimeRange::fromSeconds(editStart, length / speed), static_cast<int>(index),
                 MediaTimeRange::fromSeconds(segment.mediaStart, segment.mediaDuration)});
        }
        cursor += std::max(clip.end.seconds - clip.start.seconds, 0.0) / speed;
    }
    std::stable_sort(insertions.begin(), insertions.end(), [](const auto& a, const auto& b) {
        return a.editTimeRange.start < b.editTimeRange.start;
    });
    return insertions;
}

} // namespace SegmentTimelinePlanner

} // namespace orvelle
