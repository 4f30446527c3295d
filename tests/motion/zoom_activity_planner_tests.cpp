#include "motion/zoom_activity_planner.h"

#include <gtest/gtest.h>

#include <random>

namespace orvelle {
namespace {

using ZoomActivityPlanner::Burst;
using ZoomActivityPlanner::Span;

CursorSample at(double time, double x, double y = 0.5, bool visible = true) {
    return {time, x, y, visible};
}

// A pointer sampled at 60 Hz over [start, end), moving steadily to the right from x.
std::vector<CursorSample> movingPointer(double start, double end, double x, double speed) {
    std::vector<CursorSample> samples;
    for (int i = 0; start + i / 60.0 < end; ++i) {
        samples.push_back(at(start + i / 60.0, x + speed * i / 60.0));
    }
    return samples;
}

std::vector<CursorSample> stillPointer(double start, double end, double x = 0.4) {
    return movingPointer(start, end, x, 0);
}

std::vector<CursorClick> clicksAt(std::initializer_list<double> times) {
    std::vector<CursorClick> clicks;
    for (const double t : times) {
        clicks.push_back({t, 0});
    }
    return clicks;
}

void expectSpans(const std::vector<Span>& actual, const std::vector<Span>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i) {
        EXPECT_NEAR(actual[i].start, expected[i].start, 1e-9) << "span " << i;
        EXPECT_NEAR(actual[i].end, expected[i].end, 1e-9) << "span " << i;
    }
}

TEST(MovementTimes, CountTravelInTheLookBackAndNeverAcrossAHiddenStretch) {
    // Each step is below the distance, but the window adds them up.
    std::vector<CursorSample> samples;
    for (int i = 0; i < 30; ++i) {
        samples.push_back(at(i * 0.02, 0.5 + i * 0.002));
    }
    const auto times = ZoomActivityPlanner::movementTimes(samples);
    ASSERT_FALSE(times.empty());
    // 0.012 of travel is reached at the sixth step from the first sample.
    EXPECT_NEAR(times.front(), 0.12, 1e-9);
    // The hidden stretch outlasts the look-back, so the anchor runs up to the sample that
    // reappears and nothing is measured against the position before it.
    EXPECT_TRUE(ZoomActivityPlanner::movementTimes(
                    {at(0, 0.1), at(0.1, 0.9, 0.5, false), at(0.4, 0.9, 0.5, false), at(0.45, 0.9)})
                    .empty());
    // A pointer hidden for the whole window makes none.
    std::vector<CursorSample> hidden;
    for (int i = 0; i < 60; ++i) {
        hidden.push_back(at(i / 60.0, i * 0.05, 0.5, false));
    }
    EXPECT_TRUE(ZoomActivityPlanner::movementTimes(hidden).empty());
    // At 0.5 the anchor runs past 0 (older than 0.2) up to the sample itself.
    EXPECT_TRUE(
        ZoomActivityPlanner::movementTimes({at(0, 0.1), at(0.5, 0.5), at(0.6, 0.5)}).empty());
}

TEST(Bursts, JoinEventsUpToThreeSecondsApartAndKeepOnlyLastingMovement) {
    const auto joined = ZoomActivityPlanner::bursts({}, {5.0, 8.0});
    EXPECT_EQ(joined, (std::vector<Burst>{{5.0, 8.0, true}}));
    const auto apart = ZoomActivityPlanner::bursts({}, {5.0, 8.01});
    EXPECT_EQ(apart.size(), 2u);
    EXPECT_EQ(ZoomActivityPlanner::bursts({2.0, 2.1, 2.2}, {}).size(), 1u);
    EXPECT_TRUE(ZoomActivityPlanner::bursts({2.0, 2.1, 2.199}, {}).empty());
    EXPECT_TRUE(ZoomActivityPlanner::bursts({1.0}, {}).empty());
    // A single click always survives, and lends its burst the click.
    EXPECT_EQ(ZoomActivityPlanner::bursts({1.0}, {1.0}), (std::vector<Burst>{{1.0, 1.0, true}}));
}

TEST(Spans, AreWidenedClampedSortedAndJoinedWhenClose) {
    const std::vector<CursorSample> none;
    expectSpans(ZoomActivityPlanner::spans(none, clicksAt({5.0}), 60), {{4.3, 6.3}});
    expectSpans(ZoomActivityPlanner::spans(none, clicksAt({0.1}), 60), {{0, 1.4}});
    // Two bursts (3.01 s apart) give 4.3-6.3 and 7.31-9.31, 1.01 s apart: one span.
    expectSpans(ZoomActivityPlanner::spans(none, clicksAt({5.0, 8.01}), 60), {{4.3, 9.31}});
    expectSpans(ZoomActivityPlanner::spans(none, clicksAt({5.0, 15.0}), 60),
                {{4.3, 6.3}, {14.3, 16.3}});
    expectSpans(ZoomActivityPlanner::spans(none, clicksAt({10.0}), 10), {{9.3, 10}});
    EXPECT_TRUE(ZoomActivityPlanner::spans(none, clicksAt({10.01, -1}), 10).empty());
    EXPECT_TRUE(ZoomActivityPlanner::spans(none, clicksAt({5}), 0).empty());
    expectSpans(ZoomActivityPlanner::spans(none, clicksAt({30, 5}), 60),
                {{4.3, 6.3}, {29.3, 31.3}});
}

// Pointer samples that count as movement at each of the given times (and nowhere else).
std::vector<CursorSample> movementAt(const std::vector<double>& times) {
    std::vector<CursorSample> samples;
    double x = 0.1;
    for (const double t : times) {
        samples.push_back(at(t - 0.05, x));
        x += 0.05;
        samples.push_back(at(t, x));
    }
    return samples;
}

TEST(Spans, ExactlyTheMergeGapApartStaySeparate) {
    // Movement over [1, 2.8] and [6.1, 8.1]: spans [0.4, 4.0] and [5.5, 9.3], exactly
    // 1.5 s apart.
    const auto samples = movementAt({1.0, 1.9, 2.8, 6.1, 7.1, 8.1});
    ASSERT_EQ(ZoomActivityPlanner::movementTimes(samples),
              (std::vector<double>{1.0, 1.9, 2.8, 6.1, 7.1, 8.1}));
    expectSpans(ZoomActivityPlanner::spans(samples, {}, 60), {{0.4, 4.0}, {5.5, 9.3}});
    // A hair closer and they join.
    expectSpans(ZoomActivityPlanner::spans(movementAt({1.0, 1.9, 2.81, 6.1, 7.1, 8.1}), {}, 60),
                {{0.4, 9.3}});
}

TEST(DefaultAnimationClips, WithoutPointerDataZoomAllButHeadAndTail) {
    const auto clips = TimelineEngine::defaultAnimationClips(EditTime(10), 1.8, {}, {});
    ASSERT_EQ(clips.size(), 1u);
    EXPECT_EQ(clips[0].start, EditTime(2));
    EXPECT_EQ(clips[0].end, EditTime(8));
    EXPECT_EQ(clips[0].zoomScale, 1.8);
    EXPECT_EQ(clips[0].zoomMode, AnimationZoomMode::automatic);
    EXPECT_FALSE(clips[0].manualOffset);
    EXPECT_TRUE(TimelineEngine::defaultAnimationClips(EditTime(4.1), 1.5, {}, {}).empty());
    EXPECT_EQ(TimelineEngine::defaultAnimationClips(EditTime(4.15), 1.5, {}, {}).size(), 1u);
}

TEST(DefaultAnimationClips, AStillPointerGetsNoZoomWhateverTheDuration) {
    for (const double duration : {5.0, 60.0, 3600.0}) {
        EXPECT_TRUE(
            TimelineEngine::defaultAnimationClips(EditTime(duration), 1.5, stillPointer(0, 5), {})
                .empty())
            << duration;
    }
}

TEST(DefaultAnimationClips, FollowActivityWithFreshIds) {
    // Still at 0.4, then 0.2 of the frame a second from 10 s to 12 s, then still at 0.8.
    auto samples = stillPointer(0, 10);
    const auto moving = movingPointer(10, 12, 0.4, 0.2);
    samples.insert(samples.end(), moving.begin(), moving.end());
    const auto still = stillPointer(12, 30, 0.8);
    samples.insert(samples.end(), still.begin(), still.end());
    const auto clips =
        TimelineEngine::defaultAnimationClips(EditTime(30), 1.5, samples, clicksAt({25}));
    ASSERT_EQ(clips.size(), 2u);
    // Movement counts from 0.012 of travel (0.06 s in) until the look-back window has
    // passed the last 0.012 of travel (0.24 s after the pointer stopped).
    EXPECT_NEAR(clips[0].start.seconds, 10.06 - 0.6, 1.0 / 60);
    EXPECT_NEAR(clips[0].end.seconds, 12.24 + 1.2, 1.0 / 60);
    EXPECT_NEAR(clips[1].start.seconds, 24.3, 1e-9);
    EXPECT_NE(clips[0].id, clips[1].id);
}

// Whatever the input, spans come sorted, apart by at least the merge gap, and inside the
// timeline.
TEST(Spans, AreSortedSeparateAndInsideForRandomInput) {
    std::mt19937 random(7);
    for (int run = 0; run < 200; ++run) {
        const double duration = std::uniform_real_distribution<double>(0.5, 200)(random);
        std::uniform_real_distribution<double> time(-5, duration + 5);
        std::uniform_real_distribution<double> unit(-0.2, 1.2);
        std::vector<CursorSample> samples;
        for (int i = 0; i < 400; ++i) {
            samples.push_back(at(time(random), unit(random), unit(random), random() % 5 != 0));
        }
        std::sort(samples.begin(), samples.end(),
                  [](const auto& a, const auto& b) { return a.time < b.time; });
        // A few samples out of order, as a jittery clock might give.
        for (int swap = 0; swap < 10; ++swap) {
            const size_t k = random() % (samples.size() - 1);
            std::swap(samples[k], samples[k + 1]);
        }
        std::vector<CursorClick> clicks;
        for (int i = 0; i < 5; ++i) {
            clicks.push_back({time(random), 0});
        }
        const auto result = ZoomActivityPlanner::spans(samples, clicks, duration);
        for (size_t i = 0; i < result.size(); ++i) {
            EXPECT_GE(result[i].start, 0);
            EXPECT_LE(result[i].end, duration);
            EXPECT_LE(result[i].start, result[i].end);
            if (i > 0) {
                EXPECT_GE(result[i].start - result[i - 1].end, ZoomActivityPlanner::kMergeGap);
            }
        }
    }
}

} // namespace
} // namespace orvelle
