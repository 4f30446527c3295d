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

// The pointer and camera tracks a resolver draws from: the slow part of making one, and
// independent of the stage's size and the look, so a preview that redraws with a new look
// or at a new size prepares them once.
struct RenderFrameTracks {
    std::vector<CursorSample> cursorSamples; // the drawn pointer
    std::vector<CursorSample> cameraSamples; // the camera's focus

    // What the tracks depend on in a source: the take's pointer data, the style, the zoom
    // lane, the padding, the default zoom and the timeline.
    static bool sameInputs(const RenderFrameSource& a, const RenderFrameSource& b);
};

class RenderFrameResolver {
public:
    explicit RenderFrameResolver(RenderFrameSource source);
    // With the tracks already prepared for this source (sameInputs).
    RenderFrameResolver(RenderFrameSource source, const RenderFrameTracks& tracks);

    static RenderFrameTracks prepareTracks(const RenderFrameSource& source);

    // The frame at a composition (edit) time. Thread-safe; motion accumulates over the
    // frames in the order they are asked for, as an export renders them. A frame that does
    // not continue the last one asked for (the first after a seek or a scrub) shows no
    // motion.
    FrameComposition resolve(double compositionSeconds, bool continuesPreviousFrame = true);

    const ResolvedEditTimeline& editTimeline() const { return editTimeline_; }
    double timelineDuration() const { return editTimeline_.duration(); }
    const RenderVisualTransitionStore& transitions() const { return transitions_; }
    const RenderFrameSource& source() const { return source_; }

private:
    // The source is moved from only after the tracks were made from it.
    RenderFrameResolver(RenderFrameSource&& source, RenderFrameTracks&& tracks);

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
