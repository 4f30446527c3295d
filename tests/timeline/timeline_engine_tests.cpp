#include "support/timeline_builders.h"
#include "timeline/resolved_edit_timeline.h"
#include "timeline/timeline_engine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace orvelle {
namespace {

constexpr double kMinimum = kMinimumTimelineClipDuration;
constexpr double kEps = kTimelineBoundaryEpsilon;

using testing::clip;
using testing::gap;

TimelineState state(std::vector<TimelineClip> clips, std::vector<DeletedTimelineGap> gaps = {},
                    double duration = 30) {
    return {SourceTime(duration), std::move(clips), std::move(gaps)};
}

std::vector<std::pair<double, double>> ranges(const TimelineState& timeline) {
    std::vector<std::pair<double, double>> result;
    for (const auto& c : timeline.clips) {
        result.emplace_back(c.start.seconds, c.end.seconds);
    }
    return result;
}

using Ranges = std::vector<std::pair<double, double>>;

TEST(ClipIndex, FindsTheClipUnderATimeAndTheLastClipAtItsVeryEnd) {
    const auto timeline = state({clip(0, 10), clip(10, 20), clip(25, 30)});
    EXPECT_EQ(TimelineEngine::clipIndex(SourceTime(0), timeline.clips), 0u);
    EXPECT_EQ(TimelineEngine::clipIndex(SourceTime(10), timeline.clips), 1u);
    EXPECT_EQ(TimelineEngine::clipIndex(SourceTime(22), timeline.clips), std::nullopt);
    EXPECT_EQ(TimelineEngine::clipIndex(SourceTime(30), timeline.clips), 2u);
    EXPECT_EQ(TimelineEngine::clipIndex(SourceTime(30 + kEps / 2), timeline.clips), 2u);
    EXPECT_EQ(TimelineEngine::clipIndex(SourceTime(30.01), timeline.clips), std::nullopt);
    // Only the last clip takes its end.
    EXPECT_EQ(TimelineEngine::clipIndex(SourceTime(20), timeline.clips), std::nullopt);
}

// A split makes two new clips that keep the clip's settings but lose its fades, holds the
// speed of both halves, and does nothing too close to an edge or outside every clip.
TEST(SplittingAClip, MakesTwoNewClipsThatLoseTheirFades) {
    auto original = clip(0, 10, 100);
    original.fadeInDuration = 1;
    original.fadeOutDuration = 2;
    original.hidesCursor = true;
    original.audio.microphoneVolume = 0.5;
    auto timeline = state({original});
    const auto before = timeline;
    EXPECT_FALSE(TimelineEngine::splitClip(timeline, SourceTime(0.05), kMinimum));
    EXPECT_FALSE(TimelineEngine::splitClip(timeline, SourceTime(9.95), kMinimum));
    EXPECT_FALSE(TimelineEngine::splitClip(timeline, SourceTime(12), kMinimum));
    EXPECT_EQ(timeline, before);
    const auto second = TimelineEngine::splitClip(timeline, SourceTime(4), kMinimum);
    ASSERT_TRUE(second);
    ASSERT_EQ(ranges(timeline), (Ranges{{0, 4}, {4, 10}}));
    EXPECT_EQ(timeline.clips[1].id, *second);
    for (const auto& half : timeline.clips) {
        EXPECT_NE(half.id, original.id);
        EXPECT_EQ(half.speed, 24.0);
        EXPECT_EQ(half.fadeInDuration, 0);
        EXPECT_EQ(half.fadeOutDuration, 0);
        EXPECT_TRUE(half.hidesCursor);
        EXPECT_EQ(half.audio.microphoneVolume, 0.5);
    }
}

TEST(DeletingAClip, LeavesAHoleAndNoGap) {
    const auto first = clip(0, 10);
    auto timeline = state({first, clip(10, 20)});
    const auto removed = TimelineEngine::deleteClip(timeline, first.id);
    ASSERT_TRUE(removed);
    EXPECT_EQ(*removed, first);
    EXPECT_EQ(ranges(timeline), (Ranges{{10, 20}}));
    EXPECT_TRUE(timeline.deletedGaps.empty());
    EXPECT_FALSE(TimelineEngine::deleteClip(timeline, Uuid::random()));
}

TEST(DeletingASourceRange, SwallowsARemainderShorterThanTheMinimum) {
    const auto original = clip(0, 10);
    auto timeline = state({original}, {}, 10);
    const auto cut =
        TimelineEngine::deleteSourceRange(timeline, SourceTime(4), SourceTime(9.95), kMinimum);
    ASSERT_TRUE(cut);
    EXPECT_EQ(ranges(timeline), (Ranges{{0, 4}}));
    EXPECT_EQ(timeline.clips[0].id, original.id);
    EXPECT_EQ(cut->sourceStart, SourceTime(4));
    EXPECT_EQ(cut->sourceEnd, SourceTime(10));
    // The engine leaves recording the gap to its caller.
    EXPECT_TRUE(timeline.deletedGaps.empty());
}

TEST(DeletingASourceRange, InTheMiddleKeepsTheLeftIdAndGivesTheRightANewOne) {
    auto original = clip(0, 10, 1.5);
    original.fadeInDuration = 1;
    auto timeline = state({original}, {}, 10);
    ASSERT_TRUE(
        TimelineEngine::deleteSourceRange(timeline, SourceTime(3), SourceTime(6), kMinimum));
    ASSERT_EQ(ranges(timeline), (Ranges{{0, 3}, {6, 10}}));
    EXPECT_EQ(timeline.clips[0].id, original.id);
    EXPECT_NE(timeline.clips[1].id, original.id);
    EXPECT_EQ(timeline.clips[0].fadeInDuration, 0);
    EXPECT_EQ(timeline.clips[1].speed, 1.5);
}

TEST(DeletingASourceRange, AcrossACutMakesOneGapOverBothPartsAndTheHole) {
    auto timeline = state({clip(0, 10), clip(20, 30)}, {gap(10, 20)});
    const auto cut =
        TimelineEngine::deleteSourceRange(timeline, SourceTime(8), SourceTime(22), kMinimum);
    ASSERT_TRUE(cut);
    EXPECT_EQ(ranges(timeline), (Ranges{{0, 8}, {22, 30}}));
    EXPECT_EQ(cut->sourceStart, SourceTime(8));
    EXPECT_EQ(cut->sourceEnd, SourceTime(22));
}

TEST(DeletingASourceRange, IsAbsentWhenItTouchesNoClipOrIsTooShort) {
    auto timeline = state({clip(0, 10), clip(20, 30)}, {gap(10, 20)});
    const auto before = timeline;
    EXPECT_FALSE(
        TimelineEngine::deleteSourceRange(timeline, SourceTime(11), SourceTime(19), kMinimum));
    EXPECT_FALSE(
        TimelineEngine::deleteSourceRange(timeline, SourceTime(5), SourceTime(5.05), kMinimum));
    EXPECT_FALSE(TimelineEngine::deleteSourceRange(timeline, SourceTime(5),
                                                   SourceTime(std::nan("")), kMinimum));
    // A range that only touches a clip's edge takes nothing.
    EXPECT_FALSE(
        TimelineEngine::deleteSourceRange(timeline, SourceTime(10), SourceTime(20), kMinimum));
    EXPECT_EQ(timeline, before);
}

TEST(DeletingASourceRange, IsHeldToTheSource) {
    auto timeline = state({clip(0, 10)}, {}, 10);
    const auto cut =
        TimelineEngine::deleteSourceRange(timeline, SourceTime(-5), SourceTime(2), kMinimum);
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->sourceStart, SourceTime(0));
    EXPECT_EQ(ranges(timeline), (Ranges{{2, 10}}));
}

