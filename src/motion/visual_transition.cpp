#include "motion/visual_transition.h"

#include "motion/cursor_motion.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

namespace {

constexpr double kBackwardJump = -0.05;
constexpr double kForwardJump = 0.08;
// Source bounds are differences of decimal seconds: a cut of exactly 0.08 s must not
// glide because 4.08 - 4 is a hair above 0.08 in binary.
constexpr double kJumpTolerance = 1e-9;

FrameVisualState stateAt(const AnimationSettings& animation, double defaultZoomScale,
                         std::span<const CursorSample> cursorSamples,
                         std::span<const CursorSample> cameraSamples, double editTime,
                         double sourceTime) {
    const ZoomAnimationResolution zoom = ZoomAnimationEnvelope::resolvedState(
        EditTime(editTime), animation.zoomClips, defaultZoomScale, animation.screenStyle);
    return {CursorMotion::interpolatedPoint(sourceTime, cursorSamples),
            CursorMotion::interpolatedPoint(sourceTime, cameraSamples), zoom.amount, zoom.zoomScale,
            zoom.manualOffset};
}

double glideProgress(double elapsed, double duration) {
    return Easing::smoothstep(elapsed / std::max(duration, 0.0001));
}

} // namespace

namespace VisualTransitionBlending {

std::optional<CursorPoint> blendCursorPoint(const std::optional<CursorPoint>& from,
                                            const std::optional<CursorPoint>& to, double progress) {
    if (!from) {
        return progress > 0 ? to : std::nullopt;
    }
    if (!to) {
        return progress < 1 ? from : std::nullopt;
    }
    const double p = Easing::clamp01(progress);
    return CursorPoint{from->x + (to->x - from->x) * p, from->y + (to->y - from->y) * p,
                       progress < 0.5 ? from->visible : to->visible};
}

std::optional<ZoomManualOffset> blendManualZoomOffset(const std::optional<ZoomManualOffset>& from,
                                                      const std::optional<ZoomManualOffset>& to,
                                                      double progress) {
    if (from && to) {
        const double p = Easing::clamp01(progress);
        return ZoomManualOffset(from->x + (to->x - from->x) * p, from->y + (to->y - from->y) * p);
    }
    if (from) {
        return progress < 1 ? from : to;
    }
    return to;
}

FrameVisualState blendState(const FrameVisualState& from, const FrameVisualState& to,
                            double progress) {
    return {blendCursorPoint(from.cursorPoint, to.cursorPoint, progress),
            blendCursorPoint(from.cameraPoint, to.cameraPoint, progress),
            from.cameraAnimationAmount +
                (to.cameraAnimationAmount - from.cameraAnimationAmount) * progress,
            from.cameraZoomScale + (to.cameraZoomScale - from.cameraZoomScale) * progress,
            blendManualZoomOffset(from.manualZoomOffset, to.manualZoomOffset, progress)};
}

} // namespace VisualTransitionBlending

double visualTransitionDuration(double sourceJump) {
    return std::clamp(std::abs(sourceJump) * 0.08, 0.14, 0.35);
}

bool isVisualJump(double sourceDelta, double editDelta, double rate) {
    return sourceDelta < kBackwardJump ||
           (editDelta > 0 && sourceDelta > editDelta * rate + kForwardJump);
}

std::optional<PlaybackVisualTransition>
PlaybackVisualTransition::begin(double sourceDelta, double editTime,
                                const FrameVisualState& current) {
    if (!std::isfinite(editTime)) {
        return std::nullopt;
    }
    return PlaybackVisualTransition{editTime,
                                    visualTransitionDuration(sourceDelta),
                                    current.cursorPoint,
                                    current.cameraPoint,
                                    current.cameraAnimationAmount,
                                    current.cameraZoomScale,
                                    current.manualZoomOffset};
}

FrameVisualState PlaybackVisualTransition::startState() const {
    return {startCursorPoint, startCameraPoint, startCameraAnimationAmount, startCameraZoomScale,
            startManualZoomOffset};
}

std::optional<FrameVisualState>
PlaybackVisualTransition::apply(double editTime, const FrameVisualState& target) const {
    const double elapsed = editTime - startEditTime;
    if (elapsed >= duration) {
        return std::nullopt;
    }
    return VisualTransitionBlending::blendState(startState(), target,
                                                glideProgress(elapsed, duration));
}

RenderVisualTransitionStore::RenderVisualTransitionStore(const EditorProjectState& project,
                                                         std::vector<CursorSample> cursorSamples,
                                                         std::vector<CursorSample> cameraSamples,
                                                         const ResolvedEditTimeline& editTimeline)
    : animation_(project.animation), defaultZoomScale_(project.screen.zoomScale),
      cursorSamples_(std::move(cursorSamples)), cameraSamples_(std::move(cameraSamples)),
      transitions_(makeTransitions(project, cursorSamples_, cameraSamples_, editTimeline)) {}

std::vector<RenderVisualTransition> RenderVisualTransitionStore::makeTransitions(
    const EditorProjectState& project, std::span<const CursorSample> cursorSamples,
    std::span<const CursorSample> cameraSamples, const ResolvedEditTimeline& editTimeline) {
    std::vector<RenderVisualTransition> transitions;
    std::vector<TimelineClipLayout> layouts = editTimeline.clipLayouts();
    if (layouts.size() < 2) {
        return transitions;
    }
    std::stable_sort(layouts.begin(), layouts.end(), [](const auto& a, const auto& b) {
        return a.timelineStart < b.timelineStart;
    });
    for (size_t i = 1; i < layouts.size(); ++i) {
        const TimelineClipLayout& previous = layouts[i - 1];
        const TimelineClipLayout& next = layouts[i];
        const double jump = next.sourceStart.seconds - previous.sourceEnd.seconds;
        if (jump >= kBackwardJump - kJumpTolerance && jump <= kForwardJump + kJumpTolerance) {
            continue;
        }
        transitions.push_back(
            {next.timelineStart.seconds, visualTransitionDuration(jump),
             stateAt(project.animation, project.screen.zoomScale, cursorSamples, cameraSamples,
                     next.timelineStart.seconds, previous.sourceEnd.seconds)});
    }
    return transitions;
}

FrameVisualState RenderVisualTransitionStore::resolve(double editTime, double sourceTime) const {
    FrameVisualState target = stateAt(animation_, defaultZoomScale_, cursorSamples_, cameraSamples_,
                                      editTime, sourceTime);
    // The latest glide that started at or before the time is the only one that can run.
    const auto it = std::upper_bound(
        transitions_.begin(), transitions_.end(), editTime,
        [](double time, const RenderVisualTransition& t) { return time < t.startEditTime; });
    if (it == transitions_.begin()) {
        return target;
    }
    const RenderVisualTransition& transition = *(it - 1);
    const double elapsed = editTime - transition.startEditTime;
    if (elapsed < 0 || elapsed >= transition.duration) {
        return target;
    }
    return VisualTransitionBlending::blendState(transition.startState, target,
                                                glideProgress(elapsed, transition.duration));
}

} // namespace orvelle
