#include "motion/zoom_animation.h"

#include "timeline/clip_neighbours.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <numbers>
#include <ranges>

namespace orvelle {

namespace {

constexpr ScreenAnimationStyleConstants kFocused{0.42, 0.065, 0.365, {200, 19, 1.0}, {47, 21, 1.4}};
constexpr ScreenAnimationStyleConstants kSmooth{0.5, 0.08, 0.45, {80, 14, 1.2}, {34, 20, 1.6}};

// Two clips whose bounds lie this close hand over instead of ramping.
constexpr double kAdjacencyTolerance = 0.001;

double enterCurve(double p, ScreenAnimationStyle style) {
    return style == ScreenAnimationStyle::smooth ? Easing::quarterSine(p) : Easing::cubicInOut(p);
}

double exitCurve(double p, ScreenAnimationStyle style) {
    return style == ScreenAnimationStyle::smooth ? Easing::smoothstep(p) : Easing::cubicInOut(p);
}

double biasOf(const AnimationClip& clip) {
    return clip.zoomMode == AnimationZoomMode::automatic && clip.centerBias ? 1.0 : 0.0;
}

// Half a clip's transition: the width of its side of a hand-off window.
double halfTransition(const AnimationClip& clip, ScreenAnimationStyle style) {
    if (clip.instantAnimation) {
        return 0;
    }
    return zoomTransitionLength(std::max(clip.end.seconds - clip.start.seconds, 0.0), style) / 2;
}

// Glides scale, offset, tilt and bias from one touching clip to the next over the window
// [boundary - half of from's transition, boundary + half of to's]. Amount and active
// clip stay as they are. Returns whether t lies in the window.
bool blend(ZoomAnimationResolution& state, const AnimationClip& from, const AnimationClip& to,
           double boundary, double t, ScreenAnimationStyle style) {
    const double hFrom = halfTransition(from, style);
    const double hTo = halfTransition(to, style);
    const double windowStart = boundary - hFrom;
    if (!(hFrom + hTo > 0) || t < windowStart || t > boundary + hTo) {
        return false;
    }
    const double s = Easing::smoothstep((t - windowStart) / (hFrom + hTo));
    state.zoomScale = from.zoomScale + s * (to.zoomScale - from.zoomScale);
    if (from.zoomMode == AnimationZoomMode::manual && to.zoomMode == AnimationZoomMode::manual) {
        const ZoomManualOffset a = from.manualOffset.value_or(ZoomManualOffset{});
        const ZoomManualOffset b = to.manualOffset.value_or(ZoomManualOffset{});
        state.manualOffset = ZoomManualOffset(a.x + s * (b.x - a.x), a.y + s * (b.y - a.y));
    }
    // Tilt glides as a vector so that a change of direction turns the short way.
    const auto tiltVector = [](const AnimationClip& clip) {
        const double d = clip.tiltDirectionDegrees * std::numbers::pi / 180;
        return std::pair{clip.tiltDegrees * std::sin(d), clip.tiltDegrees * std::cos(d)};
    };
    const auto [fx, fy] = tiltVector(from);
    const auto [tx, ty] = tiltVector(to);
    const double x = fx + s * (tx - fx);
    const double y = fy + s * (ty - fy);
    state.tiltDegrees = std::hypot(x, y);
    if (state.tiltDegrees > 0.01) {
        // Into [0, 360): a tiny negative angle plus 360 would round to 360 itself.
        state.tiltDirectionDegrees =
            sanitisedTiltDirectionDegrees(std::atan2(x, y) * 180 / std::numbers::pi);
    } else {
        state.tiltDirectionDegrees = from.tiltDirectionDegrees;
    }
    state.centerBias = biasOf(from) + s * (biasOf(to) - biasOf(from));
    return true;
}

void takeOver(ZoomAnimationResolution& state, const AnimationClip& clip, double amount) {
    state.amount = amount;
    state.zoomScale = clip.zoomScale;
    state.activeClip = clip;
    state.tiltDegrees = clip.tiltDegrees;
    state.tiltDirectionDegrees = clip.tiltDirectionDegrees;
    if (clip.zoomMode == AnimationZoomMode::manual) {
        state.manualOffset = clip.manualOffset.value_or(ZoomManualOffset{});
        state.centerBias = 0;
    } else {
        state.manualOffset.reset();
        state.centerBias = clip.centerBias ? 1 : 0;
    }
}

// The amount a clip has at t on its own, before any hand-off.
double ownAmount(const AnimationClip& clip, double t, ScreenAnimationStyle style) {
    return clip.instantAnimation
               ? 1.0
               : zoomEnvelopeAmount(clip.start.seconds, clip.end.seconds, t, style);
}

// The clips that contain t take over in turn, in ascending list order: the larger amount
// wins and at equal amounts the later clip, and a clip at amount 0 at its very first
// instant still becomes the active one. Returns the active clip's index.
template <class Indices>
std::optional<size_t> takeOverPass(ZoomAnimationResolution& state,
                                   std::span<const AnimationClip> clips, const Indices& indices,
                                   double t, ScreenAnimationStyle style) {
    double best = 0;
    std::optional<size_t> active;
    for (const size_t i : indices) {
        const AnimationClip& clip = clips[i];
        if (clip.isDisabled || t < clip.start.seconds || t > clip.end.seconds) {
            continue;
        }
        const double amount = ownAmount(clip, t, style);
        if (best <= amount) {
            takeOver(state, clip, amount);
            active = i;
            best = amount;
        }
    }
    return active;
}

// Two clips that touch neither dip to no zoom between them nor snap: the side with a
// neighbour has no ramp, and scale, offset, tilt and bias glide across the seam.
void handOff(ZoomAnimationResolution& state, const AnimationClip& clip,
             const AnimationClip* previous, const AnimationClip* next, double t,
             ScreenAnimationStyle style) {
    if (next != nullptr &&
        !(std::abs(next->start.seconds - clip.end.seconds) <= kAdjacencyTolerance)) {
        next = nullptr;
    }
    if (previous != nullptr &&
        !(std::abs(clip.start.seconds - previous->end.seconds) <= kAdjacencyTolerance)) {
        previous = nullptr;
    }
    if (next == nullptr && previous == nullptr) {
        return;
    }
    if (!clip.instantAnimation && clip.end.seconds - clip.start.seconds > 0) {
        state.amount = zoomEnvelopeAmount(clip.start.seconds, clip.end.seconds, t, style,
                                          previous != nullptr, next != nullptr);
    }
    if (next != nullptr && blend(state, clip, *next, clip.end.seconds, t, style)) {
        return;
    }
    if (previous != nullptr) {
        blend(state, *previous, clip, clip.start.seconds, t, style);
    }
}

} // namespace

const ScreenAnimationStyleConstants& screenAnimationConstants(ScreenAnimationStyle style) {
    return style == ScreenAnimationStyle::smooth ? kSmooth : kFocused;
}

namespace Easing {

double clamp01(double value) {
    if (!(value > 0)) {
        return 0;
    }
    return value < 1 ? value : 1;
}

double cubicInOut(double p) {
    p = clamp01(p);
    if (p <= 0) {
        return 0;
    }
    if (p < 0.5) {
        return 4 * p * p * p;
    }
    const double q = 2 - 2 * p;
    return 1 - 0.5 * q * q * q;
}

double quarterSine(double p) {
    return std::sin(clamp01(p) * std::numbers::pi / 2);
}

double smoothstep(double p) {
    p = clamp01(p);
    return p * p * (3 - 2 * p);
}

double quarticInOut(double p) {
    p = clamp01(p);
    if (p < 0.5) {
        return 8 * p * p * p * p;
    }
    const double q = 2 - 2 * p;
    return 1 - 0.5 * q * q * q * q;
}

double quinticInOut(double p) {
    p = clamp01(p);
    if (p < 0.5) {
        return 16 * p * p * p * p * p;
    }
    const double q = 2 - 2 * p;
    return 1 - 0.5 * q * q * q * q * q;
}

} // namespace Easing

double zoomTransitionLength(double clipLength, ScreenAnimationStyle style) {
    const auto& constants = screenAnimationConstants(style);
    const double share = clipLength * constants.transitionShare;
    if (share < constants.shortestTransition) {
        return constants.shortestTransition;
    }
    return std::min(share, constants.longestTransition);
}

double zoomEnvelopeAmount(double start, double end, double time, ScreenAnimationStyle style,
                          bool continuesIn, bool continuesOut) {
    if (time < start || time > end || !(end - start > 0)) {
        return 0;
    }
    const double transition = zoomTransitionLength(end - start, style);
    const double pIn = continuesIn ? 1.0 : Easing::clamp01((time - start) / transition);
    const double pOut = continuesOut ? 1.0 : Easing::clamp01((end - time) / transition);
    return std::min(enterCurve(pIn, style), exitCurve(pOut, style));
}

namespace ZoomAnimationEnvelope {

ZoomAnimationResolution resolvedState(EditTime time, std::span<const AnimationClip> zoomClips,
                                      double defaultZoomScale, ScreenAnimationStyle style) {
    ZoomAnimationResolution state;
    state.zoomScale = defaultZoomScale;
    const double t = time.seconds;
    const auto active =
        takeOverPass(state, zoomClips, std::views::iota(size_t{0}, zoomClips.size()), t, style);
    if (!active) {
        return state;
    }
    // With duplicate ids the first clip of that id in start order is the one whose
    // neighbours count.
    size_t canonical = *active;
    for (size_t i = 0; i < zoomClips.size(); ++i) {
        if (!zoomClips[i].isDisabled && sortsBeforeByStart(zoomClips, i, canonical) &&
            zoomClips[i].id == zoomClips[canonical].id) {
            canonical = i;
        }
    }
    const ClipNeighbours neighbours = neighboursInStartOrder(zoomClips, canonical);
    handOff(state, zoomClips[canonical],
            neighbours.previous ? &zoomClips[*neighbours.previous] : nullptr,
            neighbours.next ? &zoomClips[*neighbours.next] : nullptr, t, style);
    return state;
}

AnimationPlaybackState animationState(EditTime time, std::span<const AnimationClip> zoomClips,
                                      double defaultZoomScale, ScreenAnimationStyle style) {
    const ZoomAnimationResolution resolution =
        resolvedState(time, zoomClips, defaultZoomScale, style);
    AnimationPlaybackState state{resolution.amount, resolution.zoomScale, resolution.manualOffset,
                                 resolution.activeClip, ZoomAnimationPhase::inactive};
    if (!resolution.activeClip) {
        return state;
    }
    const AnimationClip& clip = *resolution.activeClip;
    const double t = time.seconds;
    const double length = clip.end.seconds - clip.start.seconds;
    if (t < clip.start.seconds || t > clip.end.seconds) {
        state.phase = ZoomAnimationPhase::inactive;
    } else if (clip.instantAnimation) {
        state.phase = ZoomAnimationPhase::settled;
    } else if (!(length > 0)) {
        state.phase = ZoomAnimationPhase::inactive;
    } else {
        const double transition = zoomTransitionLength(length, style);
        if (t - clip.start.seconds < transition) {
            state.phase = ZoomAnimationPhase::entering;
        } else if (clip.end.seconds - t < transition) {
            state.phase = ZoomAnimationPhase::exiting;
        } else {
            state.phase = ZoomAnimationPhase::settled;
        }
    }
    return state;
}

} // namespace ZoomAnimationEnvelope

ZoomLaneIndex::ZoomLaneIndex(std::vector<AnimationClip> zoomClips, double defaultZoomScale,
                             ScreenAnimationStyle style)
    : clips_(std::move(zoomClips)), defaultZoomScale_(defaultZoomScale), style_(style) {
    positionOf_.assign(clips_.size(), 0);
    std::map<Uuid, size_t> firstOfId;
    for (size_t i = 0; i < clips_.size(); ++i) {
        const AnimationClip& clip = clips_[i];
        if (!std::isfinite(clip.start.seconds) || !std::isfinite(clip.end.seconds)) {
            usable_ = false;
        }
        if (!clip.isDisabled) {
            byStart_.push_back(i);
        }
    }
    std::stable_sort(byStart_.begin(), byStart_.end(),
                     [&](size_t a, size_t b) { return clips_[a].start < clips_[b].start; });
    double latest = -std::numeric_limits<double>::infinity();
    for (size_t k = 0; k < byStart_.size(); ++k) {
        const AnimationClip& clip = clips_[byStart_[k]];
        starts_.push_back(clip.start.seconds);
        latest = std::max(latest, clip.end.seconds);
        latestEnd_.push_back(latest);
        // A duplicate id stands for the first clip of that id in start order.
        const auto [first, inserted] = firstOfId.emplace(clip.id, k);
        positionOf_[byStart_[k]] = first->second;
    }
}

ZoomAnimationResolution ZoomLaneIndex::resolvedState(EditTime time) const {
    const double t = time.seconds;
    if (!usable_ || std::isnan(t)) {
        return ZoomAnimationEnvelope::resolvedState(time, clips_, defaultZoomScale_, style_);
    }
    // The clips that contain t start at or before it and have not ended before it: walk
    // back from the last start at or before t while some earlier clip still reaches t.
    constexpr size_t kMostCandidates = 16;
    std::array<size_t, kMostCandidates> candidates{};
    size_t count = 0;
    auto k =
        static_cast<size_t>(std::upper_bound(starts_.begin(), starts_.end(), t) - starts_.begin());
    while (k > 0 && latestEnd_[k - 1] >= t) {
        --k;
        if (clips_[byStart_[k]].end.seconds >= t) {
            if (count == kMostCandidates) {
                // Clips piled this high: the plain scan answers.
                return ZoomAnimationEnvelope::resolvedState(time, clips_, defaultZoomScale_,
                                                            style_);
            }
            candidates[count++] = byStart_[k];
        }
    }
    std::sort(candidates.begin(), candidates.begin() + static_cast<long>(count));

    ZoomAnimationResolution state;
    state.zoomScale = defaultZoomScale_;
    const auto active =
        takeOverPass(state, clips_, std::span<const size_t>(candidates.data(), count), t, style_);
    if (!active) {
        return state;
    }
    const size_t position = positionOf_[*active];
    const AnimationClip& clip = clips_[byStart_[position]];
    handOff(state, clip, position > 0 ? &clips_[byStart_[position - 1]] : nullptr,
            position + 1 < byStart_.size() ? &clips_[byStart_[position + 1]] : nullptr, t, style_);
    return state;
}

namespace ZoomFraming {

double paddingScale(double paddingAmount) {
    if (!(paddingAmount > 0)) {
        return 1;
    }
    if (paddingAmount > 1) {
        return 0.25;
    }
    return std::max(1 - paddingAmount, 0.25);
}

double shift(double scale, double focus, double centerBias, double extent) {
    const double overflow = (scale - 1) * extent / 2;
    const double want = (extent / 2 - focus) * scale;
    const double weight = Easing::clamp01(2 * (scale - 1)) * Easing::clamp01(centerBias);
    const double soft = overflow > 0 ? overflow * std::tanh(want / overflow) : 0.0;
    return want * weight + soft * (1 - weight);
}

double landingPosition(double u, double scale, double focus, double centerBias) {
    return (u - 0.5) * scale + 0.5 + shift(scale, focus, centerBias);
}

double cameraPlanningZoomScale(const ZoomAnimationResolution& resolution, double paddingAmount) {
    return resolution.effectiveZoomScale() * paddingScale(paddingAmount);
}

} // namespace ZoomFraming

} // namespace orvelle
