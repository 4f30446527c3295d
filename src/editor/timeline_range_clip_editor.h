#pragma once

// The drag gestures of an auxiliary lane's clips, written once and bound to a lane by the
// functions it is given. A gesture's deltas count from its first event, so no drift
// accumulates; all its changes make one undo step. Main thread only.

#include "editor/timeline_lane_policy.h"
#include "timeline/timeline_engine.h"

#include <functional>
#include <optional>
#include <string>
#include <variant>

namespace orvelle {

struct AnimationClipMove {
    friend bool operator==(const AnimationClipMove&, const AnimationClipMove&) = default;
};

struct AnimationClipResize {
    TimelineTrimEdge edge = TimelineTrimEdge::end;

    friend bool operator==(const AnimationClipResize&, const AnimationClipResize&) = default;
};

// What a lane gesture does to its clip.
using AnimationClipEditKind = std::variant<AnimationClipResize, AnimationClipMove>;

// A lane gesture: the clip as it was at its first event and the free range around it.
struct RangeClipEditSession {
    Uuid clipID;
    AnimationClipEditKind kind;
    EditTime start;
    EditTime end;
    EditTime lowerBound;
    EditTime upperBound;

    friend bool operator==(const RangeClipEditSession&, const RangeClipEditSession&) = default;
};

// "Move Zoom", "Trim Zoom Start", "Trim Zoom End" for the family "Zoom".
std::string rangeClipEditLabel(std::string_view family, const AnimationClipEditKind& kind);

struct TimelineRangeClipEditor {
    std::function<std::vector<LaneClipRange>()> clips;
    EditTime minimumClipDuration;
    std::function<std::optional<RangeClipEditSession>()> session;
    std::function<void(std::optional<RangeClipEditSession>)> setSession;
    // The free range around a clip at the given place.
    std::function<EditTimeRange(const LaneClipRange&)> bounds;
    std::function<std::string(const AnimationClipEditKind&)> undoLabel;
    std::function<void(const std::string&)> beginUndoTransaction;
    // Ends the lane's open gesture: closes its transactions and forgets its session.
    std::function<void()> finishEditing;
    std::function<void(const Uuid&)> select;
    std::function<void(const Uuid&, EditTime start, EditTime end)> updateClip;
    std::function<void()> clipDidChange;

    // Slides a clip by a delta from the gesture's start; a clip dragged past a neighbour
    // jumps into the next free stretch. Nothing happens for an id not on the lane.
    void move(const Uuid& id, EditTime delta) const;
    // Moves one edge, stopping at the neighbour and at the shortest clip.
    void resize(const Uuid& id, TimelineTrimEdge edge, EditTime delta) const;
    // Makes a session current for this clip and kind, opening the gesture's transaction
    // and selecting the clip when it is new. Absent for an id not on the lane.
    std::optional<RangeClipEditSession> adoptSession(const Uuid& id,
                                                     const AnimationClipEditKind& kind) const;
    RangeClipEditSession makeSession(const LaneClipRange& clip,
                                     const AnimationClipEditKind& kind) const;

private:
    void store(const LaneClipRange& before, EditTime start, EditTime end) const;
};

} // namespace orvelle
