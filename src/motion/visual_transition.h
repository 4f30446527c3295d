#pragma once

// Glides across cuts. At a cut the source clock jumps and the pointer and the focus would
// jump with it; instead they glide from where they were for a moment. The preview starts
// a glide when it sees a jump between ticks; the export finds every jump beforehand.

#include "motion/zoom_animation.h"
#include "project/cursor_recording.h"
#include "project/editor_project_state.h"
#include "timeline/resolved_edit_timeline.h"

#include <optional>
#include <vector>

namespace orvelle {

// The slice of a frame's input that moves with time and glides across a cut.
struct FrameVisualState {
    std::optional<CursorPoint> cursorPoint;
    std::optional<CursorPoint> cameraPoint;
    double cameraAnimationAmount = 0;
    double cameraZoomScale = 1;
    std::optional<ZoomManualOffset> manualZoomOffset;

    friend bool operator==(const FrameVisualState&, const FrameVisualState&) = default;
};

namespace VisualTransitionBlending {

// A point that appears or disappears does so at the end or start of the glide; between two
// points the position is linear and the visibility switches half way.
std::optional<CursorPoint> blendCursorPoint(const std::optional<CursorPoint>& from,
                                            const std::optional<CursorPoint>& to, double progress);
// Linear through the clamping initialiser; one absent side holds the other until the end.
std::optional<ZoomManualOffset> blendManualZoomOffset(const std::optional<ZoomManualOffset>& from,
                                                      const std::optional<ZoomManualOffset>& to,
                                                      double progress);
// Every field of the state: points and offset as above, amount and scale linearly.
FrameVisualState blendState(const FrameVisualState& from, const FrameVisualState& to,
                            double progress);

} // namespace VisualTransitionBlending

// How long the glide over a jump of the source clock lasts: 0.14 to 0.35 s.
double visualTransitionDuration(double sourceJump);

// Whether a tick of the preview jumped: backwards by more than 0.05 s, or forwards by more
// than 0.08 s beyond what playback at that rate covers.
bool isVisualJump(double sourceDelta, double editDelta, double rate);

// The preview's glide, begun at the tick that jumped.
struct PlaybackVisualTransition {
    double startEditTime = 0;
    double duration = 0;
    std::optional<CursorPoint> startCursorPoint;
    std::optional<CursorPoint> startCameraPoint;
    double startCameraAnimationAmount = 0;
    double startCameraZoomScale = 1;
    std::optional<ZoomManualOffset> startManualZoomOffset;

    // Starts from the values shown now; absent for a time that is not finite.
    static std::optional<PlaybackVisualTransition> begin(double sourceDelta, double editTime,
                                                         const FrameVisualState& current);

    FrameVisualState startState() const;
    // The values to show at an edit time given this tick's targets, or absent once the glide
    // is over (the caller clears it and shows the targets).
    std::optional<FrameVisualState> apply(double editTime, const FrameVisualState& target) const;

    friend bool operator==(const PlaybackVisualTransition&,
                           const PlaybackVisualTransition&) = default;
};

struct RenderVisualTransition {
    double startEditTime = 0;
    double duration = 0;
    FrameVisualState startState;

    friend bool operator==(const RenderVisualTransition&, const RenderVisualTransition&) = default;
};

// The export's glides, found once from the timeline, and the visual state of any frame.
// Immutable after construction: safe to read from any thread.
class RenderVisualTransitionStore {
public:
    // The samples are the drawn pointer track and the camera track.
    RenderVisualTransitionStore(const EditorProjectState& project,
                                std::vector<CursorSample> cursorSamples,
                                std::vector<CursorSample> cameraSamples,
                                const ResolvedEditTimeline& editTimeline);

    // A glide at every cut whose source jump lies outside [-0.05, 0.08] s, starting from
    // the state just before the cut.
    static std::vector<RenderVisualTransition>
    makeTransitions(const EditorProjectState& project, std::span<const CursorSample> cursorSamples,
                    std::span<const CursorSample> cameraSamples,
                    const ResolvedEditTimeline& editTimeline);

    // Points at the source time, zoom at the edit time, blended with a glide in progress.
    FrameVisualState resolve(double editTime, double sourceTime) const;

    const std::vector<CursorSample>& cursorSamples() const { return cursorSamples_; }
    const std::vector<CursorSample>& cameraSamples() const { return cameraSamples_; }
    const std::vector<RenderVisualTransition>& transitions() const { return transitions_; }

private:
    AnimationSettings animation_;
    double defaultZoomScale_ = 1.5;
    std::vector<CursorSample> cursorSamples_;
    std::vector<CursorSample> cameraSamples_;
    std::vector<RenderVisualTransition> transitions_;
};

} // namespace orvelle
