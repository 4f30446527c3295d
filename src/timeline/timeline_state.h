#pragma once

// The persisted part of the edit timeline: clips of source time played at their own
// speed, and stretches the user took out and could still put back.

#include "core/json.h"
#include "core/uuid.h"
#include "timeline/timeline_time.h"

#include <optional>
#include <vector>

namespace orvelle {

inline constexpr double kMinimumClipSpeed = 0.75;
inline constexpr double kMaximumClipSpeed = 24.0;
inline constexpr double kMaximumClipFadeDuration = 5.0;

// The rate used wherever a length is divided by a clip's speed: not finite reads 1.0,
// anything else is held to [0.75, 24].
double sanitisedClipSpeed(double speed);

// Per-clip overrides of the project's mix. An absent volume uses the project's.
struct TimelineClipAudioSettings {
    std::optional<double> microphoneVolume;
    std::optional<double> systemAudioVolume;
    std::optional<double> musicVolume;
    bool ducksMusicDuringVoice = false;

    // Each present volume made safe: not finite becomes 1.0, anything else [0, 1].
    TimelineClipAudioSettings clamped() const;

    friend bool operator==(const TimelineClipAudioSettings&,
                           const TimelineClipAudioSettings&) = default;
};

struct TimelineClip {
    Uuid id;
    SourceTime start;
    SourceTime end; // exclusive
    double speed = 1.0;
    TimelineClipAudioSettings audio;
    bool hidesCursor = false;
    double fadeInDuration = 0;
    double fadeOutDuration = 0;

    double sanitisedSpeed() const { return sanitisedClipSpeed(speed); }
    // Seconds on the edit axis; a corrupt clip with end before start has none.
    double editDuration() const;

    friend bool operator==(const TimelineClip&, const TimelineClip&) = default;
};

struct DeletedTimelineGap {
    Uuid id;
    SourceTime sourceStart;
    SourceTime sourceEnd;

    friend bool operator==(const DeletedTimelineGap&, const DeletedTimelineGap&) = default;
};

struct TimelineState {
    SourceTime sourceDuration;
    // Empty means "not built yet": the editor seeds a full-length clip when it opens.
    std::vector<TimelineClip> clips;
    std::vector<DeletedTimelineGap> deletedGaps;

    static TimelineState defaultState() { return {}; }

    friend bool operator==(const TimelineState&, const TimelineState&) = default;
};

// The timeline of a fresh document: one clip over the whole source at speed 1, without
// fades or gaps. A duration of 0 or less gives the default, empty state.
TimelineState fullLengthTimeline(SourceTime sourceDuration);

// What the editor does on opening a document: a timeline that was never built (no clips)
// becomes the full-length timeline of the source; any other is kept as it is.
TimelineState seededTimeline(const TimelineState& state, SourceTime sourceDuration);

template <>
struct JsonCoder<TimelineClipAudioSettings> {
    static TimelineClipAudioSettings decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const TimelineClipAudioSettings& value);
};

template <>
struct JsonCoder<TimelineClip> {
    static TimelineClip decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const TimelineClip& value);
};

template <>
struct JsonCoder<DeletedTimelineGap> {
    static DeletedTimelineGap decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const DeletedTimelineGap& value);
};

template <>
struct JsonCoder<TimelineState> {
    static TimelineState decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const TimelineState& value);
};

} // namespace orvelle
