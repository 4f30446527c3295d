#include "editor/timeline_edit_gestures.h"

namespace orvelle {

using Domain = EditSessionCoordinator::Domain;

TimelineEditGestures::TimelineEditGestures(EditorStore& store, EditSessionCoordinator& sessions,
                                           EditTime laneMinimumClipDuration)
    : store_(store), sessions_(sessions), laneMinimumClipDuration_(laneMinimumClipDuration) {}

std::optional<TimelineClip> TimelineEditGestures::timelineClip(const Uuid& id) const {
    for (const auto& clip : store_.project().timeline.clips) {
        if (clip.id == id) {
            return clip;
        }
    }
    return std::nullopt;
}

void TimelineEditGestures::trimClip(const Uuid& id, TimelineTrimEdge edge, EditTime delta,
                                    bool rippleFollows) {
    const auto clip = timelineClip(id);
    if (!clip) {
        return;
    }
    sessions_.moveSession.reset();
    store_.selectTimelineClip(id);
    auto& session = sessions_.trimSession;
    if (!session || session->clipID != id || session->edge != edge) {
        const TimelineTrimSession fresh =
            TimelineEngine::trimSession(store_.project().timeline, *clip, edge);
        sessions_.beginTransaction(Domain::timelineRange, edge == TimelineTrimEdge::start
                                                              ? "Trim Clip Start"
                                                              : "Trim Clip End");
        session = fresh;
        sessions_.timelineRippleSession = makeRippleSession(id, edge);
    }
    const TimelineClip trimmed = TimelineEngine::trimmedClip(*session, *clip, delta);
    if (trimmed != *clip) {
        store_.updateTimelineClip(id, [&](TimelineClip& stored) {
            stored.start = trimmed.start;
            stored.end = trimmed.end;
        });
        sessions_.pendingTimelineEditFallbackSourceTime =
            edge == TimelineTrimEdge::start ? trimmed.start : trimmed.end;
    }
    // Also when the edge stays: ripple switched off (or on) alone moves the followers.
    applyRippleFollow(trimmed, rippleFollows);
}

void TimelineEditGestures::moveClip(const Uuid& id, EditTime delta) {
    const auto clip = timelineClip(id);
    if (!clip) {
        return;
    }
    sessions_.trimSession.reset();
    store_.selectTimelineClip(id);
    auto& session = sessions_.moveSession;
    if (!session || session->clipID != id) {
        const TimelineClipMoveSession fresh =
            TimelineEngine::moveSession(store_.project().timeline, *clip);
        sessions_.beginTransaction(Domain::timelineRange, "Move Clip");
        session = fresh;
    }
    const TimelineClip moved = TimelineEngine::movedClip(*session, *clip, delta);
    if (moved == *clip) {
        return;
    }
    store_.updateTimelineClip(id, [&](TimelineClip& stored) {
        stored.start = moved.start;
        stored.end = moved.end;
    });
}

std::optional<TimelineRipple::Session>
TimelineEditGestures::makeRippleSession(const Uuid& clipID, TimelineTrimEdge edge) const {
    return TimelineRipple::makeSession(store_.project(), clipID, edge);
}

void TimelineEditGestures::applyRippleFollow(const TimelineClip& trimmedClip, bool enabled) {
    const auto& session = sessions_.timelineRippleSession;
    if (!session) {
        return;
    }
    const double delta = enabled ? trimmedClip.editDuration() - session->originalEditDuration : 0.0;
    for (const auto& lane : session->lanes) {
        if (lane.followers.empty()) {
            continue;
        }
        std::vector<EditorStore::ClipPosition> positions;
        const auto starts = TimelineRipple::shiftedStarts(lane.followers, lane.floor, delta);
        for (const auto& [id, start] : starts) {
            for (const auto& follower : lane.followers) {
                if (follower.id == id) {
                    positions.push_back({id, EditTime(start), EditTime(start + follower.duration)});
                }
            }
        }
        store_.repositionClips(lane.track, positions);
    }
}

TimelineRangeClipEditor TimelineEditGestures::editor(AuxiliaryTimelineTrack track) {
    return withClipLane(track, [&](const auto& lane) {
        TimelineRangeClipEditor editor;
        editor.clips = [this, track] { return laneClipRanges(store_.project(), track); };
        editor.minimumClipDuration = laneMinimumClipDuration_;
        editor.session = [this, track] { return sessions_.rangeSession(track); };
        editor.setSession = [this, track](std::optional<RangeClipEditSession> session) {
            sessions_.rangeSession(track) = session;
        };
        editor.bounds = [this, track](const LaneClipRange& clip) {
            return TimelineLanePolicy::nonOverlappingBounds(
                clip, laneClipRanges(store_.project(), track), store_.timelineDuration().seconds);
        };
        editor.undoLabel = [family = lane.family](const AnimationClipEditKind& kind) {
            return rangeClipEditLabel(family, kind);
        };
        editor.beginUndoTransaction = [this, track](const std::string& label) {
            sessions_.beginTransaction(EditSessionCoordinator::domain(track), label);
        };
        editor.finishEditing = [this, track] { finishRangeClipEdit(track); };
        editor.select = [this, &lane](const Uuid& id) { store_.select(id, lane); };
        editor.updateClip = [this, &lane](const Uuid& id, EditTime start, EditTime end) {
            using Clip = typename std::decay_t<decltype(lane)>::ClipType;
            store_.updateClip<Clip>(lane, id, [&](Clip& clip) {
                clip.start = start;
                clip.end = end;
            });
        };
        editor.clipDidChange = [this, track] {
            if (track == AuxiliaryTimelineTrack::zoom) {
                sessions_.pendingAnimationPlaybackRefresh = true;
            } else if (track == AuxiliaryTimelineTrack::music) {
                sessions_.pendingMusicPlaybackRefresh = true;
            }
        };
        return editor;
    });
}

void TimelineEditGestures::moveRangeClip(AuxiliaryTimelineTrack track, const Uuid& id,
                                         EditTime delta) {
    editor(track).move(id, delta);
}

void TimelineEditGestures::resizeRangeClip(AuxiliaryTimelineTrack track, const Uuid& id,
                                           TimelineTrimEdge edge, EditTime delta) {
    editor(track).resize(id, edge, delta);
}

void TimelineEditGestures::finishTimelineEdit() {
    sessions_.endTransactions(Domain::timelineRange);
    sessions_.trimSession.reset();
    sessions_.moveSession.reset();
    sessions_.timelineRippleSession.reset();
}

void TimelineEditGestures::finishRangeClipEdit(AuxiliaryTimelineTrack track) {
    sessions_.endTransactions(EditSessionCoordinator::domain(track));
    sessions_.rangeSession(track).reset();
}

void TimelineEditGestures::finishAllEditSessions() {
    sessions_.resetAll();
}

std::optional<DeletedTimelineGap> TimelineEditGestures::deleteSourceRange(SourceTime start,
                                                                          SourceTime end) {
    finishAllEditSessions();
    return store_.deleteTimelineSourceRange(start, end, kMinimumTimelineClipDuration);
}

std::optional<EditorProjectHistoryChange> TimelineEditGestures::undo() {
    finishAllEditSessions();
    return store_.undo();
}

std::optional<EditorProjectHistoryChange> TimelineEditGestures::redo() {
    finishAllEditSessions();
    return store_.redo();
}

} // namespace orvelle
