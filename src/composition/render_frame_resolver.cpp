#include "composition/render_frame_resolver.h"

#include "composition/frame_composition_resolver.h"
#include "composition/preview_composition_resolver.h"
#include "core/log.h"
#include "motion/camera_motion_planner.h"
#include "motion/zoom_animation.h"
#include "timeline/timeline_engine.h"

#include <algorithm>
#include <limits>

namespace orvelle {

namespace RenderComposition {

namespace {

SourceTime heldToSource(SourceTime time, SourceTime duration) {
    return SourceTime(std::clamp(time.seconds, 0.0, std::max(duration.seconds, 0.0)));
}

ZoomAnimationResolution zoomAtSourceTime(double sourceTime, const EditorProjectState& project,
                                         const ResolvedEditTimeline& editTimeline) {
    // A sample in deleted material is planned at the edit time of its cut.
    const EditTime editTime = editTimeline.editTime(SourceTime(sourceTime));
    return ZoomAnimationEnvelope::resolvedState(editTime, project.animation.zoomClips,
                                                project.screen.zoomScale,
                                                project.animation.screenStyle);
}

// The export never plans below scale 1, which cannot change the plan: the camera recentres
// below 1.001 anyway.
double planningScale(const ZoomAnimationResolution& zoom, const EditorProjectState& project) {
    return std::max(ZoomFraming::cameraPlanningZoomScale(zoom, project.background.paddingAmount),
                    1.0);
}

std::vector<CursorSample> bridgedSamples(const CursorRecording& recording) {
    return CursorMotion::suppressTransientBoundaryExits(recording.samples,
                                                        CursorMotion::kBoundaryExitMaxDuration);
}

} // namespace

std::vector<TimelineClip> normalizedTimelineClips(std::span<const TimelineClip> clips,
                                                  SourceTime duration) {
    std::vector<TimelineClip> result(clips.begin(), clips.end());
    for (auto& clip : result) {
        clip.start = heldToSource(clip.start, duration);
        clip.end = heldToSource(clip.end, duration);
        clip.speed = sanitisedClipSpeed(clip.speed);
        clip.audio = clip.audio.clamped();
    }
    std::stable_sort(result.begin(), result.end(),
                     [](const auto& a, const auto& b) { return a.start < b.start; });
    return result;
}

ResolvedEditTimeline renderEditTimeline(std::span<const TimelineClip> timelineClips,
                                        std::span<const DeletedTimelineGap> deletedGaps,
                                        SourceTime sourceDuration) {
    std::vector<DeletedTimelineGap> gaps(deletedGaps.begin(), deletedGaps.end());
    for (auto& gap : gaps) {
        gap.sourceStart = heldToSource(gap.sourceStart, sourceDuration);
        gap.sourceEnd = heldToSource(gap.sourceEnd, sourceDuration);
    }
    return ResolvedEditTimeline(
        std::vector<TimelineClip>(timelineClips.begin(), timelineClips.end()), std::move(gaps),
        sourceDuration);
}

CursorRecording cursorRecording(const std::optional<std::filesystem::path>& cursorURL,
                                const std::filesystem::path& movieURL) {
    if (cursorURL) {
        try {
            return CursorRecording::load(*cursorURL);
        } catch (const Error& error) {
            logInfo("export", "pointer data not used: ", error.what());
        }
    }
    const auto besideMovie = CursorRecording::fileURL(movieURL);
    if (!std::filesystem::exists(besideMovie)) {
        return {};
    }
    try {
        return CursorRecording::load(besideMovie);
    } catch (const Error& error) {
        logInfo("export", "pointer data not used: ", error.what());
        return {};
    }
}

std::vector<CursorSample> preparedCursorSamples(const CursorRecording& recording,
                                                ScreenAnimationStyle style) {
    return CursorMotion::springFilteredSamples(bridgedSamples(recording),
                                               screenAnimationConstants(style).cursorSpring);
}

std::vector<CursorClick> preparedClicks(const CursorRecording& recording) {
    std::vector<CursorClick> clicks = recording.clicks;
    std::stable_sort(clicks.begin(), clicks.end(),
                     [](const auto& a, const auto& b) { return a.time < b.time; });
    return clicks;
}

double cameraPlanningZoomScale(double sourceTime, const EditorProjectState& project,
                               const ResolvedEditTimeline& editTimeline) {
    return planningScale(zoomAtSourceTime(sourceTime, project, editTimeline), project);
}

std::vector<CursorSample> preparedCameraSamples(const CursorRecording& recording,
                                                const EditorProjectState& project,
                                                const ResolvedEditTimeline& editTimeline) {
    // Every sample asks for its scale and then its bias at the same time: resolve once for
    // both, through an index of the lane.
    const ZoomLaneIndex lane(project.animation.zoomClips, project.screen.zoomScale,
                             project.animation.screenStyle);
    double cachedTime = std::numeric_limits<double>::quiet_NaN();
    ZoomAnimationResolution cached;
    const auto zoomAt = [&](double sourceTime) -> const ZoomAnimationResolution& {
        if (sourceTime != cachedTime) {
            cached = lane.resolvedState(editTimeline.editTime(SourceTime(sourceTime)));
            cachedTime = sourceTime;
        }
        return cached;
    };
    return CameraMotionPlanner::cameraSamples(
        bridgedSamples(recording), [&](double t) { return planningScale(zoomAt(t), project); },
        [&](double t) { return zoomAt(t).centerBias; },
        screenAnimationConstants(project.animation.screenStyle).cameraSpring);
}

} // namespace RenderComposition

bool RenderFrameTracks::sameInputs(const RenderFrameSource& a, const RenderFrameSource& b) {
    const EditorProjectState& p = a.project;
    const EditorProjectState& q = b.project;
    return a.cursorRecording == b.cursorRecording && p.animation == q.animation &&
           p.timeline == q.timeline && p.background.paddingAmount == q.background.paddingAmount &&
           p.screen.zoomScale == q.screen.zoomScale;
}

RenderFrameTracks RenderFrameResolver::prepareTracks(const RenderFrameSource& source) {
    const auto clips = RenderComposition::normalizedTimelineClips(
        source.project.timeline.clips, source.project.timeline.sourceDuration);
    const auto editTimeline = RenderComposition::renderEditTimeline(
        clips, source.project.timeline.deletedGaps, source.project.timeline.sourceDuration);
    return {RenderComposition::preparedCursorSamples(source.cursorRecording,
                                                     source.project.animation.screenStyle),
            RenderComposition::preparedCameraSamples(source.cursorRecording, source.project,
                                                     editTimeline)};
}

RenderFrameResolver::RenderFrameResolver(RenderFrameSource source)
    : RenderFrameResolver(std::move(source), prepareTracks(source)) {}

RenderFrameResolver::RenderFrameResolver(RenderFrameSource&& source, RenderFrameTracks&& tracks)
    : RenderFrameResolver(std::move(source), static_cast<const RenderFrameTracks&>(tracks)) {}

RenderFrameResolver::RenderFrameResolver(RenderFrameSource source, const RenderFrameTracks& tracks)
    : source_(std::move(source)),
      timelineClips_(RenderComposition::normalizedTimelineClips(
          source_.project.timeline.clips, source_.project.timeline.sourceDuration)),
      editTimeline_(RenderComposition::renderEditTimeline(timelineClips_,
                                                          source_.project.timeline.deletedGaps,
                                                          source_.project.timeline.sourceDuration)),
      clicks_(RenderComposition::preparedClicks(source_.cursorRecording)),
      transitions_(source_.project, tracks.cursorSamples, tracks.cameraSamples, editTimeline_),
      embeddedVideoSize_(FrameCompositionResolver::embeddedVideoSize(source_.sourceNaturalSize,
                                                                     source_.stageSize)),
      movieRect_(
          FrameCompositionResolver::movieRect(source_.sourceNaturalSize, embeddedVideoSize_)) {
    tiltTrack_ = CursorTilt::track(transitions_.cursorSamples());
}

FrameComposition RenderFrameResolver::resolve(double compositionSeconds,
                                              bool continuesPreviousFrame) {
    const EditorProjectState& project = source_.project;
    const double editTime = std::max(compositionSeconds, 0.0);
    const double sourceTime =
        editTimeline_.sourceTime(EditTime(editTime)).value_or(SourceTime(0)).seconds;
    const FrameVisualState visual = transitions_.resolve(editTime, sourceTime);
    const auto clipIndex = TimelineEngine::clipIndex(SourceTime(sourceTime), timelineClips_);
    const bool hidesCursor = clipIndex && timelineClips_[*clipIndex].hidesCursor;
    const double effectiveZoomScale =
        (visual.cameraZoomScale - 1) * visual.cameraAnimationAmount + 1;
    const FrameMotionStore::Motion motion =
        motion_.update(editTime, visual.cameraPoint, effectiveZoomScale, continuesPreviousFrame);
    const MotionBlurVector cursorMotion =
        CursorMotion::frameMotion(sourceTime, transitions_.cursorSamples());

    PreviewCompositionInput input;
    input.project = &project;
    input.playbackTime = sourceTime;
    input.timelineTime = EditTime(editTime);
    input.stageSize = source_.stageSize;
    input.embeddedVideoSize = embeddedVideoSize_;
    input.movieRect = movieRect_;
    input.cameraVideoSize = source_.cameraNaturalSize;
    input.cursorPoint = visual.cursorPoint;
    input.cameraPoint = visual.cameraPoint;
    input.cameraAnimationAmount = visual.cameraAnimationAmount;
    input.cameraZoomScale = visual.cameraZoomScale;
    input.manualZoomOffset = visual.manualZoomOffset;
    input.cursorFrameMotion = cursorMotion;
    input.cursorTiltAngle = tiltTrack_.angle(sourceTime);
    input.cameraFrameMotion = motion.camera;
    input.zoomFrameMotion = motion.zoom;
    input.hasCameraOverlay = source_.cameraNaturalSize.has_value();
    input.timelineClipHidesCursor = hidesCursor;
    input.editTimeline = &editTimeline_;

    FrameComposition frame;
    frame.editTime = EditTime(editTime);
    frame.sourceTime = SourceTime(sourceTime);
    frame.stageSize = source_.stageSize;
    frame.sourceNaturalSize = source_.sourceNaturalSize;
    frame.cameraNaturalSize = source_.cameraNaturalSize;
    frame.embeddedVideoSize = embeddedVideoSize_;
    frame.movieRect = movieRect_;
    frame.background = project.background;
    frame.cursorStyle = project.cursor.style;
    frame.cursorDotColor = project.cursor.dotColor;
    frame.cursorIsHidden = project.cursor.isHidden || hidesCursor;
    frame.cursorClickPressScale = FrameCompositionResolver::clickScale(sourceTime, clicks_);
    frame.hasCameraOverlay = input.hasCameraOverlay;
    frame.preview = PreviewCompositionResolver::resolve(input);
    frame.cursorFrameMotion = cursorMotion;
    frame.cameraFrameMotion = motion.camera;
    frame.zoomFrameMotion = motion.zoom;
    frame.textClips = project.text.clips;
    return frame;
}

} // namespace orvelle
