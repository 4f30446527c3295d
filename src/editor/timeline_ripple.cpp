#include "editor/timeline_ripple.h"

#include "editor/clip_lane.h"
#include "timeline/resolved_edit_timeline.h"

#include <algorithm>

namespace orvelle {

namespace TimelineRipple {

std::optional<Session> makeSession(const EditorProjectState& project, const Uuid& clipID,
                                   TimelineTrimEdge edge) {
    const ResolvedEditTimeline timeline(EditTimeline::from(project.timeline));
    const auto& layouts = timeline.clipLayouts();
    const auto layout =
        std::find_if(layouts.begin(), layouts.end(), [&](const auto& l) { return l.id == clipID; });
    if (layout == layouts.end()) {
        return std::nullopt;
    }
    Session session;
    session.clipID = clipID;
    session.ripplePoint = edge == TimelineTrimEdge::start ? layout->timelineStart.seconds
                                                          : layout->timelineEnd.seconds;
    session.originalEditDuration = layout->timelineEnd.seconds - layout->timelineStart.seconds;
    for (const auto track : kAuxiliaryTimelineTracks) {
        Lane lane{track, 0, {}};
        for (const auto& clip : laneClipRanges(project, track)) {
            if (clip.start.seconds < session.ripplePoint - kTimelineBoundaryEpsilon) {
                lane.floor = std::max(lane.floor, clip.end.seconds);
            } else {
                lane.followers.push_back({clip.id, clip.start.seconds,
                                          std::max(0.0, clip.end.seconds - clip.start.seconds)});
            }
        }
        session.lanes.push_back(std::move(lane));
    }
    return session;
}

std::vector<std::pair<Uuid, double>> shiftedStarts(const std::vector<Follower>& followers,
                                                   double floor, double delta) {
    std::vector<Follower> sorted = followers;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& a, const auto& b) { return a.start < b.start; });
    std::vector<std::pair<Uuid, double>> result;
    double cursor = std::max(0.0, floor);
    for (const auto& follower : sorted) {
        const double start = std::max(cursor, follower.start + delta);
        result.emplace_back(follower.id, start);
        cursor = start + follower.duration;
    }
    return result;
}

} // namespace TimelineRipple

} // namespace orvelle
