#include "composition/preview_composition_resolver.h"

#include "composition/cursor_vector_art.h"
#include "composition/motion_blur_math.h"
#include "motion/zoom_animation.h"

#include <algorithm>
#include <cmath>

namespace orvelle::PreviewCompositionResolver {

namespace {

constexpr double kBoxToSigma = 3.4641016151377544; // 2 sqrt(3): a box length as a sigma
constexpr double kMaximumScreenBlur = 0.55;
constexpr double kFrameEffectsPadding = 0.08;
constexpr double kMaximumPointerBlur = 20;
constexpr double kCameraMargin = 18;
constexpr double kMaximumStageFade = 5;

double clamp01(double value) {
    return Easing::clamp01(value);
}

double lerp(double from, double to, double fraction) {
    return from + (to - from) * fraction;
}

// Where the camera focus lies on the stage; the stage's centre without a visible focus.
Point focusOnStage(const PreviewCompositionInput& input) {
    const Size& stage = input.stageSize;
    if (!input.cameraPoint || !input.cameraPoint->visible) {
        return {stage.width / 2, stage.height / 2};
    }
    const Size& embedded = input.embeddedVideoSize;
    const Rect& movie = input.movieRect;
    return {(stage.width - embedded.width) / 2 + movie.x + input.cameraPoint->x * movie.width,
            (stage.height - embedded.height) / 2 + movie.y + input.cameraPoint->y * movie.height};
}

Size cardOffset(const PreviewCompositionInput& input, double scale, double centerBias) {
    const Size& stage = input.stageSize;
    if (!(scale > 1)) {
        return {}; // a zoomed-out padded card stays centred
    }
    if (input.manualZoomOffset) {
        return {stage.width * (scale - 1) * 0.5 * input.manualZoomOffset->x,
                stage.height * (scale - 1) * 0.5 * input.manualZoomOffset->y};
    }
    const Point focus = focusOnStage(input);
    return {ZoomFraming::shift(scale, focus.x, centerBias, stage.width),
            ZoomFraming::shift(scale, focus.y, centerBias, stage.height)};
}

double screenBlurRadius(const PreviewCompositionInput& input, double zoom) {
    const MotionBlurVector camera =
        input.manualZoomOffset ? MotionBlurVector{} : input.cameraFrameMotion;
    const Rect& movie = input.movieRect;
    const double panDistance = input.cameraAnimationAmount * zoom *
                               std::hypot(movie.width * camera.dx, movie.height * camera.dy) * 0.22;
    const double pan = MotionBlurMath::linearBlurLength(panDistance, 180, 0.036);
    const double pushDistance =
        std::max(input.stageSize.width, input.stageSize.height) * input.zoomFrameMotion * 0.18;
    const double push = MotionBlurMath::linearBlurLength(pushDistance, 180, 0.063);
    return std::clamp(std::hypot(pan, push) / kBoxToSigma, 0.0, kMaximumScreenBlur);
}

ScreenPerspective perspective(const PreviewCompositionInput& input,
                              const ZoomAnimationResolution& zoom) {
    if (input.suppressesPerspective || zoom.tiltDegrees <= 0.01 || zoom.amount <= 0.001) {
        return {};
    }
    return {zoom.tiltDirectionDegrees, zoom.tiltDegrees * Easing::quinticInOut(zoom.amount)};
}

std::optional<CursorLayerComposition> pointerLayer(const PreviewCompositionInput& input) {
    const CursorSettings& settings = input.project->cursor;
    if (!input.cursorPoint || !input.cursorPoint->visible || settings.isHidden ||
        input.timelineClipHidesCursor) {
        return std::nullopt;
    }
    const Rect& movie = input.movieRect;
    Size blur{movie.width * input.cursorFrameMotion.dx * 0.75,
              movie.height * input.cursorFrameMotion.dy * 0.75};
    const double length = std::hypot(blur.width, blur.height);
    if (length > kMaximumPointerBlur) {
        blur.width *= kMaximumPointerBlur / length;
        blur.height *= kMaximumPointerBlur / length;
    }
    // The art's box is centred at the position, its hot spot on the pointer.
    const Point hotSpot = CursorVectorArt::hotSpot(settings.style);
    const double half = CursorVectorArt::kBoxSize / 2;
    const Point position{movie.x + input.cursorPoint->x * movie.width + half - hotSpot.x,
                         movie.y + input.cursorPoint->y * movie.height + half - hotSpot.y};
    double sizeScale = 0;
    if (!(settings.sizeAmount > 0)) {
        sizeScale = 0.8;
    } else if (settings.sizeAmount > 1) {
        sizeScale = 2.55;
    } else {
        sizeScale = settings.sizeAmount * 1.75 + 0.8;
    }
    return CursorLayerComposition{position, sizeScale, blur,
                                  settings.tiltEnabled ? input.cursorTiltAngle : 0.0};
}

// The overlay's frame for the settings and, when given, a layout clip's own size,
// position and mirroring.
CameraLayerComposition overlayGeometry(const CameraOverlaySettings& settings,
                                       const CameraLayoutClip* clip, Size stage,
                                       const std::optional<Size>& cameraVideoSize,
                                       double animationAmount) {
    const double W = stage.width;
    const double H = stage.height;
    const double size = clip != nullptr ? clip->sizeAmount : settings.sizeAmount;
    const CameraOverlayPosition position =
        clip != nullptr ? clip->position.value_or(settings.position) : settings.position;
    const bool mirrored =
        clip != nullptr ? clip->isMirrored.value_or(settings.isMirrored) : settings.isMirrored;

    std::optional<double> ratio;
    if (cameraVideoSize && cameraVideoSize->width > 0 && cameraVideoSize->height > 0) {
        const double quotient = cameraVideoSize->width / cameraVideoSize->height;
        if (std::isnormal(quotient)) {
            ratio = quotient;
        }
    }
    double unitWidth = 1;
    double unitHeight = 1;
    if (settings.shape == CameraOverlayShape::original) {
        unitWidth = ratio.value_or(4.0 / 3.0);
        if (unitWidth < 1) {
            unitHeight = 1 / unitWidth;
            unitWidth = 1;
        }
    }
    const double availableWidth = std::max(W - 2 * kCameraMargin, 1.0);
    const double availableHeight = std::max(H - 2 * kCameraMargin, 1.0);
    const double maxSide =
        std::max(std::min(availableWidth / unitWidth, availableHeight / unitHeight), 1.0);
    const double floor = std::min(std::max(64.0, std::min(W, H) * 0.1), maxSide);
    // The overlay shrinks while the screen is zoomed.
    const double zoomFactor = 1 - animationAmount * (1 - settings.zoomSizeAmount);
    const double side =
        std::clamp(zoomFactor * (floor + clamp01(size) * (maxSide - floor)), 1.0, maxSide);

    Size frame{side, side};
    switch (settings.shape) {
    case CameraOverlayShape::square:
        break;
    case CameraOverlayShape::horizontal:
        frame = {side * 16 / 9, side};
        break;
    case CameraOverlayShape::vertical:
        frame = {side, side * 16 / 9};
        break;
    case CameraOverlayShape::original:
        if (ratio && *ratio < 1) {
            frame = {side, side / *ratio};
        } else {
            frame = {side * ratio.value_or(4.0 / 3.0), side};
        }
        break;
    }

    const double left = frame.width / 2 + kCameraMargin;
    const double right = W - frame.width / 2 - kCameraMargin;
    const double top = frame.height / 2 + kCameraMargin;
    const double bottom = H - frame.height / 2 - kCameraMargin;
    Point center{W / 2, H / 2};
    switch (position) {
    case CameraOverlayPosition::topLeft:
        center = {left, top};
        break;
    case CameraOverlayPosition::top:
        center = {W / 2, top};
        break;
    case CameraOverlayPosition::topRight:
        center = {right, top};
        break;
    case CameraOverlayPosition::left:
        center = {left, H / 2};
        break;
    case CameraOverlayPosition::center:
        break;
    case CameraOverlayPosition::right:
        center = {right, H / 2};
        break;
    case CameraOverlayPosition::bottomLeft:
        center = {left, bottom};
        break;
    case CameraOverlayPosition::bottom:
        center = {W / 2, bottom};
        break;
    case CameraOverlayPosition::bottomRight:
        center = {right, bottom};
        break;
    }
    return {false, mirrored, mirrored ? -1.0 : 1.0,
            frame, center,   std::min(frame.width, frame.height) * settings.roundnessAmount * 0.5,
            1};
}

CameraLayerComposition fullscreenCamera(const CameraOverlaySettings& settings, Size stage,
                                        bool isFullscreen) {
    return {isFullscreen,
            settings.isMirrored,
            settings.isMirrored ? -1.0 : 1.0,
            stage,
            {stage.width / 2, stage.height / 2},
            0,
            1};
}

// Linear in every number; mirroring from the target; never fullscreen while moving.
CameraLayerComposition interpolate(const CameraLayerComposition& from,
                                   const CameraLayerComposition& to, double amount) {
    return {false,
            to.isMirrored,
            lerp(from.horizontalScale, to.horizontalScale, amount),
            {lerp(from.frameSize.width, to.frameSize.width, amount),
             lerp(from.frameSize.height, to.frameSize.height, amount)},
            {lerp(from.center.x, to.center.x, amount), lerp(from.center.y, to.center.y, amount)},
            lerp(from.cornerRadius, to.cornerRadius, amount),
            lerp(from.opacity, to.opacity, amount)};
}

std::optional<MaskLayerComposition> maskLayer(const PreviewCompositionInput& input, double scale,
                                              Size offset) {
    const auto resolved = input.project->mask.resolvedState(input.timelineTime);
    if (!resolved || !(resolved->opacity > 0)) {
        return std::nullopt;
    }
    const Size& stage = input.stageSize;
    const Size& embedded = input.embeddedVideoSize;
    const Rect& movie = input.movieRect;
    const MaskRect& r = resolved->rect;
    const MaskClip& clip = resolved->clip;
    const double z = std::max(scale, 0.001);
    const auto toStage = [&](double px, double py) {
        return Point{stage.width / 2 + offset.width + z * (px - embedded.width / 2),
                     stage.height / 2 + offset.height + z * (py - embedded.height / 2)};
    };
    const Point a = toStage(movie.x + r.x * movie.width, movie.y + r.y * movie.height);
    const Point b =
        toStage(movie.x + (r.x + r.width) * movie.width, movie.y + (r.y + r.height) * movie.height);
    const Rect stageRect{std::min(a.x, b.x), std::min(a.y, b.y), std::abs(b.x - a.x),
                         std::abs(b.y - a.y)};

    const auto radius = [&](double amount, double factor) {
        if (!(movie.width > 0) || !(movie.height > 0)) {
            return 0.0;
        }
        const double held = std::isfinite(amount) ? std::clamp(amount, 0.0, 1.0) : 0.0;
        return std::min(z * r.width * movie.width, z * r.height * movie.height) * held * factor;
    };
    const double t = input.timelineTime.seconds;
    const double period = clip.borderStyle == MaskBorder::Style::pulse ? 2.0 : 3.0;
    const double cycles = clip.borderSpeed * std::max(t - clip.start.seconds, 0.0) / period;
    MaskLayerComposition layer;
    layer.sourceRect = r;
    layer.stageRect = stageRect;
    layer.opacity = resolved->opacity;
    layer.cornerRadius = radius(resolved->cornerRadiusAmount, 0.5);
    layer.featherRadius = radius(resolved->featherAmount, 0.75);
    layer.isInverted = clip.isInverted;
    layer.borderStyle = clip.borderStyle;
    layer.borderOpacity = MaskBorder::opacity(
        clip, resolved->opacity / std::max(clip.opacity, 0.0001), input.timelineTime);
    layer.borderPhase = cycles - std::floor(cycles);
    layer.borderColor = clip.borderColor;
    layer.referenceTime = clip.referenceTime;
    return layer;
}

} // namespace

double cameraLayoutTransitionAmount(const CameraLayoutClip& layoutClip, EditTime timelineTime,
                                    ScreenAnimationStyle animation) {
    const double s = layoutClip.start.seconds;
    const double e = layoutClip.end.seconds;
    const double t = timelineTime.seconds;
    if (s <= 0.001) {
        // A layout that opens the timeline is there from the first frame.
        const double pOut = clamp01((e - t) / zoomTransitionLength(e - s, animation));
        return animation == ScreenAnimationStyle::smooth ? Easing::smoothstep(pOut)
                                                         : Easing::quarticInOut(pOut);
    }
    return zoomEnvelopeAmount(s, e, t, animation);
}

std::optional<CameraLayerComposition>
camera(const CameraOverlaySettings& settings, const std::optional<CameraLayoutClip>& layoutClip,
       EditTime timelineTime, Size stageSize, const std::optional<Size>& cameraVideoSize,
       double animationAmount, ScreenAnimationStyle animation, bool hasCameraOverlay) {
    if (!hasCameraOverlay || settings.isHidden) {
        return std::nullopt;
    }
    const CameraLayerComposition base =
        overlayGeometry(settings, nullptr, stageSize, cameraVideoSize, animationAmount);
    if (!layoutClip) {
        return base;
    }
    const CameraLayoutClip& clip = *layoutClip;
    if (!clip.animatesTransition) {
        switch (clip.mode) {
        case CameraLayoutMode::hidden:
            return std::nullopt;
        case CameraLayoutMode::fullscreen:
            return fullscreenCamera(settings, stageSize, true);
        case CameraLayoutMode::defaultOverlay:
            return overlayGeometry(settings, &clip, stageSize, cameraVideoSize, animationAmount);
        }
    }
    const double amount = cameraLayoutTransitionAmount(clip, timelineTime, animation);
    if (!(amount > 0)) {
        return base;
    }
    switch (clip.mode) {
    case CameraLayoutMode::hidden: {
        CameraLayerComposition layer = base;
        layer.opacity = std::max(1 - amount, 0.0);
        if (layer.opacity <= 0.001) {
            return std::nullopt;
        }
        const double shrink = lerp(1, 0.88, amount);
        layer.frameSize = {base.frameSize.width * shrink, base.frameSize.height * shrink};
        return layer;
    }
    case CameraLayoutMode::fullscreen:
        return interpolate(base, fullscreenCamera(settings, stageSize, false), amount);
    case CameraLayoutMode::defaultOverlay:
        return interpolate(
            base, overlayGeometry(settings, &clip, stageSize, cameraVideoSize, animationAmount),
            amount);
    }
    return base;
}

double stageFadeOpacity(const PreviewCompositionInput& input) {
    const auto& clips = input.project->timeline.clips;
    const bool anyFade = std::any_of(clips.begin(), clips.end(), [](const TimelineClip& clip) {
        return clip.fadeInDuration > 0 || clip.fadeOutDuration > 0;
    });
    if (!anyFade) {
        return 0;
    }
    std::optional<ResolvedEditTimeline> resolvedHere;
    const ResolvedEditTimeline* timeline = input.editTimeline;
    if (timeline == nullptr) {
        resolvedHere.emplace(EditTimeline::from(input.project->timeline));
        timeline = &*resolvedHere;
    }
    const double t = input.timelineTime.seconds;
    double opacity = 0;
    size_t layoutIndex = 0;
    for (const auto& element : timeline->elements()) {
        const auto* clip = std::get_if<TimelineClip>(&element);
        if (clip == nullptr) {
            continue;
        }
        const TimelineClipLayout& layout = timeline->clipLayouts()[layoutIndex++];
        const double start = layout.timelineStart.seconds;
        const double end = layout.timelineEnd.seconds;
        if (!(clip->fadeInDuration > 0 || clip->fadeOutDuration > 0) || t < start || t > end) {
            continue;
        }
        const double half = (end - start) / 2;
        double v = 0;
        const double inLength = std::min({clip->fadeInDuration, kMaximumStageFade, half});
        if (inLength > 0) {
            v = t <= start ? 1.0 : clamp01(1 - (t - start) / inLength);
        }
        const double outLength = std::min({clip->fadeOutDuration, kMaximumStageFade, half});
        if (outLength > 0) {
            v = std::max(v, clamp01(1 - (end - t) / outLength));
        }
        opacity = std::max(opacity, v);
    }
    return opacity;
}

PreviewComposition resolve(const PreviewCompositionInput& input) {
    const EditorProjectState& project = *input.project;
    const ZoomAnimationResolution zoomState = ZoomAnimationEnvelope::resolvedState(
        input.timelineTime, project.animation.zoomClips, project.screen.zoomScale,
        project.animation.screenStyle);
    // The amount and scale on screen come from the input, which may be gliding across a cut.
    const double zoom = input.cameraAnimationAmount * (input.cameraZoomScale - 1) + 1;
    const double paddingAmount = project.background.paddingAmount;
    const double padAmount = clamp01(paddingAmount);
    const double paddingScale = ZoomFraming::paddingScale(paddingAmount);
    const double scale = zoom * paddingScale;
    const Size offset = cardOffset(input, scale, zoomState.centerBias);

    // Frame effects fade in over the first 8 percent of padding.
    const double frame = clamp01(padAmount / kFrameEffectsPadding);
    const double shadow = project.background.shadowAmount;
    const Size& embedded = input.embeddedVideoSize;

    PreviewComposition composition;
    composition.screen = {zoom,
                          offset,
                          screenBlurRadius(input, zoom),
                          std::min(embedded.width, embedded.height) * frame * 0.04 * 0.5,
                          shadow * 50 * frame,
                          shadow * frame * 0.7,
                          {0, shadow * 50 * 0.6 * frame},
                          frame,
                          frame * 0.08,
                          paddingScale,
                          perspective(input, zoomState)};
    composition.cursor = pointerLayer(input);
    const std::optional<CameraLayoutClip> layoutClip =
        input.cameraLayoutPreviewClip ? input.cameraLayoutPreviewClip
                                      : project.camera.activeLayoutClip(input.timelineTime);
    composition.camera = camera(project.camera, layoutClip, input.timelineTime, input.stageSize,
                                input.cameraVideoSize, input.cameraAnimationAmount,
                                project.animation.screenStyle, input.hasCameraOverlay);
    composition.mask = maskLayer(input, scale, offset);
    composition.stageFadeOpacity = stageFadeOpacity(input);
    return composition;
}

} // namespace orvelle::PreviewCompositionResolver
