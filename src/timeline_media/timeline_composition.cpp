#include "timeline_media/timeline_composition.h"

#include "timeline_media/segment_timeline_planner.h"

#include <algorithm>
#include <cmath>

namespace orvelle::TimelineComposition {

namespace {

// Music clips shorter than this, or files that hold less, are passed over.
constexpr double minimumMusicLength = 0.01;

float clampedVolume(double value) {
    if (!std::isfinite(value)) {
        return 1.0f;
    }
    return static_cast<float>(std::clamp(value, 0.0, 1.0));
}

double projectVolume(TimelineCompositionAudioRole role, const AudioSettings& settings) {
    return role == TimelineCompositionAudioRole::system ? settings.systemAudioVolume
                                                        : settings.microphoneVolume;
}

} // namespace

double editDuration(const std::vector<TimelineClip>& clips) {
    double total = 0;
    for (const auto& clip : clips) {
        total += clip.editDuration();
    }
    return total;
}

int insertVideoSegments(MediaComposition& composition, int32_t trackID,
                        const std::vector<TimelineCompositionVideoSegment>& segments,
                        const std::vector<TimelineClip>& clips) {
    std::vector<SegmentTimelineSource<int>> sources;
    sources.reserve(segments.size());
    for (const auto& segment : segments) {
        sources.push_back({composition.mediaID(segment.url), segment.programStart,
                           segment.programStart + segment.duration, segment.mediaStart,
                           segment.mediaDuration});
    }
    CompositionTrack* track = composition.track(trackID);
    int inserted = 0;
    for (const auto& insertion : SegmentTimelinePlanner::mediaInsertions(clips, sources)) {
        if (insertion.sourceRange.duration <= 0 || insertion.editTimeRange.duration <= 0) {
            continue;
        }
        track->insert({insertion.media, insertion.sourceRange, insertion.editTimeRange});
        ++inserted;
    }
    return inserted;
}

std::optional<int32_t>
insertCameraTrack(MediaComposition& composition,
                  const std::vector<TimelineCompositionVideoSegment>& segments,
                  const std::vector<TimelineClip>& clips) {
    if (segments.empty()) {
        return std::nullopt;
    }
    const int32_t trackID = composition.addTrack(CompositionMediaType::video).trackID;
    if (insertVideoSegments(composition, trackID, segments, clips) == 0) {
        composition.removeTrack(trackID);
        return std::nullopt;
    }
    return trackID;
}

std::vector<TimelineCompositionAudioSegment>
audioSegments(MediaComposition& composition,
              const std::vector<TimelineCompositionExternalAudioSource>& sources,
              const std::vector<TimelineClip>& clips) {
    std::vector<SegmentTimelineSource<int>> planned;
    planned.reserve(sources.size());
    for (const auto& source : sources) {
        planned.push_back({composition.mediaID(source.url), source.programStart,
                           source.programStart + source.duration, source.mediaStart,
                           source.mediaDuration});
    }
    std::vector<TimelineCompositionAudioSegment> segments;
    for (const auto& insertion : SegmentTimelinePlanner::mediaInsertions(clips, planned)) {
        if (insertion.sourceRange.duration <= 0 || insertion.editTimeRange.duration <= 0) {
            continue;
        }
        segments.push_back({insertion.clip.id, insertion.timelineSourceRange,
                            insertion.editTimeRange, insertion.clip.sanitisedSpeed(),
                            insertion.media, insertion.sourceRange, insertion.mediaBounds});
    }
    return segments;
}

std::vector<float> segmentVolumes(const std::vector<TimelineCompositionAudioSegment>& segments,
                                  const std::vector<TimelineClip>& clips,
                                  TimelineCompositionAudioRole role,
                                  const AudioSettings& audioSettings) {
    std::vector<float> volumes;
    volumes.reserve(segments.size());
    for (const auto& segment : segments) {
        double volume = projectVolume(role, audioSettings);
        const auto clip = std::find_if(clips.begin(), clips.end(), [&](const TimelineClip& c) {
            return c.id == segment.clipID;
        });
        if (clip != clips.end()) {
            const auto& own = role == TimelineCompositionAudioRole::system
                                  ? clip->audio.systemAudioVolume
                                  : clip->audio.microphoneVolume;
            if (own) {
                volume = *own;
            }
        }
        volumes.push_back(clampedVolume(volume));
    }
    return volumes;
}

void insertAudioTracks(MediaComposition& composition, AudioMix& mix,
                       TimelineCompositionAudioLayout& layout,
                       const TimelineCompositionSource& source,
                       const std::vector<TimelineClip>& clips, const AudioSettings& audioSettings) {
    if (!audioSettings.isEnabled) {
        return;
    }
    for (const auto role : kTimelineCompositionAudioRoles) {
        // The project's volume of 0 mutes the role, whatever its clips' own volumes say.
        if (!(projectVolume(role, audioSettings) > 0)) {
            continue;
        }
        auto segments = audioSegments(composition, source.audioSourcesFor(role), clips);
        if (segments.empty()) {
            continue;
        }
        const auto plans = TimelineAudioMicroFade::splicePlans(segments, source.duration);
        const auto volumes = segmentVolumes(segments, clips, role, audioSettings);
        int subtrackCount = 0;
        for (const auto& plan : plans) {
            subtrackCount = std::max(subtrackCount, plan.subtrack + 1);
        }
        for (int subtrack = 0; subtrack < subtrackCount; ++subtrack) {
            CompositionTrack& track = composition.addTrack(CompositionMediaType::audio);
            const int32_t trackID = track.trackID;
            for (size_t i = 0; i < segments.size(); ++i) {
                if (plans[i].subtrack != subtrack) {
                    continue;
                }
                const auto insertion =
                    TimelineAudioMicroFade::trackInsertion(segments[i], plans[i]);
                track.insert({segments[i].mediaID, insertion.sourceRange, insertion.editRange});
            }
            if (track.insertions.empty()) {
                composition.removeTrack(trackID);
                continue;
            }
            TimelineAudioMicroFade::applyMixVolumes(mix.mutableParameters(trackID), segments, plans,
                                                    volumes, subtrack);
            layout.trackIDsByRole[role].push_back(trackID);
        }
        layout.segmentsByRole[role] = std::move(segments);
    }
}

std::optional<int32_t>
insertMusicClips(MediaComposition& composition, const std::vector<MusicClip>& musicClips,
                 const std::map<std::string, TimelineCompositionMusicSource>& sources,
                 double timelineDuration) {
    std::vector<MusicClip> ordered = musicClips;
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const auto& a, const auto& b) { return a.start < b.start; });
    CompositionTrack music{0, CompositionMediaType::audio, {}};
    const int64_t timelineEnd = mediaTicks(timelineDuration);
    for (const auto& clip : ordered) {
        const auto found = sources.find(clip.segmentID);
        if (found == sources.end() || !(found->second.mediaDuration > minimumMusicLength)) {
            continue;
        }
        const double end = std::min(clip.end.seconds, timelineDuration);
        if (!(end - clip.start.seconds > minimumMusicLength)) {
            continue;
        }
        const int mediaID = composition.mediaID(found->second.url);
        // Whole ticks of the file: a loop never runs past its last sample into silence.
        const auto fileLength = static_cast<int64_t>(
            std::floor(found->second.mediaDuration * static_cast<double>(kMediaTimescale)));
        // The clip plays from its offset to the file's end, then from the file's start
        // again, until the clip ends.
        int64_t position =
            mediaTicks(std::fmod(std::max(clip.mediaOffset, 0.0), found->second.mediaDuration));
        int64_t cursor = std::max<int64_t>(mediaTicks(clip.start.seconds), 0);
        const int64_t clipEnd = std::min(mediaTicks(end), timelineEnd);
        while (cursor < clipEnd) {
            const int64_t length = std::min(fileLength - position, clipEnd - cursor);
            if (length <= 0) {
                position = 0;
                if (fileLength <= 0) {
                    break;
                }
                continue;
            }
            music.insert({mediaID, {position, length}, {cursor, length}});
            cursor += length;
            position = 0;
        }
    }
    if (music.insertions.empty()) {
        return std::nullopt;
    }
    CompositionTrack& track = composition.addTrack(CompositionMediaType::audio);
    track.insertions = std::move(music.insertions);
    return track.trackID;
}

