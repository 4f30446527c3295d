#include "composition/cursor_motion_blur.h"

#include <gtest/gtest.h>

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

} // namespace
} // namespace orvelle
