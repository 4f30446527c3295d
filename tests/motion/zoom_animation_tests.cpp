#include "motion/zoom_animation.h"
#include "support/timeline_builders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace orvelle {
namespace {

using testing::zoomClip;

constexpr auto kFocused = ScreenAnimationStyle::focused;
constexpr auto kSmooth = ScreenAnimationStyle::smooth;

ZoomAnimationResolution at(double t, const std::vector<AnimationClip>& clips,
                           ScreenAnimationStyle style = kFocused, double defaultScale = 1.5) {
    return ZoomAnimationEnvelope::resolvedState(EditTime(t), clips, defaultScale, style);
}

TEST(ZoomTransition, ShareOfTheClipWithinTheStylesBounds) {
    struct Case {
        double length;
        ScreenAnimationStyle style;
        double expected;
    };
    const Case cases[] = {
        {0.1, kFocused, 0.065}, // 0.042 is below the shortest
        {0.5, kFocused, 0.21},  // 0.42 of the length
        {10, kFocused, 0.365},  // the longest
        {0.1, kSmooth, 0.08},   // 0.05 is below the shortest
        {0.5, kSmooth, 0.25},   {10, kSmooth, 0.45}, {0, kFocused, 0.065},
    };
    for (const auto& c : cases) {
        EXPECT_NEAR(zoomTransitionLength(c.length, c.style), c.expected, 1e-12) << c.length;
    }
}

TEST(ZoomEnvelope, EmptyLaneGivesTheDefaultAndNoClip) {
    const auto state = at(3, {}, kFocused, 1.75);
    EXPECT_EQ(state.amount, 0);
    EXPECT_EQ(state.zoomScale, 1.75);
    EXPECT_FALSE(state.activeClip);
    EXPECT_FALSE(state.manualOffset);
    EXPECT_EQ(state.effectiveZoomScale(), 1);
    // Progress outside [0, 1] and NaN are clamped before easing.
    EXPECT_EQ(Easing::smoothstep(-3), 0);
    EXPECT_EQ(Easing::smoothstep(7), 1);
    EXPECT_EQ(Easing::cubicInOut(std::nan("")), 0);
}

TEST(ZoomEnvelope, ClipRampsInSettlesAndRampsOut) {
    const std::vector clips{zoomClip(1, 5, 2.5)};
    const auto start = at(1, clips);
    EXPECT_EQ(start.amount, 0); // the first instant is active with amount 0
    ASSERT_TRUE(start.activeClip);
    EXPECT_EQ(start.zoomScale, 2.5);
    EXPECT_NEAR(at(1 + 0.365 / 2, clips).amount, 0.5, 1e-12);
    EXPECT_EQ(at(3, clips).amount, 1);
    EXPECT_EQ(at(3, clips).effectiveZoomScale(), 2.5);
    EXPECT_NEAR(at(5 - 0.365 / 4, clips).amount, 4 * std::pow(0.25, 3), 1e-12);
    EXPECT_EQ(at(5, clips).amount, 0);
    EXPECT_FALSE(at(5.0001, clips).activeClip);
    EXPECT_FALSE(at(0.9999, clips).activeClip);
}

TEST(ZoomEnvelope, SmoothStyleUsesQuarterSineInAndSmoothstepOut) {
    const std::vector clips{zoomClip(0, 10)};
    const double transition = 0.45;
    EXPECT_NEAR(at(transition * 0.3, clips, kSmooth).amount, std::sin(0.3 * M_PI / 2), 1e-12);
    EXPECT_NEAR(at(10 - transition * 0.3, clips, kSmooth).amount, 0.09 * (3 - 0.6), 1e-12);
}

TEST(ZoomEnvelope, ShortClipsNeverReachFullZoom) {
    // 0.1 s under focused: the transition is 0.065 s, so the middle is p = 0.05 / 0.065.
    const double p = 0.05 / 0.065;
    const double peak = 1 - 0.5 * std::pow(2 - 2 * p, 3);
    EXPECT_NEAR(at(0.05, {zoomClip(0, 0.1)}).amount, peak, 1e-12);
    EXPECT_NEAR(peak, 0.95, 0.01);
    EXPECT_LT(at(0.025, {zoomClip(0, 0.05)}).amount, peak);
    for (double t = 0; t <= 0.1; t += 0.001) {
        EXPECT_LT(at(t, {zoomClip(0, 0.1)}).amount, 1);
    }
}

TEST(ZoomEnvelope, InstantAndEmptyClips) {
    AnimationClip instant = zoomClip(2, 4, 3);
    instant.instantAnimation = true;
    EXPECT_EQ(at(2, {instant}).amount, 1);
    EXPECT_EQ(at(4, {instant}).amount, 1);
    // A clip of no length is active at its instant with no zoom.
    const auto state = at(2, {zoomClip(2, 2, 3)});
    EXPECT_EQ(state.amount, 0);
    ASSERT_TRUE(state.activeClip);
    EXPECT_EQ(state.zoomScale, 3);
}

TEST(ZoomEnvelope, DisabledClipsTakeNoPartEvenAsNeighbours) {
    AnimationClip disabled = zoomClip(5, 10, 3);
    disabled.isDisabled = true;
    const std::vector clips{zoomClip(0, 5, 2), disabled};
    EXPECT_FALSE(at(7, clips).activeClip);
    // The clip before the disabled one ramps out as usual.
    EXPECT_EQ(at(5, clips).amount, 0);
    EXPECT_EQ(at(5, clips).zoomScale, 2);
}

TEST(ZoomEnvelope, OverlappingClipsLargerAmountWinsLaterOnTies) {
    const std::vector clips{zoomClip(0, 4, 2), zoomClip(3.9, 8, 3)};
    // Inside the first clip's exit and the second's entry the curves cross.
    const auto early = at(3.92, clips);
    EXPECT_EQ(early.zoomScale, 2);
    const auto late = at(3.99, clips);
    EXPECT_EQ(late.zoomScale, 3);
    // Identical clips: the later in the list wins.
    AnimationClip a = zoomClip(0, 4, 2);
    AnimationClip b = a;
    b.id = Uuid::random();
    b.zoomScale = 4;
    EXPECT_EQ(at(2, {a, b}).zoomScale, 4);
}

TEST(ZoomEnvelope, ManualClipsCarryTheirOffsetAndNoBias) {
    AnimationClip manual = zoomClip(0, 4);
    manual.zoomMode = AnimationZoomMode::manual;
    EXPECT_EQ(at(2, {manual}).manualOffset, ZoomManualOffset{});
    manual.manualOffset = ZoomManualOffset(0.5, -1);
    EXPECT_EQ(at(2, {manual}).manualOffset, ZoomManualOffset(0.5, -1));
    EXPECT_EQ(at(2, {manual}).centerBias, 0);
    AnimationClip biased = zoomClip(0, 4);
    biased.centerBias = true;
    EXPECT_EQ(at(2, {biased}).centerBias, 1);
    EXPECT_FALSE(at(2, {biased}).manualOffset);
}

TEST(ZoomHandOff, TouchingClipsKeepFullAmountAndGlideTheScale) {
    for (const auto style : {kFocused, kSmooth}) {
        const std::vector clips{zoomClip(0, 4, 2), zoomClip(4, 8, 3)};
        const double hFrom = zoomTransitionLength(4, style) / 2;
        const double hTo = zoomTransitionLength(4, style) / 2;
        double previousScale = 2;
        for (double t = 3; t <= 5; t += 0.01) {
            const auto state = at(t, clips, style);
            EXPECT_EQ(state.amount, 1) << t;
            EXPECT_GE(state.zoomScale, previousScale - 1e-12) << t;
            previousScale = state.zoomScale;
        }
        EXPECT_EQ(at(4 - hFrom - 0.001, clips, style).zoomScale, 2);
        EXPECT_NEAR(at(4, clips, style).zoomScale, 2.5, 1e-12);
        // Smoothstep across the window, in both styles.
        EXPECT_NEAR(at(4 - hFrom / 2, clips, style).zoomScale, 2 + Easing::smoothstep(0.25), 1e-12);
        EXPECT_EQ(at(4 + hTo + 0.001, clips, style).zoomScale, 3);
        // The outer ends still ramp.
        EXPECT_EQ(at(0, clips, style).amount, 0);
        EXPECT_EQ(at(8, clips, style).amount, 0);
    }
}

TEST(ZoomHandOff, EachClipBringsHalfItsOwnTransitionToTheWindow) {
    // A 0.5 s clip (transition 0.21 s) hands over to a long one (0.365 s): the window is
    // [0.5 - 0.105, 0.5 + 0.1825], so the seam lies before its middle.
    const std::vector clips{zoomClip(0, 0.5, 2), zoomClip(0.5, 10, 3)};
    const double hFrom = 0.21 / 2;
    const double hTo = 0.365 / 2;
    EXPECT_NEAR(at(0.5, clips).zoomScale, 2 + Easing::smoothstep(hFrom / (hFrom + hTo)), 1e-12);
    EXPECT_EQ(at(0.5 - hFrom - 0.001, clips).zoomScale, 2);
    EXPECT_EQ(at(0.5 + hTo + 0.001, clips).zoomScale, 3);
}

TEST(ZoomHandOff, AdjacencyToleranceIsOneMillisecond) {
    const std::vector touching{zoomClip(0, 4, 2), zoomClip(4.0009, 8, 3)};
    EXPECT_EQ(at(4.0, touching).amount, 1);
    EXPECT_EQ(at(4.0009, touching).amount, 1);
    const std::vector apart{zoomClip(0, 4, 2), zoomClip(4.0011, 8, 3)};
    EXPECT_EQ(at(4.0, apart).amount, 0);
    EXPECT_EQ(at(4.0011, apart).amount, 0);
}

TEST(ZoomHandOff, ArrayOrderDoesNotMatterOnlyStartOrder) {
    const std::vector forwards{zoomClip(0, 4, 2), zoomClip(4, 8, 3)};
    const std::vector backwards{forwards[1], forwards[0]};
    for (double t = 3.5; t < 4.5; t += 0.05) {
        EXPECT_EQ(at(t, forwards).zoomScale, at(t, backwards).zoomScale) << t;
        EXPECT_EQ(at(t, forwards).amount, at(t, backwards).amount) << t;
    }
}

TEST(ZoomHandOff, TouchingInstantClipsJumpAtTheSeam) {
    AnimationClip a = zoomClip(0, 4, 2);
    AnimationClip b = zoomClip(4, 8, 3);
    a.instantAnimation = b.instantAnimation = true;
    EXPECT_EQ(at(3.999, {a, b}).zoomScale, 2);
    EXPECT_EQ(at(4.001, {a, b}).zoomScale, 3);
    EXPECT_EQ(at(4, {a, b}).zoomScale, 3); // the later clip takes the shared instant
}

TEST(ZoomHandOff, ManualNeighboursBlendOffsetsManualAndAutoDoNot) {
    AnimationClip a = zoomClip(0, 4, 2);
    AnimationClip b = zoomClip(4, 8, 2);
    a.zoomMode = b.zoomMode = AnimationZoomMode::manual;
    a.manualOffset = ZoomManualOffset(-1, 0);
    b.manualOffset = ZoomManualOffset(1, 2);
    const auto middle = at(4, {a, b});
    ASSERT_TRUE(middle.manualOffset);
    EXPECT_NEAR(middle.manualOffset->x, 0, 1e-12);
    EXPECT_NEAR(middle.manualOffset->y, 1, 1e-12);

    b.zoomMode = AnimationZoomMode::automatic;
    b.centerBias = true;
    b.zoomScale = 3;
    const auto mixed = at(3.95, {a, b});
    // The offset stays the active manual clip's; scale and bias glide.
    EXPECT_EQ(mixed.manualOffset, ZoomManualOffset(-1, 0));
    EXPECT_GT(mixed.zoomScale, 2);
    EXPECT_GT(mixed.centerBias, 0);
    EXPECT_LT(mixed.centerBias, 1);
    const auto after = at(4.05, {a, b});
    EXPECT_FALSE(after.manualOffset);
}

TEST(ZoomHandOff, TiltTurnsAsAVector) {
    AnimationClip a = zoomClip(0, 4);
    AnimationClip b = zoomClip(4, 8);
    a.tiltDegrees = b.tiltDegrees = 20;
    a.tiltDirectionDegrees = 350;
    b.tiltDirectionDegrees = 10;
    const auto middle = at(4, {a, b});
    EXPECT_NEAR(middle.tiltDirectionDegrees, 0, 1e-9); // through north, not south
    EXPECT_NEAR(middle.tiltDegrees, 20 * std::cos(10 * M_PI / 180), 1e-9);
    // Opposite tilts cancel at the seam and keep the first direction.
    b.tiltDirectionDegrees = 170;
    const auto cancelled = at(4, {a, b});
    EXPECT_NEAR(cancelled.tiltDegrees, 0, 1e-9);
    EXPECT_EQ(cancelled.tiltDirectionDegrees, 350);
}

TEST(ZoomLaneIndexTest, AnswersExactlyAsThePlainScanOverRandomLanes) {
    std::mt19937 random(29);
    std::uniform_real_distribution<double> unit(0, 1);
    for (int lane = 0; lane < 300; ++lane) {
        std::vector<AnimationClip> clips;
        const int count = static_cast<int>(unit(random) * 25);
        double cursor = 0;
        for (int i = 0; i < count; ++i) {
            // Mostly laid end to end, some touching, some overlapping, some far apart.
            const double kind = unit(random);
            const double start = kind < 0.3   ? cursor
                                 : kind < 0.5 ? cursor - unit(random) * 2
                                              : cursor + unit(random) * 3;
            AnimationClip c = zoomClip(start, start + unit(random) * 4, 1 + unit(random) * 2);
            c.instantAnimation = unit(random) < 0.1;
            c.isDisabled = unit(random) < 0.1;
            c.centerBias = unit(random) < 0.3;
            c.tiltDegrees = unit(random) < 0.3 ? unit(random) * 50 : 0;
            c.tiltDirectionDegrees = unit(random) * 360;
            if (unit(random) < 0.3) {
                c.zoomMode = AnimationZoomMode::manual;
                c.manualOffset = ZoomManualOffset(unit(random) * 2 - 1, unit(random) * 2 - 1);
            }
            if (!clips.empty() && unit(random) < 0.05) {
                c.id = clips[static_cast<size_t>(unit(random) * clips.size())].id;
            }
            cursor = c.end.seconds;
            clips.push_back(c);
        }
        std::shuffle(clips.begin(), clips.end(), random);
        const auto style = unit(random) < 0.5 ? kFocused : kSmooth;
        const ZoomLaneIndex index(clips, 1.5, style);
        for (int i = 0; i < 200; ++i) {
            const double t = unit(random) * (cursor + 2) - 1;
            ASSERT_EQ(index.resolvedState(EditTime(t)), at(t, clips, style)) << lane << " " << t;
        }
        // Exactly at every bound, where hand-offs and ties happen.
        for (const auto& c : clips) {
            for (const double t : {c.start.seconds, c.end.seconds}) {
                ASSERT_EQ(index.resolvedState(EditTime(t)), at(t, clips, style)) << lane;
            }
        }
    }
}

TEST(ZoomLaneIndexTest, ClipsPiledHighAndNotANumber) {
    std::vector<AnimationClip> clips;
    for (int i = 0; i < 40; ++i) {
        clips.push_back(zoomClip(i * 0.01, 10 + i * 0.01, 1 + i * 0.05));
    }
    const ZoomLaneIndex index(clips, 1.5, kFocused);
    EXPECT_EQ(index.resolvedState(EditTime(5)), at(5, clips));
    EXPECT_EQ(index.resolvedState(EditTime(std::nan(""))), at(std::nan(""), clips));
}

TEST(ZoomPhase, FollowsTheClipsTransitions) {
    const std::vector clips{zoomClip(1, 5)};
    const auto phase = [&](double t) {
        return ZoomAnimationEnvelope::animationState(EditTime(t), clips, 1.5, kFocused).phase;
    };
    EXPECT_EQ(phase(0.5), ZoomAnimationPhase::inactive);
    EXPECT_EQ(phase(1.1), ZoomAnimationPhase::entering);
    EXPECT_EQ(phase(3), ZoomAnimationPhase::settled);
    EXPECT_EQ(phase(4.9), ZoomAnimationPhase::exiting);
    AnimationClip instant = zoomClip(1, 5);
    instant.instantAnimation = true;
    const std::vector instantClips{instant};
    EXPECT_EQ(ZoomAnimationEnvelope::animationState(EditTime(1), instantClips, 1.5, kFocused).phase,
              ZoomAnimationPhase::settled);
    const std::vector emptyClips{zoomClip(1, 1)};
    EXPECT_EQ(ZoomAnimationEnvelope::animationState(EditTime(1), emptyClips, 1.5, kFocused).phase,
              ZoomAnimationPhase::inactive);
}

TEST(ZoomFramingTest, PaddingScale) {
    EXPECT_EQ(ZoomFraming::paddingScale(0), 1);
    EXPECT_EQ(ZoomFraming::paddingScale(-1), 1);
    EXPECT_NEAR(ZoomFraming::paddingScale(0.04), 0.96, 1e-12);
    EXPECT_EQ(ZoomFraming::paddingScale(0.9), 0.25);
    EXPECT_EQ(ZoomFraming::paddingScale(1.5), 0.25);
    EXPECT_EQ(ZoomFraming::paddingScale(std::nan("")), 1);
}

TEST(ZoomFramingTest, ShiftNeverExceedsTheOverflowWithoutBias) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> scale(0.5, 6);
    std::uniform_real_distribution<double> focus(-0.5, 1.5);
    std::uniform_real_distribution<double> bias(0, 1);
    for (int i = 0; i < 20000; ++i) {
        const double z = scale(random);
        const double f = focus(random);
        const double shift = ZoomFraming::shift(z, f, 0);
        EXPECT_LE(std::abs(shift), std::max((z - 1) / 2, 0.0) + 1e-12) << z << " " << f;
        // With bias the shift lies between the soft and the linear shift.
        const double b = bias(random);
        const double biased = ZoomFraming::shift(z, f, b);
        const double linear = (0.5 - f) * z;
        EXPECT_LE(std::min(shift, linear) - 1e-12, biased);
        EXPECT_GE(std::max(shift, linear) + 1e-12, biased);
        // The shift moves the focus towards the centre, never past it.
        if (z > 1) {
            const double landed = ZoomFraming::landingPosition(f, z, f, 0);
            EXPECT_LE(std::abs(landed - 0.5), std::abs((f - 0.5) * z) + 1e-9);
        }
    }
}

