#pragma once

// Our composition model: what the player and the export read. A composition is a table of
// media files and a list of tracks; each track is an edit list of insertions, each placing
// a range of one file's media time at a range of edit time. All times at this boundary are
// whole ticks of a 600 timescale (one tick is 80 samples at 48 kHz, so every edit boundary
// falls on a sample). An insertion whose source and edit durations differ plays at the
// ratio of the two. An audio mix holds each audio track's volume over edit time as the
// ramps the composition was built with. Plain values: copy them freely across threads.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

namespace orvelle {

inline constexpr int64_t kMediaTimescale = 600;

// Seconds to ticks, rounded to the nearest tick.
int64_t mediaTicks(double seconds);
inline double mediaSeconds(int64_t ticks) {
    return static_cast<double>(ticks) / static_cast<double>(kMediaTimescale);
}

struct MediaTimeRange {
    int64_t start = 0;    // ticks
    int64_t duration = 0; // ticks, never negative in a built composition

    int64_t end() const { return start + duration; }
    double startSeconds() const { return mediaSeconds(start); }
    double durationSeconds() const { return mediaSeconds(duration); }
    double endSeconds() const { return mediaSeconds(end()); }

    // Start and duration each rounded to ticks.
    static MediaTimeRange fromSeconds(double start, double duration);
    // From two instants, each rounded to ticks, so that neighbours meet exactly.
    static MediaTimeRange between(double startSeconds, double endSeconds);

    friend bool operator==(const MediaTimeRange&, const MediaTimeRange&) = default;
};

enum class CompositionMediaType { video, audio };

struct CompositionTrackInsertion {
    int mediaID = 0;            // index into MediaComposition::media
    MediaTimeRange sourceRange; // in the file's own time
    MediaTimeRange editRange;   // where it plays

    // Source seconds played per edit second.
    double rate() const;

    friend bool operator==(const CompositionTrackInsertion&,
                           const CompositionTrackInsertion&) = default;
};

struct CompositionTrack {
    int32_t trackID = 0;
    CompositionMediaType type = CompositionMediaType::video;
    std::vector<CompositionTrackInsertion> insertions; // by editRange.start, not overlapping

    // Adds an insertion and keeps the list in edit order.
    void insert(const CompositionTrackInsertion& insertion);
    // The insertion playing at an edit tick (start inclusive, end exclusive).
    const CompositionTrackInsertion* insertion(int64_t editTick) const;
    int64_t endTick() const; // the end of the last insertion, 0 when empty

    friend bool operator==(const CompositionTrack&, const CompositionTrack&) = default;
};

struct MediaComposition {
    std::vector<std::filesystem::path> media; // files, by media id
    std::vector<CompositionTrack> tracks;     // by track id

    // The id of a file in the table, added when new.
    int mediaID(const std::filesystem::path& url);
    // A new empty track with the next free id.
    CompositionTrack& addTrack(CompositionMediaType type);
    void removeTrack(int32_t trackID);
    const CompositionTrack* track(int32_t trackID) const;
    CompositionTrack* track(int32_t trackID);
    std::vector<const CompositionTrack*> tracksOfType(CompositionMediaType type) const;
    // The end of the last insertion on any track.
    int64_t durationTicks() const;

    friend bool operator==(const MediaComposition&, const MediaComposition&) = default;
};

// A linear change of volume over edit time. A ramp of no duration sets a volume from its
// start on.
struct VolumeRamp {
    MediaTimeRange timeRange;
    float fromVolume = 1;
    float toVolume = 1;

    friend bool operator==(const VolumeRamp&, const VolumeRamp&) = default;
};

// One audio track's volume: 1 until the first ramp, each ramp's end volume held until the
// next one starts.
struct AudioMixInputParameters {
    int32_t trackID = 0;
    std::vector<VolumeRamp> ramps; // by start; a later ramp wins where two overlap

    void setVolume(float volume, int64_t atTick);
    void setVolumeRamp(float fromVolume, float toVolume, MediaTimeRange timeRange);
    // Dips the volume to silence at `atTick`: down over `fadeTicks` before it, up again over
    // as many after it, to whatever the ramps give there; elsewhere nothing changes.
    void fadeThroughSilence(int64_t atTick, int64_t fadeTicks);
    float volume(double editSeconds) const;
    // The volume at each of `count` samples from sample `startFrame` at `sampleRate`.
    void fillVolumes(int64_t startFrame, size_t count, int sampleRate, float* volumes) const;

    friend bool operator==(const AudioMixInputParameters&,
                           const AudioMixInputParameters&) = default;
};

struct AudioMix {
    std::vector<AudioMixInputParameters> inputParameters;

    const AudioMixInputParameters* parameters(int32_t trackID) const;
    // The track's parameters, added when it has none yet.
    AudioMixInputParameters& mutableParameters(int32_t trackID);

    friend bool operator==(const AudioMix&, const AudioMix&) = default;
};

} // namespace orvelle
