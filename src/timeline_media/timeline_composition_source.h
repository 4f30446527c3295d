#pragma once

// The media of one take, loaded once: where each screen, system-audio, microphone and music
// file lies on the take's clock and how long it really is. Lengths come from probing the
// files, so that a file shorter than its manifest says gives only what it has. Loading reads
// files: run it off the main thread. Thread-safe as a value.

#include "platform/media/media_probe.h"
#include "project/take_manifest.h"

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace orvelle {

struct TimelineCompositionVideoSegment {
    std::filesystem::path url;
    VideoStreamInfo videoTrack;
    double programStart = 0;
    double duration = 0;
    double mediaStart = 0;
    double mediaDuration = 0;

    friend bool operator==(const TimelineCompositionVideoSegment&,
                           const TimelineCompositionVideoSegment&) = default;
};

enum class TimelineCompositionAudioRole { system, microphone };

inline constexpr TimelineCompositionAudioRole kTimelineCompositionAudioRoles[] = {
    TimelineCompositionAudioRole::system, TimelineCompositionAudioRole::microphone};

const char* audioRoleName(TimelineCompositionAudioRole role); // "system", "microphone"

struct TimelineCompositionExternalAudioSource {
    TimelineCompositionAudioRole role = TimelineCompositionAudioRole::microphone;
    std::filesystem::path url;
    AudioStreamInfo audioTrack;
    double programStart = 0;
    double duration = 0;
    double mediaStart = 0;
    double mediaDuration = 0;

    friend bool operator==(const TimelineCompositionExternalAudioSource&,
                           const TimelineCompositionExternalAudioSource&) = default;
};

struct TimelineCompositionMusicSource {
    std::filesystem::path url;
    AudioStreamInfo audioTrack;
    double mediaDuration = 0;

    friend bool operator==(const TimelineCompositionMusicSource&,
                           const TimelineCompositionMusicSource&) = default;
};

struct TimelineCompositionSource {
    std::vector<TimelineCompositionVideoSegment> videoSegments;
    std::vector<TimelineCompositionExternalAudioSource> audioSources;   // system, then microphone
    std::map<std::string, TimelineCompositionMusicSource> musicSources; // by music segment id
    double rotationDegrees = 0; // of the first screen file's pictures
    double naturalWidth = 0;    // rotation applied
    double naturalHeight = 0;
    double duration = 0; // the take's length on its clock

    // Absent when no screen file can be read. A microphone file found in the overrides is
    // replaced by the file it maps to: that is how denoised copies come in. Unreadable
    // audio and music files are left out.
    static std::optional<TimelineCompositionSource>
    load(const TakeManifest& manifest,
         const std::map<std::filesystem::path, std::filesystem::path>& microphoneURLOverrides = {});

    // The probed video segments of one kind (screen, camera), by program start; files that
    // cannot be read are left out.
    static std::vector<TimelineCompositionVideoSegment>
    loadVideoSegments(const TakeManifest& manifest, MediaTrackManifest::Kind kind);

    // One music file as the music track plays it; absent when it holds no readable audio.
    static std::optional<TimelineCompositionMusicSource>
    loadMusicSource(const std::filesystem::path& url);

    std::vector<TimelineCompositionExternalAudioSource>
    audioSourcesFor(TimelineCompositionAudioRole role) const;

    friend bool operator==(const TimelineCompositionSource&,
                           const TimelineCompositionSource&) = default;
};

} // namespace orvelle
