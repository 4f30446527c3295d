#pragma once

// The recorded pointer turned into the pointer that is drawn: brief exits across the
// frame's edge bridged, spring-smoothed, leaning into horizontal movement. Pure functions
// over samples in time order; safe from any thread.

#include "motion/motion_blur_vector.h"
#include "motion/zoom_animation.h"
#include "project/cursor_recording.h"

#include <optional>
#include <span>
#include <vector>

namespace orvelle {

namespace CursorMotion {

// The longest exit across the frame's edge that is bridged by a straight glide.
inline constexpr double kBoundaryExitMaxDuration = 0.35;

// Replaces each stretch of hidden samples that leaves across the frame's edge and comes
// back within maxDuration by a straight glide between the visible points on either side,
// so that the pointer does not blink. Other stretches stay as recorded.
std::vector<CursorSample> suppressTransientBoundaryExits(std::span<const CursorSample> samples,
                                                         double maxDuration);

// A spring towards each sample, integrated in 240 Hz sub-steps so that the result does not
// depend on the sampling rate. A gap of more than 0.25 s or a hidden pointer restarts the
// spring at the sample: it never glides through hidden time. Emitted positions are held to
// [0, 1]; the spring's own state is not.
std::vector<CursorSample> springFilteredSamples(std::span<const CursorSample> samples,
                                                const SpringParameters& spring);

// The point at a time, linear between the bracketing samples and held at both ends;
// visible only when both neighbours are. Absent for no samples.
std::optional<CursorPoint> interpolatedPoint(double time, std::span<const CursorSample> samples);

// The pointer's displacement over one 60th of a second centred on the time, or zero when
// either end is hidden or absent.
MotionBlurVector frameMotion(double time, std::span<const CursorSample> samples);

} // namespace CursorMotion

// The pointer's lean, in radians, at the sample times.
struct CursorTiltTrack {
    std::vector<double> times;
    std::vector<double> angles;

    static CursorTiltTrack empty() { return {}; }

    // Linear between samples, the end values held; 0 for an empty track.
    double angle(double time) const;

    friend bool operator==(const CursorTiltTrack&, const CursorTiltTrack&) = default;
};

namespace CursorTilt {

// The most the pointer leans: 50 degrees.
inline constexpr double kMaximumTiltRadians = 0.8726646259971648;

// The pointer leans into horizontal movement like a thing with some inertia, saturating
// at a third of the frame's width each second.
CursorTiltTrack track(std::span<const CursorSample> samples);

} // namespace CursorTilt

} // namespace orvelle
