#include "motion/frame_motion.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

namespace {

constexpr double kLongestStep = 0.5;
constexpr double kReference = 1.0 / 60.0;
// Motion builds up quickly and dies away slowly, so blur appears with a move and fades.
constexpr double kCameraAttack = 0.06;
constexpr double kCameraRelease = 0.22;
constexpr double kZoomAttack = 0.07;
constexpr double kZoomRelease = 0.24;

} // namespace

void FrameMotionAccumulator::update(double editTime, const std::optional<CursorPoint>& cameraPoint,
                                    double effectiveZoomScale, bool continuesPreviousFrame) {
    if (previousEditTime_) {
        const double dt = editTime - *previousEditTime_;
        if (!continuesPreviousFrame || !(dt > 0 && dt < kLongestStep)) {
            cameraFrameMotion_ = {};
            zoomFrameMotion_ = 0;
        } else {
            MotionBlurVector velocity;
            if (cameraPoint && previousCameraPoint_ && cameraPoint->visible &&
                previousCameraPoint_->visible) {
                velocity = {(cameraPoint->x - previousCameraPoint_->x) * kReference / dt,
                            (cameraPoint->y - previousCameraPoint_->y) * kReference / dt};
            }
            const double tau =
                velocity.length() > cameraFrameMotion_.length() ? kCameraAttack : kCameraRelease;
            const double blend = 1 - std::exp(-dt / tau);
            cameraFrameMotion_.dx += (velocity.dx - cameraFrameMotion_.dx) * blend;
            cameraFrameMotion_.dy += (velocity.dy - cameraFrameMotion_.dy) * blend;

            const double zoomSpeed =
                std::abs(effectiveZoomScale - previousEffectiveZoomScale_) * kReference / dt;
            const double zoomTau = zoomSpeed > zoomFrameMotion_ ? kZoomAttack : kZoomRelease;
            zoomFrameMotion_ += (zoomSpeed - zoomFrameMotion_) * (1 - std::exp(-dt / zoomTau));
            zoomFrameMotion_ = std::max(zoomFrameMotion_, 0.0);
        }
    }
    previousEditTime_ = editTime;
    previousCameraPoint_ = cameraPoint;
    previousEffectiveZoomScale_ = effectiveZoomScale;
}

FrameMotionStore::Motion FrameMotionStore::update(double editTime,
                                                  const std::optional<CursorPoint>& cameraPoint,
                                                  double effectiveZoomScale,
                                                  bool continuesPreviousFrame) {
    const std::lock_guard guard(lock_);
    accumulator_.update(editTime, cameraPoint, effectiveZoomScale, continuesPreviousFrame);
    return {accumulator_.cameraFrameMotion(), accumulator_.zoomFrameMotion()};
}

} // namespace orvelle
