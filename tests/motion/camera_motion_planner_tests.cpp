#include "motion/camera_motion_planner.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace orvelle {
namespace {

using CameraMotionPlanner::focusThatReveals;

const CursorPoint kCentre{0.5, 0.5, true};

double landing(double cursor, double scale, double focus, double bias = 0) {
    return ZoomFraming::landingPosition(cursor, scale, focus, bias);
}

CameraMotionPlanner::PlanningFunction constant(double value) {
    return [value](double) { return value; };
}

// Not zoomed, the focus is the centre; zoomed, it stays while the pointer lands inside the
// margin, and otherwise moves until the pointer lands on the margin itself (at scale 2 the
// pointer at 0.2 lands left of it); centring bias widens the margin towards the middle.
TEST(FocusThatReveals, RecentresKeepsOrBisectsToTheMargin) {
    for (const double scale : {1.0, 1.0005, 0.5, std::nan(""), double(INFINITY)}) {
        const auto focus = focusThatReveals({0.02, 0.97, true}, {0.1, 0.9, true}, scale, 0.18, 0);
        EXPECT_EQ(focus.x, 0.5) << scale;
        EXPECT_EQ(focus.y, 0.5) << scale;
    }
    const CursorPoint current{0.4, 0.6, true};
    const auto kept = focusThatReveals({0.45, 0.55, true}, current, 2, 0.18, 0);
    EXPECT_EQ(kept.x, current.x);
    EXPECT_EQ(kept.y, current.y);
    const auto low = focusThatReveals({0.2, 0.8, true}, kCentre, 2, 0.18, 0);
    EXPECT_LT(low.x, 0.5);
    EXPECT_NEAR(landing(0.2, 2, low.x), 0.18, 1e-6);
    EXPECT_GT(low.y, 0.5);
    EXPECT_NEAR(landing(0.8, 2, low.y), 0.82, 1e-6);
    const auto biased = focusThatReveals({0.9, 0.1, true}, kCentre, 2, 0.18, 1);
    EXPECT_NEAR(landing(0.9, 2, biased.x, 1), 0.55, 1e-6);
    EXPECT_NEAR(landing(0.1, 2, biased.y, 1), 0.45, 1e-6);
}

TEST(FocusThatReveals, StaysInTheUnitSquareAndRevealsWhatCanBeRevealed) {
    std::mt19937 random(11);
    std::uniform_real_distribution<double> unit(0, 1);
    std::uniform_real_distribution<double> wide(-0.2, 1.2);
    std::uniform_real_distribution<double> scale(0.9, 5);
    for (int i = 0; i < 5000; ++i) {
        const CursorPoint cursor{wide(random), wide(random), true};
        const CursorPoint current{unit(random), unit(random), true};
        const double z = scale(random);
        const double bias = unit(random);
        const auto focus = focusThatReveals(cursor, current, z, 0.18, bias);
        ASSERT_GE(focus.x, 0);
        ASSERT_LE(focus.x, 1);
        ASSERT_GE(focus.y, 0);
        ASSERT_LE(focus.y, 1);
        if (z <= 1.001) {
            continue;
        }
        const double margin = std::min(0.18 + (0.45 - 0.18) * bias, 0.45);
        // Either the pointer lands inside the margin, or the focus went as far as it can.
        const double x = landing(cursor.x, z, focus.x, bias);
        EXPECT_TRUE((x >= margin - 1e-6 && x <= 1 - margin + 1e-6) || focus.x < 1e-6 ||
                    focus.x > 1 - 1e-6)
            << cursor.x << " " << z << " " << bias << " " << focus.x;
    }
}

TEST(CameraPlan, EmptyAndSingleSample) {
    EXPECT_TRUE(CameraMotionPlanner::focusSamples({}, constant(2), constant(0)).empty());
    const std::vector<CursorSample> one{{1, 0.1, 0.1, false}};
    EXPECT_EQ(CameraMotionPlanner::cameraSamples(one, constant(2), constant(0), {47, 21, 1.4}),
              one);
}

TEST(CameraPlan, EverySampleVisibleAndHiddenSamplesKeepTheFocus) {
    std::vector<CursorSample> samples;
    for (int i = 0; i < 120; ++i) {
        const double t = i / 60.0;
        samples.push_back({t, 0.1 + 0.8 * t / 2, 0.5, i < 40 || i > 80});
    }
    const auto plan = CameraMotionPlanner::focusSamples(samples, constant(2), constant(0));
    ASSERT_EQ(plan.size(), samples.size());
    for (size_t i = 0; i < plan.size(); ++i) {
        EXPECT_TRUE(plan[i].visible);
        EXPECT_EQ(plan[i].time, samples[i].time);
        if (i >= 40 && i <= 80) {
            EXPECT_EQ(plan[i].x, plan[i - 1].x) << i;
        }
    }
}

TEST(CameraPlan, SmallWanderDoesNotMoveTheCamera) {
    std::vector<CursorSample> samples;
    std::mt19937 random(5);
    std::uniform_real_distribution<double> wander(-0.004, 0.004);
    for (int i = 0; i < 300; ++i) {
        samples.push_back({i / 60.0, 0.16 + wander(random), 0.5 + wander(random), true});
    }
    const auto plan = CameraMotionPlanner::focusSamples(samples, constant(2), constant(0));
    int moves = 0;
    for (size_t i = 1; i < plan.size(); ++i) {
        moves += plan[i].x != plan[i - 1].x || plan[i].y != plan[i - 1].y;
    }
    EXPECT_LE(moves, 2);
}

TEST(CameraPlan, LooksAheadSoTheCameraLeavesBeforeThePointerArrives) {
    // Rests in the middle, then darts to the right at t = 1.
    std::vector<CursorSample> samples;
    for (int i = 0; i < 180; ++i) {
        const double t = i / 60.0;
        samples.push_back({t, t < 1 ? 0.5 : 0.85, 0.5, true});
    }
    const auto plan = CameraMotionPlanner::focusSamples(samples, constant(2), constant(0));
    const auto at = [&](double t) { return plan[static_cast<size_t>(std::lround(t * 60))].x; };
    EXPECT_EQ(at(0.5), 0.5);
    EXPECT_GT(at(0.85), 0.5); // 0.15 s before the pointer moves
    EXPECT_NEAR(landing(0.85, 2, at(2)), 0.82, 1e-6);
}

TEST(CameraPlan, LooksPastAHiddenStretchToWhereThePointerReappears) {
    // Rests in the middle, is hidden from 1 s (recorded in the middle too) and reappears on
    // the right at 1.5 s. Where the point 0.18 s ahead is hidden, the first visible sample
    // after it is what the camera makes room for.
    std::vector<CursorSample> samples;
    for (int i = 0; i < 180; ++i) {
        const double t = i / 60.0;
        samples.push_back({t, t < 1.5 ? 0.5 : 0.9, 0.5, t < 1 || t >= 1.5});
    }
    const auto plan = CameraMotionPlanner::focusSamples(samples, constant(2), constant(0));
    const auto at = [&](double t) { return plan[static_cast<size_t>(std::lround(t * 60))].x; };
    EXPECT_EQ(at(0.7), 0.5); // 0.18 s ahead the pointer is still visible in the middle
    EXPECT_NEAR(landing(0.9, 2, at(0.9)), 0.82, 1e-6);
}

TEST(CameraPlan, DeadZoneIsEighteenThousandthsOfTheFrame) {
    // At scale 2 the pointer at 0.33 needs the focus 0.01 lower to sit on the margin, at
    // 0.32 it needs 0.02: only the second moves the camera.
    struct Case {
        double x;
        bool moves;
    };
    for (const auto& c : {Case{0.33, false}, Case{0.32, true}}) {
        std::vector<CursorSample> samples;
        for (int i = 0; i < 90; ++i) {
            const double t = i / 60.0;
            samples.push_back({t, t < 0.5 ? 0.5 : c.x, 0.5, true});
        }
        const auto plan = CameraMotionPlanner::focusSamples(samples, constant(2), constant(0));
        EXPECT_EQ(plan.back().x != 0.5, c.moves) << c.x;
        if (c.moves) {
            EXPECT_NEAR(landing(c.x, 2, plan.back().x), 0.18, 1e-6);
        }
    }
}

TEST(CameraPlan, ZoomAndBiasComeFromTheCallbacksAtEachSampleTime) {
    std::vector<CursorSample> samples;
    for (int i = 0; i < 240; ++i) {
        samples.push_back({i / 60.0, 0.9, 0.9, true});
    }
    // Not zoomed for the first two seconds: centred; then zoomed.
    const auto scale = [](double t) { return t < 2 ? 1.0 : 2.0; };
    const auto plan = CameraMotionPlanner::focusSamples(samples, scale, constant(0));
    EXPECT_EQ(plan[60].x, 0.5);
    EXPECT_GT(plan[200].x, 0.6);
    const auto camera =
        CameraMotionPlanner::cameraSamples(samples, scale, constant(0), {47, 21, 1.4});
    // The spring lags behind the plan.
    EXPECT_LT(camera[125].x, plan[125].x);
}

} // namespace
} // namespace orvelle
