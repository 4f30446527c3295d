#pragma once

// The preview's motion state for the open document: the pointer and camera tracks of the
// take, rebuilt when the project changes, the smoothed frame motion of the camera and the
// zoom, and the index of the next click to sound. Lives on the main thread.

#include "motion/camera_motion_planner.h"
#include "motion/cursor_motion.h"
#include "motion/frame_motion.h"
#include "motion/zoom_animation.h"
#include "timeline/timeline_state.h"

#include <optional>
#include <span>
#include <vector>

namespace orvelle {

class PlaybackMotionEngine {
public:
    struct FrameMotion {
        MotionBlurVector camera;
        double zoom = 0;

        friend bool operator==(const FrameMotion&, const FrameMotion&) = default;
    };

    bool cursorSpringEnabled = true;
    // Until the playback model configures the engine for the project's style.
    SpringParameters cursorSpring{120, 16, 1.0};
    SpringParameters cameraSpring{70, 24, 1.2};

    std::vector<CursorSample> baseCursorSamples;
    std::vector<CursorSample> preparedCursorSamples;
    std::vector<CursorSample> filteredCursorSamples;
    std::vector<CursorSample> cameraSamples;
    CursorTiltTrack cursorTiltTrack;
    std::vector<CursorClick> cursorClicks;
    size_t nextClickIndex = 0;
    std::optional<double> lastCursorTime;
    FrameMotion frameMotion;

    // Takes a take's pointer data: the base track bridges brief exits across the frame's
    // edge. The tracks are built by the next rebuildPreparedSamples.
    void setRecording(const CursorRecording& recording);
    // The springs of a style.
    void configure(ScreenAnimationStyle style);

    // Every track from the base samples; with none, every track empty.
    void rebuildPreparedSamples(const CameraMotionPlanner::PlanningFunction& zoomScaleAt,
                                const CameraMotionPlanner::PlanningFunction& centerBiasAt);
    // The drawn pointer and its tilt from the prepared track.
    void rebuildFilteredSamples();
    // The camera plan from the prepared track.
    void rebuildCameraSamples(const CameraMotionPlanner::PlanningFunction& zoomScaleAt,
                              const CameraMotionPlanner::PlanningFunction& centerBiasAt);

    // Feeds one tick. A tick that does not run forwards (a scrub, a seek) shows no motion.
    FrameMotion updateVelocities(double time, bool isForwardTick,
                                 const std::optional<CursorPoint>& cameraPoint,
                                 double effectiveZoomScale);

    // The next click becomes the first one after the time.
    void resetClickIndex(double around);
    // Advances over the clicks up to a source time and returns how many should sound and
    // press: those after the last tick that lie inside a timeline clip. Paused playback or
    // a step backwards resets the index instead and counts none.
    int updateClicks(double sourceTime, bool isPlaying, std::span<const TimelineClip> clips);

    // What a frame at a source time shows.
    std::optional<CursorPoint> cursorPoint(double sourceTime) const;
    std::optional<CursorPoint> cameraPoint(double sourceTime) const;
    MotionBlurVector cursorFrameMotion(double sourceTime) const;
    double cursorTiltAngle(double sourceTime) const;

private:
    FrameMotionAccumulator accumulator_;
};

} // namespace orvelle
