// The effect of each image operation, checked at chosen pixels of small renders.

#include "image_test_support.h"

#include <gtest/gtest.h>

#include <cmath>

namespace orvelle {
namespace {

using testing::near;
using testing::pixelAt;

const ImageColor kRed{1, 0, 0, 1};
const ImageColor kBlue{0, 0, 1, 1};
const std::array<int, 4> kOpaqueRed{0, 0, 255, 255};
const std::array<int, 4> kOpaqueBlue{255, 0, 0, 255};
const std::array<int, 4> kClear{0, 0, 0, 0};

TEST(ImageCoordinates, OriginIsBottomLeftAndRowsRunDown) {
    const ImageRect region{0, 0, 10, 10};
    const Bitmap pixels = Image::color(kRed).cropped({0, 0, 10, 3}).render(region);
    // The bottom three rows of the bitmap are the image's y 0...3.
    EXPECT_TRUE(near({pixels.pixel(5, 9)[0], pixels.pixel(5, 9)[1], pixels.pixel(5, 9)[2],
                      pixels.pixel(5, 9)[3]},
                     kOpaqueRed, 0));
    EXPECT_EQ(pixels.pixel(5, 0)[3], 0);
    EXPECT_TRUE(near(pixelAt(pixels, region, 5, 2.5), kOpaqueRed, 0));
    EXPECT_TRUE(near(pixelAt(pixels, region, 5, 3.5), kClear, 0));
}

TEST(ImageCoordinates, RegionAwayFromOriginShowsThatPartOfThePlane) {
    const Image square = Image::color(kBlue).cropped({100, 200, 10, 10});
    const ImageRect region{95, 195, 20, 20};
    const Bitmap pixels = square.render(region);
    EXPECT_TRUE(near(pixelAt(pixels, region, 105, 205), kOpaqueBlue, 0));
    EXPECT_TRUE(near(pixelAt(pixels, region, 99, 205), kClear, 0));
    EXPECT_TRUE(near(pixelAt(pixels, region, 105, 211), kClear, 0));
    EXPECT_EQ(square.extent(), (ImageRect{100, 200, 10, 10}));
}

TEST(ImageCrop, CutPixelsKeepTheirShareOfCoverage) {
    const ImageRect region{0, 0, 10, 10};
    const Bitmap pixels = Image::color(ImageColor::white()).cropped({2.5, 0, 5, 10}).render(region);
    EXPECT_TRUE(near(pixelAt(pixels, region, 2, 5), {128, 128, 128, 128}, 1));
    EXPECT_TRUE(near(pixelAt(pixels, region, 3, 5), {255, 255, 255, 255}, 0));
    EXPECT_TRUE(near(pixelAt(pixels, region, 7, 5), {128, 128, 128, 128}, 1));
    EXPECT_TRUE(near(pixelAt(pixels, region, 8, 5), kClear, 0));
}

TEST(ImageCrop, InfiniteColourHasNoExtentUntilCropped) {
    const Image red = Image::color(kRed);
    EXPECT_TRUE(red.isInfinite());
    EXPECT_FALSE(red.cropped({0, 0, 4, 4}).isInfinite());
    EXPECT_TRUE(Image::color(ImageColor::clear()).isEmpty());
    EXPECT_TRUE(red.cropped({10, 10, 0, 5}).isEmpty());
}

TEST(ImageOver, PremultipliedSourceOver) {
    const ImageRect region{0, 0, 4, 4};
    struct Case {
        ImageColor top;
        ImageColor bottom;
        std::array<int, 4> expected;
    };
    const Case cases[] = {
        {kRed, kBlue, kOpaqueRed},
        {{1, 0, 0, 0.5}, kBlue, {128, 0, 128, 255}},
        {{1, 0, 0, 0.5}, ImageColor::clear(), {0, 0, 128, 128}},
        {ImageColor::clear(), kBlue, kOpaqueBlue},
        {{0, 0, 0, 0.25}, ImageColor::white(), {191, 191, 191, 255}},
    };
    for (const auto& c : cases) {
        const Image top = Image::color(c.top).cropped(region);
        const Image bottom = Image::color(c.bottom).cropped(region);
        const Bitmap pixels = top.composited(bottom).render(region);
        EXPECT_TRUE(near(pixelAt(pixels, region, 1, 1), c.expected, 1));
    }
}

// Under a translucent picture a background held as pixels (moved by whole points, cropped)
// shows through as itself, read where it lies: the same as the background described.
TEST(ImageOver, KeptBackgroundShowsItsOwnPixels) {
    const ImageRect region{0, 0, 12, 8};
    const Image pattern = Image::roundedRectangle({1, 1, 6, 5}, 2, kRed)
                              .composited(Image::color(kBlue).cropped({4, 0, 8, 8}));
    const AffineTransform move = AffineTransform::translation(2, 1);
    const ImageRect crop{1, 1, 10, 6};
    const Image described = pattern.transformed(move).cropped(crop);
    const Image kept = pattern.rendered().transformed(move).cropped(crop);
    const Image top = Image::color({0, 1, 0, 0.5}).cropped(region);
    const Bitmap expected = top.composited(described).render(region);
    EXPECT_EQ(testing::largestDifference(top.composited(kept).render(region), expected), 0);
    EXPECT_TRUE(near(pixelAt(expected, region, 9, 3), {128, 128, 0, 255}, 1)); // blue under green
}

TEST(ImageTransform, TranslationScaleAndRotationMoveTheContent) {
    const Image square = Image::color(kRed).cropped({0, 0, 4, 4});
    const ImageRect region{-20, -20, 40, 40};
    {
        const Bitmap pixels =
            square.transformed(AffineTransform::translation(10, 5)).render(region);
        EXPECT_TRUE(near(pixelAt(pixels, region, 12, 7), kOpaqueRed, 0));
        EXPECT_TRUE(near(pixelAt(pixels, region, 2, 2), kClear, 0));
    }
    {
        const Image scaled = square.transformed(AffineTransform::scale(3, 2));
        EXPECT_EQ(scaled.extent(), (ImageRect{0, 0, 12, 8}));
        const Bitmap pixels = scaled.render(region);
        EXPECT_TRUE(near(pixelAt(pixels, region, 11, 7), kOpaqueRed, 0));
        EXPECT_TRUE(near(pixelAt(pixels, region, 12, 7), kClear, 0));
    }
    {
        // A quarter turn counter-clockwise takes (0...4, 0...4) to (-4...0, 0...4).
        const Image turned =
            square.cropped({0, 0, 4, 2}).transformed(AffineTransform::rotation(M_PI / 2));
        const Bitmap pixels = turned.render(region);
        EXPECT_TRUE(near(pixelAt(pixels, region, -1, 3), kOpaqueRed, 2));
        EXPECT_TRUE(near(pixelAt(pixels, region, -3, 1), kClear, 2));
        EXPECT_TRUE(near(pixelAt(pixels, region, 1, 1), kClear, 0));
    }
}

TEST(ImageTransform, BitmapIsSampledBilinearlyAndAveragedWhenReduced) {
    // A one-pixel checkerboard reduced four times is a flat grey, not a pattern.
    Bitmap checker(64, 64);
    for (int y = 0; y < 64; ++y) {
        for (int x = 0; x < 64; ++x) {
            const uint8_t v = (x + y) % 2 == 0 ? 255 : 0;
            checker.setPixel(x, y, {v, v, v, 255});
        }
    }
    const Image reduced = Image::bitmap(checker).transformed(AffineTransform::scale(0.25, 0.25));
    const ImageRect region{0, 0, 16, 16};
    const Bitmap pixels = reduced.render(region);
    for (int y = 2; y < 14; ++y) {
        for (int x = 2; x < 14; ++x) {
            EXPECT_NEAR(pixels.pixel(x, y)[1], 128, 6) << x << "," << y;
            EXPECT_EQ(pixels.pixel(x, y)[3], 255);
        }
    }
    // Enlarged, a two-pixel ramp is interpolated between its pixel centres, and fades out
    // beyond the last centre, where the image ends.
    Bitmap ramp(2, 1);
    ramp.setPixel(0, 0, {0, 0, 0, 255});
    ramp.setPixel(1, 0, {200, 200, 200, 255});
    const Bitmap wide =
        Image::bitmap(ramp).transformed(AffineTransform::scale(4, 1)).render({0, 0, 8, 1});
    EXPECT_EQ(wide.pixel(2, 0)[0], 25);  // centre 2.5 / 4: 1/8 of the way
    EXPECT_EQ(wide.pixel(3, 0)[0], 75);  // 3/8
    EXPECT_EQ(wide.pixel(5, 0)[0], 175); // 7/8
    EXPECT_EQ(wide.pixel(5, 0)[3], 255);
    EXPECT_EQ(wide.pixel(7, 0)[3], 159); // 5/8 of the last pixel, 3/8 of nothing
}

TEST(ImageTransform, HalfPixelShiftSharesTheEdge) {
    const Bitmap pixels = Image::color(ImageColor::white())
                              .cropped({0, 0, 4, 4})
                              .rendered()
                              .transformed(AffineTransform::translation(0.5, 0))
                              .render({0, 0, 6, 4});
    EXPECT_NEAR(pixels.pixel(0, 1)[3], 128, 1);
    EXPECT_EQ(pixels.pixel(2, 1)[3], 255);
    EXPECT_NEAR(pixels.pixel(4, 1)[3], 128, 1);
    EXPECT_EQ(pixels.pixel(5, 1)[3], 0);
}

TEST(ImageClamp, EdgePixelsRepeatWithoutLimit) {
    Bitmap two(2, 1);
    two.setPixel(0, 0, {0, 0, 255, 255});
    two.setPixel(1, 0, {255, 0, 0, 255});
    const Image clamped = Image::bitmap(two).clampedToExtent();
    EXPECT_TRUE(clamped.isInfinite());
    const ImageRect region{-50, -50, 100, 100};
    const Bitmap pixels = clamped.render(region);
    EXPECT_TRUE(near(pixelAt(pixels, region, -40, 30), kOpaqueRed, 0));
    EXPECT_TRUE(near(pixelAt(pixels, region, 40, -30), kOpaqueBlue, 0));
}

// Share of a unit step that lies beyond `distance` standard deviations.
double tail(double distance) {
    return 0.5 * std::erfc(distance / std::sqrt(2.0));
}

TEST(ImageGaussianBlur, StepEdgeFollowsTheNormalDistributionAtEverySigma) {
    for (const double sigma : {0.8, 2.0, 6.0, 24.0}) {
        const Image half = Image::color(ImageColor::white()).cropped({0, -400, 400, 800});
        const Image blurred = half.gaussianBlurred(sigma);
        const ImageRect region{-200, -1, 400, 2};
        const Bitmap pixels = blurred.render(region);
        for (const double d : {-1.0, 0.0, 1.0, 2.0}) {
            const double x = d * sigma;
            const double expected = 255 * (1 - tail(x / sigma));
            const int actual = pixelAt(pixels, region, std::floor(x), 0)[3];
            // A pixel centre lies half a pixel past x.
            const double atCentre = 255 * (1 - tail((std::floor(x) + 0.5) / sigma));
            EXPECT_NEAR(actual, atCentre, 255 * 0.03 + 2)
                << "sigma " << sigma << " at " << d << " sigma (" << expected << ")";
        }
        EXPECT_EQ(blurred.extent().minX(), -std::ceil(3 * sigma));
    }
}

TEST(ImageGaussianBlur, KeepsTheTotalAndFlatAreas) {
    const Image blurred =
        Image::color(ImageColor::white()).cropped({10, 10, 4, 4}).gaussianBlurred(2);
    const ImageRect region{0, 0, 24, 24};
    const Bitmap pixels = blurred.render(region);
    double total = 0;
    for (int y = 0; y < pixels.height(); ++y) {
        for (int x = 0; x < pixels.width(); ++x) {
            total += pixels.pixel(x, y)[3];
        }
    }
    EXPECT_NEAR(total, 16 * 255, 16 * 255 * 0.03);
    const Bitmap flat =
        Image::color(kRed).cropped({0, 0, 100, 100}).gaussianBlurred(3).render(region);
    EXPECT_TRUE(near(pixelAt(flat, region, 20, 20), kOpaqueRed, 0));
}

TEST(ImageMotionBlur, SpreadsAlongTheAngleOnly) {
    Bitmap dot(1, 1);
    dot.setPixel(0, 0, {255, 255, 255, 255});
    const Image source = Image::bitmap(dot, {20, 20});
    const ImageRect region{0, 0, 41, 41};
    {
        const Bitmap pixels = source.motionBlurred(5, 0).render(region);
        EXPECT_GT(pixelAt(pixels, region, 24, 20)[3], 0);
        EXPECT_GT(pixelAt(pixels, region, 16, 20)[3], 0);
        EXPECT_EQ(pixelAt(pixels, region, 20, 23)[3], 0);
        EXPECT_EQ(pixelAt(pixels, region, 27, 20)[3], 0);
    }
    {
        // A quarter turn blurs up and down.
        const Bitmap pixels = source.motionBlurred(5, M_PI / 2).render(region);
        EXPECT_GT(pixelAt(pixels, region, 20, 24)[3], 0);
        EXPECT_EQ(pixelAt(pixels, region, 24, 20)[3], 0);
    }
}

TEST(ImageColorMatrix, WorksOnStraightColour) {
    const ImageRect region{0, 0, 2, 2};
    const Image red = Image::color(kRed).cropped(region);
    struct Case {
        ColorMatrix matrix;
        std::array<int, 4> expected;
    };
    ColorMatrix dim{.red = {0.5, 0, 0, 0}, .green = {0, 0.5, 0, 0}, .blue = {0, 0, 0.5, 0}};
    ColorMatrix shadow;
    shadow.red = shadow.green = shadow.blue = {0, 0, 0, 0};
    shadow.alpha = {0, 0, 0, 0.5};
    const Case cases[] = {
        {ColorMatrix::multiplying(0.3), {0, 0, 23, 77}}, // red 0.3 at alpha 0.3
        {dim, {0, 0, 128, 255}},
        {shadow, {0, 0, 0, 128}},
    };
    for (const auto& c : cases) {
        const Bitmap pixels = red.colorMatrixed(c.matrix).render(region);
        EXPECT_TRUE(near(pixelAt(pixels, region, 0, 0), c.expected, 1));
    }
}

TEST(ImageBlendWithMask, InputWhereWhiteBackgroundWhereBlack) {
    const ImageRect region{0, 0, 20, 10};
    const Image mask = Image::color(ImageColor::white())
                           .cropped({0, 0, 10, 10})
                           .composited(Image::color(ImageColor::black()).cropped(region));
    const Image grey = Image::color({0.5, 0.5, 0.5, 1}).cropped({10, 0, 10, 10});
    const Bitmap pixels = Image::color(kRed)
                              .cropped(region)
                              .blendedWithMask(Image::color(kBlue).cropped(region),
                                               mask.composited(Image()).composited(grey))
                              .render(region);
    EXPECT_TRUE(near(pixelAt(pixels, region, 5, 5), kOpaqueRed, 0));
    EXPECT_TRUE(near(pixelAt(pixels, region, 15, 5), kOpaqueBlue, 0));
    // Outside the mask's extent there is no input at all.
    const Bitmap limited =
        Image::color(kRed)
            .cropped(region)
            .blendedWithMask(Image(), Image::color(ImageColor::white()).cropped({0, 0, 5, 10}))
            .render(region);
    EXPECT_TRUE(near(pixelAt(limited, region, 2, 5), kOpaqueRed, 0));
    EXPECT_TRUE(near(pixelAt(limited, region, 8, 5), kClear, 0));
}

TEST(ImageRoundedRectangle, CornersAreRoundAndSidesStraight) {
    const ImageRect rect{0, 0, 40, 20};
    const ImageRect region{-2, -2, 44, 24};
    const Bitmap fill = Image::roundedRectangle(rect, 8, ImageColor::white()).render(region);
    EXPECT_EQ(pixelAt(fill, region, 0, 0)[3], 0); // outside the corner's arc
    EXPECT_EQ(pixelAt(fill, region, 39, 19)[3], 0);
    EXPECT_EQ(pixelAt(fill, region, 20, 0)[3], 255); // straight bottom edge
    EXPECT_EQ(pixelAt(fill, region, 0, 10)[3], 255); // straight left edge
    EXPECT_EQ(pixelAt(fill, region, 3, 3)[3], 255);  // inside the arc
    EXPECT_EQ(pixelAt(fill, region, 40, 10)[3], 0);
    // A radius over half the shorter side is a pill, not a failure.
    const Bitmap pill = Image::roundedRectangle(rect, 100, ImageColor::white()).render(region);
    EXPECT_EQ(pixelAt(pill, region, 20, 10)[3], 255);
    EXPECT_EQ(pixelAt(pill, region, 1, 1)[3], 0);
    // Radius 0: square corners.
    const Bitmap square = Image::roundedRectangle(rect, 0, ImageColor::white()).render(region);
    EXPECT_EQ(pixelAt(square, region, 0, 0)[3], 255);
}

TEST(ImageRoundedRectangle, StrokeIsCentredOnTheOutline) {
    const ImageRect rect{10, 10, 40, 40};
    const ImageRect region{0, 0, 60, 60};
    const Image stroke = Image::roundedRectangleStroke(rect, 6, 4, kRed);
    EXPECT_EQ(stroke.extent(), (ImageRect{8, 8, 44, 44}));
    const Bitmap pixels = stroke.render(region);
    EXPECT_TRUE(near(pixelAt(pixels, region, 30, 10), kOpaqueRed, 0));
    EXPECT_TRUE(near(pixelAt(pixels, region, 30, 8.5), kOpaqueRed, 0));
    EXPECT_TRUE(near(pixelAt(pixels, region, 30, 30), kClear, 0));
    EXPECT_TRUE(near(pixelAt(pixels, region, 30, 13), kClear, 0));
    EXPECT_TRUE(Image::roundedRectangleStroke(rect, 6, 0, kRed).isEmpty());
}

TEST(ImageSourceOut, KeepsTheInputWhereTheBackgroundIsClear) {
    const ImageRect region{0, 0, 20, 10};
    const Bitmap pixels = Image::color(kRed)
                              .cropped(region)
                              .sourceOut(Image::color({0, 0, 0, 1}).cropped({10, 0, 10, 10}))
                              .render(region);
    EXPECT_TRUE(near(pixelAt(pixels, region, 5, 5), kOpaqueRed, 0));
    EXPECT_TRUE(near(pixelAt(pixels, region, 15, 5), kClear, 0));
    const Bitmap half = Image::color(kRed)
                            .cropped(region)
                            .sourceOut(Image::color({0, 0, 0, 0.5}).cropped(region))
                            .render(region);
    EXPECT_TRUE(near(pixelAt(half, region, 5, 5), {0, 0, 128, 128}, 1));
}

TEST(ImagePerspective, CornersGoWhereTheyAreSent) {
    const Image square = Image::color(kRed).cropped({0, 0, 100, 100});
    const Image warped =
        square.perspectiveTransformed({20, 90}, {80, 90}, {100, 0}, {0, 0}); // a trapezoid
    const ImageRect region{0, 0, 100, 100};
    EXPECT_NEAR(warped.extent().minX(), 0, 1e-6);
    EXPECT_NEAR(warped.extent().maxY(), 90, 1e-6);
    const Bitmap pixels = warped.render(region);
    EXPECT_TRUE(near(pixelAt(pixels, region, 50, 50), kOpaqueRed, 0));
    EXPECT_TRUE(near(pixelAt(pixels, region, 5, 85), kClear, 0));  // cut off at the top left
    EXPECT_TRUE(near(pixelAt(pixels, region, 95, 85), kClear, 0)); // and top right
    EXPECT_TRUE(near(pixelAt(pixels, region, 2, 2), kOpaqueRed, 0));
    EXPECT_TRUE(near(pixelAt(pixels, region, 50, 95), kClear, 0));
}

TEST(ImageMultiply, ChannelWiseProductWhereBothExist) {
    const ImageRect region{0, 0, 20, 10};
    const Image grey = Image::color({0.5, 0.5, 0.5, 1}).cropped({0, 0, 10, 10});
    const Bitmap pixels =
        Image::color(ImageColor::white()).cropped(region).multiplied(grey).render(region);
    EXPECT_TRUE(near(pixelAt(pixels, region, 5, 5), {128, 128, 128, 255}, 1));
    EXPECT_TRUE(near(pixelAt(pixels, region, 15, 5), kClear, 0));
}

TEST(ImageRender, RegionSizeMustMatchTheBitmap) {
    Bitmap small(3, 3);
    EXPECT_THROW(Image::color(kRed).render({0, 0, 4, 4}, small), Error);
}

TEST(ImageRender, RenderedKeepsPixelsOverWholePoints) {
    const Image shape = Image::roundedRectangle({0.5, 0, 30, 20}, 5, kRed);
    const Image made = shape.rendered();
    EXPECT_EQ(made.extent(), (ImageRect{0, 0, 31, 20}));
    const ImageRect region{0, 0, 32, 20};
    EXPECT_EQ(testing::largestDifference(made.render(region), shape.render(region)), 0);
}

} // namespace
} // namespace orvelle
