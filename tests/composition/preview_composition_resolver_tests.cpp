// The stage at an instant as numbers: what the card, pointer, camera overlay, mask and fade
// do as the project and the instant change, checked as properties of the geometry.

#include "composition/frame_composition_resolver.h"
#include "composition/motion_blur_math.h"
#include "composition/preview_composition_resolver.h"
#include "support/timeline_builders.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>

namespace orvelle {
namespace {

using testing::zoomClip;

constexpr double kEps = 1e-9;

CameraLayoutClip layout(double start, double end, CameraLayoutMode mode, bool animates) {
    CameraLayoutClip clip{.id = Uuid::random(),
                          .start = EditTime(start),
                          .end = EditTime(end),
                          .mode = mode,
                          .animatesTransition = animates};
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

// Without padding the card fills the stage plainly; the frame's effects (corners, shadow,
// stroke) come in over the first 8 % of padding and then stay, while the card shrinks to at
// most a quarter.
TEST_F(PreviewResolve, FrameEffectsGrowWithPaddingThenHold) {
    project.background.shadowAmount = 0.5;
    const auto at = [&](double padding) {
        project.background.paddingAmount = padding;
        return resolve().screen;
    };
    const auto plain = at(0);
    EXPECT_EQ(plain.paddingScale, 1);
    for (const double effect : {plain.cornerRadius, plain.shadowRadius, plain.shadowOpacity,
                                plain.strokeWidth, plain.strokeOpacity, plain.motionBlurRadius}) {
        EXPECT_EQ(effect, 0);
    }
    auto previous = plain;
    for (const double padding : {0.02, 0.04, 0.08}) {
        const auto screen = at(padding);
        EXPECT_GT(screen.cornerRadius, previous.cornerRadius) << padding;
        EXPECT_GT(screen.shadowOpacity, previous.shadowOpacity) << padding;
        EXPECT_GT(screen.shadowOffset.height, previous.shadowOffset.height) << padding;
        EXPECT_GT(screen.strokeWidth, previous.strokeWidth) << padding;
        EXPECT_LT(screen.paddingScale, previous.paddingScale) << padding;
        previous = screen;
    }
    EXPECT_NEAR(at(0.04).strokeWidth, 0.5, kEps);
    const auto wide = at(0.9);
    EXPECT_EQ(wide.strokeWidth, previous.strokeWidth);
    EXPECT_EQ(wide.cornerRadius, previous.cornerRadius);
    EXPECT_EQ(wide.paddingScale, 0.25);
    project.background.shadowAmount = 0;
    EXPECT_EQ(at(0.5).shadowOpacity, 0);
}

// A zoomed card leans towards its focus, and never so far that the background shows beside
// it; a manual offset reaches the edge at ±1; a hidden focus or a centring clip centres it.
TEST_F(PreviewResolve, ZoomLeansTowardsTheFocusWithoutRevealingTheBackground) {
    zoomTo(1, 2);
    const double leftFocus = resolve().screen.offset.width;
    EXPECT_GT(leftFocus, 0) << "the card moves right to show the left";
    EXPECT_NEAR(resolve().screen.offset.height, 0, kEps);
    input.cameraPoint->x = 0.75;
    EXPECT_NEAR(resolve().screen.offset.width, -leftFocus, kEps);
    input.cameraPoint->visible = false;
    EXPECT_EQ(resolve().screen.offset, Size{});
    input.cameraPoint->visible = true;

    AnimationClip centred = zoomClip(0, 4, 2);
    centred.centerBias = true;
    project.animation.zoomClips = {centred};
    input.cameraPoint->x = 0.25;
    input.timelineTime = EditTime(2);
    // The focus at a quarter of the width lands in the stage's middle.
    EXPECT_NEAR(960 + (0.25 * 1920 - 960) * 2 + resolve().screen.offset.width, 960, kEps);
    project.animation.zoomClips.clear();

    input.manualZoomOffset = ZoomManualOffset(1, -0.5);
    input.cameraFrameMotion = {0.5, 0.5}; // no blur under a manual zoom
    const auto manual = resolve().screen;
    EXPECT_NEAR(manual.offset.width, 960, kEps);
    EXPECT_NEAR(manual.offset.height, -270, kEps);
    EXPECT_EQ(manual.motionBlurRadius, 0);
    input.manualZoomOffset.reset();
    input.cameraFrameMotion = {};

    // 1.5 times a padding scale of 0.5 is less than the stage: nothing to follow.
    project.background.paddingAmount = 0.5;
    zoomTo(1, 1.5);
    EXPECT_EQ(resolve().screen.offset, Size{});

    std::mt19937 random(17);
    std::uniform_real_distribution<double> unit(0, 1);
    for (int i = 0; i < 2000; ++i) {
        input.cameraPoint = CursorPoint{unit(random), unit(random), true};
        project.background.paddingAmount = unit(random) * 0.3;
        zoomTo(unit(random), 1 + 3 * unit(random));
        const auto screen = resolve().screen;
        const double overflow = std::max(screen.zoomScale * screen.paddingScale - 1, 0.0) / 2;
        ASSERT_LE(std::abs(screen.offset.width), overflow * 1920 + 1e-6);
        ASSERT_LE(std::abs(screen.offset.height), overflow * 1080 + 1e-6);
    }
}

// The card blurs while it pans or pushes in, more with more motion, up to a cap.
TEST_F(PreviewResolve, ScreenBlurGrowsWithPanAndPushUpToACap) {
    zoomTo(1, 2);
    EXPECT_EQ(resolve().screen.motionBlurRadius, 0);
    double previous = 0;
    for (const double pan : {0.002, 0.005, 0.01}) {
        input.cameraFrameMotion = {pan, 0};
        EXPECT_GT(resolve().screen.motionBlurRadius, previous) << pan;
        previous = resolve().screen.motionBlurRadius;
    }
    input.cameraFrameMotion = {};
    input.zoomFrameMotion = 0.02;
    EXPECT_GT(resolve().screen.motionBlurRadius, 0);
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
    // A quarter into the zoom's ramp the tilt lags far behind the zoom; half way it is half.
    input.timelineTime = EditTime(0.365 / 4);
    EXPECT_LT(resolve().screen.perspective.angleDegrees, 20 * 0.05);
    input.timelineTime = EditTime(0.365 / 2);
    EXPECT_NEAR(resolve().screen.perspective.angleDegrees, 10, kEps);
    input.timelineTime = EditTime(2);
    input.suppressesPerspective = true;
    EXPECT_EQ(resolve().screen.perspective, ScreenPerspective{});
    input.suppressesPerspective = false;
    clip.tiltDegrees = 0.01;
    project.animation.zoomClips = {clip};
    EXPECT_EQ(resolve().screen.perspective, ScreenPerspective{});
}

// The pointer sits on its hot spot in the movie's rectangle, grows with its size setting
// within its range, blurs along its motion up to a limit, and is absent whenever any of its
// hiding rules applies.
TEST_F(PreviewResolve, PointerPlacementSizeBlurTiltAndHiding) {
    input.movieRect = {100, 50, 1600, 900};
    const auto arrow = *resolve().cursor;
    EXPECT_NEAR(arrow.position.x, 100 + 0.25 * 1600 + 19, kEps);
    EXPECT_NEAR(arrow.position.y, 50 + 0.5 * 900 + 20, kEps);
    project.cursor.style = CursorStyle::dot;
    EXPECT_EQ(resolve().cursor->position, (Point{100 + 0.25 * 1600, 50 + 0.5 * 900}));
    input.movieRect = {0, 0, 1920, 1080};

    const auto sizeAt = [&](double amount) {
        project.cursor.sizeAmount = amount;
        return resolve().cursor->sizeScale;
    };
    EXPECT_EQ(sizeAt(-1), sizeAt(0));
    EXPECT_LT(sizeAt(0), sizeAt(0.5));
    EXPECT_LT(sizeAt(0.5), sizeAt(1));
    EXPECT_EQ(sizeAt(1.5), sizeAt(1));

    input.cursorFrameMotion = {0.001, 0.002};
    const auto blur = resolve().cursor->motionBlur;
    EXPECT_NEAR(blur.height / blur.width, 2 * 1080 / 1920.0, kEps) << "along the motion";
    input.cursorFrameMotion = {0.1, 0};
    EXPECT_NEAR(resolve().cursor->motionBlur.width, 20, kEps);
    input.cursorTiltAngle = 0.3;
    EXPECT_EQ(resolve().cursor->tiltAngle, 0.3);
    project.cursor.tiltEnabled = false;
    EXPECT_EQ(resolve().cursor->tiltAngle, 0);

    const std::vector<std::function<void()>> hiding{
        [&] { input.cursorPoint->visible = false; },
        [&] { input.timelineClipHidesCursor = true; },
        [&] { project.cursor.isHidden = true; },
        [&] { input.cursorPoint.reset(); },
    };
    for (size_t i = 0; i < hiding.size(); ++i) {
        const EditorProjectState kept = project;
        const PreviewCompositionInput keptInput = input;
        hiding[i]();
        EXPECT_FALSE(resolve().cursor) << "hiding rule " << i;
        project = kept;
        input = keptInput;
        input.project = &project;
    }
    // A hidden pointer does not stop the card from following its focus.
    input.cursorPoint->visible = false;
    zoomTo(1, 2);
    EXPECT_NE(resolve().screen.offset.width, 0);
}

// The overlay keeps its shape's proportions, stays inside the stage by its margin in every
// corner, shrinks while zoomed in, mirrors when asked, and is gone when hidden.
TEST_F(PreviewResolve, CameraOverlayKeepsItsShapeInsideTheStage) {
    EXPECT_FALSE(resolve().camera); // no camera in the take
    input.hasCameraOverlay = true;
    struct Shape {
        CameraOverlayShape shape;
        std::optional<Size> video;
        double aspect; // width / height
    };
    for (const Shape& s : {Shape{CameraOverlayShape::square, std::nullopt, 1},
                           Shape{CameraOverlayShape::horizontal, std::nullopt, 16 / 9.0},
                           Shape{CameraOverlayShape::original, std::nullopt, 4 / 3.0},
                           Shape{CameraOverlayShape::original, Size{720, 1280}, 9 / 16.0}}) {
        project.camera.shape = s.shape;
        input.cameraVideoSize = s.video;
        for (const auto position :
             {CameraOverlayPosition::topLeft, CameraOverlayPosition::bottomRight,
              CameraOverlayPosition::center}) {
            project.camera.position = position;
            for (const double size : {0.0, 0.25, 1.0}) {
                project.camera.sizeAmount = size;
                const auto camera = *resolve().camera;
                const Size& frame = camera.frameSize;
                EXPECT_NEAR(frame.width / frame.height, s.aspect, 1e-9);
                EXPECT_GE(camera.center.x - frame.width / 2, 18 - kEps);
                EXPECT_LE(camera.center.x + frame.width / 2, 1920 - 18 + kEps);
                EXPECT_GE(camera.center.y - frame.height / 2, 18 - kEps);
                EXPECT_LE(camera.center.y + frame.height / 2, 1080 - 18 + kEps);
            }
        }
    }
    project.camera.shape = CameraOverlayShape::square;
    project.camera.position = CameraOverlayPosition::bottomRight;
    project.camera.sizeAmount = 0.25;
    const auto square = *resolve().camera;
    EXPECT_NEAR(square.frameSize.width, 342, kEps); // a quarter of the way from 108 to 1044
    EXPECT_NEAR(square.center.x, 1920 - 171 - 18, kEps);
    EXPECT_NEAR(square.cornerRadius, 342 * 0.25, kEps);
    EXPECT_EQ(square.horizontalScale, 1);
    zoomTo(1, 2);
    EXPECT_NEAR(resolve().camera->frameSize.width, 342 * 0.75, kEps);
    zoomTo(0, 1);
    project.camera.isMirrored = true;
    EXPECT_EQ(resolve().camera->horizontalScale, -1);
    EXPECT_TRUE(resolve().camera->isMirrored);
    // On a stage too small for it, the overlay is what fits, down to one point.
    input.stageSize = {10, 10};
    EXPECT_NEAR(resolve().camera->frameSize.width, 1, kEps);
    project.camera.isHidden = true;
    EXPECT_FALSE(resolve().camera);
}

// A fullscreen layout takes the stage; animated, it grows there from the overlay; a hidden
// layout fades and shrinks the overlay away; the editor's preview clip stands in for the
// timeline's; a mirrored layout flips through the middle.
TEST_F(PreviewResolve, CameraLayoutsTakeOverWithAndWithoutTransitions) {
    input.hasCameraOverlay = true;
    const auto base = *resolve().camera;
    const double halfWay = 2 + 0.365 / 2;
    input.timelineTime = EditTime(3);
    project.camera.dynamicLayoutClips = {layout(2, 6, CameraLayoutMode::fullscreen, false)};
    const auto full = *resolve().camera;
    EXPECT_TRUE(full.isFullscreen);
    EXPECT_EQ(full.frameSize, (Size{1920, 1080}));
    EXPECT_EQ(full.center, (Point{960, 540}));

    project.camera.dynamicLayoutClips = {layout(2, 6, CameraLayoutMode::fullscreen, true)};
    EXPECT_FALSE(resolve().camera->isFullscreen);
    EXPECT_EQ(resolve().camera->frameSize, (Size{1920, 1080}));
    input.timelineTime = EditTime(halfWay);
    EXPECT_NEAR(resolve().camera->frameSize.width, (base.frameSize.width + 1920) / 2, kEps);

    project.camera.dynamicLayoutClips = {layout(2, 6, CameraLayoutMode::hidden, true)};
    const auto fading = *resolve().camera;
    EXPECT_NEAR(fading.opacity, 0.5, kEps);
    EXPECT_LT(fading.frameSize.width, base.frameSize.width);
    EXPECT_EQ(fading.center, base.center);
    input.timelineTime = EditTime(3);
    EXPECT_FALSE(resolve().camera);

    input.cameraLayoutPreviewClip = layout(2, 6, CameraLayoutMode::defaultOverlay, true);
    input.cameraLayoutPreviewClip->position = CameraOverlayPosition::center;
    input.cameraLayoutPreviewClip->isMirrored = true;
    EXPECT_EQ(resolve().camera->center, (Point{960, 540}));
    input.timelineTime = EditTime(halfWay);
    const auto flipping = *resolve().camera;
    EXPECT_TRUE(flipping.isMirrored);
    EXPECT_NEAR(flipping.horizontalScale, 0, kEps);

    // A layout opening the timeline is there from its first instant; a later one ramps in.
    using PreviewCompositionResolver::cameraLayoutTransitionAmount;
    const auto style = ScreenAnimationStyle::focused;
    EXPECT_EQ(cameraLayoutTransitionAmount(layout(0, 4, CameraLayoutMode::fullscreen, true),
                                           EditTime(0), style),
              1);
    EXPECT_EQ(cameraLayoutTransitionAmount(layout(1, 5, CameraLayoutMode::fullscreen, true),
                                           EditTime(1), style),
              0);
    EXPECT_EQ(cameraLayoutTransitionAmount(layout(1, 1, CameraLayoutMode::hidden, true),
                                           EditTime(1), style),
              0);
}

// The mask's rectangle is the recording's, carried onto the stage with the card: zoomed by
// two towards the centre it covers twice as much. Its border runs from the clip's start and
// fades in with the mask.
TEST_F(PreviewResolve, MaskFollowsTheCardOntoTheStage) {
    MaskClip clip{.id = Uuid::random(),
                  .start = EditTime(1),
                  .end = EditTime(5),
                  .rect = {0.25, 0.25, 0.5, 0.5},
                  .cornerRadiusAmount = 0.2,
                  .borderStyle = MaskBorder::Style::comet,
                  .borderSpeed = 1.5};
    project.mask.clips = {clip};
    input.timelineTime = EditTime(3);
    const auto flat = *resolve().mask;
    EXPECT_EQ(flat.stageRect, (Rect{480, 270, 960, 540}));
    EXPECT_NEAR(flat.borderPhase, 0, kEps); // 1.5 cycles a second, 3 s a period
    input.timelineTime = EditTime(2);
    EXPECT_NEAR(resolve().mask->borderPhase, 0.5, kEps);

    input.cameraPoint = CursorPoint{0.5, 0.5, true};
    zoomTo(1, 2);
    const auto zoomed = *resolve().mask;
    EXPECT_EQ(zoomed.stageRect, (Rect{0, 0, 1920, 1080}));
    EXPECT_NEAR(zoomed.cornerRadius, 2 * flat.cornerRadius, kEps);
    zoomTo(0, 1);

    input.timelineTime = EditTime(1.1);
    const auto fading = *resolve().mask;
    EXPECT_LT(fading.opacity, flat.opacity);
    EXPECT_NEAR(fading.borderOpacity / fading.opacity,
                MaskBorder::opacity(clip, 1, input.timelineTime) / flat.opacity, 1e-9);
    clip.opacity = 0;
    project.mask.clips = {clip};
    EXPECT_FALSE(resolve().mask);
}

TimelineClip fadingClip(double start, double end, double fadeIn, double fadeOut) {
    TimelineClip made = testing::clip(start, end);
    made.fadeInDuration = fadeIn;
    made.fadeOutDuration = fadeOut;
    return made;
}

// A clip's fades cover the stage with black, each at most half the clip and at most 5 s,
// whether the caller passes its resolved timeline or not.
TEST_F(PreviewResolve, StageFadeIsAtMostHalfAClip) {
    project.timeline.sourceDuration = SourceTime(20);
    project.timeline.clips = {fadingClip(0, 4, 5, 5), fadingClip(10, 20, 0, 0)};
    const ResolvedEditTimeline timeline(EditTimeline::from(project.timeline));
    const auto fade = [&](double t) {
        input.timelineTime = EditTime(t);
        return resolve().stageFadeOpacity;
    };
    for (const ResolvedEditTimeline* given : {(const ResolvedEditTimeline*)nullptr, &timeline}) {
        input.editTimeline = given;
        EXPECT_EQ(fade(0), 1);
        EXPECT_NEAR(fade(1), 0.5, kEps);
        EXPECT_NEAR(fade(2), 0, kEps);
        EXPECT_NEAR(fade(3), 0.5, kEps);
        EXPECT_EQ(fade(5), 0);
    }
    input.editTimeline = nullptr;
    project.timeline.clips = {fadingClip(0, 20, 10, 0)};
    EXPECT_NEAR(fade(2.5), 0.5, kEps);
}

TEST(FrameHelpers, EmbeddedSizeMovieRectClickPressAndBlurLength) {
    using FrameCompositionResolver::embeddedVideoSize;
    EXPECT_EQ(embeddedVideoSize({2880, 1800}, {1920, 1080}), (Size{1728, 1080}));
    EXPECT_EQ(embeddedVideoSize({1920, 1080}, {-5, 100}), Size{});
    EXPECT_EQ(embeddedVideoSize({0, 1080}, {640, 480}), (Size{640, 480}));
    // A truncated height decides: the picture is fitted again, not stretched.
    const Rect rect = FrameCompositionResolver::movieRect({1000, 333}, {1920, 639});
    EXPECT_NEAR(rect.width / rect.height, 1000 / 333.0, 1e-9);
    EXPECT_NEAR(rect.x * 2 + rect.width, 1920, 1e-9);

    // A press dips the pointer to 0.84 at 70 ms and lets it go by 220 ms.
    const std::vector<CursorClick> clicks{{1.0, 0}, {2.0, 1}};
    EXPECT_EQ(FrameCompositionResolver::clickScale(0.5, clicks), 1);
    EXPECT_NEAR(FrameCompositionResolver::clickScale(1.07, clicks), 0.84, kEps);
    EXPECT_GT(FrameCompositionResolver::clickScale(1.035, clicks), 0.84);
    EXPECT_NEAR(FrameCompositionResolver::clickScale(1.22, clicks), 1, kEps);
    EXPECT_NEAR(FrameCompositionResolver::clickScale(2.07, clicks), 0.84, kEps);

    using MotionBlurMath::linearBlurLength;
    EXPECT_EQ(linearBlurLength(100, 180, 0.5), 25);
    EXPECT_EQ(linearBlurLength(100, -90, 1), 0);
    EXPECT_EQ(linearBlurLength(100, 720, 3), 100);
    EXPECT_EQ(linearBlurLength(-100, 360, 1), 0);
}

} // namespace
} // namespace orvelle
