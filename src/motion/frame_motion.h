#pragma once

// The speed of the camera and of the zoom, smoothed over frames: what drives the screen's
// motion blur. Motion is measured per 60th of a second whatever the frame rate, so that
// blur does not depend on it. A running state: one owner, not thread-safe.

#include "motion/motion_blur_vector.h"
#include "project/cursor_recording.h"

#include <mutex>
#include <optional>

namespace orvelle {

class FrameMotionAccumulator {
public:
    // Feeds the frame at an edit time with the camera's focus and the effective zoom scale.
    // A step back, a step of 0.5 s or more, or a frame that does not continue the last one
    // (a scrub) resets the motion to zero.
    void update(double editTime, const std::optional<CursorPoint>& cameraPoint,
                double effectiveZoomScale, bool continuesPreviousFrame = true);

    const MotionBlurVector& cameraFrameMotion() const { return cameraFrameMotion_; }
    double zoomFrameMotion() const { return zoomFrameMotion_; }

private:
    std::optional<double> previousEditTime_;
    std::optional<CursorPoint> previousCameraPoint_;
    double previousEffectiveZoomScale_ = 1;
    MotionBlurVector cameraFrameMotion_;
    double zoomFrameMotion_ = 0;
};

// The export's accumulator: frames may be asked for from more than one thread, and the
// motion is a running state, so every update happens under the lock. Frames are expected
// in order; one out of order only resets the motion when its step is not within (0, 0.5) s.
class FrameMotionStore {
public:
    struct Motion {
        MotionBlurVector camera;
        double zoom = 0;
    };

    // Thread-safe. A frame that does not continue the last one (the first after a seek)
    // has no motion.
    Motion update(double editTime, const std::optional<CursorPoint>& cameraPoint,
                  double effectiveZoomScale, bool continuesPreviousFrame = true);

private:
    std::mutex lock_;
    FrameMotionAccumulator accumulator_; // guarded by lock_
};

} // namespace orvelle