TEST(RestoringASourceRange, IsAbsentWhenClipsCoverItAndGapsKeepTheirIds) {
    auto timeline = state({clip(0, 10), clip(20, 30)}, {gap(10, 20)});
    const auto before = timeline;
    EXPECT_FALSE(
        TimelineEngine::restoreSourceRange(timeline, SourceTime(2), SourceTime(8), kMinimum));
    EXPECT_EQ(timeline, before);
}

TEST(RestoringASourceRange, FillsTheCutMergesWithLikeNeighboursAndDropsTheGap) {
    const auto first = clip(0, 10);
    auto timeline = state({first, clip(20, 30)}, {gap(10, 20)});
    const auto restored =
        TimelineEngine::restoreSourceRange(timeline, SourceTime(10), SourceTime(20), kMinimum);
    ASSERT_TRUE(restored);
    EXPECT_EQ(ranges(timeline), (Ranges{{0, 30}}));
    EXPECT_EQ(timeline.clips[0].id, first.id);
    EXPECT_EQ(*restored, timeline.clips[0]);
    EXPECT_TRUE(timeline.deletedGaps.empty());
}

TEST(RestoringASourceRange, NextToAFastClipPlaysFastAndMergesWithIt) {
    auto timeline = state({clip(0, 10, 2.0), clip(20, 30)}, {gap(10, 20)});
    const auto restored =
        TimelineEngine::restoreSourceRange(timeline, SourceTime(10), SourceTime(15), kMinimum);
    ASSERT_TRUE(restored);
    EXPECT_EQ(ranges(timeline), (Ranges{{0, 15}, {20, 30}}));
    EXPECT_EQ(timeline.clips[0].speed, 2.0);
    ASSERT_EQ(timeline.deletedGaps.size(), 1u);
    EXPECT_EQ(timeline.deletedGaps[0].sourceStart, SourceTime(15));
    EXPECT_EQ(timeline.deletedGaps[0].sourceEnd, SourceTime(20));
}

