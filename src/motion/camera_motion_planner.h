#pragma once

// Where an automatic zoom looks, sample by sample: the focus moves only when the pointer
// would otherwise leave a comfortable area of the zoomed frame, starts moving a little
// before the pointer arrives, ignores small wander, and is then smoothed by a spring.
// Pure functions, safe from any thread.

#include "motion/zoom_animation.h"
#include "project/cursor_recording.h"

#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace orvelle::CameraMotionPlanner {

inline constexpr double kScreenMargin = 0.18;
inline constexpr double kLookAhead = 0.18;
inline constexpr double kDeadZone = 0.018;

// The first visible sample's point, or absent.
std::optional<CursorPoint> firstVisiblePoint(std::span<const CursorSample> samples);

// The focus closest to the current one at which the pointer lies inside the margin of the
// frame zoomed by the scale. The margin widens towards the centre with the centring bias.
// Below scale 1.001 the camera recentres. Both coordinates in [0, 1]; always visible.
CursorPoint focusThatReveals(const CursorPoint& cursor, const CursorPoint& currentFocus,
                             double zoomScale, double screenMargin, double centerBias);

// Each takes the source time of a sample.
using PlanningFunction = std::function<double(double sourceTime)>;

// The focus at each sample's time before smoothing; every planned sample is visible.
std::vector<CursorSample> focusSamples(std::span<const CursorSample> samples,
                                       const PlanningFunction& zoomScaleAt,
                                       const PlanningFunction& centerBiasAt);

// The camera track: the focus samples through the style's camera spring. The camera point
// at any time is the interpolated point of this track.
std::vector<CursorSample> cameraSamples(std::span<const CursorSample> samples,
                                        const PlanningFunction& zoomScaleAt,
                                        const PlanningFunction& centerBiasAt,
                                        const SpringParameters& cameraSpring);

} // namespace orvelle::CameraMotionPlanner
