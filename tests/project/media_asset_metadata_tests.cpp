#include "project/media_asset_metadata.h"
#include "support/rotated_movie.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace orvelle {
namespace {

using testing::TemporaryDirectory;

struct RateCase {
    std::optional<double> rate;
    int fallback;
    int expected;
};

class ExportFrameRate : public ::testing::TestWithParam<RateCase> {};

TEST_P(ExportFrameRate, RoundsAndHoldsToTwentyFourToSixty) {
    EXPECT_EQ(MediaAssetMetadata::exportFrameRate(GetParam().rate, GetParam().fallback),
              GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Rates, ExportFrameRate,
    ::testing::Values(RateCase{23.4, 30, 24}, RateCase{120, 30, 60}, RateCase{std::nullopt, 30, 30},
                      RateCase{std::nullopt, 10, 10}, RateCase{29.97, 60, 30},
                      RateCase{59.94, 30, 60}, RateCase{12, 30, 24}, RateCase{0, 10, 10},
                      RateCase{-5, 12, 12},
                      RateCase{std::numeric_limits<double>::quiet_NaN(), 25, 25},
                      RateCase{std::numeric_limits<double>::infinity(), 90, 90}));

TEST(NominalFrameRate, FallsBackToTheMinimumFrameDuration) {
    VideoStreamInfo track{.nominalFrameRate = 25, .minFrameDuration = 1.0 / 50};
    EXPECT_EQ(MediaAssetMetadata::nominalFrameRate(track), 25);
    track.nominalFrameRate = 0;
    EXPECT_DOUBLE_EQ(*MediaAssetMetadata::nominalFrameRate(track), 50);
    track.nominalFrameRate = std::numeric_limits<double>::infinity();
    EXPECT_DOUBLE_EQ(*MediaAssetMetadata::nominalFrameRate(track), 50);
    track.nominalFrameRate.reset();
    track.minFrameDuration = 0;
    EXPECT_FALSE(MediaAssetMetadata::nominalFrameRate(track).has_value());
    track.minFrameDuration.reset();
    EXPECT_FALSE(MediaAssetMetadata::nominalFrameRate(track).has_value());
}

TEST(NaturalVideoSize, IsTheDisplayedShapeAsAbsoluteValues) {
    VideoStreamInfo track{.naturalWidth = -48, .naturalHeight = 64};
    EXPECT_EQ(MediaAssetMetadata::naturalVideoSize(track), (VideoSize{48, 64}));
}

TEST(MediaAssetMetadataOfAFile, ReadsSizeAndRate) {
    TemporaryDirectory folder;
    const auto movie = folder / "plain.mp4";
    testing::writeNumberedMovie(movie,
                                {.width = 64, .height = 48, .frameRate = 25, .frameCount = 10});
    EXPECT_EQ(MediaAssetMetadata::naturalVideoSize(movie), (VideoSize{64, 48}));
    const auto rate = MediaAssetMetadata::nominalFrameRate(movie);
    ASSERT_TRUE(rate.has_value());
    EXPECT_NEAR(*rate, 25, 0.01);
    EXPECT_EQ(MediaAssetMetadata::exportFrameRate(rate, 30), 25);
}

TEST(MediaAssetMetadataOfAFile, ARotatedMovieReportsItsDisplayedShape) {
    TemporaryDirectory folder;
    const auto upright = folder / "upright.mov";
    testing::writeNumberedMovie(
        upright, {.container = MovieContainer::mov, .width = 64, .height = 48, .frameCount = 4});
    for (const double degrees : {90.0, -90.0, 270.0}) {
        const auto turned = folder / "turned.mov";
        testing::copyMovieWithRotation(upright, turned, degrees);
        EXPECT_EQ(MediaAssetMetadata::naturalVideoSize(turned), (VideoSize{48, 64})) << degrees;
    }
    testing::copyMovieWithRotation(upright, folder / "flipped.mov", 180);
    EXPECT_EQ(MediaAssetMetadata::naturalVideoSize(folder / "flipped.mov"), (VideoSize{64, 48}));
}

TEST(MediaAssetMetadataOfAFile, NothingForAMissingOrForeignFile) {
    TemporaryDirectory folder;
    EXPECT_FALSE(MediaAssetMetadata::naturalVideoSize(folder / "none.mov").has_value());
    testing::writeTextFile(folder / "notes.mov", "not a movie");
    EXPECT_FALSE(MediaAssetMetadata::nominalFrameRate(folder / "notes.mov").has_value());
}

} // namespace
} // namespace orvelle
