#include "motion/zoom_activity_planner.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

namespace ZoomActivityPlanner {

std::vector<double> movementTimes(const std::vector<CursorSample>& samples) {
    std::vector<double> times;
    size_t anchor = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        const CursorSample& sample = samples[i];
        if (!sample.visible || i <= anchor) {
            continue;
        }
        const double t = sample.time;
        // The oldest visible sample inside the window; never measured across a stretch
        // where the pointer was hidden.
        while (anchor < i &&
               (samples[anchor].time < t - kMovementLookBack || !samples[anchor].visible)) {
            ++anchor;
        }
        if (anchor == i) {
            continue;
        }
        const double distance =
            std::hypot(sample.x - samples[anchor].x, sample.y - samples[anchor].y);
        if (distance >= kMovementDistance) {
            times.push_back(t);
        }
    }
    return times;
}

std::vector<Burst> bursts(const std::vector<double>& movementTimes,
                          const std::vector<double>& clickTimes) {
    struct Event {
        double time;
        bool isClick;
    };
    std::vector<Event> events;
    events.reserve(movementTimes.size() + clickTimes.size());
    for (const double time : movementTimes) {
        events.push_back({time, false});
    }
    for (const double time : clickTimes) {
        events.push_back({time, true});
    }
    // Stable and by time alone: at equal times movement stays ahead of clicks.
    std::stable_sort(events.begin(), events.end(),
                     [](const Event& a, const Event& b) { return a.time < b.time; });
    std::vector<Burst> result;
    for (const auto& event : events) {
        if (!result.empty() && event.time - result.back().end <= kBurstGap) {
            Burst& last = result.back();
            last.end = std::max(last.end, event.time);
            last.hasClick = last.hasClick || event.isClick;
        } else {
            result.push_back({event.time, event.time, event.isClick});
        }
    }
    std::erase_if(result, [](const Burst& burst) {
        return !burst.hasClick && burst.end - burst.start < kMinimumBurstLength;
    });
    return result;
}

std::vector<Span> spans(const std::vector<CursorSample>& samples,
                        const std::vector<CursorClick>& clicks, double duration) {
    if (!(duration > 0)) {
        return {};
    }
    const auto inside = [duration](double t) { return t >= 0 && t <= duration; };
    std::vector<double> movement = movementTimes(samples);
    std::erase_if(movement, [&](double t) { return !inside(t); });
    std::vector<double> clickTimes;
    for (const auto& click : clicks) {
        if (inside(click.time)) {
            clickTimes.push_back(click.time);
        }
    }
    std::sort(clickTimes.begin(), clickTimes.end());

    std::vector<Span> merged;
    for (const auto& burst : bursts(movement, clickTimes)) {
        double start = burst.start - kSpanLead;
        double end = burst.end + kSpanTail;
        // Widened before clamping, so a span at the very start ends up short rather than
        // pushed right.
        if (const double shortfall = start - end + kMinimumSpan; shortfall > 0) {
            start -= shortfall * 0.5;
            end += shortfall * 0.5;
        }
        const Span span{std::max(start, 0.0), std::min(end, duration)};
        if (!merged.empty() && span.start - merged.back().end < kMergeGap) {
            merged.back().end = std::max(merged.back().end, span.end);
        } else {
            merged.push_back(span);
        }
    }
    return merged;
}

} // namespace ZoomActivityPlanner

namespace TimelineEngine {

std::vector<AnimationClip> defaultAnimationClips(EditTime duration, double defaultZoomScale,
                                                 const std::vector<CursorSample>& cursorSamples,
                                                 const std::vector<CursorClick>& cursorClicks) {
    using namespace ZoomActivityPlanner;
    const auto makeClip = [defaultZoomScale](double start, double end) {
        AnimationClip clip;
        clip.id = Uuid::random();
        clip.start = EditTime(start);
        clip.end = EditTime(end);
        clip.zoomScale = defaultZoomScale;
        return clip;
    };
    std::vector<AnimationClip> clips;
    if (cursorSamples.empty() && cursorClicks.empty()) {
        // Only a take with no pointer data at all: one with samples but no activity gets
        // no zoom.
        const double end = duration.seconds - kFallbackInset;
        if (end - kFallbackInset >= kMinimumClip) {
            clips.push_back(makeClip(kFallbackInset, end));
        }
        return clips;
    }
    for (const auto& span : spans(cursorSamples, cursorClicks, duration.seconds)) {
        if (span.end - span.start >= kMinimumClip) {
            clips.push_back(makeClip(span.start, span.end));
        }
    }
    return clips;
}

} // namespace TimelineEngine

} // namespace orvelle
