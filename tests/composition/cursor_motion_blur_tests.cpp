#include "composition/cursor_motion_blur.h"

#include <gtest/gtest.h>

#include <cmath>

namespace orvelle {
namespace {

TEST(CursorMotionBlur, PreviewPicturesAreTheStylesArtKeptPerBlur) {
    CursorMotionBlurPreview preview(2);
    const BackgroundColorRGBA red{1, 0, 0, 1};
    const auto sharp = preview.previewImage(CursorStyle::soft, red, 48, 0, 0);
    ASSERT_TRUE(sharp);
    EXPECT_EQ(sharp->width(), 48);
    // The art itself, scaled to the size: the same pixels the renderer's context draws.
    FrameRenderingContext context;
    const Image art = *context.cursorImage(CursorStyle::soft, red);
    const Bitmap expected =
        art.transformed(AffineTransform::scale(48 / art.extent().width, 48 / art.extent().height))
            .render({0, 0, 48, 48});
    for (int y = 0; y < 48; y += 3) {
        for (int x = 0; x < 48; x += 3) {
            ASSERT_EQ(sharp->pixel(x, y), expected.pixel(x, y)) << x << "," << y;
        }
    }
    const auto smeared = preview.previewImage(CursorStyle::soft, red, 48, 3, 0);
    ASSERT_TRUE(smeared);
    EXPECT_EQ(smeared->width(), 48 + 2 * 3);
    // Asked again, within a quarter pixel and a degree: the same picture, not a new one.
    const auto again = preview.previewImage(CursorStyle::soft, red, 48, 3.05, 0.001);
    EXPECT_EQ(again->row(0), smeared->row(0));
    EXPECT_EQ(preview.count(), 2u);
    // At most two kept: a third drives out the least recently used.
    ASSERT_TRUE(preview.previewImage(CursorStyle::dot, red, 48, 0, 0));
    EXPECT_EQ(preview.count(), 2u);
    EXPECT_NE(preview.previewImage(CursorStyle::soft, red, 48, 0, 0)->row(0), sharp->row(0));
    EXPECT_FALSE(preview.previewImage(CursorStyle::soft, red, 0, 0, 0));
}

// The preview's pointer is smeared as the export's is: along its motion by about twice the
// radius, unchanged across it; at rest it is sharp.
TEST(CursorMotionBlur, PreviewPointerIsSmearedAlongItsMotionOnly) {
    CursorMotionBlurPreview preview;
    const BackgroundColorRGBA red{1, 0, 0, 1};
    // How many pixels of the middle row (or column) carry ink.
    const auto span = [](const Bitmap& picture, bool alongX) {
        int count = 0;
        const int length = alongX ? picture.width() : picture.height();
        for (int i = 0; i < length; ++i) {
            const auto p = alongX ? picture.pixel(i, picture.height() / 2)
                                  : picture.pixel(picture.width() / 2, i);
            count += p[3] > 12;
        }
        return count;
    };
    const auto spans = [&](double radius, double angle) {
        const auto picture = preview.previewImage(CursorStyle::dot, red, 96, radius, angle);
        EXPECT_TRUE(picture);
        return picture ? std::pair{span(*picture, true), span(*picture, false)} : std::pair{0, 0};
    };
    const auto [restX, restY] = spans(0, 0);
    ASSERT_GT(restX, 5);
    EXPECT_NEAR(restX, restY, 1);
    const auto [sidewaysX, sidewaysY] = spans(6, 0);
    EXPECT_GE(sidewaysX - restX, 8);
    EXPECT_LE(sidewaysX - restX, 14);
    EXPECT_NEAR(sidewaysY, restY, 1);
    const auto [downX, downY] = spans(6, M_PI / 2);
    EXPECT_GE(downY - restY, 8);
    EXPECT_LE(downY - restY, 14);
    EXPECT_NEAR(downX, restX, 1);
}

} // namespace
} // namespace orvelle