TEST(RestoringASourceRange, WithoutNeighboursPlaysAtPlainSettings) {
    auto timeline = state({}, {}, 10);
    const auto restored =
        TimelineEngine::restoreSourceRange(timeline, SourceTime(2), SourceTime(5), kMinimum);
    ASSERT_TRUE(restored);
    EXPECT_EQ(restored->speed, 1.0);
    EXPECT_FALSE(restored->hidesCursor);
    EXPECT_EQ(restored->audio, TimelineClipAudioSettings{});
}

TEST(RestoringACut, JoinsTwoClipsWithTheEarlierOnesSpeed) {
    const auto first = clip(0, 10, 1.0);
    const auto second = clip(20, 30, 3.0);
    auto timeline = state({first, second}, {gap(10, 20), gap(30, 30.5)}, 31);
    EXPECT_FALSE(TimelineEngine::restoreCut(timeline, first.id, kMinimum));
    const auto merged = TimelineEngine::restoreCut(timeline, second.id, kMinimum);
    ASSERT_TRUE(merged);
    EXPECT_EQ(ranges(timeline), (Ranges{{0, 30}}));
    EXPECT_EQ(merged->id, second.id);
    EXPECT_EQ(merged->speed, 1.0);
    // Only the gap between the two goes.
    ASSERT_EQ(timeline.deletedGaps.size(), 1u);
    EXPECT_EQ(timeline.deletedGaps[0].sourceStart, SourceTime(30));
}

// Neighbours that touch merge both ways into the earliest, when their speeds differ by no
// more than a hair and their mix and pointer setting are the same.
TEST(MergingContiguousClips, JoinsLikeNeighboursBothWays) {
    for (const auto& [secondSpeed, merges] :
         std::vector<std::pair<double, bool>>{{1.00005, true}, {1.001, false}, {1.0, true}}) {
        const auto first = clip(0, 10, 1.0);
        auto timeline = state({first, clip(10 + kEps / 2, 20, secondSpeed)});
        const auto result = TimelineEngine::mergeContiguousClips(timeline, first.id);
        ASSERT_TRUE(result);
        EXPECT_EQ(timeline.clips.size(), merges ? 1u : 2u) << secondSpeed;
        EXPECT_EQ(result->id, first.id);
    }
    auto louder = clip(10, 20);
    louder.audio.musicVolume = 0.3;
    auto hidden = clip(20, 30);
    hidden.hidesCursor = true;
    auto unlike = state({clip(0, 10), louder, hidden});
    TimelineEngine::mergeContiguousClips(unlike, louder.id);
    EXPECT_EQ(unlike.clips.size(), 3u);
    const auto middle = clip(10, 20);
    auto timeline = state({clip(0, 10), middle, clip(20, 30)});
    const auto earliest = timeline.clips[0].id;
    const auto merged = TimelineEngine::mergeContiguousClips(timeline, middle.id);
    ASSERT_TRUE(merged);
    EXPECT_EQ(ranges(timeline), (Ranges{{0, 30}}));
    EXPECT_EQ(merged->id, earliest);
}

