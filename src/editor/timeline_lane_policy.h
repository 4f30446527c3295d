#pragma once

// The one rule set of the five auxiliary lanes (zoom, camera layout, mask, music, text):
// clips on a lane never overlap, a new clip goes into the nearest free space, and a clip
// dragged stops at its neighbours. Pure functions on the edit axis; any thread.

#include "core/json.h"
#include "core/uuid.h"
#include "timeline/timeline_time.h"

#include <concepts>
#include <optional>
#include <span>
#include <vector>

namespace orvelle {

// A lane's identity.
enum class AuxiliaryTimelineTrack { zoom, cameraLayout, mask, music, text };
std::span<const EnumName<AuxiliaryTimelineTrack>> jsonNames(AuxiliaryTimelineTrack);

inline constexpr std::array<AuxiliaryTimelineTrack, 5> kAuxiliaryTimelineTracks{
    AuxiliaryTimelineTrack::zoom, AuxiliaryTimelineTrack::cameraLayout,
    AuxiliaryTimelineTrack::mask, AuxiliaryTimelineTrack::music, AuxiliaryTimelineTrack::text};

// A lane's clip: an id and a range of the edit axis that can be read and written.
template <class Clip>
concept RangeEditableClip = requires(Clip clip) {
    { clip.id } -> std::convertible_to<Uuid>;
    { clip.start } -> std::convertible_to<EditTime>;
    { clip.end } -> std::convertible_to<EditTime>;
};

// A clip of any lane as the rules see it.
struct LaneClipRange {
    Uuid id;
    EditTime start;
    EditTime end;

    friend bool operator==(const LaneClipRange&, const LaneClipRange&) = default;
};

// A stretch of the edit axis.
struct EditTimeRange {
    EditTime lower;
    EditTime upper;

    friend bool operator==(const EditTimeRange&, const EditTimeRange&) = default;
};

template <RangeEditableClip Clip>
LaneClipRange laneClipRange(const Clip& clip) {
    return {clip.id, clip.start, clip.end};
}

template <RangeEditableClip Clip>
std::vector<LaneClipRange> laneClipRanges(const std::vector<Clip>& clips) {
    std::vector<LaneClipRange> ranges;
    ranges.reserve(clips.size());
    for (const auto& clip : clips) {
        ranges.push_back(laneClipRange(clip));
    }
    return ranges;
}

namespace TimelineLanePolicy {

// The free stretches of a lane at least `minimum` long, in order.
std::vector<EditTimeRange> gaps(const std::vector<LaneClipRange>& clips, double timelineDuration,
                                double minimum);

// Where a candidate goes: moved past a clip its start lies in, into the nearest gap (ties
// within 0.0001 s go to the earlier one), shortened to fit. Absent when the lane is full.
std::optional<EditTimeRange> place(const LaneClipRange& candidate,
                                   const std::vector<LaneClipRange>& among,
                                   EditTime timelineDuration, EditTime minimumDuration);

template <RangeEditableClip Clip>
std::optional<Clip> place(Clip candidate, const std::vector<Clip>& among, EditTime timelineDuration,
                          EditTime minimumDuration) {
    const auto placed =
        place(laneClipRange(candidate), laneClipRanges(among), timelineDuration, minimumDuration);
    if (!placed) {
        return std::nullopt;
    }
    candidate.start = placed->lower;
    candidate.end = placed->upper;
    return candidate;
}

// The free range a clip may move in: up to the nearest neighbours, which lie to one side or
// the other by their centres, so that a clip overlapping a neighbour by accident still gets
// a well-formed range.
EditTimeRange nonOverlappingBounds(const LaneClipRange& clip,
                                   const std::vector<LaneClipRange>& among,
                                   double timelineDuration);

} // namespace TimelineLanePolicy

} // namespace orvelle
