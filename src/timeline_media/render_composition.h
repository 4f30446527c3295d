#pragma once

// The export's composition, built once from a snapshot of the edit: the take's media laid
// out in edit time (screen, optional camera, the audio roles, music under its envelope, the
// click sounds on lanes), the stretches of the movie with the source tracks each draws
// from, and the resolver that works out each frame's geometry. Building reads files
// (probes, pointer data, voice activity, denoised copies): keep it off the main thread. The
// other functions are pure. The output is a value except for its resolver, which
// accumulates motion over the frames asked of it.

#include "composition/render_frame_resolver.h"
#include "project/cursor_recording.h"
#include "timeline/resolved_edit_timeline.h"
#include "timeline_media/media_composition.h"
#include "timeline_media/noise_reduction_cache.h"
#include "timeline_media/render_export_settings.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>
#include <vector>

namespace orvelle {

// A stretch of the movie drawn from the same source tracks. Every instruction of one
// composition shares its resolver.
struct OrvelleCompositionInstruction {
    MediaTimeRange timeRange;
    int32_t screenTrackID = 0;
    std::optional<int32_t> cameraTrackID; // absent where the camera has no picture

    // The screen's track, and the camera's when present.
    std::vector<int32_t> requiredSourceTrackIDs() const;

    friend bool operator==(const OrvelleCompositionInstruction&,
                           const OrvelleCompositionInstruction&) = default;
};

namespace RenderComposition {

struct Output {
    MediaComposition composition;
    std::optional<AudioMix> audioMix; // absent when the composition has no audio track
    double timelineDuration = 0;      // edit seconds
    int width = 0;                    // the render size
    int height = 0;
    int fps = 60;
    int32_t screenTrackID = 0;
    std::optional<int32_t> cameraTrackID; // absent when the take has no camera picture
    std::vector<OrvelleCompositionInstruction> instructions; // cover [0, timelineDuration)
    // The geometry of the frame at a composition time; thread-safe, and motion accumulates
    // over the frames in the order they are asked for.
    std::shared_ptr<RenderFrameResolver> resolver;
};

// What the build finds outside the snapshot.
struct Resources {
    std::optional<std::filesystem::path> clickSoundURL; // absent: no click sounds
    NoiseReductionCache noiseReductionCache;
};

// Throws RenderExportError: missingVideoTrack when the take's screen cannot be read,
// emptyTimeline when nothing would play; CancellationError when stopped between its
// steps. Pointer data, the click sound, the camera and music that are missing or
// unreadable leave the movie with less in it.
Output build(const RenderExportSettings& settings, const Resources& resources,
             const std::stop_token& stop = {});

// The edit times of the clicks that play: those inside a clip (start <= time < end), in
// click order. None on a timeline of no length.
std::vector<double> playableClickEditTimes(const std::vector<CursorClick>& clicks,
                                           const ResolvedEditTimeline& editTimeline);

struct ClickAudioLane {
    int32_t trackID = 0;
    double availableAt = 0; // edit seconds at which the lane's last click has ended

    friend bool operator==(const ClickAudioLane&, const ClickAudioLane&) = default;
};

// One audio track per lane of overlapping clicks: each click goes on the first lane free by
// then (within a millisecond), and a new lane is opened when none is. A click that would
// pass the timeline's end is cut there, and left out when less than a millisecond remains.
// Each lane plays at `volume`.
std::vector<ClickAudioLane> addClickAudioTracks(MediaComposition& composition, AudioMix& mix,
                                                const std::vector<double>& clickEditTimes,
                                                const std::filesystem::path& clickURL,
                                                double clickLength, double volume,
                                                double timelineDuration);

// Ranges held to [0, timelineEnd], by start, those that touch or overlap joined; empty
// ones left out.
std::vector<MediaTimeRange> mergedCameraRanges(const std::vector<MediaTimeRange>& ranges,
                                               int64_t timelineEnd);

// The timeline [0, timelineEnd) cut at every boundary of the camera's merged ranges; a
// piece whose middle lies in a range has the camera, the others do not. Without a camera
// track, one instruction for all of it.
std::vector<OrvelleCompositionInstruction>
videoInstructions(int64_t timelineEnd, int32_t screenTrackID, const CompositionTrack* cameraTrack);

} // namespace RenderComposition

} // namespace orvelle
