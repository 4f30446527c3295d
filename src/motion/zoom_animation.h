#pragma once

// How far the camera is zoomed at an instant of the edit, at which scale, with which
// manual offset, tilt and centring; and where a zoomed picture lands for a given focus.
// Pure arithmetic on values, safe from any thread. resolvedState runs for every frame and
// several times for every pointer sample while planning, so it never allocates.

#include "project/editor_project_state.h"
#include "timeline/animation_clip.h"
#include "timeline/timeline_time.h"

#include <optional>
#include <span>
#include <vector>

namespace orvelle {

struct SpringParameters {
    double stiffness = 0;
    double damping = 0;
    double mass = 1;

    friend bool operator==(const SpringParameters&, const SpringParameters&) = default;
};

// Every transition constant a screen animation style sets.
struct ScreenAnimationStyleConstants {
    double transitionShare = 0; // of the clip's length
    double shortestTransition = 0;
    double longestTransition = 0;
    SpringParameters cursorSpring;
    SpringParameters cameraSpring;
};

const ScreenAnimationStyleConstants& screenAnimationConstants(ScreenAnimationStyle style);

// The curves of this program. Each takes its progress clamped to [0, 1] first.
namespace Easing {

double clamp01(double value); // NaN gives 0
double cubicInOut(double p);
double quarterSine(double p);
double smoothstep(double p);
// The camera layout's own curve, kept on purpose although nothing else eases this way.
double quarticInOut(double p);
// The perspective tilt: arrives late in a zoom and leaves early.
double quinticInOut(double p);

} // namespace Easing

// Seconds a clip of this length takes to ramp in or out: a share of its length, never
// below the style's shortest (even where that is more than half the clip) nor above its
// longest.
double zoomTransitionLength(double clipLength, ScreenAnimationStyle style);

// The envelope of one clip over [start, end] at t: 0 outside, 0 for a clip of no length,
// rising and falling along the style's curves. A side that a neighbour continues has no
// ramp.
double zoomEnvelopeAmount(double start, double end, double time, ScreenAnimationStyle style,
                          bool continuesIn = false, bool continuesOut = false);

struct ZoomAnimationResolution {
    double amount = 0;                            // 0 not zoomed ... 1 fully zoomed
    double zoomScale = 1;                         // the target scale
    std::optional<ZoomManualOffset> manualOffset; // only for a manual clip
    std::optional<AnimationClip> activeClip;
    double tiltDegrees = 0;
    double tiltDirectionDegrees = 0;
    double centerBias = 0; // 0...1: blended during a hand-off

    // The scale on screen.
    double effectiveZoomScale() const { return 1 + amount * (zoomScale - 1); }

    friend bool operator==(const ZoomAnimationResolution&,
                           const ZoomAnimationResolution&) = default;
};

enum class ZoomAnimationPhase { inactive, entering, settled, exiting };

struct AnimationPlaybackState {
    double amount = 0;
    double zoomScale = 1;
    std::optional<ZoomManualOffset> manualOffset;
    std::optional<AnimationClip> activeClip;
    ZoomAnimationPhase phase = ZoomAnimationPhase::inactive;

    friend bool operator==(const AnimationPlaybackState&, const AnimationPlaybackState&) = default;
};

namespace ZoomAnimationEnvelope {

// The zoom at an edit time. Disabled clips take no part. Where clips overlap the larger
// amount wins (the later clip at equal amounts); clips that touch hand over without dipping
// to no zoom, the scale, offset, tilt and centring gliding across the seam.
ZoomAnimationResolution resolvedState(EditTime time, std::span<const AnimationClip> zoomClips,
                                      double defaultZoomScale, ScreenAnimationStyle style);

// The same with a phase for the editor.
AnimationPlaybackState animationState(EditTime time, std::span<const AnimationClip> zoomClips,
                                      double defaultZoomScale, ScreenAnimationStyle style);

} // namespace ZoomAnimationEnvelope

// A zoom lane prepared for many lookups, as when the camera is planned over every pointer
// sample of a long take: the same answers as ZoomAnimationEnvelope::resolvedState, each in
// logarithmic time for a lane whose clips do not pile up. Immutable: any thread.
class ZoomLaneIndex {
public:
    ZoomLaneIndex(std::vector<AnimationClip> zoomClips, double defaultZoomScale,
                  ScreenAnimationStyle style);

    ZoomAnimationResolution resolvedState(EditTime time) const;

private:
    std::vector<AnimationClip> clips_;
    double defaultZoomScale_;
    ScreenAnimationStyle style_;
    bool usable_ = true;             // false: answer by the plain scan
    std::vector<size_t> byStart_;    // the enabled clips, stably by start
    std::vector<double> starts_;     // their starts
    std::vector<double> latestEnd_;  // the latest end among byStart_[0...k]
    std::vector<size_t> positionOf_; // a clip's place in byStart_, for its neighbours
};

// Where a zoomed picture lands. Coordinates are fractions of the frame along one axis;
// the framing scale is the effective zoom times the padding scale.
namespace ZoomFraming {

// A padded card is smaller than the stage, so a zoom must first fill the stage before
// any of it overflows.
double paddingScale(double paddingAmount);

// The shift of the picture that brings the focus towards the centre, along an axis of the
// given extent (1 for frame fractions, the stage's width or height for stage points; the
// focus in the same unit). Soft-limited by tanh so that an automatic zoom never reveals
// the background and decelerates into the edge; with full centring bias it is linear and
// unlimited. The centring bias fades out near scale 1 and is fully on from 1.5.
double shift(double scale, double focus, double centerBias, double extent = 1);

// Where the frame point u lands in the visible frame.
double landingPosition(double u, double scale, double focus, double centerBias);

// The framing scale the camera is planned with: effective zoom times the padding scale.
double cameraPlanningZoomScale(const ZoomAnimationResolution& resolution, double paddingAmount);

} // namespace ZoomFraming

} // namespace orvelle
