#pragma once

// How two pieces of audio meet at a cut without a click.
//
// Each audio segment of the edit gets a plan: a subtrack and an edge at its head and tail.
// - none: the material simply goes on (the same file, the next sample, the same speed), so
//   nothing is faded; a change of volume there is ramped over a micro-fade's length.
// - microFade: the segment starts or stops against silence, or its neighbour has no material
//   to overlap with (the start or end of a file); the sound is faded in or out over 5 ms.
// - crossfade: a real cut between two segments that both have material beyond it. Each is
//   extended by half the crossfade into the material the cut removed, the two overlap on
//   different subtracks, and one fades out while the other fades in (linear, so that
//   continuous material keeps its level). The crossfade is centred on the cut, so the edit's
//   length and every later time are unchanged.
// Pure functions on values; any thread.

#include "core/uuid.h"
#include "timeline_media/media_composition.h"

#include <vector>

namespace orvelle {

// One segment of a role's audio in the edit.
struct TimelineCompositionAudioSegment {
    Uuid clipID;
    MediaTimeRange sourceRange; // take time
    MediaTimeRange timeRange;   // edit time
    double speed = 1;           // normalised
    int mediaID = 0;            // the file, as MediaComposition::media
    MediaTimeRange mediaRange;  // the file's own time
    MediaTimeRange mediaBounds; // what the file's segment holds

    friend bool operator==(const TimelineCompositionAudioSegment&,
                           const TimelineCompositionAudioSegment&) = default;
};

enum class TimelineAudioEdgeKind { none, microFade, crossfade };

struct TimelineAudioSpliceEdge {
    TimelineAudioEdgeKind kind = TimelineAudioEdgeKind::none;
    int64_t editExtension = 0;   // ticks of edit time added beyond the segment (crossfade)
    int64_t sourceExtension = 0; // ticks of media time that fill them

    friend bool operator==(const TimelineAudioSpliceEdge&,
                           const TimelineAudioSpliceEdge&) = default;
};

struct TimelineAudioSplicePlan {
    int subtrack = 0;
    TimelineAudioSpliceEdge head;
    TimelineAudioSpliceEdge tail;

    friend bool operator==(const TimelineAudioSplicePlan&,
                           const TimelineAudioSplicePlan&) = default;
};

// What to insert for a segment under its plan.
struct TimelineAudioTrackInsertion {
    MediaTimeRange sourceRange; // media time
    MediaTimeRange editRange;

    friend bool operator==(const TimelineAudioTrackInsertion&,
                           const TimelineAudioTrackInsertion&) = default;
};

namespace TimelineAudioMicroFade {

inline constexpr int64_t kMicroFadeTicks = 3;  // 5 ms
inline constexpr int64_t kCrossfadeTicks = 12; // 20 ms, half on each side of the cut

// One plan per segment, in the segments' order. `segments` are in edit order (as the planner
// gives them); `sourceDuration` bounds the take time that an extension may reach.
std::vector<TimelineAudioSplicePlan>
splicePlans(const std::vector<TimelineCompositionAudioSegment>& segments, double sourceDuration);

// The segment's media and edit ranges with its crossfade extensions.
TimelineAudioTrackInsertion trackInsertion(const TimelineCompositionAudioSegment& segment,
                                           const TimelineAudioSplicePlan& plan);

// The insertions of one subtrack, in edit order.
std::vector<TimelineAudioTrackInsertion>
trackInsertions(const std::vector<TimelineCompositionAudioSegment>& segments,
                const std::vector<TimelineAudioSplicePlan>& plans, int subtrack);

// Writes the fades and each segment's volume (`volumes`, parallel to `segments`) of one
// subtrack into its mix parameters.
void applyMixVolumes(AudioMixInputParameters& parameters,
                     const std::vector<TimelineCompositionAudioSegment>& segments,
                     const std::vector<TimelineAudioSplicePlan>& plans,
                     const std::vector<float>& volumes, int subtrack);

// Where one insertion of `track` ends as the next begins but the material does not go on
// (a looped file starting over), the sound dips to silence over a micro-fade on each side,
// on top of the volumes already in `parameters`.
void applyJoinFades(AudioMixInputParameters& parameters, const CompositionTrack& track);

} // namespace TimelineAudioMicroFade

} // namespace orvelle
