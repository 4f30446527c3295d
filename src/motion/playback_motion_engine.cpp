#include "motion/playback_motion_engine.h"

#include <algorithm>

namespace orvelle {

void PlaybackMotionEngine::setRecording(const CursorRecording& recording) {
    baseCursorSamples = CursorMotion::suppressTransientBoundaryExits(
        recording.samples, CursorMotion::kBoundaryExitMaxDuration);
    cursorClicks = recording.clicks;
    nextClickIndex = 0;
    lastCursorTime.reset();
}

void PlaybackMotionEngine::configure(ScreenAnimationStyle style) {
    const auto& constants = screenAnimationConstants(style);
    cursorSpring = constants.cursorSpring;
    cameraSpring = constants.cameraSpring;
}

void PlaybackMotionEngine::rebuildPreparedSamples(
    const CameraMotionPlanner::PlanningFunction& zoomScaleAt,
    const CameraMotionPlanner::PlanningFunction& centerBiasAt) {
    if (baseCursorSamples.empty()) {
        preparedCursorSamples.clear();
        filteredCursorSamples.clear();
        cameraSamples.clear();
        cursorTiltTrack = CursorTiltTrack::empty();
        return;
    }
    preparedCursorSamples = baseCursorSamples;
    rebuildFilteredSamples();
    rebuildCameraSamples(zoomScaleAt, centerBiasAt);
}

void PlaybackMotionEngine::rebuildFilteredSamples() {
    if (preparedCursorSamples.empty()) {
        filteredCursorSamples.clear();
    } else if (cursorSpringEnabled) {
        filteredCursorSamples =
            CursorMotion::springFilteredSamples(preparedCursorSamples, cursorSpring);
    } else {
        filteredCursorSamples = preparedCursorSamples;
    }
    cursorTiltTrack = CursorTilt::track(filteredCursorSamples);
}

void PlaybackMotionEngine::rebuildCameraSamples(
    const CameraMotionPlanner::PlanningFunction& zoomScaleAt,
    const CameraMotionPlanner::PlanningFunction& centerBiasAt) {
    cameraSamples = CameraMotionPlanner::cameraSamples(preparedCursorSamples, zoomScaleAt,
                                                       centerBiasAt, cameraSpring);
}

PlaybackMotionEngine::FrameMotion
PlaybackMotionEngine::updateVelocities(double time, bool isForwardTick,
                                       const std::optional<CursorPoint>& cameraPoint,
                                       double effectiveZoomScale) {
    accumulator_.update(time, cameraPoint, effectiveZoomScale, isForwardTick);
    frameMotion = {accumulator_.cameraFrameMotion(), accumulator_.zoomFrameMotion()};
    return frameMotion;
}

void PlaybackMotionEngine::resetClickIndex(double around) {
    const auto it =
        std::upper_bound(cursorClicks.begin(), cursorClicks.end(), around,
                         [](double time, const CursorClick& click) { return time < click.time; });
    nextClickIndex = static_cast<size_t>(it - cursorClicks.begin());
}

int PlaybackMotionEngine::updateClicks(double sourceTime, bool isPlaying,
                                       std::span<const TimelineClip> clips) {
    if (!isPlaying || !lastCursorTime || sourceTime < *lastCursorTime) {
        resetClickIndex(sourceTime);
        lastCursorTime = sourceTime;
        return 0;
    }
    int counted = 0;
    while (nextClickIndex < cursorClicks.size() &&
           cursorClicks[nextClickIndex].time <= sourceTime) {
        const double time = cursorClicks[nextClickIndex].time;
        const bool insideClip = std::any_of(clips.begin(), clips.end(), [&](const auto& clip) {
            return clip.start.seconds <= time && time < clip.end.seconds;
        });
        if (time > *lastCursorTime && insideClip) {
            ++counted;
        }
        ++nextClickIndex;
    }
    lastCursorTime = sourceTime;
    return counted;
}

std::optional<CursorPoint> PlaybackMotionEngine::cursorPoint(double sourceTime) const {
    return CursorMotion::interpolatedPoint(sourceTime, filteredCursorSamples);
}

std::optional<CursorPoint> PlaybackMotionEngine::cameraPoint(double sourceTime) const {
    return CursorMotion::interpolatedPoint(sourceTime, cameraSamples);
}

MotionBlurVector PlaybackMotionEngine::cursorFrameMotion(double sourceTime) const {
    return CursorMotion::frameMotion(sourceTime, filteredCursorSamples);
}

double PlaybackMotionEngine::cursorTiltAngle(double sourceTime) const {
    return cursorTiltTrack.angle(sourceTime);
}

} // namespace orvelle