TEST(ZoomFramingTest, FullBiasCentresTheFocusFromScaleOneAndAHalf) {
    EXPECT_NEAR(ZoomFraming::landingPosition(0.9, 2, 0.9, 1), 0.5, 1e-12);
    EXPECT_NEAR(ZoomFraming::landingPosition(0.1, 1.5, 0.1, 1), 0.5, 1e-12);
    // Below 1.5 the centring fades out.
    EXPECT_GT(std::abs(ZoomFraming::landingPosition(0.1, 1.2, 0.1, 1) - 0.5), 0.01);
    // Not zoomed: nothing shifts.
    EXPECT_EQ(ZoomFraming::shift(1, 0.1, 1), 0);
    EXPECT_EQ(ZoomFraming::shift(0.8, 0.1, 0), 0);
}

TEST(ZoomFramingTest, StagePointsAgreeWithFractions) {
    const double width = 1920;
    for (const double f : {0.0, 0.2, 0.5, 0.77, 1.0}) {
        for (const double z : {1.2, 2.0, 3.5}) {
            EXPECT_NEAR(ZoomFraming::shift(z, f * width, 0.3, width),
                        ZoomFraming::shift(z, f, 0.3) * width, 1e-9);
        }
    }
}

} // namespace
} // namespace orvelle
