#include "support/timeline_builders.h"
#include "timeline/resolved_edit_timeline.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace orvelle {
namespace {

using testing::clip;
using testing::gap;

ResolvedEditTimeline resolve(std::vector<TimelineClip> clips, std::vector<DeletedTimelineGap> gaps,
                             double sourceDuration) {
    return ResolvedEditTimeline(std::move(clips), std::move(gaps), SourceTime(sourceDuration));
}

// Two clips [0, 10] and [20, 30] with the stretch between them deleted.
ResolvedEditTimeline cutInTheMiddle() {
    return resolve({clip(0, 10), clip(20, 30)}, {gap(10, 20)}, 30);
}

double sourceAt(const ResolvedEditTimeline& timeline, double edit) {
    const auto source = timeline.sourceTime(EditTime(edit));
    EXPECT_TRUE(source.has_value()) << "edit time " << edit;
    return source ? source->seconds : std::nan("");
}

double editAt(const ResolvedEditTimeline& timeline, double source) {
    return timeline.editTime(SourceTime(source)).seconds;
}

TEST(ResolvingAnEditTimeline, LaysClipsEndToEndAndGapsAsPoints) {
    const auto timeline = cutInTheMiddle();
    EXPECT_EQ(timeline.duration(), 20);
    ASSERT_EQ(timeline.clipLayouts().size(), 2u);
    EXPECT_EQ(timeline.clipLayouts()[0].timelineStart, EditTime(0));
    EXPECT_EQ(timeline.clipLayouts()[0].timelineEnd, EditTime(10));
    EXPECT_EQ(timeline.clipLayouts()[1].timelineStart, EditTime(10));
    EXPECT_EQ(timeline.clipLayouts()[1].timelineEnd, EditTime(20));
    ASSERT_EQ(timeline.gaps().size(), 1u);
    EXPECT_EQ(timeline.gaps()[0].timelineStart, EditTime(10));
    EXPECT_EQ(timeline.gaps()[0].timelineEnd, EditTime(10));
    ASSERT_EQ(timeline.elements().size(), 3u);
    EXPECT_TRUE(std::holds_alternative<DeletedTimelineGap>(timeline.elements()[1]));
}

TEST(ResolvingAnEditTimeline, SpeedShortensTheEditAxis) {
    const auto timeline = resolve({clip(0, 10, 2)}, {}, 10);
    EXPECT_EQ(timeline.duration(), 5);
    EXPECT_EQ(sourceAt(timeline, 2.5), 5);
    EXPECT_EQ(editAt(timeline, 5), 2.5);
    EXPECT_EQ(timeline.clipLayouts()[0].speed, 2);
}

TEST(ResolvingAnEditTimeline, StoredSpeedsAreSanitised) {
    const auto infinite = resolve({clip(0, 10, std::numeric_limits<double>::infinity())}, {}, 10);
    EXPECT_EQ(infinite.duration(), 10);
    EXPECT_EQ(sourceAt(infinite, 4), 4);
    const auto slow = resolve({clip(0, 3, 0.1)}, {}, 3);
    EXPECT_DOUBLE_EQ(slow.duration(), 4);
    EXPECT_DOUBLE_EQ(sourceAt(slow, 2), 1.5);
    EXPECT_DOUBLE_EQ(editAt(slow, 1.5), 2);
    EXPECT_EQ(slow.clipLayouts()[0].speed, 0.1); // the layout keeps what is stored
}

TEST(ResolvingAnEditTimeline, SortsAGapAndAClipWithTheSameStartByEnd) {
    const auto shortGap = gap(5, 6);
    const auto longClip = clip(5, 9);
    const auto timeline = resolve({clip(0, 5), longClip}, {shortGap}, 9);
    ASSERT_EQ(timeline.elements().size(), 3u);
    EXPECT_EQ(std::get<DeletedTimelineGap>(timeline.elements()[1]).id, shortGap.id);
    EXPECT_EQ(std::get<TimelineClip>(timeline.elements()[2]).id, longClip.id);

    const auto longGap = gap(5, 12);
    const auto shortClip = clip(5, 7);
    const auto reversed = resolve({shortClip}, {longGap}, 12);
    EXPECT_EQ(std::get<TimelineClip>(reversed.elements()[0]).id, shortClip.id);
}

TEST(ResolvingAnEditTimeline, KeepsTheGivenOrderOfExactTies) {
    const auto first = gap(2, 4);
    const auto second = gap(2, 4);
    const auto timeline = resolve({}, {first, second}, 4);
    EXPECT_EQ(timeline.gaps()[0].id, first.id);
    EXPECT_EQ(timeline.gaps()[1].id, second.id);
}

TEST(ResolvingAnEditTimeline, PassesOverACorruptClip) {
    const auto timeline = resolve({clip(0, 4), clip(6, 5), clip(8, 10)}, {}, 10);
    EXPECT_EQ(timeline.duration(), 6);
    EXPECT_EQ(timeline.clipLayouts()[1].timelineStart, timeline.clipLayouts()[1].timelineEnd);
    EXPECT_EQ(sourceAt(timeline, 5), 9);
}

// Edit time to source time: a cut resolves to the frame after it, times are held to the axis,
// a leading gap gives the first clip's start, a trailing one the last clip's end, a split
// without a cut stays on the earlier clip, and several cuts in a row land after the last.
// Source time to edit time: deleted material lands on its cut, an uncovered hole takes the
// position of what follows.
TEST(MappingEditAndSourceTimes, AcrossCutsHolesAndTheEnds) {
    const auto middle = cutInTheMiddle();
    const auto leading = resolve({clip(5, 10)}, {gap(0, 5)}, 10);
    const auto trailing = resolve({clip(0, 10)}, {gap(10, 20)}, 20);
    const auto split = resolve({clip(0, 10), clip(10, 20, 2)}, {}, 20);
    const auto cuts = resolve({clip(0, 10), clip(25, 30)}, {gap(10, 15), gap(15, 25)}, 30);
    const auto holes = resolve({clip(0, 4), clip(8, 12)}, {}, 12);
    const std::vector<std::tuple<const ResolvedEditTimeline*, double, double>> sourceForEdit{
        {&middle, 10, 20},
        {&middle, 10 + 0.5 / 600, 20},
        {&middle, 9.5, 9.5},
        {&middle, 10.5, 20.5},
        {&middle, 0, 0},
        {&middle, 20, 30},
        {&middle, -5, 0},
        {&middle, 500, 30},
        {&middle, std::nan(""), 0},
        {&leading, 0, 5},
        {&trailing, 10, 10},
        {&trailing, 10.5, 10},
        {&split, 10, 10},
        {&split, 12, 14},
        {&cuts, 10, 25}};
    for (const auto& [timeline, edit, source] : sourceForEdit) {
        EXPECT_DOUBLE_EQ(sourceAt(*timeline, edit), source) << "edit time " << edit;
    }
    EXPECT_EQ(leading.gaps()[0].timelineStart, EditTime(0));
    EXPECT_EQ(trailing.duration(), 10);
    EXPECT_EQ(cuts.duration(), 15);
    const std::vector<std::tuple<const ResolvedEditTimeline*, double, double>> editForSource{
        {&middle, 15, 10}, {&middle, 10, 10}, {&middle, 20, 10}, {&middle, 25, 15},
        {&middle, 45, 20}, {&leading, 2, 0},  {&holes, 6, 4}};
    for (const auto& [timeline, source, edit] : editForSource) {
        EXPECT_DOUBLE_EQ(editAt(*timeline, source), edit) << "source time " << source;
    }
}

TEST(EmptyTimeline, HasNoSourceTimeAndEditTimeZero) {
    const auto timeline = resolve({}, {}, 0);
    EXPECT_EQ(timeline.duration(), 0);
    EXPECT_FALSE(timeline.sourceTime(EditTime(0)).has_value());
    EXPECT_EQ(editAt(timeline, 3), 0);
    EXPECT_FALSE(timeline.playableTimeAtOrAfter(SourceTime(0)).has_value());
    EXPECT_FALSE(timeline.playableTimeAtOrBefore(SourceTime(0)).has_value());
    const auto onlyGaps = resolve({}, {gap(0, 4)}, 4);
    EXPECT_FALSE(onlyGaps.sourceTime(EditTime(0)).has_value());
}

// The nearest playable time looks across cuts in each direction: a clip's start is inside,
// its end is outside forwards, and queries are held to the source.
TEST(PlayableTime, LooksAcrossCutsInEachDirection) {
    const auto timeline = resolve({clip(2, 10), clip(20, 30)}, {gap(10, 20)}, 40);
    const auto none = std::optional<double>();
    const std::vector<std::tuple<double, std::optional<double>, std::optional<double>>> table{
        {-1, 2, none}, {0, 2, none},   {2, 2, 2},      {5, 5, 5},     {10, 20, 10},
        {15, 20, 10},  {30, none, 30}, {35, none, 30}, {99, none, 30}};
    const auto seconds = [](const std::optional<SourceTime>& time) {
        return time ? std::optional(time->seconds) : std::nullopt;
    };
    for (const auto& [query, atOrAfter, atOrBefore] : table) {
        EXPECT_EQ(seconds(timeline.playableTimeAtOrAfter(SourceTime(query))), atOrAfter) << query;
        EXPECT_EQ(seconds(timeline.playableTimeAtOrBefore(SourceTime(query))), atOrBefore) << query;
    }
}

// Random timelines of clips at random speeds, with cuts and holes between them: inside a
// clip, the two mappings undo one another.
TEST(EditTimelineMapping, EditAndSourceTimesRoundTripInsideClips) {
    std::mt19937 random(20240611);
    std::uniform_real_distribution<double> length(0.2, 8.0);
    std::uniform_real_distribution<double> spacing(0.0, 3.0);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const std::array<double, 6> speeds{0.75, 1.0, 1.5, 2.0, 4.0, 24.0};
    for (int round = 0; round < 200; ++round) {
        std::vector<TimelineClip> clips;
        std::vector<DeletedTimelineGap> gaps;
        double position = spacing(random) * (round % 2);
        const int clipCount = 1 + static_cast<int>(unit(random) * 6);
        for (int i = 0; i < clipCount; ++i) {
            const double start = position;
            const double end = start + length(random);
            clips.push_back(clip(start, end, speeds[random() % speeds.size()]));
            position = end;
            const double hole = spacing(random);
            if (hole > 0.5 && unit(random) < 0.7) {
                gaps.push_back(gap(position, position + hole));
            }
            position += hole;
        }
        const auto timeline = resolve(clips, gaps, position);
        for (int sample = 0; sample < 40; ++sample) {
            const auto& chosen = timeline.clipLayouts()[random() % timeline.clipLayouts().size()];
            // An edit time within a frame after a cut belongs to the cut; stay clear of it.
            const double margin = 1.01 * kTimelineBoundaryEpsilon;
            const double span = chosen.timelineEnd.seconds - chosen.timelineStart.seconds;
            const double edit =
                chosen.timelineStart.seconds + margin + unit(random) * (span - 2 * margin);
            const auto source = timeline.sourceTime(EditTime(edit));
            ASSERT_TRUE(source.has_value());
            EXPECT_GE(source->seconds, chosen.sourceStart.seconds);
            EXPECT_LE(source->seconds, chosen.sourceEnd.seconds);
            EXPECT_NEAR(timeline.editTime(*source).seconds, edit, 1e-9)
                << "round " << round << " edit " << edit;
            const double inside =
                chosen.sourceStart.seconds +
                (edit - chosen.timelineStart.seconds) * sanitisedClipSpeed(chosen.speed);
            const auto back = timeline.sourceTime(timeline.editTime(SourceTime(inside)));
            ASSERT_TRUE(back.has_value());
            EXPECT_NEAR(back->seconds, inside, 1e-9) << "round " << round;
        }
        // Every cut: the edit time of the deleted stretch resolves past it.
        for (const auto& cut : timeline.gaps()) {
            const auto source = timeline.sourceTime(cut.timelineStart);
            ASSERT_TRUE(source.has_value());
            EXPECT_TRUE(source->seconds >= cut.sourceEnd.seconds ||
                        source->seconds <= cut.sourceStart.seconds)
                << "the playhead rests inside deleted material";
        }
    }
}

TEST(EditTimeline, TakesTheListsOfAState) {
    TimelineState state{.sourceDuration = SourceTime(30),
                        .clips = {clip(0, 10), clip(20, 30)},
                        .deletedGaps = {gap(10, 20)}};
    const auto timeline = EditTimeline::from(state);
    EXPECT_EQ(timeline.boundaryEpsilon, 1.0 / 600.0);
    const ResolvedEditTimeline resolved(timeline);
    EXPECT_EQ(resolved.duration(), 20);
    EXPECT_EQ(resolved.sourceDuration(), SourceTime(30));
    EXPECT_EQ(resolved.clips(), state.clips);
}

} // namespace
} // namespace orvelle
