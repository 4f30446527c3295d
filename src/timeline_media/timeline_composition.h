#pragma once

// The playable composition of an edit: the take's media laid out in edit time, so that a
// player's clock is the timeline's. The preview and the export build it the same way and
// read it with CompositionVideoReader and CompositionAudioMixer.
//
// Tracks: one video track of the screen; per audio role (system, then microphone) one or
// more subtracks, so that the two sides of a cut can overlap in a crossfade; one music
// track. The audio mix carries the splice fades, per-clip and project volumes, and the
// music's envelope. Pure functions on values; any thread.
//
// The export's render composition is built from the same pieces: the inputs of
// project_composition.h (denoised microphone files, clips, voice activity), `make`, then its
// own extra tracks on the result: the camera as a second video track
// (`TimelineCompositionSource::loadVideoSegments(manifest, camera)` and
// `insertVideoSegments`), click lanes as audio tracks of the click file
// (`MediaComposition::addTrack`, `AudioMix::mutableParameters`). The pump then pulls, in
// edit time and strictly on demand, pictures from one CompositionVideoReader per video track
// (frame i at i / fps) and sound from one CompositionAudioMixer (blocks of
// `mixerFrame(t)`); nothing is buffered beyond the block asked for.

#include "project/editor_project_state.h"
#include "project/music_settings.h"
#include "timeline/timeline_state.h"
#include "timeline_media/media_composition.h"
#include "timeline_media/timeline_audio_micro_fade.h"
#include "timeline_media/timeline_composition_source.h"
#include "timeline_media/voice_activity_detector.h"

#include <map>
#include <optional>
#include <vector>

namespace orvelle {

struct TimelineCompositionAudioLayout {
    std::map<TimelineCompositionAudioRole, std::vector<int32_t>> trackIDsByRole;
    std::map<TimelineCompositionAudioRole, std::vector<TimelineCompositionAudioSegment>>
        segmentsByRole;
    double sourceDuration = 0;
    std::optional<int32_t> musicTrackID;

    friend bool operator==(const TimelineCompositionAudioLayout&,
                           const TimelineCompositionAudioLayout&) = default;
};

struct TimelineCompositionResult {
    MediaComposition composition;
    AudioMix audioMix;
    TimelineCompositionAudioLayout audioLayout;
    int32_t videoTrackID = 0;
    double duration = 0; // edit seconds, as editDuration of the clips

    friend bool operator==(const TimelineCompositionResult&,
                           const TimelineCompositionResult&) = default;
};

namespace TimelineComposition {

// Clips laid end to end in array order, each max(end - start, 0) / normalised speed.
double editDuration(const std::vector<TimelineClip>& clips);

// The screen's insertions on a new video track; returns how many were made.
int insertVideoSegments(MediaComposition& composition, int32_t trackID,
                        const std::vector<TimelineCompositionVideoSegment>& segments,
                        const std::vector<TimelineClip>& clips);

// The camera's insertions on a new video track, as the screen's; absent (and no track
// left behind) when none could be made.
std::optional<int32_t>
insertCameraTrack(MediaComposition& composition,
                  const std::vector<TimelineCompositionVideoSegment>& segments,
                  const std::vector<TimelineClip>& clips);

// The audio segments of one role, in edit order.
std::vector<TimelineCompositionAudioSegment>
audioSegments(MediaComposition& composition,
              const std::vector<TimelineCompositionExternalAudioSource>& sources,
              const std::vector<TimelineClip>& clips);

// The volume of each segment: the clip's own volume for the role, else the project's.
std::vector<float> segmentVolumes(const std::vector<TimelineCompositionAudioSegment>& segments,
                                  const std::vector<TimelineClip>& clips,
                                  TimelineCompositionAudioRole role,
                                  const AudioSettings& audioSettings);

// Each role's subtracks with their insertions and fades. A role whose project volume is 0,
// or all audio when it is disabled, is left out.
void insertAudioTracks(MediaComposition& composition, AudioMix& mix,
                       TimelineCompositionAudioLayout& layout,
                       const TimelineCompositionSource& source,
                       const std::vector<TimelineClip>& clips, const AudioSettings& audioSettings);

// One track for all music clips: each clip plays its file from its offset, looped when the
// file is shorter than the clip. Absent when no clip gives anything. `make` dips the music to
// silence for a micro-fade on each side of every wrap (TimelineAudioMicroFade::applyJoinFades).
std::optional<int32_t>
insertMusicClips(MediaComposition& composition, const std::vector<MusicClip>& musicClips,
                 const std::map<std::string, TimelineCompositionMusicSource>& sources,
                 double timelineDuration);

// Absent when no video can be inserted (no clips, or no media under them).
std::optional<TimelineCompositionResult> make(const std::vector<TimelineClip>& clips,
                                              const TimelineCompositionSource& source,
                                              const AudioSettings& audioSettings,
                                              const std::vector<MusicClip>& musicClips,
                                              const std::vector<VoiceInterval>& voiceActivity);

// --- The music's envelope ---

struct MusicDip {
    double start = 0; // edit seconds
    double end = 0;
    float floor = 0;

    friend bool operator==(const MusicDip&, const MusicDip&) = default;
};

// The edit-time extent of one main-timeline clip and the music's level in it.
struct MusicVolumeRegion {
    double editStart = 0;
    double editEnd = 0;
    float baseVolume = 0;
    std::vector<MusicDip> dips;

    friend bool operator==(const MusicVolumeRegion&, const MusicVolumeRegion&) = default;
};

struct DuckAnchor {
    double time = 0; // edit seconds
    float level = 0;

    friend bool operator==(const DuckAnchor&, const DuckAnchor&) = default;
};

// A linear ramp of the music's volume.
struct MusicEnvelopeSegment {
    double start = 0; // edit seconds
    double end = 0;
    float fromVolume = 0;
    float toVolume = 0;

    friend bool operator==(const MusicEnvelopeSegment&, const MusicEnvelopeSegment&) = default;
};

inline constexpr double kDuckRampDown = 0.5; // seconds before speech
inline constexpr double kDuckRecovery = 1.0; // seconds after speech

std::vector<MusicVolumeRegion> musicVolumeRegions(const std::vector<TimelineClip>& timelineClips,
                                                  bool audioDisabled,
                                                  const std::vector<VoiceInterval>& voiceIntervals,
                                                  double musicVolume);
// The base volume of the region at t; outside all regions, the last region's.
float baseVolume(const std::vector<MusicVolumeRegion>& regions, double t);
std::optional<float> dipLevel(const std::vector<MusicVolumeRegion>& regions, double t);
std::vector<DuckAnchor> duckAnchors(const std::vector<MusicVolumeRegion>& regions);
float interpolatedLevel(double t, const std::vector<DuckAnchor>& anchors, float fallback);

std::vector<MusicEnvelopeSegment>
musicEnvelopeSegments(const std::vector<MusicClip>& musicClips,
                      const std::vector<TimelineClip>& timelineClips, bool audioDisabled,
                      const std::vector<VoiceInterval>& voiceIntervals, double musicVolume,
                      double timelineDuration);

// The envelope as the music track's volume: silent from 0, then one ramp per segment.
void applyMusicEnvelope(AudioMixInputParameters& parameters,
                        const std::vector<MusicEnvelopeSegment>& envelope);

} // namespace TimelineComposition

} // namespace orvelle
