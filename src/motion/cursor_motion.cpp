#include "motion/cursor_motion.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

namespace {

constexpr double kEdgeTolerance = 0.0001;
constexpr double kSpringResetGap = 0.25;
constexpr double kSpringStep = 1.0 / 240.0;
constexpr double kTiltStep = 0.004;
constexpr double kTiltLongestStep = 0.1;
constexpr double kTiltSaturationSpeed = 0.35;
constexpr double kTiltStiffness = 40;
constexpr double kTiltDamping = 20;

bool touchesEdge(const CursorSample& sample) {
    const auto atEdge = [](double v) { return v <= kEdgeTolerance || v >= 1 - kEdgeTolerance; };
    return atEdge(sample.x) || atEdge(sample.y);
}

// The index of the first sample later than t (samples in time order).
size_t firstAfter(double t, std::span<const CursorSample> samples) {
    const auto it =
        std::upper_bound(samples.begin(), samples.end(), t,
                         [](double time, const CursorSample& s) { return time < s.time; });
    return static_cast<size_t>(it - samples.begin());
}

} // namespace

namespace CursorMotion {

std::vector<CursorSample> suppressTransientBoundaryExits(std::span<const CursorSample> samples,
                                                         double maxDuration) {
    std::vector<CursorSample> result(samples.begin(), samples.end());
    const size_t n = samples.size();
    if (n < 3) {
        return result;
    }
    size_t i = 0;
    while (i < n) {
        if (samples[i].visible) {
            ++i;
            continue;
        }
        size_t j = i;
        while (j < n && !samples[j].visible) {
            ++j;
        }
        // j is the next visible sample, or n when the pointer never comes back.
        const bool bridgeable = j < n && i > 0 && samples[i - 1].visible &&
                                samples[j].time - samples[i - 1].time <= maxDuration;
        const bool leftTheFrame =
            bridgeable && std::any_of(samples.begin() + static_cast<long>(i),
                                      samples.begin() + static_cast<long>(j), touchesEdge);
        if (leftTheFrame) {
            const CursorSample& a = samples[i - 1];
            const CursorSample& b = samples[j];
            const double span = std::max(b.time - a.time, 0.0001);
            for (size_t k = i; k < j; ++k) {
                const double p = Easing::clamp01((samples[k].time - a.time) / span);
                result[k].x = a.x + (b.x - a.x) * p;
                result[k].y = a.y + (b.y - a.y) * p;
                result[k].visible = true;
            }
        }
        i = j;
    }
    return result;
}

std::vector<CursorSample> springFilteredSamples(std::span<const CursorSample> samples,
                                                const SpringParameters& spring) {
    std::vector<CursorSample> result(samples.begin(), samples.end());
    if (samples.size() < 2) {
        return result;
    }
    const double k = std::max(spring.stiffness, 0.01);
    const double m = std::max(spring.mass, 0.01);
    const double c = std::max(spring.damping, 0.0);
    double px = samples[0].x;
    double py = samples[0].y;
    double vx = 0;
    double vy = 0;
    for (size_t i = 1; i < samples.size(); ++i) {
        const CursorSample& sample = samples[i];
        const double dt = std::max(sample.time - samples[i - 1].time, 0.0);
        if (dt > kSpringResetGap || !(sample.visible && samples[i - 1].visible)) {
            px = sample.x;
            py = sample.y;
            vx = 0;
            vy = 0;
            continue; // copied unchanged
        }
        const double steps = std::max(std::ceil(dt / kSpringStep), 1.0);
        const double h = dt / steps;
        for (int step = 0; step < static_cast<int>(steps); ++step) {
            const double ax = (k * (sample.x - px) - c * vx) / m;
            const double ay = (k * (sample.y - py) - c * vy) / m;
            vx += h * ax;
            vy += h * ay;
            px += h * vx;
            py += h * vy;
        }
        result[i].x = std::clamp(px, 0.0, 1.0);
        result[i].y = std::clamp(py, 0.0, 1.0);
    }
    return result;
}

std::optional<CursorPoint> interpolatedPoint(double time, std::span<const CursorSample> samples) {
    if (samples.empty()) {
        return std::nullopt;
    }
    const auto point = [](const CursorSample& s) { return CursorPoint{s.x, s.y, s.visible}; };
    if (samples.size() == 1 || time <= samples.front().time) {
        return point(samples.front());
    }
    if (time >= samples.back().time) {
        return point(samples.back());
    }
    const size_t upper = firstAfter(time, samples);
    const CursorSample& a = samples[upper - 1];
    const CursorSample& b = samples[upper];
    const double p = Easing::clamp01((time - a.time) / std::max(b.time - a.time, 0.0001));
    return CursorPoint{a.x + (b.x - a.x) * p, a.y + (b.y - a.y) * p, a.visible && b.visible};
}

MotionBlurVector frameMotion(double time, std::span<const CursorSample> samples) {
    constexpr double kHalfInterval = 1.0 / 120.0;
    const auto a = interpolatedPoint(time - kHalfInterval, samples);
    const auto b = interpolatedPoint(time + kHalfInterval, samples);
    if (!a || !b || !a->visible || !b->visible) {
        return {};
    }
    return {b->x - a->x, b->y - a->y};
}

} // namespace CursorMotion

double CursorTiltTrack::angle(double time) const {
    if (times.empty()) {
        return 0;
    }
    if (times.size() == 1 || time <= times.front()) {
        return angles.front();
    }
    if (time >= times.back()) {
        return angles.back();
    }
    const auto upper =
        static_cast<size_t>(std::upper_bound(times.begin(), times.end(), time) - times.begin());
    const double t0 = times[upper - 1];
    const double t1 = times[upper];
    const double p = Easing::clamp01((time - t0) / std::max(t1 - t0, 0.0001));
    return angles[upper - 1] + (angles[upper] - angles[upper - 1]) * p;
}

namespace CursorTilt {

CursorTiltTrack track(std::span<const CursorSample> samples) {
    if (samples.size() < 2) {
        return CursorTiltTrack::empty();
    }
    CursorTiltTrack result;
    result.times.reserve(samples.size());
    result.angles.reserve(samples.size());
    double angle = 0;
    double speed = 0;
    result.times.push_back(samples[0].time);
    result.angles.push_back(0);
    for (size_t i = 1; i < samples.size(); ++i) {
        result.times.push_back(samples[i].time);
        double dt = samples[i].time - samples[i - 1].time;
        if (!(dt > 0)) {
            result.angles.push_back(angle);
            continue;
        }
        dt = std::min(dt, kTiltLongestStep);
        const double velocity = (samples[i].x - samples[i - 1].x) / dt;
        const double target = std::tanh(velocity / kTiltSaturationSpeed) * kMaximumTiltRadians;
        const double steps = std::max(std::ceil(dt / kTiltStep), 1.0);
        const double h = dt / steps;
        for (int step = 0; step < static_cast<int>(steps); ++step) {
            speed += h * ((target - angle) * kTiltStiffness - speed * kTiltDamping);
            angle += h * speed;
        }
        result.angles.push_back(angle);
    }
    return result;
}

} // namespace CursorTilt

} // namespace orvelle
