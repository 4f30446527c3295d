#pragma once

// Clips, cuts and zooms made in one line for the tests of the timeline and of what is built
// on it.

#include "timeline/animation_clip.h"
#include "timeline/timeline_state.h"

namespace orvelle::testing {

// A source clip [start, end] played at `speed`, with a fresh id.
inline TimelineClip clip(double start, double end, double speed = 1.0) {
    return {
        .id = Uuid::random(), .start = SourceTime(start), .end = SourceTime(end), .speed = speed};
}

// A deleted stretch [start, end] of the source, with a fresh id.
inline DeletedTimelineGap gap(double start, double end) {
    return {Uuid::random(), SourceTime(start), SourceTime(end)};
}

// A zoom [start, end] of the edit to `scale`, with a fresh id.
inline AnimationClip zoomClip(double start, double end, double scale = 2.0) {
    return {
        .id = Uuid::random(), .start = EditTime(start), .end = EditTime(end), .zoomScale = scale};
}

} // namespace orvelle::testing
