#include "platform/media/media_probe.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

using testing::TemporaryDirectory;

TEST(MediaProbe, ReportsSizeRatesAndAudioFormat) {
    TemporaryDirectory directory;
    testing::TestMovieOptions options;
    options.withAudio = true;
    options.frameRate = 60;
    options.frameCount = 60;
    testing::writeNumberedMovie(directory / "m.mov", options);
    const MediaProbe probe = probeMediaFile(directory / "m.mov");
    ASSERT_NE(probe.firstVideo(), nullptr);
    const auto& video = *probe.firstVideo();
    EXPECT_EQ(video.codedWidth, 160);
    EXPECT_EQ(video.codedHeight, 96);
    EXPECT_EQ(video.naturalWidth, 160);
    EXPECT_EQ(video.rotationDegrees, 0);
    ASSERT_TRUE(video.nominalFrameRate.has_value());
    EXPECT_NEAR(*video.nominalFrameRate, 60, 0.01);
    ASSERT_TRUE(video.minFrameDuration.has_value());
    EXPECT_NEAR(*video.minFrameDuration, 1 / 60.0, 1e-4);
    ASSERT_NE(probe.firstAudio(), nullptr);
    EXPECT_EQ(probe.firstAudio()->sampleRate, 48000);
    EXPECT_NEAR(probe.duration, 1.0, 0.05);
}

TEST(MediaProbe, FailsOnMissingAndUnreadableFiles) {
    TemporaryDirectory directory;
    EXPECT_THROW(probeMediaFile(directory / "nothing.mov"), MediaError);
    testing::writeTextFile(directory / "text.mov", "not a movie at all");
    EXPECT_THROW(probeMediaFile(directory / "text.mov"), MediaError);
}

} // namespace
} // namespace orvelle