TEST(SourceBounds, StopAtNeighboursAndGapsButNotAtOverlaps) {
    const auto middle = clip(10, 20);
    const auto timeline = state({clip(0, 5), middle, clip(25, 28)}, {gap(5, 8), gap(21, 22)});
    const auto bounds = TimelineEngine::sourceBounds(timeline, middle);
    EXPECT_EQ(bounds.lowerBound, SourceTime(8));
    EXPECT_EQ(bounds.upperBound, SourceTime(21));
    const auto alone = clip(1, 2);
    EXPECT_EQ(TimelineEngine::sourceBounds(state({alone}), alone),
              (TimelineSourceBounds{SourceTime(0), SourceTime(30)}));
}

// A trim stops at a gap and at the shortest clip, and counts its delta in edit seconds at the
// clip's speed.
TEST(TrimmingAClip, StopsAtAGapAndAtTheShortestClip) {
    const auto middle = clip(10, 20);
    const auto timeline = state({clip(0, 5), middle}, {gap(5, 8), gap(22, 30)});
    const auto endTrim = TimelineEngine::trimSession(timeline, middle, TimelineTrimEdge::end);
    EXPECT_EQ(TimelineEngine::trimmedClip(endTrim, middle, EditTime(5)).end, SourceTime(22));
    EXPECT_EQ(TimelineEngine::trimmedClip(endTrim, middle, EditTime(-50)).end,
              SourceTime(10 + kMinimum));
    const auto startTrim = TimelineEngine::trimSession(timeline, middle, TimelineTrimEdge::start);
    EXPECT_EQ(TimelineEngine::trimmedClip(startTrim, middle, EditTime(-5)).start, SourceTime(8));
    EXPECT_EQ(TimelineEngine::trimmedClip(startTrim, middle, EditTime(50)).start,
              SourceTime(20 - kMinimum));
    const auto fast = clip(0, 10, 2.0);
    const auto session = TimelineEngine::trimSession(state({fast}), fast, TimelineTrimEdge::end);
    EXPECT_EQ(TimelineEngine::trimmedClip(session, fast, EditTime(3)).end, SourceTime(16));
}

// A move slides the clip's window inside its free space; a clip shorter than the minimum
// moves as the minimum.
TEST(MovingAClip, SlidesItsWindowInsideItsFreeSpace) {
    const auto middle = clip(10, 20);
    const auto session =
        TimelineEngine::moveSession(state({clip(0, 5), middle, clip(25, 30)}), middle);
    const auto right = TimelineEngine::movedClip(session, middle, EditTime(100));
    EXPECT_EQ(right.start, SourceTime(15));
    EXPECT_EQ(right.end, SourceTime(25));
    const auto left = TimelineEngine::movedClip(session, middle, EditTime(-100));
    EXPECT_EQ(left.start, SourceTime(5));
    EXPECT_EQ(left.end, SourceTime(15));
    const auto tiny = clip(10, 10.02);
    const auto moved = TimelineEngine::movedClip(TimelineEngine::moveSession(state({tiny}), tiny),
                                                 tiny, EditTime(1));
    EXPECT_EQ(moved.start, SourceTime(11));
    EXPECT_NEAR(moved.end.seconds, 11 + kMinimum, 1e-12);
}

// Restoring an edge runs it to the neighbour, passing over gaps, or to the source's start.
TEST(RestoringAnEdgeTrim, RunsToTheNeighbourOrTheSourcesStart) {
    const auto first = clip(0, 6);
    auto timeline = state({first, clip(10, 20)}, {gap(6, 8)});
    ASSERT_TRUE(TimelineEngine::restoreEdgeTrim(timeline, first.id, TimelineTrimEdge::end));
    EXPECT_EQ(ranges(timeline), (Ranges{{0, 10}, {10, 20}}));
    EXPECT_TRUE(timeline.deletedGaps.empty());
    EXPECT_FALSE(TimelineEngine::restoreEdgeTrim(timeline, first.id, TimelineTrimEdge::end));
    EXPECT_FALSE(TimelineEngine::restoreEdgeTrim(timeline, first.id, TimelineTrimEdge::start));
    const auto only = clip(3, 10);
    auto single = state({only}, {}, 10);
    ASSERT_TRUE(TimelineEngine::restoreEdgeTrim(single, only.id, TimelineTrimEdge::start));
    EXPECT_EQ(ranges(single), (Ranges{{0, 10}}));
}

