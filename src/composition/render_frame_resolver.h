#pragma once

// The export's frames as geometry: from the project, the take's pointer data and the sizes
// of the source, the camera and the stage, a function from composition time to
// FrameComposition. The tracks are prepared once; each frame then costs a few lookups and
// one resolve. Independent of the media pipeline, which calls it for every frame it renders.

#include "composition/frame_composition.h"
#include "composition/geometry.h"
#include "motion/cursor_motion.h"
#include "motion/frame_motion.h"
#include "motion/visual_transition.h"
#include "project/cursor_recording.h"
#include "project/editor_project_state.h"
#include "timeline/resolved_edit_timeline.h"

#include <filesystem>
#include <optional>
#include <span>
#include <vector>

namespace orvelle {

namespace RenderComposition {

// Clip bounds held to [0, duration], speed and per-clip volumes made safe, sorted by start
// (stably).
std::vector<TimelineClip> normalizedTimelineClips(std::span<const TimelineClip> clips,
                                                  SourceTime duration);

// The export's edit timeline from normalised clips and the deleted gaps, gap bounds held
// to [0, duration] likewise.
ResolvedEditTimeline renderEditTimeline(std::span<const TimelineClip> timelineClips,
                                        std::span<const DeletedTimelineGap> deletedGaps,
                                        SourceTime sourceDuration);

// The take's pointer data: from the given file if it reads, else from the file beside the
// movie, else none. An export without pointer data is a normal case, so nothing throws.
CursorRecording cursorRecording(const std::optional<std::filesystem::path>& cursorURL,
                                const std::filesystem::path& movieURL);

// The drawn pointer: brief edge exits bridged, then the style's pointer spring.
std::vector<CursorSample> preparedCursorSamples(const CursorRecording& recording,
                                                ScreenAnimationStyle style);
// The clicks in time order.
std::vector<CursorClick> preparedClicks(const CursorRecording& recording);

// The zoom a source time is planned with: the effective zoom times the padding scale at
// the edit time it maps to, never below 1.
double cameraPlanningZoomScale(double sourceTime, const EditorProjectState& project,
                               const ResolvedEditTimeline& editTimeline);

// The camera track, planned on the unfiltered track with edge exits bridged.
std::vector<CursorSample> preparedCameraSamples(const CursorRecording& recording,
                                                const EditorProjectState& project,
                                                const ResolvedEditTimeline& editTimeline);

} // namespace RenderComposition

// What the export knows before its first frame.
struct RenderFrameSource {
    EditorProjectState project;
    CursorRecording cursorRecording; // empty when the take has none
    Size sourceNaturalSize;
    std::optional<Size> cameraNaturalSize; // absent when the take has no camera: no overlay
    Size stageSize;                        // the output's size in pixels
};

class RenderFrameResolver {
public:
    explicit RenderFrameResolver(RenderFrameSource source);

    // The frame at a composition (edit) time. Thread-safe; motion accumulates over the
    // frames in the order they are asked for, as an export renders them.
    FrameComposition resolve(double compositionSeconds);

    const ResolvedEditTimeline& editTimeline() const { return editTimeline_; }
    double timelineDuration() const { return editTimeline_.duration(); }
    const RenderVisualTransitionStore& transitions() const { return transitions_; }

private:
    RenderFrameSource source_;
    std::vector<TimelineClip> timelineClips_; // normalised
    ResolvedEditTimeline editTimeline_;
    CursorTiltTrack tiltTrack_;
    std::vector<CursorClick> clicks_;
    RenderVisualTransitionStore transitions_;
    Size embeddedVideoSize_;
    Rect movieRect_;
    FrameMotionStore motion_;
};

} // namespace orvelle
