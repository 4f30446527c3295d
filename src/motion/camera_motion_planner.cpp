#include "motion/camera_motion_planner.h"

#include "motion/cursor_motion.h"

#include <algorithm>
#include <cmath>

namespace orvelle::CameraMotionPlanner {

namespace {

constexpr int kBisectionRounds = 32;

// Moves the focus along one axis until the pointer's coordinate lands inside
// [margin, 1 - margin]. The landing position falls as the focus rises.
double revealingFocus(double cursor, double focus, double scale, double margin, double bias) {
    const double upper = 1 - margin;
    const auto position = [&](double f) {
        return ZoomFraming::landingPosition(cursor, scale, f, bias);
    };
    const double current = position(focus);
    double lo = 0;
    double hi = 0;
    if (current < margin) {
        lo = 0;
        hi = focus;
        for (int round = 0; round < kBisectionRounds; ++round) {
            const double mid = (lo + hi) / 2;
            if (margin < position(mid)) {
                lo = mid;
            } else {
                hi = mid;
            }
        }
    } else if (upper < current) {
        lo = focus;
        hi = 1;
        for (int round = 0; round < kBisectionRounds; ++round) {
            const double mid = (lo + hi) / 2;
            if (upper < position(mid)) {
                lo = mid;
            } else {
                hi = mid;
            }
        }
    } else {
        return focus;
    }
    return Easing::clamp01((lo + hi) / 2);
}

} // namespace

std::optional<CursorPoint> firstVisiblePoint(std::span<const CursorSample> samples) {
    for (const auto& sample : samples) {
        if (sample.visible) {
            return CursorPoint{sample.x, sample.y, true};
        }
    }
    return std::nullopt;
}

CursorPoint focusThatReveals(const CursorPoint& cursor, const CursorPoint& currentFocus,
                             double zoomScale, double screenMargin, double centerBias) {
    if (!std::isfinite(zoomScale) || !(zoomScale > 1.001)) {
        return {0.5, 0.5, true};
    }
    const double bias = Easing::clamp01(centerBias);
    const double margin = std::min(screenMargin + (0.45 - screenMargin) * bias, 0.45);
    return {Easing::clamp01(revealingFocus(cursor.x, currentFocus.x, zoomScale, margin, bias)),
            Easing::clamp01(revealingFocus(cursor.y, currentFocus.y, zoomScale, margin, bias)),
            true};
}

std::vector<CursorSample> focusSamples(std::span<const CursorSample> samples,
                                       const PlanningFunction& zoomScaleAt,
                                       const PlanningFunction& centerBiasAt) {
    std::vector<CursorSample> plan;
    if (samples.size() < 2) {
        plan.assign(samples.begin(), samples.end());
        return plan;
    }
    plan.reserve(samples.size());
    const CursorPoint centre{0.5, 0.5, true};
    const double firstTime = samples.front().time;
    CursorPoint focus =
        focusThatReveals(firstVisiblePoint(samples).value_or(centre), centre,
                         zoomScaleAt(firstTime), kScreenMargin, centerBiasAt(firstTime));
    // The first visible sample at or after a time only moves forwards, so it is found by
    // a cursor that never goes back.
    size_t visibleAhead = 0;
    for (const auto& sample : samples) {
        if (sample.visible) {
            const double scale = zoomScaleAt(sample.time);
            const double bias = centerBiasAt(sample.time);
            CursorPoint candidate =
                focusThatReveals({sample.x, sample.y, true}, focus, scale, kScreenMargin, bias);
            const double aheadTime = sample.time + kLookAhead;
            std::optional<CursorPoint> ahead = CursorMotion::interpolatedPoint(aheadTime, samples);
            if (!ahead || !ahead->visible) {
                while (visibleAhead < samples.size() &&
                       (samples[visibleAhead].time < aheadTime || !samples[visibleAhead].visible)) {
                    ++visibleAhead;
                }
                ahead.reset();
                if (visibleAhead < samples.size()) {
                    const CursorSample& s = samples[visibleAhead];
                    ahead = CursorPoint{s.x, s.y, true};
                }
            }
            if (ahead) {
                candidate = focusThatReveals(*ahead, candidate, scale, kScreenMargin, bias);
            }
            if (std::hypot(candidate.x - focus.x, candidate.y - focus.y) >= kDeadZone) {
                focus = candidate;
            }
        }
        plan.push_back({sample.time, Easing::clamp01(focus.x), Easing::clamp01(focus.y), true});
    }
    return plan;
}

std::vector<CursorSample> cameraSamples(std::span<const CursorSample> samples,
                                        const PlanningFunction& zoomScaleAt,
                                        const PlanningFunction& centerBiasAt,
                                        const SpringParameters& cameraSpring) {
    return CursorMotion::springFilteredSamples(focusSamples(samples, zoomScaleAt, centerBiasAt),
                                               cameraSpring);
}

} // namespace orvelle::CameraMotionPlanner
