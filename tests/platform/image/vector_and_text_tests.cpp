#include "platform/image/text_line.h"
#include "platform/image/vector_canvas.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

int alphaSum(const Bitmap& bitmap, int x0, int y0, int x1, int y1) {
    int sum = 0;
    for (int y = y0; y < y1; ++y) {
        for (int x = x0; x < x1; ++x) {
            sum += bitmap.pixel(x, y)[3];
        }
    }
    return sum;
}

TEST(VectorCanvas, FillsPathsThroughTheTransform) {
    VectorCanvas canvas(40, 20);
    canvas.translate(10, 0);
    canvas.rectangle(0, 0, 10, 10);
    canvas.setColor({1, 0, 0, 1});
    canvas.fill();
    const Bitmap bitmap = canvas.bitmap();
    EXPECT_EQ(bitmap.pixel(15, 5), (std::array<uint8_t, 4>{0, 0, 255, 255}));
    EXPECT_EQ(bitmap.pixel(5, 5)[3], 0);
    EXPECT_EQ(bitmap.pixel(15, 15)[3], 0);
}

TEST(VectorCanvas, GradientsRunBetweenTheirStops) {
    VectorCanvas canvas(101, 4);
    canvas.rectangle(0, 0, 101, 4);
    canvas.setLinearGradient({0, 0}, {101, 0}, {{0, {0, 0, 0, 1}}, {1, {1, 1, 1, 1}}});
    canvas.fill();
    const Bitmap bitmap = canvas.bitmap();
    EXPECT_LT(bitmap.pixel(0, 1)[1], 5);
    EXPECT_NEAR(bitmap.pixel(50, 1)[1], 128, 3);
    EXPECT_GT(bitmap.pixel(100, 1)[1], 250);

    VectorCanvas radial(41, 41);
    radial.setRadialGradient({20.5, 20.5}, 20, {{0, {1, 1, 1, 1}}, {1, {1, 1, 1, 0}}});
    radial.paint();
    const Bitmap glow = radial.bitmap();
    EXPECT_GT(glow.pixel(20, 20)[3], 240);
    EXPECT_LT(glow.pixel(0, 20)[3], 10);
}

TEST(VectorCanvas, RoundedRectanglesStrokesAndBitmaps) {
    VectorCanvas canvas(60, 60);
    canvas.roundedRectangle(10, 10, 40, 40, 10);
    canvas.setColor({1, 1, 1, 1});
    canvas.fill(true);
    canvas.setColor({0, 0, 1, 1});
    canvas.setLineWidth(2);
    canvas.stroke();
    Bitmap dot(2, 2);
    for (int y = 0; y < 2; ++y) {
        for (int x = 0; x < 2; ++x) {
            dot.setPixel(x, y, {0, 255, 0, 255});
        }
    }
    canvas.drawBitmap(dot, 29, 29);
    const Bitmap bitmap = canvas.bitmap();
    EXPECT_EQ(bitmap.pixel(11, 11)[3], 0);                                         // cut corner
    EXPECT_EQ(bitmap.pixel(20, 20), (std::array<uint8_t, 4>{255, 255, 255, 255})); // inside
    EXPECT_EQ(bitmap.pixel(30, 10), (std::array<uint8_t, 4>{255, 0, 0, 255}));     // the outline
    EXPECT_EQ(bitmap.pixel(30, 30), (std::array<uint8_t, 4>{0, 255, 0, 255}));     // the bitmap
}

TEST(TextLine, MeasuresAndDrawsTheLine) {
    TextLineStyle style{.pixelSize = 40, .padding = 3};
    const TextLineBitmap short_ = renderTextLine("Hi", style);
    const TextLineBitmap long_ = renderTextLine("Hello, world", style);
    EXPECT_GT(short_.glyphWidth, 10);
    EXPECT_GT(long_.glyphWidth, 3 * short_.glyphWidth);
    EXPECT_GT(short_.ascent, 25);
    EXPECT_GT(short_.descent, 3);
    EXPECT_LT(short_.descent, short_.ascent);
    EXPECT_EQ(short_.bitmap.width(), static_cast<int>(std::ceil(short_.glyphWidth)) + 6);
    EXPECT_EQ(short_.bitmap.height(),
              static_cast<int>(std::ceil(short_.ascent + short_.descent)) + 6);
    // Ink above the baseline, none in the padding.
    const int baseline = 3 + static_cast<int>(short_.ascent);
    EXPECT_GT(alphaSum(short_.bitmap, 3, 3, short_.bitmap.width() - 3, baseline), 255 * 50);
    EXPECT_EQ(alphaSum(short_.bitmap, 0, 0, short_.bitmap.width(), 2), 0);

    style.bold = true;
    EXPECT_GT(renderTextLine("Hello, world", style).glyphWidth, long_.glyphWidth);

    const TextLineBitmap empty = renderTextLine("", style);
    EXPECT_EQ(empty.glyphWidth, 0);
    EXPECT_GT(empty.ascent, 0);
}

TEST(TextLine, ShadowLiesUnderAndBelowTheGlyphs) {
    TextLineStyle style{.pixelSize = 40, .padding = 20};
    const TextLineBitmap plain = renderTextLine("_", style);
    style.shadowAlpha = 0.5;
    style.shadowBlur = 4;
    style.shadowDrop = 6;
    const TextLineBitmap shadowed = renderTextLine("_", style);
    ASSERT_EQ(plain.bitmap.width(), shadowed.bitmap.width());
    const int w = plain.bitmap.width();
    // Just below the underscore, which sits under the baseline, there is shadow in the
    // shadowed line only, and it is black.
    const int below = 20 + static_cast<int>(plain.ascent) + 6;
    EXPECT_EQ(alphaSum(plain.bitmap, 0, below, w, below + 8), 0);
    EXPECT_GT(alphaSum(shadowed.bitmap, 0, below, w, below + 8), 255 * 20);
    for (int y = below; y < below + 8; ++y) {
        for (int x = 0; x < w; ++x) {
            EXPECT_EQ(shadowed.bitmap.pixel(x, y)[1], 0);
        }
    }
}

} // namespace
} // namespace orvelle