// Long random sequences of every operation: the invariants of a normalised timeline hold
// after each step, and the edit axis stays within the source.
TEST(TimelineEngineInvariants, HoldOverRandomEditSequences) {
    std::mt19937 random(20240301);
    size_t mostClips = 0;
    size_t mostGaps = 0;
    for (int run = 0; run < 40; ++run) {
        const double duration = std::uniform_real_distribution<double>(1, 120)(random);
        TimelineState timeline = fullLengthTimeline(SourceTime(duration));
        std::uniform_real_distribution<double> time(-1, duration + 1);
        std::uniform_real_distribution<double> delta(-duration / 2, duration / 2);
        for (int step = 0; step < 300; ++step) {
            const auto pick = [&]() -> std::optional<TimelineClip> {
                if (timeline.clips.empty()) {
                    return std::nullopt;
                }
                return timeline.clips[std::uniform_int_distribution<size_t>(
                    0, timeline.clips.size() - 1)(random)];
            };
            switch (std::uniform_int_distribution<int>(0, 8)(random)) {
            case 0:
                TimelineEngine::splitClip(timeline, SourceTime(time(random)), kMinimum);
                break;
            case 1:
                if (auto c = pick(); c && random() % 4 == 0) {
                    TimelineEngine::deleteClip(timeline, c->id);
                }
                break;
            case 2: {
                const double a = time(random);
                if (auto cut = TimelineEngine::deleteSourceRange(
                        timeline, SourceTime(a), SourceTime(a + std::abs(delta(random)) / 4),
                        kMinimum)) {
                    timeline.deletedGaps.push_back(*cut);
                    TimelineEngine::normalize(timeline);
                }
                break;
            }
            case 3: {
                const double a = time(random);
                TimelineEngine::restoreSourceRange(
                    timeline, SourceTime(a), SourceTime(a + std::abs(delta(random))), kMinimum);
                break;
            }
            case 4:
                if (auto c = pick()) {
                    TimelineEngine::restoreCut(timeline, c->id, kMinimum);
                }
                break;
            case 5:
            case 6:
                if (auto c = pick()) {
                    const auto edge =
                        random() % 2 ? TimelineTrimEdge::start : TimelineTrimEdge::end;
                    const auto session = TimelineEngine::trimSession(timeline, *c, edge);
                    auto& stored =
                        timeline.clips[*TimelineEngine::clipIndex(c->start, timeline.clips)];
                    if (stored.id == c->id) {
                        stored = TimelineEngine::trimmedClip(session, *c, EditTime(delta(random)));
                        TimelineEngine::normalize(timeline);
                    }
                }
                break;
            case 7:
                if (auto c = pick()) {
                    const auto session = TimelineEngine::moveSession(timeline, *c);
                    for (auto& stored : timeline.clips) {
                        if (stored.id == c->id) {
                            stored =
                                TimelineEngine::movedClip(session, *c, EditTime(delta(random)));
                        }
                    }
                    TimelineEngine::normalize(timeline);
                }
                break;
            case 8:
                if (auto c = pick()) {
                    TimelineEngine::restoreEdgeTrim(timeline, c->id,
                                                    random() % 2 ? TimelineTrimEdge::start
                                                                 : TimelineTrimEdge::end);
                }
                break;
            }
            for (size_t i = 0; i < timeline.clips.size(); ++i) {
                const auto& c = timeline.clips[i];
                ASSERT_LT(c.start, c.end) << "run " << run << " step " << step;
                ASSERT_GE(c.start.seconds, -kEps);
                ASSERT_LE(c.end.seconds, duration + kEps);
                if (i > 0) {
                    ASSERT_LE(timeline.clips[i - 1].start, c.start);
                    ASSERT_LE(timeline.clips[i - 1].end.seconds, c.start.seconds + kEps)
                        << "clips overlap at run " << run << " step " << step;
                }
            }
            for (size_t i = 1; i < timeline.deletedGaps.size(); ++i) {
                ASSERT_LE(timeline.deletedGaps[i - 1].sourceStart,
                          timeline.deletedGaps[i].sourceStart);
            }
            mostClips = std::max(mostClips, timeline.clips.size());
            mostGaps = std::max(mostGaps, timeline.deletedGaps.size());
            const ResolvedEditTimeline resolved(EditTimeline::from(timeline));
            ASSERT_LE(resolved.duration(), duration / kMinimumClipSpeed + kEps);
        }
    }
    // The sequences reach busy timelines, not only trivial ones.
    EXPECT_GE(mostClips, 8u);
    EXPECT_GE(mostGaps, 4u);
}

} // namespace
} // namespace orvelle
