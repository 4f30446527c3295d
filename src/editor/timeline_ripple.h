#pragma once

// Ripple-follow: while a video clip is trimmed, the auxiliary clips after the trimmed
// edge move by the change of the clip's edit length, so they stay over the material they
// were placed on. All positions come from the start of the gesture; nothing drifts.

#include "editor/timeline_lane_policy.h"
#include "project/editor_project_state.h"
#include "timeline/timeline_engine.h"

#include <optional>
#include <utility>
#include <vector>

namespace orvelle {

namespace TimelineRipple {

struct Follower {
    Uuid id;
    double start = 0;
    double duration = 0;

    friend bool operator==(const Follower&, const Follower&) = default;
};

struct Lane {
    AuxiliaryTimelineTrack track = AuxiliaryTimelineTrack::zoom;
    // The end of the last clip that stays: followers never move before it.
    double floor = 0;
    std::vector<Follower> followers;

    friend bool operator==(const Lane&, const Lane&) = default;
};

struct Session {
    Uuid clipID;
    double ripplePoint = 0; // edit seconds
    double originalEditDuration = 0;
    std::vector<Lane> lanes; // zoom, camera layout, mask, music, text

    friend bool operator==(const Session&, const Session&) = default;
};

// The session at the start of a trim of the clip's edge; absent when the clip is not on
// the timeline. A clip starting within 1/600 s of the ripple point follows.
std::optional<Session> makeSession(const EditorProjectState& project, const Uuid& clipID,
                                   TimelineTrimEdge edge);

// New starts for the followers, in order of their starts: each moves by delta but never
// before the floor or the end of the follower before it, keeping its duration.
std::vector<std::pair<Uuid, double>> shiftedStarts(const std::vector<Follower>& followers,
                                                   double floor, double delta);

} // namespace TimelineRipple

} // namespace orvelle
