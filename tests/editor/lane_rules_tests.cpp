#include "editor/timeline_lane_policy.h"
#include "editor/timeline_range_clip_editor.h"
#include "editor/timeline_ripple.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

LaneClipRange range(double start, double end) {
    return {Uuid::random(), EditTime(start), EditTime(end)};
}

std::optional<std::pair<double, double>> placed(double start, double end,
                                                const std::vector<LaneClipRange>& among,
                                                double duration, double minimum = 0.5) {
    const auto result =
        TimelineLanePolicy::place(range(start, end), among, EditTime(duration), EditTime(minimum));
    if (!result) {
        return std::nullopt;
    }
    return std::pair(result->lower.seconds, result->upper.seconds);
}

using Placed = std::optional<std::pair<double, double>>;

TEST(LaneGaps, AreTheFreeStretchesAtLeastTheMinimumLong) {
    const auto gaps = TimelineLanePolicy::gaps({range(2, 4), range(4.2, 6), range(9, 12)}, 10, 0.5);
    ASSERT_EQ(gaps.size(), 2u);
    EXPECT_EQ(gaps[0], (EditTimeRange{EditTime(0), EditTime(2)}));
    EXPECT_EQ(gaps[1], (EditTimeRange{EditTime(6), EditTime(9)}));
}

TEST(PlacingALaneClip, GoesToTheNearestRoomCutToFit) {
    const std::vector<LaneClipRange> lane = {range(0, 2), range(4, 6), range(8, 10)};
    const std::vector<std::tuple<double, double, std::vector<LaneClipRange>, double, Placed>> table{
        // A full lane, or no timeline, has no room.
        {1, 3, {range(0, 5), range(5, 10)}, 10, std::nullopt},
        {1, 3, {}, 0, std::nullopt},
        // Starting inside [0, 5]: moved to 5, and the gap [5, 7] takes two of its three seconds.
        {4, 7, {range(0, 5), range(7, 10)}, 10, Placed({5, 7})},
        // Centre 5: the gaps [2, 4] and [6, 8] are one second away; the earlier wins.
        {3.5, 6.5, lane, 10, Placed({2, 4})},
        // Centre 5.5: the later gap is nearer.
        {3.9, 7.1, lane, 10, Placed({6, 8})},
        // A clip without length gets the minimum; never past the end of the timeline.
        {3, 3, {}, 10, Placed({3, 3.5})},
        {9, 12, {}, 10, Placed({7, 10})}};
    for (const auto& [start, end, among, duration, expected] : table) {
        EXPECT_EQ(placed(start, end, among, duration), expected) << start << "-" << end;
    }
}

TEST(NonOverlappingBounds, DecideSidesByCentres) {
    const auto clip = range(4, 6);
    // Overlaps [3, 4.5] by accident: its centre is left of 5, so it bounds from below.
    const auto bounds =
        TimelineLanePolicy::nonOverlappingBounds(clip, {range(3, 4.5), clip, range(8, 9)}, 20);
    EXPECT_EQ(bounds, (EditTimeRange{EditTime(4.5), EditTime(8)}));
    EXPECT_EQ(TimelineLanePolicy::nonOverlappingBounds(clip, {clip}, 20),
              (EditTimeRange{EditTime(0), EditTime(20)}));
}

std::vector<TimelineRipple::Follower> followersAt(std::initializer_list<double> starts,
                                                  double duration = 1) {
    std::vector<TimelineRipple::Follower> result;
    for (const double start : starts) {
        result.push_back({Uuid::random(), start, duration});
    }
    return result;
}

std::vector<double> startsOf(const std::vector<std::pair<Uuid, double>>& shifted) {
    std::vector<double> starts;
    for (const auto& [id, start] : shifted) {
        starts.push_back(start);
    }
    return starts;
}

TEST(RippleShifts, MoveFollowersByTheDeltaAndPackThemAgainstTheFloor) {
    // Clips at 2 and 4 stay (the floor is 5); the one at 20 follows a trim at 10.
    const auto followers = followersAt({20});
    EXPECT_EQ(startsOf(TimelineRipple::shiftedStarts(followers, 5, -3)), std::vector<double>{17});
    EXPECT_EQ(startsOf(TimelineRipple::shiftedStarts(followers, 5, -15)), std::vector<double>{5});
    // Followers keep their order and durations when packed.
    EXPECT_EQ(startsOf(TimelineRipple::shiftedStarts(followersAt({20, 12, 30}, 2), 5, -15)),
              (std::vector<double>{5, 7, 15}));
    EXPECT_EQ(startsOf(TimelineRipple::shiftedStarts(followersAt({20}), -4, -30)),
              std::vector<double>{0});
}

TEST(RippleSessions, SplitEachLaneAtTheTrimmedEdge) {
    EditorProjectState project;
    project.timeline = fullLengthTimeline(SourceTime(30));
    const Uuid clip = project.timeline.clips[0].id;
    TimelineEngine::splitClip(project.timeline, SourceTime(10), kMinimumTimelineClipDuration);
    const auto addZoom = [&](double start, double end) {
        AnimationClip zoom{.id = Uuid::random(), .start = EditTime(start), .end = EditTime(end)};
        project.animation.zoomClips.push_back(zoom);
        return zoom.id;
    };
    addZoom(2, 3);
    addZoom(4, 5);
    const Uuid atTheEdge = addZoom(10 - kTimelineBoundaryEpsilon / 2, 12);
    const Uuid later = addZoom(20, 22);
    const Uuid first = project.timeline.clips[0].id;
    EXPECT_EQ(TimelineRipple::makeSession(project, clip, TimelineTrimEdge::end), std::nullopt);
    const auto session = TimelineRipple::makeSession(project, first, TimelineTrimEdge::end);
    ASSERT_TRUE(session);
    EXPECT_EQ(session->ripplePoint, 10);
    EXPECT_EQ(session->originalEditDuration, 10);
    ASSERT_EQ(session->lanes.size(), 5u);
    const auto& zoom = session->lanes[0];
    EXPECT_EQ(zoom.track, AuxiliaryTimelineTrack::zoom);
    EXPECT_EQ(zoom.floor, 5);
    ASSERT_EQ(zoom.followers.size(), 2u);
    EXPECT_EQ(zoom.followers[0].id, atTheEdge);
    EXPECT_EQ(zoom.followers[1].id, later);
    EXPECT_EQ(zoom.followers[1].duration, 2);
    for (size_t i = 1; i < 5; ++i) {
        EXPECT_TRUE(session->lanes[i].followers.empty());
    }
}

} // namespace
} // namespace orvelle
