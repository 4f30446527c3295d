#pragma once

// The stage at an instant from a project and what the caller knows at that instant: the
// card's zoom, offset, blur and look, the pointer, the camera overlay with its layouts, the
// mask and the fade. A pure function shared by the preview and the export, so both agree.
// It allocates nothing unless a fade must resolve a timeline the caller did not pass.

#include "composition/frame_composition.h"
#include "motion/motion_blur_vector.h"
#include "project/camera_overlay_settings.h"
#include "project/cursor_recording.h"
#include "project/editor_project_state.h"
#include "timeline/resolved_edit_timeline.h"

#include <optional>

namespace orvelle {

struct PreviewCompositionInput {
    const EditorProjectState* project = nullptr; // required; read only during resolve
    double playbackTime = 0;                     // source time
    EditTime timelineTime;
    Size stageSize;         // the whole picture
    Size embeddedVideoSize; // the card at zoom 1 and no padding, centred in the stage
    Rect movieRect;         // the recorded picture inside the embedded rectangle
    std::optional<Size> cameraVideoSize;
    std::optional<CursorPoint> cursorPoint; // normalised to the recording frame
    std::optional<CursorPoint> cameraPoint; // the camera's focus
    double cameraAnimationAmount = 0;
    double cameraZoomScale = 1;
    std::optional<ZoomManualOffset> manualZoomOffset;
    MotionBlurVector cursorFrameMotion;
    double cursorTiltAngle = 0; // radians
    MotionBlurVector cameraFrameMotion;
    double zoomFrameMotion = 0;
    bool hasCameraOverlay = false;
    bool timelineClipHidesCursor = false;
    // Shown instead of the timeline's layout while the user edits it.
    std::optional<CameraLayoutClip> cameraLayoutPreviewClip;
    bool suppressesPerspective = false; // the editor shows the card flat
    // The project's timeline resolved, when the caller holds it; otherwise a stage fade
    // resolves it for the frame.
    const ResolvedEditTimeline* editTimeline = nullptr;
};

namespace PreviewCompositionResolver {

PreviewComposition resolve(const PreviewCompositionInput& input);

// The camera overlay at an edit time; absent when there is no camera, it is hidden, or a
// layout hides it.
std::optional<CameraLayerComposition>
camera(const CameraOverlaySettings& settings, const std::optional<CameraLayoutClip>& layoutClip,
       EditTime timelineTime, Size stageSize, const std::optional<Size>& cameraVideoSize,
       double animationAmount, ScreenAnimationStyle animation, bool hasCameraOverlay);

// How far a layout clip has taken over from the plain overlay at an edit time: the zoom
// envelope, except that a clip opening the timeline has no entering ramp.
double cameraLayoutTransitionAmount(const CameraLayoutClip& layoutClip, EditTime timelineTime,
                                    ScreenAnimationStyle animation);

// How much black covers the stage: the largest fade of the timeline clips at the time,
// each fade at most 5 s and at most half its clip.
double stageFadeOpacity(const PreviewCompositionInput& input);

} // namespace PreviewCompositionResolver

} // namespace orvelle
