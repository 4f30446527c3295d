#include "motion/cursor_motion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace orvelle {
namespace {

const SpringParameters kSpring{200, 19, 1.0};

std::vector<CursorSample> track(std::initializer_list<CursorSample> samples) {
    return samples;
}

// Samples 60 times a second along a function of time.
template <class F>
std::vector<CursorSample> sampled(double duration, F position, double rate = 60) {
    std::vector<CursorSample> samples;
    for (int i = 0; i <= static_cast<int>(duration * rate); ++i) {
        const double t = i / rate;
        const auto [x, y] = position(t);
        samples.push_back({t, x, y, true});
    }
    return samples;
}

TEST(BoundaryExits, ShortExitAcrossTheEdgeBecomesAGlide) {
    // Leaves across the right edge for 0.2 s and comes back.
    const auto samples = track({{0.0, 0.9, 0.5, true},
                                {0.1, 1.0, 0.5, false},
                                {0.2, 1.0, 0.5, false},
                                {0.3, 0.7, 0.3, true}});
    const auto result = CursorMotion::suppressTransientBoundaryExits(samples, 0.35);
    ASSERT_EQ(result.size(), 4u);
    for (const auto& s : result) {
        EXPECT_TRUE(s.visible);
    }
    EXPECT_NEAR(result[1].x, 0.9 - 0.2 / 3, 1e-12);
    EXPECT_NEAR(result[2].y, 0.5 - 0.2 * 2 / 3, 1e-12);
    EXPECT_EQ(result[3], samples[3]);
}

TEST(BoundaryExits, BridgedAtTheLimitsOfTimeAndEdge) {
    struct Case {
        const char* name;
        std::vector<CursorSample> samples;
    };
    const Case cases[] = {
        {"back after exactly 0.35 s",
         {{0.0, 0.9, 0.5, true}, {0.1, 1.0, 0.5, false}, {0.35, 0.9, 0.5, true}}},
        {"at 0.9999", {{0.0, 0.9, 0.5, true}, {0.1, 0.9999, 0.5, false}, {0.2, 0.9, 0.5, true}}},
        {"at 0.0001", {{0.0, 0.5, 0.1, true}, {0.1, 0.5, 0.0001, false}, {0.2, 0.5, 0.1, true}}},
    };
    for (const auto& c : cases) {
        const auto result = CursorMotion::suppressTransientBoundaryExits(c.samples, 0.35);
        EXPECT_TRUE(result[1].visible) << c.name;
        EXPECT_NE(result[1].x + result[1].y, c.samples[1].x + c.samples[1].y) << c.name;
    }
}

TEST(BoundaryExits, WhatStaysAsRecorded) {
    struct Case {
        const char* name;
        std::vector<CursorSample> samples;
    };
    const Case cases[] = {
        {"a long exit", {{0.0, 0.9, 0.5, true}, {0.2, 1.0, 0.5, false}, {0.5, 0.9, 0.5, true}}},
        {"hidden inside the frame",
         {{0.0, 0.5, 0.5, true}, {0.1, 0.5, 0.5, false}, {0.2, 0.5, 0.5, true}}},
        {"a gap that opens the recording",
         {{0.0, 0.0, 0.5, false}, {0.1, 0.0, 0.5, false}, {0.2, 0.5, 0.5, true}}},
        {"never coming back",
         {{0.0, 0.5, 0.5, true}, {0.1, 1.0, 0.5, false}, {0.2, 1.0, 0.5, false}}},
        {"two samples", {{0.0, 0.5, 0.5, true}, {0.1, 1.0, 0.5, false}}},
        {"hidden just inside the edge",
         {{0.0, 0.9, 0.5, true}, {0.1, 0.9998, 0.5, false}, {0.2, 0.9, 0.5, true}}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CursorMotion::suppressTransientBoundaryExits(c.samples, 0.35), c.samples)
            << c.name;
    }
}

TEST(Spring, SettlesOnAStillTargetAndStaysInTheFrame) {
    auto samples = sampled(3, [](double t) { return std::pair{t < 0.5 ? 0.1 : 0.99, 0.5}; });
    const auto filtered = CursorMotion::springFilteredSamples(samples, kSpring);
    ASSERT_EQ(filtered.size(), samples.size());
    EXPECT_EQ(filtered.front(), samples.front());
    EXPECT_NEAR(filtered.back().x, 0.99, 1e-3);
    for (const auto& s : filtered) {
        EXPECT_GE(s.x, 0);
        EXPECT_LE(s.x, 1);
    }
}

TEST(Spring, OvershootIsClampedButTheStateIsNot) {
    // An underdamped spring towards the right edge overshoots; the output holds at 1 and
    // comes back from the unclamped state, not from 1.
    const SpringParameters loose{300, 2, 1};
    auto samples = sampled(1, [](double t) { return std::pair{t < 0.1 ? 0.0 : 1.0, 0.5}; });
    const auto filtered = CursorMotion::springFilteredSamples(samples, loose);
    bool heldAtOne = false;
    for (const auto& s : filtered) {
        heldAtOne = heldAtOne || s.x == 1.0;
        EXPECT_LE(s.x, 1.0);
    }
    EXPECT_TRUE(heldAtOne);
    // The spring's motion does not depend on where it runs: the same step a half frame
    // further right is the same path moved by a half, wherever that path is held at 1.
    auto lower = sampled(1, [](double t) { return std::pair{t < 0.1 ? 0.25 : 0.5, 0.5}; });
    auto upper = sampled(1, [](double t) { return std::pair{t < 0.1 ? 0.75 : 1.0, 0.5}; });
    const auto lowerPath = CursorMotion::springFilteredSamples(lower, loose);
    const auto upperPath = CursorMotion::springFilteredSamples(upper, loose);
    for (size_t i = 0; i < lowerPath.size(); ++i) {
        EXPECT_NEAR(upperPath[i].x, std::min(lowerPath[i].x + 0.5, 1.0), 1e-9) << i;
    }
}

TEST(Spring, GapsAndHiddenSamplesRestartIt) {
    const auto samples = track({{0.0, 0.1, 0.1, true},
                                {0.3, 0.8, 0.8, true}, // 0.3 s later: jumps
                                {0.31, 0.2, 0.2, true},
                                {0.32, 0.6, 0.6, false},  // hidden: copied
                                {0.33, 0.4, 0.4, true}}); // after a hidden one: copied
    const auto filtered = CursorMotion::springFilteredSamples(samples, kSpring);
    EXPECT_EQ(filtered[1], samples[1]);
    EXPECT_NE(filtered[2].x, samples[2].x);
    EXPECT_EQ(filtered[3], samples[3]);
    EXPECT_EQ(filtered[4], samples[4]);
    // Exactly 0.25 s is no gap.
    const auto edge = track({{0.0, 0.1, 0.1, true}, {0.25, 0.9, 0.9, true}});
    EXPECT_NE(CursorMotion::springFilteredSamples(edge, kSpring)[1].x, 0.9);
}

TEST(Spring, OutputStaysInTheUnitSquareForAnyInput) {
    std::mt19937 random(3);
    std::uniform_real_distribution<double> coordinate(-0.5, 1.5);
    std::uniform_real_distribution<double> step(0, 0.3);
    std::bernoulli_distribution visible(0.9);
    for (int run = 0; run < 50; ++run) {
        std::vector<CursorSample> samples;
        double t = 0;
        for (int i = 0; i < 200; ++i) {
            t += step(random);
            samples.push_back({t, coordinate(random), coordinate(random), visible(random)});
        }
        const SpringParameters spring{std::uniform_real_distribution<double>(0, 500)(random),
                                      std::uniform_real_distribution<double>(0, 40)(random),
                                      std::uniform_real_distribution<double>(0, 3)(random)};
        const auto filtered = CursorMotion::springFilteredSamples(samples, spring);
        for (size_t i = 1; i < filtered.size(); ++i) {
            if (filtered[i] == samples[i]) {
                continue; // restarted: copied as recorded
            }
            EXPECT_GE(filtered[i].x, 0);
            EXPECT_LE(filtered[i].x, 1);
            EXPECT_GE(filtered[i].y, 0);
            EXPECT_LE(filtered[i].y, 1);
            EXPECT_EQ(filtered[i].time, samples[i].time);
            EXPECT_EQ(filtered[i].visible, samples[i].visible);
        }
    }
}

TEST(Spring, ResultHardlyDependsOnTheSamplingRate) {
    const auto path = [](double t) { return std::pair{0.5 + 0.3 * std::sin(t * 3), 0.5}; };
    const auto at60 = CursorMotion::springFilteredSamples(sampled(2, path, 60), kSpring);
    const auto at120 = CursorMotion::springFilteredSamples(sampled(2, path, 120), kSpring);
    const auto a = CursorMotion::interpolatedPoint(1.5, at60);
    const auto b = CursorMotion::interpolatedPoint(1.5, at120);
    EXPECT_NEAR(a->x, b->x, 0.005);
}

TEST(InterpolatedPoint, BisectsAndHoldsTheEnds) {
    const auto samples =
        track({{1.0, 0.0, 0.0, true}, {2.0, 1.0, 0.5, true}, {3.0, 0.5, 0.5, false}});
    EXPECT_FALSE(CursorMotion::interpolatedPoint(1, std::vector<CursorSample>{}));
    EXPECT_EQ(CursorMotion::interpolatedPoint(0, samples), (CursorPoint{0, 0, true}));
    EXPECT_EQ(CursorMotion::interpolatedPoint(9, samples), (CursorPoint{0.5, 0.5, false}));
    const auto middle = CursorMotion::interpolatedPoint(1.25, samples);
    EXPECT_NEAR(middle->x, 0.25, 1e-12);
    EXPECT_TRUE(middle->visible);
    // Between a visible and a hidden sample: not visible, position interpolated.
    const auto hidden = CursorMotion::interpolatedPoint(2.5, samples);
    EXPECT_FALSE(hidden->visible);
    EXPECT_NEAR(hidden->x, 0.75, 1e-12);
    // Exactly on a sample: its position, bracketed with the next one.
    EXPECT_EQ(CursorMotion::interpolatedPoint(2, samples), (CursorPoint{1, 0.5, false}));
    // One sample answers for every time.
    const std::vector one{CursorSample{5, 0.3, 0.4, true}};
    EXPECT_EQ(CursorMotion::interpolatedPoint(-100, one), (CursorPoint{0.3, 0.4, true}));
}

TEST(FrameMotionOfThePointer, DisplacementOverASixtiethCentredOnTheTime) {
    const auto samples = sampled(2, [](double t) { return std::pair{0.1 + 0.3 * t, 0.5}; });
    const auto motion = CursorMotion::frameMotion(1, samples);
    EXPECT_NEAR(motion.dx, 0.3 / 60, 1e-12);
    EXPECT_NEAR(motion.dy, 0, 1e-12);
    auto hidden = samples;
    hidden[60].visible = false;
    EXPECT_EQ(CursorMotion::frameMotion(1, hidden), MotionBlurVector{});
    EXPECT_EQ(CursorMotion::frameMotion(1, std::vector<CursorSample>{}), MotionBlurVector{});
}

TEST(Tilt, LeansIntoHorizontalMovementAndComesBack) {
    // Moves right for half a second, then rests for two.
    const auto samples = sampled(2.5, [](double t) {
        return std::pair{t < 0.5 ? 0.2 + 0.6 * t : 0.5, 0.5};
    });
    const auto tilt = CursorTilt::track(samples);
    ASSERT_EQ(tilt.times.size(), samples.size());
    EXPECT_EQ(tilt.angles.front(), 0);
    EXPECT_GT(tilt.angle(0.5), 0.3);
    EXPECT_NEAR(tilt.angle(2.5), 0, 0.01);
    // Moving left leans the other way.
    const auto left = CursorTilt::track(sampled(0.5, [](double t) {
        return std::pair{0.8 - 0.6 * t, 0.5};
    }));
    EXPECT_LT(left.angle(0.5), -0.3);
}

TEST(Tilt, SaturatesAtFiftyDegrees) {
    // Five and fifty frame widths a second lean alike: the target is limited by tanh.
    const auto fast = CursorTilt::track(sampled(3, [](double t) { return std::pair{5 * t, 0.5}; }));
    const auto faster = CursorTilt::track(sampled(3, [](double t) {
        return std::pair{50 * t, 0.5};
    }));
    for (const double angle : faster.angles) {
        EXPECT_LE(angle, CursorTilt::kMaximumTiltRadians + 1e-9);
    }
    EXPECT_NEAR(faster.angle(3), CursorTilt::kMaximumTiltRadians, 0.02);
    EXPECT_NEAR(fast.angle(3), faster.angle(3), 1e-3);
}

TEST(Tilt, ALongPauseCountsAsATenthOfASecond) {
    // Movement is measured over at most 0.1 s and the lean integrated over as long, so the
    // same step after one second or after a tenth leans alike.
    const auto afterASecond = CursorTilt::track(track({{0, 0.5, 0.5, true}, {1, 0.6, 0.5, true}}));
    const auto afterATenth = CursorTilt::track(track({{0, 0.5, 0.5, true}, {0.1, 0.6, 0.5, true}}));
    EXPECT_GT(afterASecond.angles[1], 0);
    EXPECT_DOUBLE_EQ(afterASecond.angles[1], afterATenth.angles[1]);
}

TEST(Tilt, EmptyRepeatedTimesAndLookup) {
    EXPECT_EQ(CursorTilt::track(track({{0, 0.5, 0.5, true}})), CursorTiltTrack::empty());
    EXPECT_EQ(CursorTiltTrack::empty().angle(3), 0);
    // A repeated time keeps the angle.
    const auto repeated = CursorTilt::track(
        track({{0, 0.1, 0.5, true}, {0.1, 0.3, 0.5, true}, {0.1, 0.9, 0.5, true}}));
    EXPECT_EQ(repeated.angles[2], repeated.angles[1]);
    CursorTiltTrack manual{{0, 1}, {0, 1}};
    EXPECT_NEAR(manual.angle(0.25), 0.25, 1e-12);
    EXPECT_EQ(manual.angle(-1), 0);
    EXPECT_EQ(manual.angle(2), 1);
}

} // namespace
} // namespace orvelle
