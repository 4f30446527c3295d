#pragma once

// The edit axis laid out from a timeline's clips and deleted gaps, and the mapping between
// source time and edit time. This is the only place where one axis becomes the other.
// Plain values: compute once per timeline state, use on any thread.

#include "timeline/timeline_state.h"

#include <optional>
#include <variant>
#include <vector>

namespace orvelle {

// A clip or a deleted gap, in source order.
using TimelineElement = std::variant<TimelineClip, DeletedTimelineGap>;

SourceTime sourceStart(const TimelineElement& element);
SourceTime sourceEnd(const TimelineElement& element);

// The plain input of a resolve.
struct EditTimeline {
    std::vector<TimelineClip> clips;
    std::vector<DeletedTimelineGap> deletedGaps;
    SourceTime sourceDuration;
    double boundaryEpsilon = kTimelineBoundaryEpsilon;

    static EditTimeline from(const TimelineState& state);

    friend bool operator==(const EditTimeline&, const EditTimeline&) = default;
};

struct TimelineClipLayout {
    Uuid id;
    SourceTime sourceStart;
    SourceTime sourceEnd;
    EditTime timelineStart;
    EditTime timelineEnd;
    double speed = 1.0; // as stored on the clip

    friend bool operator==(const TimelineClipLayout&, const TimelineClipLayout&) = default;
};

// A deleted gap is a point on the edit axis: the place of the cut.
struct TimelineGap {
    Uuid id;
    SourceTime sourceStart;
    SourceTime sourceEnd;
    EditTime timelineStart;
    EditTime timelineEnd;

    friend bool operator==(const TimelineGap&, const TimelineGap&) = default;
};

class ResolvedEditTimeline {
public:
    ResolvedEditTimeline(std::vector<TimelineClip> clips,
                         std::vector<DeletedTimelineGap> deletedGaps, SourceTime sourceDuration,
                         double boundaryEpsilon = kTimelineBoundaryEpsilon);
    explicit ResolvedEditTimeline(const EditTimeline& timeline);

    const std::vector<TimelineClip>& clips() const { return clips_; }
    const std::vector<DeletedTimelineGap>& deletedGaps() const { return deletedGaps_; }
    SourceTime sourceDuration() const { return sourceDuration_; }
    double boundaryEpsilon() const { return boundaryEpsilon_; }
    const std::vector<TimelineElement>& elements() const { return elements_; }
    const std::vector<TimelineClipLayout>& clipLayouts() const { return clipLayouts_; }
    const std::vector<TimelineGap>& gaps() const { return gaps_; }
    // Length of the edit axis in seconds.
    double duration() const { return duration_; }

    // The source frame shown at an edit time. An edit time on a cut resolves to the frame
    // after the cut, so the playhead never rests inside deleted material. Absent when the
    // timeline has no clips.
    std::optional<SourceTime> sourceTime(EditTime time) const;
    // Where a source time lands in the finished movie. A deleted source time lands on its
    // cut; a time that nothing covers lands where the following material starts.
    EditTime editTime(SourceTime time) const;
    // The first playable source time at or after the given one: a clip's end counts as
    // outside, so a search from the end of a clip crosses the cut.
    std::optional<SourceTime> playableTimeAtOrAfter(SourceTime time) const;
    // The last playable source time at or before the given one: a clip's end counts as
    // inside.
    std::optional<SourceTime> playableTimeAtOrBefore(SourceTime time) const;

    friend bool operator==(const ResolvedEditTimeline&, const ResolvedEditTimeline&) = default;

private:
    std::optional<SourceTime> resolveCut(const DeletedTimelineGap& gap,
                                         const TimelineClip* lastPassed) const;
    double heldToSource(SourceTime time) const;

    std::vector<TimelineClip> clips_;
    std::vector<DeletedTimelineGap> deletedGaps_;
    SourceTime sourceDuration_;
    double boundaryEpsilon_ = kTimelineBoundaryEpsilon;
    std::vector<TimelineElement> elements_;
    std::vector<TimelineClipLayout> clipLayouts_;
    std::vector<TimelineGap> gaps_;
    double duration_ = 0;
};

} // namespace orvelle
