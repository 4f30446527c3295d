#include "composition/motion_blur_math.h"

#include "motion/zoom_animation.h"

#include <algorithm>

namespace orvelle::MotionBlurMath {

double linearBlurLength(double frameDisplacementPixels, double shutterAngle, double strength) {
    const double shutter = Easing::clamp01(shutterAngle / 360);
    return std::max(frameDisplacementPixels * shutter * Easing::clamp01(strength), 0.0);
}

} // namespace orvelle::MotionBlurMath
