#pragma once

// Pure operations on a TimelineState: split, delete, restore, merge, and the arithmetic of
// the main lane's trim and move gestures. Each takes the state by reference and reports
// what it did; an operation that cannot apply returns absent and leaves the state exactly
// as it was. Nothing here knows of undo, selection or playback. Any thread.

#include "core/json.h"
#include "timeline/timeline_state.h"

#include <optional>
#include <span>
#include <vector>

namespace orvelle {

// The shortest a video clip can become.
inline constexpr double kMinimumTimelineClipDuration = 0.08;

enum class TimelineTrimEdge { start, end };
std::span<const EnumName<TimelineTrimEdge>> jsonNames(TimelineTrimEdge);

// A clip's free range on the source axis: the nearest clip or deleted gap on each side.
struct TimelineSourceBounds {
    SourceTime lowerBound;
    SourceTime upperBound;

    friend bool operator==(const TimelineSourceBounds&, const TimelineSourceBounds&) = default;
};

// A trim of the main lane, from the first drag event of the gesture: the clip as it was
// then and the free range around it.
struct TimelineTrimSession {
    Uuid clipID;
    TimelineTrimEdge edge = TimelineTrimEdge::end;
    SourceTime sourceStart;
    SourceTime sourceEnd;
    SourceTime lowerBound;
    SourceTime upperBound;

    friend bool operator==(const TimelineTrimSession&, const TimelineTrimSession&) = default;
};

struct TimelineClipMoveSession {
    Uuid clipID;
    SourceTime sourceStart;
    SourceTime sourceEnd;
    SourceTime lowerBound;
    SourceTime upperBound;

    friend bool operator==(const TimelineClipMoveSession&,
                           const TimelineClipMoveSession&) = default;
};

namespace TimelineEngine {

// Sorts clips by start and gaps by source start, stably. Every mutation ends with it.
void normalize(TimelineState& state);

// The first clip with start <= t < end; the last clip also takes t within 1/600 s of its
// end, so that a playhead parked at the very end finds it.
std::optional<size_t> clipIndex(SourceTime time, const std::vector<TimelineClip>& clips);

// Splits the clip under t into two new clips; both halves lose their fades. Absent when
// either half would be shorter than the minimum. Returns the second half's id.
std::optional<Uuid> splitClip(TimelineState& state, SourceTime time, double minimumDuration);

// Removes a clip and leaves an unaddressed hole; the deleted gaps are unchanged.
std::optional<TimelineClip> deleteClip(TimelineState& state, const Uuid& id);

// Cuts a stretch of source time out of the clips it touches. A remainder shorter than the
// minimum is swallowed by the cut. Returns the gap over everything removed; the caller
// records it in deletedGaps.
std::optional<DeletedTimelineGap> deleteSourceRange(TimelineState& state, SourceTime start,
                                                    SourceTime end, double minimumDuration);

// The clip that fills a restored stretch: it plays like its neighbour before (or after),
// or at plain settings when it has none.
TimelineClip restoredClip(SourceTime start, SourceTime end, const TimelineState& state);

// Puts back whatever of the stretch no clip covers, trims the deleted gaps it overlaps and
// merges the restored clips with matching neighbours. Returns the last merged clip.
std::optional<TimelineClip> restoreSourceRange(TimelineState& state, SourceTime start,
                                               SourceTime end, double minimumDuration);

// Joins a clip with the one before it over the cut between them; the joined clip plays
// like the earlier one and keeps the later one's id.
std::optional<TimelineClip> restoreCut(TimelineState& state, const Uuid& beforeClipID,
                                       double minimumDuration);

// Joins the clip with contiguous neighbours that play identically, backwards then forwards.
std::optional<TimelineClip> mergeContiguousClips(TimelineState& state, const Uuid& id);

// The free range around a clip: a trim or move never grows into a neighbour or into
// deleted material.
TimelineSourceBounds sourceBounds(const TimelineState& state, const TimelineClip& clip);

TimelineTrimSession trimSession(const TimelineState& state, const TimelineClip& clip,
                                TimelineTrimEdge edge);
TimelineClipMoveSession moveSession(const TimelineState& state, const TimelineClip& clip);

// The clip after a trim by an edit-time delta counted from the gesture's start, held to the
// session's bounds and to the shortest clip.
TimelineClip trimmedClip(const TimelineTrimSession& session, const TimelineClip& clip,
                         EditTime delta);
// The clip after sliding its source window by an edit-time delta, inside its free space.
TimelineClip movedClip(const TimelineClipMoveSession& session, const TimelineClip& clip,
                       EditTime delta);

// Moves an inward-trimmed edge back out to the neighbouring clip (or the source's edge),
// passing over and removing the deleted gaps in between. Absent when there is nothing to
// restore.
std::optional<TimelineClip> restoreEdgeTrim(TimelineState& state, const Uuid& clipID,
                                            TimelineTrimEdge edge);

} // namespace TimelineEngine

} // namespace orvelle
