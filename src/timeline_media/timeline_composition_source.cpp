#include "timeline_media/timeline_composition_source.h"

#include "core/log.h"

#include <algorithm>

namespace orvelle {

namespace {

constexpr std::string_view logCategory = "composition";

// Probes each file once.
class ProbeCache {
public:
    const MediaProbe* probe(const std::filesystem::path& url) {
        auto found = probes_.find(url);
        if (found == probes_.end()) {
            std::optional<MediaProbe> result;
            try {
                result = probeMediaFile(url);
            } catch (const Error& error) {
                logWarning(logCategory, "leaving out ", url.string(), ": ", error.what());
            }
            found = probes_.emplace(url, std::move(result)).first;
        }
        return found->second ? &*found->second : nullptr;
    }

private:
    std::map<std::filesystem::path, std::optional<MediaProbe>> probes_;
};

struct Extent {
    double programStart = 0;
    double duration = 0;
    double mediaStart = 0;
    double mediaDuration = 0;
};

// The manifest's times, with the used stretch cut to what the file really holds. A segment
// with no length at all (a movie opened without a take) covers the whole file.
Extent extentOf(const TakeSegmentManifest& segment, double fileDuration) {
    Extent extent{std::max(segment.programStart, 0.0), std::max(segment.duration, 0.0),
                  std::max(segment.mediaStart, 0.0), std::max(segment.mediaDuration, 0.0)};
    if (fileDuration <= 0) {
        return extent;
    }
    const double remaining = std::max(fileDuration - extent.mediaStart, 0.0);
    if (extent.duration <= 0 && extent.mediaDuration <= 0) {
        extent.duration = remaining;
        extent.mediaDuration = remaining;
    } else {
        extent.mediaDuration = std::min(extent.mediaDuration, remaining);
    }
    return extent;
}

std::vector<TimelineCompositionVideoSegment>
videoSegmentsOf(const TakeManifest& manifest, MediaTrackManifest::Kind kind, ProbeCache& probes) {
    std::vector<TimelineCompositionVideoSegment> segments;
    for (const auto& segment : manifest.segmentsFor(kind)) {
        const MediaProbe* probe = probes.probe(segment.url);
        if (probe == nullptr || probe->firstVideo() == nullptr) {
            continue;
        }
        const VideoStreamInfo& video = *probe->firstVideo();
        const Extent extent = extentOf(segment, probe->lengthOf(video));
        segments.push_back({segment.url, video, extent.programStart, extent.duration,
                            extent.mediaStart, extent.mediaDuration});
    }
    return segments;
}

std::optional<TimelineCompositionMusicSource> musicSourceOf(const std::filesystem::path& url,
                                                            ProbeCache& probes) {
    const MediaProbe* probe = probes.probe(url);
    if (probe == nullptr || probe->firstAudio() == nullptr) {
        return std::nullopt;
    }
    const AudioStreamInfo& audio = *probe->firstAudio();
    return TimelineCompositionMusicSource{url, audio, probe->lengthOf(audio)};
}

} // namespace

std::vector<TimelineCompositionVideoSegment>
TimelineCompositionSource::loadVideoSegments(const TakeManifest& manifest,
                                             MediaTrackManifest::Kind kind) {
    ProbeCache probes;
    return videoSegmentsOf(manifest, kind, probes);
}

const char* audioRoleName(TimelineCompositionAudioRole role) {
    return role == TimelineCompositionAudioRole::system ? "system" : "microphone";
}

std::optional<TimelineCompositionSource> TimelineCompositionSource::load(
    const TakeManifest& manifest,
    const std::map<std::filesystem::path, std::filesystem::path>& microphoneURLOverrides) {
    using Kind = MediaTrackManifest::Kind;
    ProbeCache probes;
    TimelineCompositionSource source;
    source.videoSegments = videoSegmentsOf(manifest, Kind::screen, probes);
    for (const auto& segment : source.videoSegments) {
        source.duration = std::max(source.duration, segment.programStart + segment.duration);
    }
    if (source.videoSegments.empty()) {
        return std::nullopt;
    }
    const VideoStreamInfo& first = source.videoSegments.front().videoTrack;
    source.rotationDegrees = first.rotationDegrees;
    source.naturalWidth = first.naturalWidth;
    source.naturalHeight = first.naturalHeight;

    auto addAudio = [&](const TakeSegmentManifest& segment, TimelineCompositionAudioRole role,
                        const std::filesystem::path& url) {
        const MediaProbe* probe = probes.probe(url);
        if (probe == nullptr || probe->firstAudio() == nullptr) {
            return;
        }
        const AudioStreamInfo& audio = *probe->firstAudio();
        const Extent extent = extentOf(segment, probe->lengthOf(audio));
        source.audioSources.push_back({role, url, audio, extent.programStart, extent.duration,
                                       extent.mediaStart, extent.mediaDuration});
    };
    for (const auto& segment : manifest.segmentsFor(Kind::systemAudio)) {
        addAudio(segment, TimelineCompositionAudioRole::system, segment.url);
    }
    for (const auto& segment : manifest.segmentsFor(Kind::microphone)) {
        const auto replaced = microphoneURLOverrides.find(segment.url);
        addAudio(segment, TimelineCompositionAudioRole::microphone,
                 replaced != microphoneURLOverrides.end() ? replaced->second : segment.url);
    }
    for (const auto& segment : manifest.segmentsFor(Kind::music)) {
        if (auto music = musicSourceOf(segment.url, probes)) {
            source.musicSources[segment.id] = std::move(*music);
        }
    }
    return source;
}

std::optional<TimelineCompositionMusicSource>
TimelineCompositionSource::loadMusicSource(const std::filesystem::path& url) {
    ProbeCache probes;
    return musicSourceOf(url, probes);
}

std::vector<TimelineCompositionExternalAudioSource>
TimelineCompositionSource::audioSourcesFor(TimelineCompositionAudioRole role) const {
    std::vector<TimelineCompositionExternalAudioSource> found;
    std::copy_if(audioSources.begin(), audioSources.end(), std::back_inserter(found),
                 [&](const auto& candidate) { return candidate.role == role; });
    return found;
}

} // namespace orvelle
