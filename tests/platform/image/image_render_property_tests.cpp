// Properties over random chains of operations: rendering in pieces, on several threads,
// or after moving by whole points never changes a pixel.

#include "image_test_support.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace orvelle {
namespace {

// A random image made of every kind of operation, with the recipe for failure messages.
struct RandomImage {
    Image image;
    std::string recipe;
};

class ImageGenerator {
public:
    explicit ImageGenerator(unsigned seed) : random_(seed) {}

    RandomImage make(int depth) {
        if (depth == 0) {
            return leaf();
        }
        RandomImage a = make(depth - 1);
        switch (pick(11)) {
        case 0: {
            RandomImage b = make(depth - 1);
            return {a.image.composited(b.image), "over(" + a.recipe + ", " + b.recipe + ")"};
        }
        case 1: {
            const ImageRect r{uniform(-10, 40), uniform(-10, 40), uniform(5, 50), uniform(5, 50)};
            return {a.image.cropped(r), "crop(" + a.recipe + ")"};
        }
        case 2: {
            const double s = uniform(0.3, 2.5);
            const AffineTransform t = AffineTransform::scale(s, s).then(
                AffineTransform::translation(uniform(-5, 5), uniform(-5, 5)));
            return {a.image.transformed(t), "scale(" + a.recipe + ")"};
        }
        case 3: {
            const AffineTransform t = AffineTransform::rotation(uniform(-1, 1))
                                          .then(AffineTransform::translation(uniform(0, 20), 0));
            return {a.image.transformed(t), "rotate(" + a.recipe + ")"};
        }
        case 4:
            return {a.image.gaussianBlurred(uniform(0.3, 8)), "blur(" + a.recipe + ")"};
        case 5:
            return {a.image.cropped({0, 0, 40, 40}).motionBlurred(uniform(0.5, 6), uniform(0, 3)),
                    "motion(" + a.recipe + ")"};
        case 6:
            return {a.image.colorMatrixed(ColorMatrix::multiplying(uniform(0.2, 1))),
                    "matrix(" + a.recipe + ")"};
        case 7: {
            RandomImage b = make(depth - 1);
            RandomImage m = leaf();
            return {a.image.blendedWithMask(b.image, m.image),
                    "mask(" + a.recipe + ", " + b.recipe + ", " + m.recipe + ")"};
        }
        case 8: {
            RandomImage b = make(depth - 1);
            return {a.image.sourceOut(b.image), "out(" + a.recipe + ", " + b.recipe + ")"};
        }
        case 9: {
            const Image bounded = a.image.cropped({-5, -5, 50, 50});
            return {bounded.perspectiveTransformed({0, 45}, {40, 40}, {45, 0}, {-5, -2}),
                    "perspective(" + a.recipe + ")"};
        }
        default: {
            RandomImage b = make(depth - 1);
            return {a.image.multiplied(b.image), "multiply(" + a.recipe + ", " + b.recipe + ")"};
        }
        }
    }

private:
    RandomImage leaf() {
        const ImageColor color{uniform(0, 1), uniform(0, 1), uniform(0, 1), uniform(0.2, 1)};
        const ImageRect r{uniform(-5, 30), uniform(-5, 30), uniform(3, 40), uniform(3, 40)};
        switch (pick(4)) {
        case 0:
            return {Image::color(color).cropped(r), "rect"};
        case 1:
            return {Image::roundedRectangle(r, uniform(0, 10), color), "rounded"};
        case 2:
            return {Image::roundedRectangleStroke(r, uniform(0, 10), uniform(0.5, 4), color),
                    "stroke"};
        default: {
            Bitmap bitmap(7, 5);
            for (int y = 0; y < 5; ++y) {
                for (int x = 0; x < 7; ++x) {
                    const auto a = static_cast<uint8_t>(pick(256));
                    bitmap.setPixel(x, y,
                                    {static_cast<uint8_t>(pick(a + 1)),
                                     static_cast<uint8_t>(pick(a + 1)),
                                     static_cast<uint8_t>(pick(a + 1)), a});
                }
            }
            return {Image::bitmap(bitmap, {std::round(uniform(0, 20)), std::round(uniform(0, 20))})
                        .clampedToExtent()
                        .cropped(r),
                    "bitmap"};
        }
        }
    }

    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(random_); }
    double uniform(double a, double b) {
        return std::uniform_real_distribution<double>(a, b)(random_);
    }

    std::mt19937 random_;
};

class ImageRenderProperties : public ::testing::TestWithParam<unsigned> {};

TEST_P(ImageRenderProperties, PiecesAndThreadsGiveTheSamePixels) {
    ImageGenerator generator(GetParam());
    const RandomImage random = generator.make(3);
    const ImageRect region{-12, -12, 70, 150};

    setImageThreadCount(1);
    const Bitmap whole = random.image.render(region);

    // Rendered as quarters and stitched together.
    Bitmap stitched(whole.width(), whole.height());
    for (const ImageRect part : {ImageRect{-12, -12, 23, 75}, ImageRect{11, -12, 47, 75},
                                 ImageRect{-12, 63, 23, 75}, ImageRect{11, 63, 47, 75}}) {
        const Bitmap piece = random.image.render(part);
        const int left = static_cast<int>(part.x - region.x);
        const int top = static_cast<int>(region.maxY() - part.maxY());
        for (int y = 0; y < piece.height(); ++y) {
            for (int x = 0; x < piece.width(); ++x) {
                stitched.setPixel(left + x, top + y, piece.pixel(x, y));
            }
        }
    }
    EXPECT_EQ(testing::largestDifference(whole, stitched), 0) << random.recipe;

    setImageThreadCount(2);
    EXPECT_EQ(testing::largestDifference(whole, random.image.render(region)), 0) << random.recipe;
    setImageThreadCount(1);
}

TEST_P(ImageRenderProperties, MovingByWholePointsMovesThePixels) {
    ImageGenerator generator(GetParam() + 1000);
    const RandomImage random = generator.make(3);
    const ImageRect region{-12, -12, 70, 70};
    const Bitmap original = random.image.render(region);
    const Image moved = random.image.transformed(AffineTransform::translation(17, -9));
    const Bitmap shifted = moved.render({region.x + 17, region.y - 9, region.width, region.height});
    EXPECT_LE(testing::largestDifference(original, shifted), 1) << random.recipe;
}

INSTANTIATE_TEST_SUITE_P(RandomChains, ImageRenderProperties, ::testing::Range(1u, 41u));

} // namespace
} // namespace orvelle
