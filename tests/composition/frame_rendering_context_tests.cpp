#include "composition/frame_rendering_context.h"
#include "core/files.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

// Keys are twice the points, rounded: 100.1 and 100.2 (200.2, 200.4) share an entry,
// 100.2 and 100.4 (200.4, 200.8) do not.
TEST(FrameRenderingContextMasks, KeysAreHalfPoints) {
    FrameRenderingContext context;
    const Image a = context.roundedRectMask({0, 0, 100.2, 50}, 8);
    const Image b = context.roundedRectMask({0, 0, 100.1, 50}, 8);
    EXPECT_EQ(context.maskCount(), 1u);
    EXPECT_EQ(a.node(), b.node());
    const Image c = context.roundedRectMask({0, 0, 100.4, 50}, 8);
    EXPECT_EQ(context.maskCount(), 2u);
    EXPECT_NE(a.node(), c.node());
    context.roundedRectMask({0, 0, 100.2, 50.3}, 8);
    context.roundedRectMask({0, 0, 100.2, 50}, 8.3);
    EXPECT_EQ(context.maskCount(), 4u);
}

TEST(FrameRenderingContextMasks, ZeroRadiusIsASquareMask) {
    FrameRenderingContext context;
    const Bitmap mask = context.roundedRectMask({0, 0, 20, 10}, 0).render({0, 0, 20, 10});
    EXPECT_EQ(mask.pixel(0, 0), (std::array<uint8_t, 4>{255, 255, 255, 255}));
    EXPECT_EQ(mask.pixel(19, 9), (std::array<uint8_t, 4>{255, 255, 255, 255}));
    const Bitmap round = context.roundedRectMask({0, 0, 20, 10}, 5).render({0, 0, 20, 10});
    EXPECT_EQ(round.pixel(0, 0)[3], 0);
    EXPECT_EQ(round.pixel(10, 5)[3], 255);
}

TEST(FrameRenderingContextCursor, ArtIsMadeOnceAt1024Pixels) {
    FrameRenderingContext context;
    const auto soft = context.cursorImage(CursorStyle::soft, {0.5, 0.5, 0.5, 1});
    ASSERT_TRUE(soft.has_value());
    EXPECT_EQ(soft->extent(), (ImageRect{0, 0, 1024, 1024}));
    // The same style is the same art; each dot colour has its own.
    const auto again = context.cursorImage(CursorStyle::soft, {0.5, 0.5, 0.5, 1});
    EXPECT_EQ(soft->node(), again->node());
    const auto red = context.cursorImage(CursorStyle::dot, {1, 0, 0, 1});
    const auto blue = context.cursorImage(CursorStyle::dot, {0, 0, 1, 1});
    EXPECT_NE(red->node(), blue->node());
    const Bitmap redDot = red->render({0, 0, 1024, 1024});
    EXPECT_GT(redDot.pixel(512, 512)[2], 240);
}

int inkBelow(const TextLineImage& line, double depth) {
    // Rows from the baseline down to `depth` below it, counted in the image's pixels.
    const Bitmap bitmap = line.image.render(line.image.extent());
    const int baselineRow = bitmap.height() - static_cast<int>(line.padding + line.descent);
    int ink = 0;
    for (int y = baselineRow + static_cast<int>(line.descent) + 1;
         y < std::min(bitmap.height(), baselineRow + static_cast<int>(depth)); ++y) {
        for (int x = 0; x < bitmap.width(); ++x) {
            ink += bitmap.pixel(x, y)[3];
        }
    }
    return ink;
}

TEST(FrameRenderingContextText, LightTextGetsAShadowAndDarkTextNone) {
    FrameRenderingContext context;
    const auto white = context.textLineImage("Hello", {1, 1, 1, 1}, 40, true);
    const auto black = context.textLineImage("Hello", {0, 0, 0, 1}, 40, true);
    ASSERT_TRUE(white && black);
    EXPECT_GT(white->padding, 40 * 0.36);
    EXPECT_EQ(white->padding, black->padding);
    EXPECT_GT(inkBelow(*white, 40), 0);
    EXPECT_EQ(inkBelow(*black, 40), 0);
    EXPECT_NEAR(white->glyphWidth, black->glyphWidth, 1e-9);
}

TEST(FrameRenderingContextText, KeysRoundSizeToHalfPointsAndColourToWholeSteps) {
    FrameRenderingContext context;
    context.textLineImage("Hi", {1, 1, 1, 1}, 30.1, false);
    context.textLineImage("Hi", {1, 1, 1, 1}, 30.2, false);
    EXPECT_EQ(context.textLineCount(), 1u);
    context.textLineImage("Hi", {1, 1, 1, 1}, 30.3, false);
    EXPECT_EQ(context.textLineCount(), 2u);
    context.textLineImage("Hi", {0.9999, 1, 1, 1}, 30.3, false);
    EXPECT_EQ(context.textLineCount(), 2u);
    context.textLineImage("Hi", {1, 1, 1, 1}, 30.3, true);
    EXPECT_EQ(context.textLineCount(), 3u);
    EXPECT_FALSE(context.textLineImage("Hi", {1, 1, 1, 1}, 0, false).has_value());
}

TEST(FrameRenderingContextBackground, WallpaperCoversTheStageAndIsKept) {
    FrameRenderingContext context;
    BackgroundSettings settings;
    settings.wallpaper = WallpaperPreset(WallpaperCategory::gradient, 2);
    ASSERT_TRUE(fileExists(settings.wallpaper.resourceURL()))
        << settings.wallpaper.resourceURL() << " is missing: build the wallpapers target";
    const auto first = context.bakedBackground(settings, {192, 108});
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(first->extent(), (ImageRect{0, 0, 192, 108}));
    const Bitmap pixels = first->render({0, 0, 192, 108});
    EXPECT_EQ(pixels.pixel(0, 0)[3], 255);
    EXPECT_EQ(pixels.pixel(191, 107)[3], 255);
    EXPECT_EQ(context.bakedBackground(settings, {192, 108})->node(), first->node());
    EXPECT_NE(context.bakedBackground(settings, {100, 100})->node(), first->node());

    settings.kind = BackgroundKind::color;
    EXPECT_FALSE(context.bakedBackground(settings, {192, 108}).has_value());
    settings.kind = BackgroundKind::wallpaper;
    settings.wallpaper.rawValue = "Nowhere/none";
    EXPECT_FALSE(context.bakedBackground(settings, {192, 108}).has_value());
}

TEST(WallpaperResources, EveryPresetAndThumbnailExists) {
    for (const WallpaperCategory category : kWallpaperCategories) {
        for (const WallpaperPreset& preset : WallpaperPreset::presets(category)) {
            EXPECT_TRUE(fileExists(preset.resourceURL())) << preset.resourceURL();
            EXPECT_TRUE(fileExists(preset.thumbnailURL())) << preset.thumbnailURL();
        }
    }
    EXPECT_EQ(WallpaperPreset().thumbnailURL().filename(), "1-thumbnail.png");
}

} // namespace
} // namespace orvelle
