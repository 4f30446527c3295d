#include "composition/frame_composition_resolver.h"
#include "composition/motion_blur_math.h"
#include "composition/preview_composition_resolver.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace orvelle {
namespace {

constexpr double kEps = 1e-9;

AnimationClip zoomClip(double start, double end, double scale) {
    AnimationClip clip;
    clip.id = Uuid::random();
    clip.start = EditTime(start);
    clip.end = EditTime(end);
    clip.zoomScale = scale;
    return clip;
}

// A 1920 by 1080 stage showing a 16:9 recording at an instant.
class PreviewResolve : public ::testing::Test {
protected:
    PreviewResolve() {
        project.background.paddingAmount = 0;
        input.project = &project;
        input.stageSize = {1920, 1080};
        input.embeddedVideoSize = {1920, 1080};
        input.movieRect = {0, 0, 1920, 1080};
        input.timelineTime = EditTime(1);
        input.cursorPoint = CursorPoint{0.25, 0.5, true};
        input.cameraPoint = CursorPoint{0.25, 0.5, true};
    }

    PreviewComposition resolve() { return PreviewCompositionResolver::resolve(input); }

    void zoomTo(double amount, double scale) {
        input.cameraAnimationAmount = amount;
        input.cameraZoomScale = scale;
    }

