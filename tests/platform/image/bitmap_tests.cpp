#include "platform/image/bitmap.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <fstream>

namespace orvelle {
namespace {

using testing::TemporaryDirectory;

TEST(Bitmap, StartsTransparentAndCopiesSharePixels) {
    Bitmap bitmap(5, 3);
    EXPECT_EQ(bitmap.pixel(4, 2), (std::array<uint8_t, 4>{0, 0, 0, 0}));
    Bitmap shared = bitmap;
    Bitmap separate = bitmap.clone();
    bitmap.setPixel(1, 1, {1, 2, 3, 4});
    EXPECT_EQ(shared.pixel(1, 1), (std::array<uint8_t, 4>{1, 2, 3, 4}));
    EXPECT_EQ(separate.pixel(1, 1), (std::array<uint8_t, 4>{0, 0, 0, 0}));
    EXPECT_TRUE(Bitmap(0, 4).empty());
}

TEST(BitmapPNG, RoundTripKeepsEveryPixel) {
    TemporaryDirectory folder;
    Bitmap bitmap(7, 4);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 7; ++x) {
            const auto a = static_cast<uint8_t>(x * 40);
            bitmap.setPixel(x, y, {static_cast<uint8_t>(a / 2), 0, a, a});
        }
    }
    const auto path = folder.path() / "picture.png";
    writePNG(bitmap, path);
    const Bitmap read = readPNG(path);
    ASSERT_EQ(read.width(), 7);
    ASSERT_EQ(read.height(), 4);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 7; ++x) {
            for (size_t c = 0; c < 4; ++c) {
                // Premultiplied values pass through straight colour in the file.
                EXPECT_NEAR(read.pixel(x, y)[c], bitmap.pixel(x, y)[c], 1);
            }
        }
    }
}

TEST(BitmapPNG, ErrorsNameTheFileAndLeaveTheOldOneAlone) {
    TemporaryDirectory folder;
    if (const auto error =
            testing::thrown<ImageFileError>([&] { readPNG(folder.path() / "missing.png"); })) {
        EXPECT_NE(std::string(error->what()).find("missing.png"), std::string::npos);
        EXPECT_NE(std::string(error->what()).find("does not exist"), std::string::npos);
    }
    const auto garbage = folder.path() / "garbage.png";
    std::ofstream(garbage) << "not a picture";
    EXPECT_THROW(readPNG(garbage), ImageFileError);

    const auto path = folder.path() / "kept.png";
    Bitmap one(1, 1);
    one.setPixel(0, 0, {9, 9, 9, 255});
    writePNG(one, path);
    EXPECT_THROW(writePNG(Bitmap(), path), ImageFileError);
    EXPECT_EQ(readPNG(path).pixel(0, 0)[0], 9);
}

} // namespace
} // namespace orvelle
