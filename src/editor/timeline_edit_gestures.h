#pragma once

// The editing gestures of the timeline view: trimming and moving a video clip with ripple
// of the lanes behind it, and dragging and resizing lane clips. Each gesture holds its
// session in the coordinator from its first event to its finish, which closes its
// transaction, so a whole drag is one undo step. The playback model owns this object.
// Main thread only.

#include "editor/edit_session_coordinator.h"
#include "editor/editor_store.h"

#include <optional>

namespace orvelle {

class TimelineEditGestures {
public:
    TimelineEditGestures(EditorStore& store, EditSessionCoordinator& sessions,
                         EditTime laneMinimumClipDuration = EditTime(kLaneMinimumClipDuration));

    // Trims a video clip's edge by an edit-time delta counted from the gesture's start. With
    // rippleFollows the lane clips after the edge keep their place over the material.
    void trimClip(const Uuid& id, TimelineTrimEdge edge, EditTime delta, bool rippleFollows);
    // Slides which stretch of the source a video clip plays, inside its free space.
    void moveClip(const Uuid& id, EditTime delta);
    std::optional<TimelineRipple::Session> makeRippleSession(const Uuid& clipID,
                                                             TimelineTrimEdge edge) const;
    // Moves the followers of the open ripple session for the trimmed clip's new length;
    // disabled, they go back to where the gesture found them.
    void applyRippleFollow(const TimelineClip& trimmedClip, bool enabled);

    // The drag logic bound to one lane.
    TimelineRangeClipEditor editor(AuxiliaryTimelineTrack track);
    void moveRangeClip(AuxiliaryTimelineTrack track, const Uuid& id, EditTime delta);
    void resizeRangeClip(AuxiliaryTimelineTrack track, const Uuid& id, TimelineTrimEdge edge,
                         EditTime delta);

    // Ends the open gesture of the main lane, of one lane, or of everything.
    void finishTimelineEdit();
    void finishRangeClipEdit(AuxiliaryTimelineTrack track);
    void finishAllEditSessions();

    // A transcript cut: a stretch of source time out of the timeline, as a restorable gap.
    std::optional<DeletedTimelineGap> deleteSourceRange(SourceTime start, SourceTime end);
    // Undo and redo end every open gesture first.
    std::optional<EditorProjectHistoryChange> undo();
    std::optional<EditorProjectHistoryChange> redo();

    EditTime laneMinimumClipDuration() const { return laneMinimumClipDuration_; }

private:
    std::optional<TimelineClip> timelineClip(const Uuid& id) const;

    EditorStore& store_;
    EditSessionCoordinator& sessions_;
    EditTime laneMinimumClipDuration_;
};

} // namespace orvelle