    EditorProjectState project;
    PreviewCompositionInput input;
};

TEST_F(PreviewResolve, NoPaddingMeansNoFrameEffectsAndAFullCard) {
    const auto screen = resolve().screen;
    EXPECT_EQ(screen.zoomScale, 1);
    EXPECT_EQ(screen.paddingScale, 1);
    EXPECT_EQ(screen.offset, Size{});
    EXPECT_EQ(screen.cornerRadius, 0);
    EXPECT_EQ(screen.shadowRadius, 0);
    EXPECT_EQ(screen.shadowOpacity, 0);
    EXPECT_EQ(screen.strokeWidth, 0);
    EXPECT_EQ(screen.strokeOpacity, 0);
    EXPECT_EQ(screen.motionBlurRadius, 0);
}

TEST_F(PreviewResolve, FrameEffectsFadeInOverTheFirstEightPercentOfPadding) {
    project.background.paddingAmount = 0.04;
    project.background.shadowAmount = 0.5;
    const auto half = resolve().screen;
    EXPECT_NEAR(half.cornerRadius, 1080 * 0.5 * 0.04 * 0.5, kEps);
    EXPECT_NEAR(half.shadowRadius, 0.5 * 50 * 0.5, kEps);
    EXPECT_NEAR(half.shadowOpacity, 0.5 * 0.5 * 0.7, kEps);
    EXPECT_NEAR(half.shadowOffset.height, 0.5 * 50 * 0.6 * 0.5, kEps);
    EXPECT_EQ(half.shadowOffset.width, 0);
    EXPECT_NEAR(half.strokeWidth, 0.5, kEps);
    EXPECT_NEAR(half.strokeOpacity, 0.04, kEps);
    EXPECT_NEAR(half.paddingScale, 0.96, kEps);
    project.background.paddingAmount = 0.9;
    EXPECT_EQ(resolve().screen.paddingScale, 0.25);
    EXPECT_EQ(resolve().screen.strokeWidth, 1);
}

TEST_F(PreviewResolve, AZoomedOutPaddedCardStaysCentred) {
    project.background.paddingAmount = 0.5;
    zoomTo(1, 1.5);
    const auto screen = resolve().screen;
    EXPECT_EQ(screen.zoomScale, 1.5);
    EXPECT_EQ(screen.offset, Size{}); // 1.5 x 0.5 is below 1: the pointer is not followed
}

TEST_F(PreviewResolve, AutomaticZoomLeansTowardsTheFocusWithinTheOverflow) {
    zoomTo(1, 2);
    const auto offset = resolve().screen.offset;
    const double want = (960 - 0.25 * 1920) * 2;
    const double overflow = 960;
    EXPECT_NEAR(offset.width, overflow * std::tanh(want / overflow), kEps);
    EXPECT_NEAR(offset.height, 0, kEps);
    // A hidden camera point centres the focus.
    input.cameraPoint->visible = false;
    EXPECT_EQ(resolve().screen.offset, Size{});
}

TEST_F(PreviewResolve, OffsetNeverRevealsTheBackgroundWithoutCentring) {
    std::mt19937 random(17);
    std::uniform_real_distribution<double> unit(0, 1);
    std::uniform_real_distribution<double> scale(1, 4);
    for (int i = 0; i < 2000; ++i) {
        input.cameraPoint = CursorPoint{unit(random), unit(random), true};
        project.background.paddingAmount = unit(random) * 0.3;
        zoomTo(unit(random), scale(random));
        const auto screen = resolve().screen;
        const double framing = screen.zoomScale * screen.paddingScale;
        const double overflowX = std::max(framing - 1, 0.0) * 1920 / 2;
        const double overflowY = std::max(framing - 1, 0.0) * 1080 / 2;
        ASSERT_LE(std::abs(screen.offset.width), overflowX + 1e-6);
        ASSERT_LE(std::abs(screen.offset.height), overflowY + 1e-6);
    }
}

TEST_F(PreviewResolve, ManualOffsetIsInHalvesOfTheOverflow) {
    zoomTo(1, 2);
    input.manualZoomOffset = ZoomManualOffset(1, -0.5);
    input.cameraFrameMotion = {0.5, 0.5}; // ignored under a manual zoom
    const auto screen = resolve().screen;
    EXPECT_NEAR(screen.offset.width, 960, kEps);
    EXPECT_NEAR(screen.offset.height, -270, kEps);
    EXPECT_EQ(screen.motionBlurRadius, 0);
}

TEST_F(PreviewResolve, CentringBiasFromTheClipPutsTheFocusInTheMiddle) {
    AnimationClip clip = zoomClip(0, 4, 2);
    clip.centerBias = true;
    project.animation.zoomClips = {clip};
    zoomTo(1, 2);
    input.timelineTime = EditTime(2);
    EXPECT_NEAR(resolve().screen.offset.width, (960 - 480) * 2, kEps);
}

TEST_F(PreviewResolve, ScreenBlurGrowsWithPanAndPushAndIsCapped) {
    zoomTo(1, 2);
    input.cameraFrameMotion = {0.01, 0};
    const double pan = 1 * 2 * 1920 * 0.01 * 0.22 * 0.5 * 0.036;
    EXPECT_NEAR(resolve().screen.motionBlurRadius, pan / 3.4641016151377544, kEps);
    input.cameraFrameMotion = {};
    input.zoomFrameMotion = 0.02;
    const double push = 1920 * 0.02 * 0.18 * 0.5 * 0.063;
    EXPECT_NEAR(resolve().screen.motionBlurRadius, push / 3.4641016151377544, kEps);
    input.zoomFrameMotion = 10;
    EXPECT_EQ(resolve().screen.motionBlurRadius, 0.55);
}

TEST_F(PreviewResolve, PerspectiveArrivesLateAndCanBeSuppressed) {
    AnimationClip clip = zoomClip(0, 4, 2);
    clip.tiltDegrees = 20;
    clip.tiltDirectionDegrees = 90;
    project.animation.zoomClips = {clip};
    input.timelineTime = EditTime(2);
    EXPECT_EQ(resolve().screen.perspective, (ScreenPerspective{90, 20}));
    // Half way into the zoom the tilt is a quintic ease behind.
    input.timelineTime = EditTime(0.365 / 2);
    EXPECT_NEAR(resolve().screen.perspective.angleDegrees, 20 * 0.5, kEps);
    input.timelineTime = EditTime(0.365 / 4);
    const double amount = 4 * std::pow(0.25, 3);
    EXPECT_NEAR(resolve().screen.perspective.angleDegrees, 20 * 16 * std::pow(amount, 5), kEps);
    input.timelineTime = EditTime(2);
    input.suppressesPerspective = true;
    EXPECT_EQ(resolve().screen.perspective, ScreenPerspective{});
    input.suppressesPerspective = false;
    clip.tiltDegrees = 0.01;
    project.animation.zoomClips = {clip};
    EXPECT_EQ(resolve().screen.perspective, ScreenPerspective{});
}

TEST_F(PreviewResolve, PointerSitsOnItsHotSpot) {
    input.movieRect = {100, 50, 1600, 900};
    const auto arrow = resolve().cursor;
    ASSERT_TRUE(arrow);
    EXPECT_NEAR(arrow->position.x, 100 + 0.25 * 1600 + 19, kEps);
    EXPECT_NEAR(arrow->position.y, 50 + 0.5 * 900 + 20, kEps);
    project.cursor.style = CursorStyle::dot;
    const auto dot = resolve().cursor;
    EXPECT_NEAR(dot->position.x, 100 + 0.25 * 1600, kEps);
    EXPECT_NEAR(dot->position.y, 50 + 0.5 * 900, kEps);
}

TEST_F(PreviewResolve, PointerSizeBlurAndTilt) {
    struct Case {
        double amount;
        double scale;
    };
    for (const auto& c :
         {Case{0, 0.8}, Case{-1, 0.8}, Case{0.5, 1.675}, Case{1, 2.55}, Case{1.5, 2.55}}) {
        project.cursor.sizeAmount = c.amount;
        EXPECT_NEAR(resolve().cursor->sizeScale, c.scale, kEps) << c.amount;
    }
    input.cursorFrameMotion = {0.001, 0.002};
    EXPECT_NEAR(resolve().cursor->motionBlur.width, 1920 * 0.001 * 0.75, kEps);
    EXPECT_NEAR(resolve().cursor->motionBlur.height, 1080 * 0.002 * 0.75, kEps);
    input.cursorFrameMotion = {0.1, 0}; // 144 points: limited to 20
    EXPECT_NEAR(resolve().cursor->motionBlur.width, 20, kEps);
    input.cursorTiltAngle = 0.3;
    EXPECT_EQ(resolve().cursor->tiltAngle, 0.3);
    project.cursor.tiltEnabled = false;
    EXPECT_EQ(resolve().cursor->tiltAngle, 0);
}

TEST_F(PreviewResolve, PointerLayerAbsentWhenHiddenAnyWay) {
    input.cursorPoint->visible = false;
    EXPECT_FALSE(resolve().cursor);
    // The card keeps following its focus: the camera track is always visible.
    zoomTo(1, 2);
    EXPECT_NE(resolve().screen.offset.width, 0);
    input.cursorPoint->visible = true;
    input.timelineClipHidesCursor = true;
    EXPECT_FALSE(resolve().cursor);
    input.timelineClipHidesCursor = false;
    project.cursor.isHidden = true;
    EXPECT_FALSE(resolve().cursor);
    project.cursor.isHidden = false;
    input.cursorPoint.reset();
    EXPECT_FALSE(resolve().cursor);
}

TEST_F(PreviewResolve, CameraOverlayGeometry) {
    EXPECT_FALSE(resolve().camera); // no camera in the take
    input.hasCameraOverlay = true;
    const auto square = resolve().camera;
    ASSERT_TRUE(square);
    // maxSide = min(1884, 1044) = 1044; floor = 108; side = 108 + 0.25 x 936 = 342.
    EXPECT_NEAR(square->frameSize.width, 342, kEps);
    EXPECT_NEAR(square->frameSize.height, 342, kEps);
    EXPECT_NEAR(square->center.x, 1920 - 171 - 18, kEps);
    EXPECT_NEAR(square->center.y, 1080 - 171 - 18, kEps);
    EXPECT_NEAR(square->cornerRadius, 342 * 0.5 * 0.5, kEps);
    EXPECT_EQ(square->horizontalScale, 1);
    EXPECT_EQ(square->opacity, 1);
    EXPECT_FALSE(square->isFullscreen);

    // Zoomed, the overlay shrinks to zoomSizeAmount of its size.
    zoomTo(1, 2);
    EXPECT_NEAR(resolve().camera->frameSize.width, 342 * 0.75, kEps);
    zoomTo(0, 1);

    project.camera.shape = CameraOverlayShape::horizontal;
    project.camera.position = CameraOverlayPosition::topLeft;
    project.camera.isMirrored = true;
    const auto wide = resolve().camera;
    EXPECT_NEAR(wide->frameSize.width, 342 * 16 / 9.0, kEps);
    EXPECT_NEAR(wide->center.x, 342 * 16 / 9.0 / 2 + 18, kEps);
    EXPECT_NEAR(wide->center.y, 171 + 18, kEps);
    EXPECT_EQ(wide->horizontalScale, -1);
    EXPECT_TRUE(wide->isMirrored);

    project.camera.shape = CameraOverlayShape::original;
    EXPECT_NEAR(resolve().camera->frameSize.width, 342 * 4 / 3.0, kEps); // unknown ratio
    input.cameraVideoSize = Size{720, 1280};
    const auto portrait = resolve().camera;
    // Units (1, 16/9): maxSide = min(1884, 1044 x 9/16) = 587.25.
    const double maxSide = 1044 * 9 / 16.0;
    const double side = 108 + 0.25 * (maxSide - 108);
    EXPECT_NEAR(portrait->frameSize.width, side, kEps);
    EXPECT_NEAR(portrait->frameSize.height, side * 16 / 9, kEps);

    project.camera.isHidden = true;
    EXPECT_FALSE(resolve().camera);
}

TEST_F(PreviewResolve, CameraFloorOnATinyStage) {
    input.hasCameraOverlay = true;
    input.stageSize = {100, 100};
    project.camera.sizeAmount = 0;
    const auto camera = resolve().camera;
    // maxSide 64 and floor min(max(64, 10), 64) = 64.
    EXPECT_NEAR(camera->frameSize.width, 64, kEps);
    project.camera.sizeAmount = 1;
    EXPECT_NEAR(resolve().camera->frameSize.width, 64, kEps);
    input.stageSize = {10, 10}; // nothing fits: one point
    EXPECT_NEAR(resolve().camera->frameSize.width, 1, kEps);
    // The floor is limited by what fits before the zoom shrinks it: on 80 by 80, maxSide and
    // floor are 44, and a full zoom takes three quarters of that.
    input.stageSize = {80, 80};
    project.camera.sizeAmount = 0.25;
    zoomTo(1, 2);
    EXPECT_NEAR(resolve().camera->frameSize.width, 44 * 0.75, kEps);
}

CameraLayoutClip layout(double start, double end, CameraLayoutMode mode, bool animates) {
    CameraLayoutClip clip;
    clip.id = Uuid::random();
    clip.start = EditTime(start);
    clip.end = EditTime(end);
    clip.mode = mode;
    clip.animatesTransition = animates;
    return clip;
}

TEST_F(PreviewResolve, CameraLayoutsWithAndWithoutTransitions) {
    input.hasCameraOverlay = true;
    const auto base = *resolve().camera;
    project.camera.dynamicLayoutClips = {layout(2, 6, CameraLayoutMode::fullscreen, false)};
    input.timelineTime = EditTime(3);
    const auto full = *resolve().camera;
    EXPECT_TRUE(full.isFullscreen);
    EXPECT_EQ(full.frameSize, (Size{1920, 1080}));
    EXPECT_EQ(full.center, (Point{960, 540}));
    EXPECT_EQ(full.cornerRadius, 0);

    // Animated: at full amount a fullscreen layout is drawn as a large overlay.
    project.camera.dynamicLayoutClips = {layout(2, 6, CameraLayoutMode::fullscreen, true)};
    const auto grown = *resolve().camera;
    EXPECT_FALSE(grown.isFullscreen);
    EXPECT_EQ(grown.frameSize, (Size{1920, 1080}));
    input.timelineTime = EditTime(2 + 0.365 / 2);
    const auto halfWay = *resolve().camera;
    EXPECT_NEAR(halfWay.frameSize.width, (342 + 1920) / 2.0, kEps);
    EXPECT_NEAR(halfWay.cornerRadius, base.cornerRadius / 2, kEps);

    project.camera.dynamicLayoutClips = {layout(2, 6, CameraLayoutMode::hidden, false)};
    input.timelineTime = EditTime(3);
    EXPECT_FALSE(resolve().camera);

    // The editor's preview clip takes the place of the timeline's.
    input.cameraLayoutPreviewClip = layout(2, 6, CameraLayoutMode::defaultOverlay, false);
    input.cameraLayoutPreviewClip->position = CameraOverlayPosition::center;
    input.cameraLayoutPreviewClip->sizeAmount = 0;
    const auto preview = *resolve().camera;
    EXPECT_EQ(preview.center, (Point{960, 540}));
    EXPECT_NEAR(preview.frameSize.width, 108, kEps);

    // Half way into a mirrored overlay layout: the flip is half done, mirroring is the
    // target's.
    input.cameraLayoutPreviewClip->animatesTransition = true;
    input.cameraLayoutPreviewClip->isMirrored = true;
    input.timelineTime = EditTime(2 + 0.365 / 2);
    const auto flipping = *resolve().camera;
    EXPECT_TRUE(flipping.isMirrored);
    EXPECT_NEAR(flipping.horizontalScale, 0, kEps);
    EXPECT_NEAR(flipping.frameSize.width, (342 + 108) / 2.0, kEps);
}

TEST_F(PreviewResolve, HiddenLayoutFadesAndShrinksThenDisappears) {
    input.hasCameraOverlay = true;
    const auto base = *resolve().camera;
    project.camera.dynamicLayoutClips = {layout(2, 6, CameraLayoutMode::hidden, true)};
    input.timelineTime = EditTime(2 + 0.365 / 2);
    const auto half = *resolve().camera;
    EXPECT_NEAR(half.opacity, 0.5, kEps);
    EXPECT_NEAR(half.frameSize.width, base.frameSize.width * 0.94, kEps);
    EXPECT_EQ(half.center, base.center);
    input.timelineTime = EditTime(3);
    EXPECT_FALSE(resolve().camera);
    // At amount 0.9995 the opacity is below 0.001: no layer.
    const double p = 1 - std::cbrt(0.0005 / 0.5) / 2; // cubic ease at p gives 0.9995
    input.timelineTime = EditTime(2 + 0.365 * p);
    ASSERT_NEAR(PreviewCompositionResolver::cameraLayoutTransitionAmount(
                    project.camera.dynamicLayoutClips[0], input.timelineTime,
                    ScreenAnimationStyle::focused),
                0.9995, 1e-9);
    EXPECT_FALSE(resolve().camera);
}

TEST(CameraLayoutTransition, AClipOpeningTheTimelineHasNoEnteringRamp) {
    const auto opening = layout(0, 4, CameraLayoutMode::fullscreen, true);
    using PreviewCompositionResolver::cameraLayoutTransitionAmount;
    EXPECT_EQ(cameraLayoutTransitionAmount(opening, EditTime(0), ScreenAnimationStyle::focused), 1);
    // Its exit is the quartic ease under focused, smoothstep under smooth.
    const double p = 0.25;
    EXPECT_NEAR(cameraLayoutTransitionAmount(opening, EditTime(4 - 0.365 * p),
                                             ScreenAnimationStyle::focused),
                8 * std::pow(p, 4), kEps);
    EXPECT_NEAR(
        cameraLayoutTransitionAmount(opening, EditTime(4 - 0.45 * p), ScreenAnimationStyle::smooth),
        p * p * (3 - 2 * p), kEps);
    const auto later = layout(1, 5, CameraLayoutMode::fullscreen, true);
    EXPECT_EQ(cameraLayoutTransitionAmount(later, EditTime(1), ScreenAnimationStyle::focused), 0);
    EXPECT_EQ(cameraLayoutTransitionAmount(layout(1, 1, CameraLayoutMode::hidden, true),
                                           EditTime(1), ScreenAnimationStyle::focused),
              0);
}

TEST_F(PreviewResolve, MaskFollowsTheCardOntoTheStage) {
    MaskClip clip;
    clip.id = Uuid::random();
    clip.start = EditTime(0);
    clip.end = EditTime(4);
    clip.rect = {0.25, 0.25, 0.5, 0.5};
    clip.cornerRadiusAmount = 0.2;
    clip.featherAmount = 0.4;
    clip.borderStyle = MaskBorder::Style::pulse;
    clip.borderSpeed = 1.5;
    project.mask.clips = {clip};
    input.timelineTime = EditTime(2);
    const auto flat = resolve().mask;
    ASSERT_TRUE(flat);
    EXPECT_EQ(flat->stageRect, (Rect{480, 270, 960, 540}));
    EXPECT_NEAR(flat->opacity, 0.72, kEps);
    EXPECT_NEAR(flat->cornerRadius, 540 * 0.2 * 0.5, kEps);
    EXPECT_NEAR(flat->featherRadius, 540 * 0.4 * 0.75, kEps);
    EXPECT_NEAR(flat->borderPhase, 0.5, kEps); // 1.5 x 2 / 2 cycles
    EXPECT_GT(flat->borderOpacity, 0);

    // Zoomed by 2 towards the centre, the rectangle doubles about the stage's centre.
    input.cameraPoint = CursorPoint{0.5, 0.5, true};
    zoomTo(1, 2);
    const auto zoomed = resolve().mask;
    EXPECT_EQ(zoomed->stageRect, (Rect{0, 0, 1920, 1080}));
    EXPECT_NEAR(zoomed->cornerRadius, 1080 * 0.2 * 0.5, kEps);

    clip.opacity = 0;
    project.mask.clips = {clip};
    EXPECT_FALSE(resolve().mask);
}

TEST_F(PreviewResolve, MaskBorderRunsFromTheClipsStartAndFadesWithTheMask) {
    MaskClip clip;
    clip.id = Uuid::random();
    clip.start = EditTime(1);
    clip.end = EditTime(5);
    clip.borderStyle = MaskBorder::Style::comet;
    clip.borderSpeed = 1.5;
    project.mask.clips = {clip};
    // 1.5 cycles a second over a 3 s period, counted from the clip's start.
    input.timelineTime = EditTime(3);
    EXPECT_NEAR(resolve().mask->borderPhase, 0.0, kEps);
    input.timelineTime = EditTime(2);
    EXPECT_NEAR(resolve().mask->borderPhase, 0.5, kEps);
    // While the mask fades in, the border fades with it.
    input.timelineTime = EditTime(1.1);
    const auto fading = *resolve().mask;
    EXPECT_NEAR(fading.opacity, 0.72 * 0.1 / 0.35, kEps);
    EXPECT_NEAR(fading.borderOpacity, MaskBorder::opacity(clip, 1, input.timelineTime) * 0.1 / 0.35,
                kEps);
}

TimelineClip fadingClip(double start, double end, double fadeIn, double fadeOut) {
    TimelineClip clip;
    clip.id = Uuid::random();
    clip.start = SourceTime(start);
    clip.end = SourceTime(end);
    clip.fadeInDuration = fadeIn;
    clip.fadeOutDuration = fadeOut;
    return clip;
}

TEST_F(PreviewResolve, StageFadeIsAtMostHalfAClip) {
    project.timeline.sourceDuration = SourceTime(20);
    project.timeline.clips = {fadingClip(0, 4, 5, 5), fadingClip(10, 20, 0, 0)};
    project.timeline.deletedGaps = {};
    const auto fade = [&](double t) {
        input.timelineTime = EditTime(t);
        return resolve().stageFadeOpacity;
    };
    EXPECT_EQ(fade(0), 1);
    EXPECT_NEAR(fade(1), 0.5, kEps);
    EXPECT_NEAR(fade(2), 0, kEps);
    EXPECT_NEAR(fade(3), 0.5, kEps);
    EXPECT_EQ(fade(4), 1); // the end of the first clip is still inside it
    EXPECT_EQ(fade(5), 0);
    // On a long clip a fade is at most 5 s.
    project.timeline.clips = {fadingClip(0, 20, 10, 0)};
    EXPECT_NEAR(fade(2.5), 0.5, kEps);
    project.timeline.clips = {fadingClip(0, 4, 5, 5), fadingClip(10, 20, 0, 0)};
    // The same with the caller's resolved timeline.
    const ResolvedEditTimeline timeline(EditTimeline::from(project.timeline));
    input.editTimeline = &timeline;
    EXPECT_NEAR(fade(1), 0.5, kEps);
    project.timeline.clips = {fadingClip(0, 4, 0, 0)};
    input.editTimeline = nullptr;
    EXPECT_EQ(fade(0), 0);
}

TEST(FrameHelpers, EmbeddedSizeAndMovieRect) {
    using FrameCompositionResolver::embeddedVideoSize;
    EXPECT_EQ(embeddedVideoSize({2880, 1800}, {1920, 1080}), (Size{1728, 1080}));
    EXPECT_EQ(embeddedVideoSize({1000, 333}, {1920, 1080}), (Size{1920, 639})); // truncated
    EXPECT_EQ(embeddedVideoSize({1920, 1080}, {-5, 100}), Size{});
    EXPECT_EQ(embeddedVideoSize({0, 1080}, {640, 480}), (Size{640, 480}));
    const Rect rect = FrameCompositionResolver::movieRect({1000, 333}, {1920, 639});
    // The truncated height decides: the picture is fitted again, not stretched.
    EXPECT_NEAR(rect.height, 639, kEps);
    EXPECT_NEAR(rect.x, (1920 - 1000 * 639 / 333.0) / 2, kEps);
    EXPECT_EQ(rect.y, 0);
    EXPECT_EQ(FrameCompositionResolver::movieRect({0, 0}, {100, 50}), (Rect{0, 0, 100, 50}));
}

TEST(FrameHelpers, ClickPressesAndReleases) {
    using CursorClickVisualEffect::scale;
    EXPECT_EQ(scale(-0.01), 1);
    EXPECT_EQ(scale(0), 1);
    EXPECT_NEAR(scale(0.07), 0.84, kEps);
    EXPECT_NEAR(scale(0.035), 1 - 0.16 * (1 - 0.125), kEps);
    EXPECT_NEAR(scale(0.22), 1, kEps);
    EXPECT_EQ(scale(0.2201), 1);
    const std::vector<CursorClick> clicks{{1.0, 0}, {2.0, 1}};
    EXPECT_EQ(FrameCompositionResolver::clickScale(0.5, clicks), 1);
    EXPECT_NEAR(FrameCompositionResolver::clickScale(1.07, clicks), 0.84, kEps);
    EXPECT_NEAR(FrameCompositionResolver::clickScale(1.22, clicks), 1, kEps);
    EXPECT_EQ(FrameCompositionResolver::clickScale(1.5, clicks), 1);
    EXPECT_NEAR(FrameCompositionResolver::clickScale(2.07, clicks), 0.84, kEps);
}

TEST(MotionBlurMathTest, ShutterAndStrengthAreHeld) {
    using MotionBlurMath::linearBlurLength;
    EXPECT_EQ(linearBlurLength(100, 180, 0.5), 25);
    EXPECT_EQ(linearBlurLength(100, 0, 1), 0);
    EXPECT_EQ(linearBlurLength(100, -90, 1), 0);
    EXPECT_EQ(linearBlurLength(100, 720, 1), 100);
    EXPECT_EQ(linearBlurLength(100, 360, 3), 100);
    EXPECT_EQ(linearBlurLength(-100, 360, 1), 0);
}

} // namespace
} // namespace orvelle
