// The size, rate and clips an export renders with.

#include "export/export_snapshot.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

using testing::TemporaryDirectory;

TEST(ExportOutputSize, FollowsTheAspectRatioWithTheLongerSideKept) {
    struct Case {
        AspectRatio ratio;
        std::optional<VideoSize> source;
        int width, height;
        ExportOutputSize expected;
    };
    const std::vector<Case> cases{
        {AspectRatio::automatic, VideoSize{1600, 1000}, 1920, 1080, {1920, 1200}},
        {AspectRatio::portrait, std::nullopt, 1920, 1080, {1536, 1920}},
        {AspectRatio::wide, std::nullopt, 1920, 1080, {1920, 1080}},
        {AspectRatio::square, std::nullopt, 1280, 720, {1280, 1280}},
        {AspectRatio::classic, std::nullopt, 1920, 1080, {1920, 1440}},
        {AspectRatio::vertical, std::nullopt, 1920, 1080, {1080, 1920}},
        {AspectRatio::tall, std::nullopt, 1080, 1920, {1440, 1920}},
        // Without a usable source size, auto keeps the chosen shape.
        {AspectRatio::automatic, std::nullopt, 1280, 720, {1280, 720}},
        {AspectRatio::automatic, VideoSize{0, 1000}, 1280, 720, {1280, 720}},
        // A tall source: the long side becomes the height.
        {AspectRatio::automatic, VideoSize{1080, 1920}, 1920, 1080, {1080, 1920}},
        // A ratio that is no number leaves the size as chosen.
        {AspectRatio::automatic, std::nullopt, 1920, 0, {1920, 0}},
        // The short side is at least one pixel.
        {AspectRatio::automatic, VideoSize{100000, 1}, 64, 64, {64, 1}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(exportOutputSize(c.ratio, c.source, c.width, c.height), c.expected)
            << enumName(c.ratio) << " " << c.width << "x" << c.height;
    }
}

TEST(ExportOutputSize, EncodableSizesAreEven) {
    EXPECT_EQ(encodableSize({1921, 1081}), (ExportOutputSize{1920, 1080}));
    EXPECT_EQ(encodableSize({1, 1}), (ExportOutputSize{2, 2}));
    EXPECT_EQ(encodableSize({64, 1}), (ExportOutputSize{64, 2}));
}

TEST(RenderExportSettings, FromASnapshot) {
    TemporaryDirectory directory;
    const auto screen = directory / "screen.mp4";
    testing::TestMovieOptions movie;
    movie.frameRate = 120;
    movie.frameCount = 12;
    testing::writeNumberedMovie(screen, movie);

    ExportSnapshot snapshot;
    snapshot.sourceURL = screen;
    snapshot.sourceSize = VideoSize{160, 96};
    snapshot.project.screen.aspectRatio = AspectRatio::automatic;
    TakeSegmentManifest pointer;
    pointer.kind = MediaTrackManifest::Kind::cursor;
    pointer.url = directory / "take.cursor.json";
    snapshot.project.manifest.segments.push_back(pointer);
    TimelineClip late;
    late.start = SourceTime(2);
    late.end = SourceTime(3);
    TimelineClip early;
    early.start = SourceTime(0);
    early.end = SourceTime(1);
    snapshot.timelineClips = {late, early};

    const auto settings =
        renderExportSettings(snapshot, directory / "out.mov", 1920, 1080, RenderExportFileType::mov,
                             RenderExportQuality::best);
    EXPECT_EQ(settings.width, 1920);
    EXPECT_EQ(settings.height, 1152);
    EXPECT_EQ(settings.fps, 60); // 120 is held to 60
    EXPECT_EQ(settings.cursorURL, pointer.url);
    ASSERT_EQ(settings.timelineClips.size(), 2u);
    EXPECT_EQ(settings.timelineClips[0], early);
    EXPECT_EQ(settings.fileType, RenderExportFileType::mov);
    EXPECT_EQ(settings.quality, RenderExportQuality::best);

    movie.frameRate = 15;
    testing::writeNumberedMovie(screen, movie);
    snapshot.project.manifest.segments.clear();
    const auto slow = renderExportSettings(snapshot, directory / "out.mp4", 1920, 1080,
                                           RenderExportFileType::mp4, RenderExportQuality::high);
    EXPECT_EQ(slow.fps, 24);
    EXPECT_FALSE(slow.cursorURL);
}

} // namespace
} // namespace orvelle
