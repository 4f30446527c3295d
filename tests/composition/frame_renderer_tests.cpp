// The renderer's picture, checked at chosen points of small stages.

#include "composition/cursor_vector_art.h"
#include "frame_renderer_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

namespace orvelle {
namespace {

using testing::at;
using testing::idleComposition;
using testing::renderFrame;
using testing::solidPicture;

constexpr double W = 320;
constexpr double H = 180;
const std::array<int, 4> kBlue{255, 0, 0, 255};
const std::array<int, 4> kGreen{0, 255, 0, 255};
const ImageColor kGreenColor{0, 1, 0, 1};

::testing::AssertionResult near(const std::array<int, 4>& actual,
                                const std::array<int, 4>& expected, int tolerance) {
    for (size_t i = 0; i < 4; ++i) {
        if (std::abs(actual[i] - expected[i]) > tolerance) {
            return ::testing::AssertionFailure()
                   << "(" << actual[0] << ", " << actual[1] << ", " << actual[2] << ", "
                   << actual[3] << ") is not within " << tolerance << " of (" << expected[0] << ", "
                   << expected[1] << ", " << expected[2] << ", " << expected[3] << ")";
        }
    }
    return ::testing::AssertionSuccess();
}

FrameRendererInput greenCard(const FrameComposition& composition) {
    return {solidPicture(W, H, kGreenColor), std::nullopt, std::nullopt, composition};
}

// The card's look, probed where its edge, corners, stroke and shadow fall. With padding 0.1
// the card spans x 16...304, y 9...171; a card point is 0.9 of a stage point.
TEST(FrameRendererCard, PaddingCornersStrokeAndShadowFallWhereTheyShould) {
    struct Probe {
        double x;
        double y;
        std::array<int, 4> colour;
        int tolerance;
    };
    struct Case {
        const char* name;
        double padding;
        double shadow;
        std::optional<double> cornerRadius;
        std::optional<std::pair<double, double>> stroke; // width, opacity
        std::vector<Probe> probes;
    };
    const std::array<int, 4> white{255, 255, 255, 255};
    const std::vector<Case> cases{
        {"padded",
         0.1,
         0,
         {},
         {},
         {{8, 90, kBlue, 0},
          {160, 90, kGreen, 0},
          {160, 4, kBlue, 0},
          {160, 175, kBlue, 0},
          {20, 90, kGreen, 25},
          {15, 90, kBlue, 0}}},
        {"full stage, square corners",
         0,
         0,
         {},
         {},
         {{0, 0, kGreen, 0}, {W - 1, H - 1, kGreen, 0}}},
        {"radius 20 (18 on the stage)",
         0.1,
         0,
         20,
         std::pair{0.0, 0.0},
         {{17, 10, kBlue, 0},
          {16 + 18, 10, kGreen, 0},
          {17, 9 + 18, kGreen, 0},
          {16 + 6, 9 + 6, kGreen, 0}}},
        {"stroke of 2 (1.8 on the stage)",
         0.1,
         0,
         0,
         std::pair{2.0, 1.0},
         {{16.5, 90, white, 2}, {160, 9.5, white, 2}, {20, 90, kGreen, 0}, {14, 90, kBlue, 0}}},
        {"no stroke", 0.1, 0, 0, std::pair{0.0, 1.0}, {{16.5, 90, kGreen, 0}}},
        {"shadowed, far from the card", 0.1, 0.5, {}, {}, {{2, 2, kBlue, 12}}},
    };
    FrameRenderingContext context;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FrameComposition composition = idleComposition(W, H, c.padding, c.shadow);
        if (c.cornerRadius) {
            composition.preview.screen.cornerRadius = *c.cornerRadius;
        }
        if (c.stroke) {
            composition.preview.screen.strokeWidth = c.stroke->first;
            composition.preview.screen.strokeOpacity = c.stroke->second;
        }
        const Bitmap frame = renderFrame(greenCard(composition), context);
        for (const Probe& probe : c.probes) {
            EXPECT_TRUE(near(at(frame, probe.x, probe.y), probe.colour, probe.tolerance))
                << "at " << probe.x << ", " << probe.y;
        }
    }
    // The shadow darkens the stage below the card, not above it.
    FrameComposition shadowed = idleComposition(W, H, 0.1, 0.5);
    const Bitmap frame = renderFrame(greenCard(shadowed), context);
    EXPECT_LT(at(frame, 160, 175)[0], 200);
    EXPECT_LT(at(frame, 160, 175)[0], at(frame, 160, 4)[0]);
    shadowed.preview.screen.shadowOpacity = 0;
    EXPECT_TRUE(near(at(renderFrame(greenCard(shadowed), context), 160, 175), kBlue, 0));
}

// A card keeps its size while the zoom moves it, so from the second frame on its shadow is
// sampled from pixels kept in the context; they must draw what the shadow's description
// draws, in the same place. A card whose size changes keeps nothing.
TEST(FrameRendererCard, KeptShadowDrawsWhatItsDescriptionDraws) {
    FrameRenderingContext context;
    FrameComposition composition = idleComposition(W, H, 0.1, 0.5);
    composition.preview.screen.zoomScale = 0.9;
    composition.preview.screen.offset = {14, -9};
    const Bitmap described = renderFrame(greenCard(composition), context);
    EXPECT_EQ(context.shadowCount(), 0u);
    const Bitmap kept = renderFrame(greenCard(composition), context);
    EXPECT_EQ(context.shadowCount(), 1u);
    const auto largestDifference = [](const Bitmap& a, const Bitmap& b) {
        int largest = 0;
        for (int y = 0; y < a.height(); ++y) {
            for (int x = 0; x < a.width(); ++x) {
                for (size_t c = 0; c < 4; ++c) {
                    largest = std::max(largest, std::abs(a.pixel(x, y)[c] - b.pixel(x, y)[c]));
                }
            }
        }
        return largest;
    };
    EXPECT_LE(largestDifference(described, kept), 2);
    FrameComposition flat = composition;
    flat.preview.screen.shadowOpacity = 0;
    EXPECT_GT(largestDifference(kept, renderFrame(greenCard(flat), context)), 40); // it is there

    FrameRenderingContext growing;
    for (int frame = 0; frame < 3; ++frame) {
        FrameComposition f = composition;
        f.embeddedVideoSize = {W - 10 * frame, H - 6 * frame};
        renderFrame(greenCard(f), growing);
    }
    EXPECT_EQ(growing.shadowCount(), 0u);
}

TEST(FrameRendererCard, ZoomAndOffsetMoveThePicture) {
    FrameRenderingContext context;
    FrameComposition composition = idleComposition(W, H, 0);
    composition.preview.screen.zoomScale = 2;
    composition.preview.screen.offset = {W / 2, H / 2}; // the picture's top-left quarter fills
    const Image picture = testing::splitPicture(W, H, {1, 0, 0, 1}, kGreenColor);
    const Bitmap frame = renderFrame({picture, std::nullopt, std::nullopt, composition}, context);
    EXPECT_TRUE(near(at(frame, 10, 10), {0, 0, 255, 255}, 0));
    EXPECT_TRUE(near(at(frame, W - 10, H - 10), {0, 0, 255, 255}, 0));
}

TEST(FrameRendererCard, MotionBlurBelowItsThresholdChangesNothing) {
    FrameRenderingContext context;
    FrameComposition composition = idleComposition(W, H, 0.1);
    const Image picture = testing::splitPicture(W, H, {1, 0, 0, 1}, kGreenColor);
    const Bitmap sharp = renderFrame({picture, std::nullopt, std::nullopt, composition}, context);
    composition.preview.screen.motionBlurRadius = 0.01;
    const Bitmap same = renderFrame({picture, std::nullopt, std::nullopt, composition}, context);
    composition.preview.screen.motionBlurRadius = 0.5;
    const Bitmap blurred = renderFrame({picture, std::nullopt, std::nullopt, composition}, context);
    EXPECT_EQ(at(sharp, W / 2 - 1, 90), at(same, W / 2 - 1, 90));
    EXPECT_NE(at(sharp, W / 2 - 1, 90), at(blurred, W / 2 - 1, 90));
}

// A tilted card brings the edge on its tilt's side closer: that side looks taller.
TEST(FrameRendererCard, PerspectiveBringsTheTiltedSideCloser) {
    FrameRenderingContext context;
    FrameComposition composition = idleComposition(W, H, 0.1);
    const auto cardHeights = [&](double direction, double angle) {
        composition.preview.screen.perspective = {direction, angle};
        const Bitmap frame = renderFrame(greenCard(composition), context);
        const auto height = [&](double x) {
            int green = 0;
            for (int y = 0; y < static_cast<int>(H); ++y) {
                green += at(frame, x, y)[1] > 128;
            }
            return green;
        };
        return std::pair{height(40), height(W - 40)};
    };
    const auto [flatLeft, flatRight] = cardHeights(90, 0);
    EXPECT_EQ(flatLeft, flatRight);
    const auto [left, right] = cardHeights(90, 20);
    EXPECT_GT(right, left + 4);
    const auto [mirroredLeft, mirroredRight] = cardHeights(270, 20);
    EXPECT_NEAR(mirroredLeft, right, 1);
    EXPECT_NEAR(mirroredRight, left, 1);
}

MaskLayerComposition maskOver(const Rect& stageRect, double opacity, bool inverted) {
    MaskLayerComposition mask{.stageRect = stageRect, .opacity = opacity, .isInverted = inverted};
    return mask;
}

// A normal mask dims all but its hole, an inverted one only the hole; one wholly off the
// stage has no hole.
TEST(FrameRendererMask, DimsAllButTheHoleOrOnlyTheHole) {
    struct Case {
        Rect hole;
        double opacity;
        bool inverted;
        std::array<int, 4> inHole, onCard, onBackground;
    };
    const std::array<int, 4> dimGreen{0, 128, 0, 255};
    const std::array<int, 4> black{0, 0, 0, 255};
    for (const Case& c :
         std::vector<Case>{{{100, 50, 100, 60}, 0.5, false, kGreen, dimGreen, {128, 0, 0, 255}},
                           {{100, 50, 100, 60}, 0.5, true, dimGreen, kGreen, kBlue},
                           {{W + 50, 10, 40, 40}, 1, false, black, black, black},
                           {{W + 50, 10, 40, 40}, 1, true, kGreen, kGreen, kBlue}}) {
        SCOPED_TRACE(c.inverted ? "inverted" : "normal");
        FrameRenderingContext context;
        FrameComposition composition = idleComposition(W, H, 0.1);
        composition.preview.mask = maskOver(c.hole, c.opacity, c.inverted);
        const Bitmap frame = renderFrame(greenCard(composition), context);
        // Dimmed colours may round either way; whole ones are exact.
        const auto tolerance = [](const std::array<int, 4>& colour) {
            return std::ranges::all_of(colour, [](int v) { return v == 0 || v == 255; }) ? 0 : 2;
        };
        EXPECT_TRUE(near(at(frame, 150, 80), c.inHole, tolerance(c.inHole)));
        EXPECT_TRUE(near(at(frame, 40, 80), c.onCard, tolerance(c.onCard)));
        EXPECT_TRUE(near(at(frame, 5, 80), c.onBackground, tolerance(c.onBackground)));
    }
}

TEST(FrameRendererMask, BorderGlowsAroundTheHole) {
    FrameRenderingContext context;
    FrameComposition composition = idleComposition(W, H, 0);
    MaskLayerComposition mask = maskOver({100, 50, 100, 60}, 0.5, false);
    mask.borderStyle = MaskBorder::Style::pulse;
    mask.borderOpacity = 1;
    mask.borderColor = {1, 0, 0, 1};
    composition.preview.mask = mask;
    const Bitmap frame = renderFrame(greenCard(composition), context);
    EXPECT_GT(at(frame, 150, 50)[2], 60); // red on the hole's top edge
    EXPECT_LT(at(frame, 150, 80)[2], 10); // hardly any in the middle of the hole
    composition.preview.mask->borderOpacity = 0;
    const Bitmap plain = renderFrame(greenCard(composition), context);
    EXPECT_EQ(at(plain, 150, 50)[2], 0);
}

// The pointer's point for each style lands on the given stage point, at the largest size.
TEST(FrameRendererPointer, HotSpotLandsOnThePointerPoint) {
    const Point point{100, 60};
    const std::array<int, 4> grey{128, 128, 128, 255};
    for (const CursorStyle style :
         {CursorStyle::soft, CursorStyle::crisp, CursorStyle::obsidian, CursorStyle::brutalist,
          CursorStyle::beveled, CursorStyle::pointer, CursorStyle::dot}) {
        SCOPED_TRACE(std::string(enumName(style)));
        FrameRenderingContext context;
        FrameComposition composition = idleComposition(W, H, 0);
        composition.cursorStyle = style;
        composition.cursorDotColor = {1, 0, 0, 1};
        const bool dot = style == CursorStyle::dot;
        CursorLayerComposition cursor{
            .position = {point.x + (dot ? 0 : 19), point.y + (dot ? 0 : 20)}, .sizeScale = 2.55};
        composition.preview.cursor = cursor;
        const Image picture = solidPicture(W, H, {128 / 255.0, 128 / 255.0, 128 / 255.0, 1});
        const FrameRendererInput input{picture, std::nullopt, std::nullopt, composition};
        const Bitmap frame = renderFrame(input, context);
        // How far a pixel is from the plain grey picture.
        const auto ink = [&](const Bitmap& bitmap, double x, double y) {
            const auto p = at(bitmap, x, y);
            return std::abs(p[0] - grey[0]) + std::abs(p[1] - grey[1]) + std::abs(p[2] - grey[2]);
        };
        if (dot) {
            EXPECT_GT(at(frame, point.x, point.y)[2], 200);
            EXPECT_LT(at(frame, point.x, point.y)[1], 40);
            EXPECT_EQ(ink(frame, point.x - 40, point.y), 0);
        } else {
            // Art lies just below and right of the point, none further up and left.
            EXPECT_GT(ink(frame, point.x + 6, point.y + 10), 20);
            EXPECT_EQ(ink(frame, point.x - 8, point.y - 8), 0);
            EXPECT_EQ(ink(frame, point.x + 10, point.y - 8), 0);
        }
        FrameRendererInput hidden = input;
        hidden.composition.cursorIsHidden = true;
        const Bitmap without = renderFrame(hidden, context);
        EXPECT_EQ(ink(without, point.x + 6, point.y + 10), 0);
        EXPECT_EQ(ink(without, point.x, point.y), 0);
    }
}

// A moving pointer is smeared along its movement by about the length of its blur vector,
// and keeps its size across the movement; at rest it is sharp.
TEST(FrameRendererPointer, MovementSmearsThePointerAlongItsDirectionOnly) {
    const Point point{160, 90};
    const Image picture = solidPicture(W, H, {0.5, 0.5, 0.5, 1});
    // How many pixels of the row (or column) through the point carry ink of the pointer.
    const auto inkSpan = [&](const Bitmap& frame, bool alongX) {
        int span = 0;
        for (int i = 0; i < (alongX ? static_cast<int>(W) : static_cast<int>(H)); ++i) {
            const auto p = alongX ? at(frame, i, point.y) : at(frame, point.x, i);
            span += std::abs(p[0] - 128) + std::abs(p[1] - 128) + std::abs(p[2] - 128) > 12;
        }
        return span;
    };
    FrameRenderingContext context;
    const auto spans = [&](Size motionBlur) {
        FrameComposition composition = idleComposition(W, H, 0);
        composition.cursorStyle = CursorStyle::dot;
        composition.cursorDotColor = {1, 0, 0, 1};
        CursorLayerComposition cursor{.position = point, .motionBlur = motionBlur};
        composition.preview.cursor = cursor;
        const Bitmap frame =
            renderFrame({picture, std::nullopt, std::nullopt, composition}, context);
        return std::pair{inkSpan(frame, true), inkSpan(frame, false)};
    };
    const auto [restX, restY] = spans({0, 0});
    ASSERT_GT(restX, 5);
    EXPECT_NEAR(restX, restY, 1);
    // 12 points of movement over the frame: half of it to each side of the pointer.
    const auto [sidewaysX, sidewaysY] = spans({12, 0});
    EXPECT_GE(sidewaysX - restX, 8);
    EXPECT_LE(sidewaysX - restX, 14);
    EXPECT_NEAR(sidewaysY, restY, 1);
    const auto [downX, downY] = spans({0, 12});
    EXPECT_GE(downY - restY, 8);
    EXPECT_LE(downY - restY, 14);
    EXPECT_NEAR(downX, restX, 1);
}

CameraLayerComposition overlay(double size, double cornerRadius, double horizontalScale) {
    CameraLayerComposition camera{.isMirrored = horizontalScale < 0,
                                  .horizontalScale = horizontalScale,
                                  .frameSize = {size, size},
                                  .center = {W - size / 2 - 18, H - size / 2 - 18},
                                  .cornerRadius = cornerRadius};
    return camera;
}

TEST(FrameRendererCamera, OverlayIsMirroredByItsHorizontalScale) {
    FrameRenderingContext context;
    FrameComposition composition = idleComposition(W, H, 0);
    composition.hasCameraOverlay = true;
    const Image camera = testing::splitPicture(100, 100, {1, 0, 0, 1}, {1, 1, 0, 1});
    const double left = W - 80 - 18;
    const double top = H - 80 - 18;
    composition.preview.camera = overlay(80, 0, 1);
    const Bitmap plain =
        renderFrame({solidPicture(W, H, kGreenColor), camera, std::nullopt, composition}, context);
    EXPECT_TRUE(near(at(plain, left + 10, top + 40), {0, 0, 255, 255}, 0));
    EXPECT_TRUE(near(at(plain, left + 70, top + 40), {0, 255, 255, 255}, 0));
    composition.preview.camera = overlay(80, 0, -1);
    const Bitmap mirrored =
        renderFrame({solidPicture(W, H, kGreenColor), camera, std::nullopt, composition}, context);
    EXPECT_TRUE(near(at(mirrored, left + 10, top + 40), {0, 255, 255, 255}, 0));
    EXPECT_TRUE(near(at(mirrored, left + 70, top + 40), {0, 0, 255, 255}, 0));
    // Without a camera picture the overlay is left out.
    const Bitmap none = renderFrame(greenCard(composition), context);
    EXPECT_TRUE(near(at(none, left + 10, top + 40), kGreen, 0));
}

TEST(FrameRendererCamera, RoundOverlayHasAShadowBelow) {
    FrameRenderingContext context;
    FrameComposition composition = idleComposition(W, H, 0);
    composition.preview.camera = overlay(80, 40, 1);
    const Image camera = solidPicture(100, 100, {1, 0, 0, 1});
    const Bitmap frame =
        renderFrame({solidPicture(W, H, {1, 1, 1, 1}), camera, std::nullopt, composition}, context);
    const double left = W - 80 - 18;
    const double top = H - 80 - 18;
    EXPECT_TRUE(near(at(frame, left + 40, top + 40), {0, 0, 255, 255}, 0));
    EXPECT_LT(at(frame, left + 1, top + 1)[0], 255);   // outside the circle: white with shadow
    EXPECT_LT(at(frame, left + 40, top + 84)[0], 235); // shadow under the bubble
}

TEST(FrameRendererCamera, FullscreenCameraHidesCardPointerAndMask) {
    FrameRenderingContext context;
    FrameComposition composition = idleComposition(W, H, 0.1);
    CameraLayerComposition camera{
        .isFullscreen = true, .frameSize = {W, H}, .center = {W / 2, H / 2}};
    composition.preview.camera = camera;
    composition.preview.mask = maskOver({100, 50, 100, 60}, 1, false);
    CursorLayerComposition cursor{.position = {100, 60}, .sizeScale = 2.5};
    composition.preview.cursor = cursor;
    composition.preview.stageFadeOpacity = 0.5;
    const Image red = solidPicture(64, 36, {1, 0, 0, 1});
    const Bitmap frame =
        renderFrame({solidPicture(W, H, kGreenColor), red, std::nullopt, composition}, context);
    EXPECT_TRUE(near(at(frame, 5, 5), {0, 0, 128, 255}, 2)); // camera, under the fade
    EXPECT_TRUE(near(at(frame, 150, 80), {0, 0, 128, 255}, 2));
    EXPECT_TRUE(near(at(frame, 84, 46), {0, 0, 128, 255}, 2)); // no pointer
}

TEST(FrameRendererStage, FadeCoversEverythingWithBlack) {
    FrameRenderingContext context;
    FrameComposition composition = idleComposition(W, H, 0.1);
    composition.preview.stageFadeOpacity = 0.5;
    const Bitmap half = renderFrame(greenCard(composition), context);
    EXPECT_TRUE(near(at(half, 160, 90), {0, 128, 0, 255}, 1));
    EXPECT_TRUE(near(at(half, 5, 5), {128, 0, 0, 255}, 1));
    composition.preview.stageFadeOpacity = 0.0005;
    const Bitmap none = renderFrame(greenCard(composition), context);
    EXPECT_TRUE(near(at(none, 160, 90), kGreen, 0));
}

TEST(FrameRendererStage, WallpaperWithoutAnImageFallsBackToDarkGrey) {
    FrameRenderingContext context;
    FrameComposition composition = idleComposition(W, H, 0.1);
    composition.background.kind = BackgroundKind::wallpaper;
    const Bitmap frame = renderFrame(greenCard(composition), context);
    EXPECT_TRUE(near(at(frame, 5, 5), {26, 23, 21, 255}, 0));
}

TextClip textClip(const std::string& text, double start, double end) {
    TextClip clip{.start = EditTime{start},
                  .end = EditTime{end},
                  .text = text,
                  .alignment = TextBlockAlignment::center,
                  .size = 4,
                  .position = {0.5, 0.5}};
    return clip;
}

int whiteInk(const Bitmap& frame, double x0, double y0, double x1, double y1) {
    int count = 0;
    for (int y = static_cast<int>(y0); y < static_cast<int>(y1); ++y) {
        for (int x = static_cast<int>(x0); x < static_cast<int>(x1); ++x) {
            const auto p = frame.pixel(x, y);
            count += p[0] > 128 && p[1] > 128 && p[2] > 128;
        }
    }
    return count;
}

TEST(FrameRendererText, LinesAppearWhileTheirClipRuns) {
    FrameRenderingContext context;
    FrameComposition composition = idleComposition(W, H, 0);
    composition.textClips = {textClip("Hello", 1, 5)};
    const Image black = solidPicture(W, H, {0, 0, 0, 1});
    const auto frameAt = [&](double time) {
        composition.editTime = EditTime{time};
        return renderFrame({black, std::nullopt, std::nullopt, composition}, context);
    };
    const Bitmap shown = frameAt(3);
    EXPECT_GT(whiteInk(shown, 100, 60, 220, 120), 200);
    EXPECT_EQ(whiteInk(shown, 0, 0, W, 50), 0);
    EXPECT_EQ(whiteInk(frameAt(0.5), 0, 0, W, H), 0);
    EXPECT_EQ(whiteInk(frameAt(5), 0, 0, W, H), 0);
    // Just after the start the line is still faint and low: the rise preset.
    EXPECT_LT(whiteInk(frameAt(1.05), 0, 0, W, H), whiteInk(shown, 0, 0, W, H) / 2);
    // Three lines at speed 0 (read as 0.0001) stay hidden until late.
    TextClip slow = textClip("one\ntwo\nthree", 0, 10);
    slow.animationSpeed = 0;
    composition.textClips = {slow};
    EXPECT_EQ(whiteInk(frameAt(5), 0, 0, W, H), 0);
}

TEST(FrameRendererText, StaggerSpreadsLinesOverTheClip) {
    EXPECT_DOUBLE_EQ(TextAnimationEngine::resolvedStagger(1, 4, 1), 0.35);
    EXPECT_DOUBLE_EQ(TextAnimationEngine::resolvedStagger(3, 10, 1), 0.35);
    // Three lines at 0.35 s would pass 60 percent of a 1-second clip.
    EXPECT_NEAR(TextAnimationEngine::resolvedStagger(3, 1, 1), (0.6 - 0.35) / 2, 1e-12);
    EXPECT_DOUBLE_EQ(TextAnimationEngine::resolvedStagger(3, 0.4, 1), 0);
    EXPECT_DOUBLE_EQ(TextAnimationEngine::resolvedStagger(1, 4, 0), 3500);
}

} // namespace
} // namespace orvelle
