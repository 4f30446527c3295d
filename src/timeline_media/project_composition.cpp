#include "timeline_media/project_composition.h"

#include "project/editor_document.h"

namespace orvelle {

std::map<std::filesystem::path, std::filesystem::path>
denoisedMicrophoneURLs(const TakeManifest& manifest, const AudioSettings& audio,
                       const NoiseReductionCache& cache) {
    std::map<std::filesystem::path, std::filesystem::path> overrides;
    if (!audio.removesNoise) {
        return overrides;
    }
    for (const auto& segment : manifest.segmentsFor(MediaTrackManifest::Kind::microphone)) {
        if (overrides.contains(segment.url)) {
            continue;
        }
        if (const auto copy = cache.denoisedURL(segment.url)) {
            overrides[segment.url] = *copy;
        }
    }
    return overrides;
}

std::optional<ProjectCompositionInputs>
loadProjectCompositionInputs(const EditorProjectState& project, const NoiseReductionCache& cache) {
    const TakeManifest& manifest = project.manifest;
    auto source = TimelineCompositionSource::load(
        manifest, denoisedMicrophoneURLs(manifest, project.audio, cache));
    if (!source) {
        return std::nullopt;
    }
    ProjectCompositionInputs inputs;
    inputs.clips = seededTimeline(project.timeline, SourceTime(source->duration)).clips;
    inputs.voiceActivity = VoiceActivityDetector::sourceIntervals(
        manifest.segmentsFor(MediaTrackManifest::Kind::microphone));
    inputs.source = std::move(*source);
    return inputs;
}

std::optional<TimelineCompositionResult>
makeProjectComposition(const EditorProjectState& project, const ProjectCompositionInputs& inputs) {
    return TimelineComposition::make(inputs.clips, inputs.source, project.audio,
                                     project.music.clips, inputs.voiceActivity);
}

} // namespace orvelle