std::optional<TimelineCompositionResult> make(const std::vector<TimelineClip>& clips,
                                              const TimelineCompositionSource& source,
                                              const AudioSettings& audioSettings,
                                              const std::vector<MusicClip>& musicClips,
                                              const std::vector<VoiceInterval>& voiceActivity) {
    TimelineCompositionResult result;
    result.duration = editDuration(clips);
    result.audioLayout.sourceDuration = source.duration;
    result.videoTrackID = result.composition.addTrack(CompositionMediaType::video).trackID;
    if (insertVideoSegments(result.composition, result.videoTrackID, source.videoSegments, clips) ==
        0) {
        return std::nullopt;
    }
    insertAudioTracks(result.composition, result.audioMix, result.audioLayout, source, clips,
                      audioSettings);
    result.audioLayout.musicTrackID =
        insertMusicClips(result.composition, musicClips, source.musicSources, result.duration);
    if (result.audioLayout.musicTrackID) {
        const int32_t musicTrackID = *result.audioLayout.musicTrackID;
        auto& parameters = result.audioMix.mutableParameters(musicTrackID);
        applyMusicEnvelope(parameters,
                           musicEnvelopeSegments(musicClips, clips, !audioSettings.isEnabled,
                                                 voiceActivity, audioSettings.musicVolume,
                                                 result.duration));
        TimelineAudioMicroFade::applyJoinFades(parameters, *result.composition.track(musicTrackID));
    }
    return result;
}

} // namespace orvelle::TimelineComposition
