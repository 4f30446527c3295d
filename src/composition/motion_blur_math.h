#pragma once

// How long a streak a movement leaves in one exposure.

namespace orvelle::MotionBlurMath {

// The displacement over a frame times the share of the frame the shutter is open
// (shutterAngle / 360, held to [0, 1]) times the strength (held to [0, 1]); never negative.
double linearBlurLength(double frameDisplacementPixels, double shutterAngle, double strength);

} // namespace orvelle::MotionBlurMath
