#pragma once

// Everything a project needs before its composition can be made: its clips as they play,
// its take's media (with denoised microphone files when the project asks for them) and the
// speech in its microphone track. Shared by the preview, the export and the command line.
// Reads and may write files (denoised copies): keep it off the main thread.

#include "project/editor_project_state.h"
#include "timeline_media/noise_reduction_cache.h"
#include "timeline_media/timeline_composition.h"

#include <optional>
#include <vector>

namespace orvelle {

struct ProjectCompositionInputs {
    TimelineCompositionSource source;
    std::vector<TimelineClip> clips; // the project's, or one clip over the take if never built
    std::vector<VoiceInterval> voiceActivity; // source time, from the original microphone files

    friend bool operator==(const ProjectCompositionInputs&,
                           const ProjectCompositionInputs&) = default;
};

// Each microphone file of the take mapped to its denoised copy, when `removesNoise` is on
// and a copy could be made.
std::map<std::filesystem::path, std::filesystem::path>
denoisedMicrophoneURLs(const TakeManifest& manifest, const AudioSettings& audio,
                       const NoiseReductionCache& cache);

// Absent when the take's screen cannot be read.
std::optional<ProjectCompositionInputs>
loadProjectCompositionInputs(const EditorProjectState& project, const NoiseReductionCache& cache);

// The composition of the project from its inputs; absent when nothing plays.
std::optional<TimelineCompositionResult>
makeProjectComposition(const EditorProjectState& project, const ProjectCompositionInputs& inputs);

} // namespace orvelle
