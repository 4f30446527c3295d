#pragma once

// The zooms of a fresh timeline, worked out from the recorded pointer: zoom in wherever
// the user was visibly doing something, stay wide where nothing happened. Pure arithmetic
// on the pointer data; no state, any thread.

#include "project/cursor_recording.h"
#include "timeline/animation_clip.h"

#include <vector>

namespace orvelle {

namespace ZoomActivityPlanner {

// A stretch of activity, in seconds on the timeline.
struct Span {
    double start = 0;
    double end = 0;

    friend bool operator==(const Span&, const Span&) = default;
};

// Events close enough together to be one piece of activity.
struct Burst {
    double start = 0;
    double end = 0;
    bool hasClick = false;

    friend bool operator==(const Burst&, const Burst&) = default;
};

// The window over which displacement is measured, and how far the pointer must travel in
// it (as a fraction of the capture frame) to count as moving.
inline constexpr double kMovementLookBack = 0.3;
inline constexpr double kMovementDistance = 0.012;
// Events at most this far apart belong to one burst.
inline constexpr double kBurstGap = 3.0;
// A burst without a click must last at least this long.
inline constexpr double kMinimumBurstLength = 0.2;
// A zoom starts this long before its burst and ends this long after it.
inline constexpr double kSpanLead = 0.6;
inline constexpr double kSpanTail = 1.2;
// A shorter span is widened evenly about its middle to this length.
inline constexpr double kMinimumSpan = 2.0;
// Spans closer than this are joined.
inline constexpr double kMergeGap = 1.5;
// A span shorter than this makes no clip.
inline constexpr double kMinimumClip = 0.15;
// Head and tail left unzoomed when a take has no pointer data at all.
inline constexpr double kFallbackInset = 2.0;

// The times at which the pointer has travelled far enough since the oldest visible sample
// of the look-back window. One linear pass: the window's anchor only moves forward.
std::vector<double> movementTimes(const std::vector<CursorSample>& samples);

// Movement and clicks grouped into bursts; a burst survives if it holds a click or lasts
// long enough. The click times are expected sorted.
std::vector<Burst> bursts(const std::vector<double>& movementTimes,
                          const std::vector<double>& clickTimes);

// The stretches worth zooming into: sorted, not overlapping, inside [0, duration].
std::vector<Span> spans(const std::vector<CursorSample>& samples,
                        const std::vector<CursorClick>& clicks, double duration);

} // namespace ZoomActivityPlanner

namespace TimelineEngine {

// The first zoom clips of a take: one per activity span at the default scale, or, for a
// take without any pointer data, one over all but the first and last two seconds.
std::vector<AnimationClip> defaultAnimationClips(EditTime duration, double defaultZoomScale,
                                                 const std::vector<CursorSample>& cursorSamples,
                                                 const std::vector<CursorClick>& cursorClicks);

} // namespace TimelineEngine

} // namespace orvelle
