// Pointer data files: reading never crashes, what was read round-trips, and the zoom
// planner turns any of it into sorted, separate spans inside the timeline.

#include "fuzz/fuzz_support.h"
#include "motion/zoom_activity_planner.h"
#include "project/cursor_recording.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace orvelle;
    const auto decoded = fuzzing::decode<CursorRecording>(data, size);
    if (!decoded) {
        return 0;
    }
    const CursorRecording& recording = *decoded;
    fuzzing::expectRoundTrip(recording);
    double duration = 0;
    for (const auto& sample : recording.samples) {
        duration = std::max(duration, sample.time);
    }
    const auto spans = ZoomActivityPlanner::spans(recording.samples, recording.clicks, duration);
    for (size_t i = 0; i < spans.size(); ++i) {
        fuzzing::check(spans[i].start >= 0 && spans[i].end <= duration,
                       "a span leaves the timeline");
        fuzzing::check(i == 0 ||
                           spans[i].start - spans[i - 1].end >= ZoomActivityPlanner::kMergeGap,
                       "spans overlap or touch");
    }
    TimelineEngine::defaultAnimationClips(EditTime(duration), 1.5, recording.samples,
                                          recording.clicks);
    return 0;
}
