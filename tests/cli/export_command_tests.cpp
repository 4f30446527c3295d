// `orvelle export` run as a user runs it, on tiny takes made at test time.

#include "cli/cli_test_support.h"
#include "core/files.h"
#include "platform/image/bitmap.h"
#include "platform/media/audio_decoder.h"
#include "platform/media/media_probe.h"
#include "platform/media/video_decoder.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"
#include "support/tiny_take.h"

#include <signal.h>

#include <cmath>

namespace orvelle {
namespace {

using testing::orvelleJson;
using testing::runProgram;
using testing::TemporaryDirectory;

class ExportCommand : public ::testing::Test {
protected:
    TemporaryDirectory folder;
    // Remembered settings live in the application's data folder: keep the user's out.
    std::map<std::string, std::string> environment{{"XDG_DATA_HOME", (folder / "data").string()},
                                                   {"XDG_CACHE_HOME", (folder / "cache").string()}};

    testing::ProgramResult run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "export");
        return runProgram(testing::orvelleBinary(), arguments, environment);
    }

    Json exportJson(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "export");
        arguments.push_back("--json");
        return orvelleJson(arguments, environment);
    }
};

TEST_F(ExportCommand, WritesTheEditAsAnMp4OfTheRightSizeRateLengthAndSound) {
    const auto take = testing::writeTinyTake(folder / "take", {.seconds = 2});
    const auto output = folder / "movie.mp4";
    const Json json =
        exportJson({take.manifestURL.string(), "-o", output.string(), "--size", "320x180"});
    EXPECT_EQ(json["width"], 320);
    EXPECT_EQ(json["height"], 180);
    EXPECT_EQ(json["fps"], 30);

    const MediaProbe probe = probeMediaFile(output);
    ASSERT_NE(probe.firstVideo(), nullptr);
    EXPECT_EQ(probe.firstVideo()->codecName, "h264");
    EXPECT_EQ(probe.firstVideo()->codedWidth, 320);
    EXPECT_EQ(probe.firstVideo()->codedHeight, 180);
    EXPECT_NEAR(*probe.firstVideo()->nominalFrameRate, 30, 0.01);
    EXPECT_NEAR(probe.firstVideo()->duration, 2.0, 1.0 / 30 + 1e-3);
    ASSERT_NE(probe.firstAudio(), nullptr);
    EXPECT_EQ(probe.firstAudio()->codecName, "aac");
    EXPECT_EQ(probe.firstAudio()->sampleRate, 48000);
    EXPECT_EQ(probe.firstAudio()->channelCount, 2);
    EXPECT_NEAR(probe.firstAudio()->duration, 2.0, 0.05);

    int frames = 0;
    VideoDecoder decoder(output);
    VideoFrame frame;
    while (decoder.nextFrame(frame)) {
        ++frames;
    }
    EXPECT_EQ(frames, 60);
}

// A movie from elsewhere, opened without a take, keeps its own sound in the export.
TEST_F(ExportCommand, ABareMovieKeepsItsOwnSound) {
    const auto movie = folder / "clip.mp4";
    testing::writeNumberedMovie(movie, {.frameCount = 45, .withAudio = true});
    const auto output = folder / "movie.mp4";
    exportJson({movie.string(), "-o", output.string(), "--size", "320x180"});
    const auto sound = decodeAudioFile(output, {48000, 2});
    ASSERT_GT(sound.size(), 48000u);
    EXPECT_NEAR(testing::estimateFrequency(sound, 48000, 2), 440, 5);
    EXPECT_GT(testing::rootMeanSquare(sound), 0.05);
}

TEST_F(ExportCommand, AFrameOfTheMovieIsTheStillOfThatInstant) {
    const auto take = testing::writeTinyTake(folder / "take", {.seconds = 2});
    const auto output = folder / "movie.mp4";
    const auto still = folder / "still.png";
    ASSERT_EQ(run({take.manifestURL.string(), "-o", output.string(), "--size", "320x180",
                   "--quality", "best"})
                  .status,
              0);
    const auto drawn = runProgram(testing::orvelleBinary(),
                                  {"still", take.manifestURL.string(), "--time", "1.2", "-o",
                                   still.string(), "--size", "320x180", "--fps", "30"},
                                  environment);
    ASSERT_EQ(drawn.status, 0) << drawn.err;

    const Bitmap picture = readPNG(still);
    VideoDecoder decoder(output);
    VideoFrame frame;
    ASSERT_TRUE(decoder.frameAt(1.2, frame));
    ASSERT_EQ(frame.width, picture.width());
    ASSERT_EQ(frame.height, picture.height());
    double difference = 0;
    for (int y = 0; y < frame.height; ++y) {
        for (int x = 0; x < frame.width; ++x) {
            const auto expected = picture.pixel(x, y);
            for (int c = 0; c < 3; ++c) {
                difference += std::abs(static_cast<int>(frame.row(0, y)[x * 4 + c]) - expected[c]);
            }
        }
    }
    // What the encoder's compression leaves: a few levels on average.
    EXPECT_LT(difference / (frame.width * frame.height * 3), 4.0);
}

TEST_F(ExportCommand, DryRunPrintsTheSettingsAndWritesNothing) {
    const auto take = testing::writeTinyTake(folder / "take", {.seconds = 1});
    const auto output = folder / "movie.mp4";
    const Json json =
        exportJson({take.manifestURL.string(), "-o", output.string(), "--size", "1280x720",
                    "--aspect", "square", "--quality", "standard", "--dry-run"});
    EXPECT_EQ(json["width"], 1280);
    EXPECT_EQ(json["height"], 1280);
    EXPECT_EQ(json["fps"], 30);
    EXPECT_EQ(json["fileType"], "mp4");
    EXPECT_EQ(json["quality"], "standard");
    EXPECT_EQ(json["videoCodec"], "H.264 High");
    EXPECT_EQ(json["videoBitRate"], 4'587'520);
    EXPECT_EQ(json["audioBitRate"], 192'000);
    EXPECT_DOUBLE_EQ(json["duration"].get<double>(), 1.0);
    EXPECT_FALSE(std::filesystem::exists(output));

    const Json mov =
        exportJson({take.manifestURL.string(), "-o", (folder / "movie.mov").string(), "--dry-run"});
    EXPECT_EQ(mov["videoCodec"], "ProRes 422 Proxy");
    EXPECT_TRUE(mov["videoBitRate"].is_null());
    EXPECT_EQ(mov["width"], 1920);
    EXPECT_EQ(mov["height"], 1080);
}

TEST_F(ExportCommand, RefusesToWriteOverTheTakesOwnFilesBeforeAnyWork) {
    const auto take = testing::writeTinyTake(folder / "take", {.seconds = 1});
    const std::string before = readFile(take.screenURL);
    EXPECT_TRUE(testing::orvelleRefuses(
        {"export", take.manifestURL.string(), "-o", take.screenURL.string()}, 1,
        "The export destination matches source media (Tiny "
        "Take.mp4). Choose a different output file.",
        environment));
    EXPECT_EQ(readFile(take.screenURL), before);
}

TEST_F(ExportCommand, ExplainsABadCommandLine) {
    const auto take = testing::writeTinyTake(folder / "take", {.seconds = 1});
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {take.manifestURL.string(), "-o", (folder / "movie.avi").string()},
             {take.manifestURL.string()},
             {take.manifestURL.string(), "-o", (folder / "m.mp4").string(), "--quality", "ultra"},
             {take.manifestURL.string(), "-o", (folder / "m.mp4").string(), "--aspect", "round"},
             {take.manifestURL.string(), "-o", (folder / "m.mp4").string(), "--size", "big"},
         }) {
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 2) << arguments.back();
        EXPECT_FALSE(result.err.empty());
    }
    EXPECT_EQ(
        run({(folder / "nothing.take.json").string(), "-o", (folder / "m.mp4").string()}).status,
        1);
}

// The movie is written beside the destination and replaces it only when finished: Ctrl-C
// or a killed export leaves the movie that was there as it was, and the partial file of a
// killed one is cleaned up by the next export into that folder.
TEST_F(ExportCommand, AStoppedOrKilledExportLeavesTheOldMovieAsItWas) {
    const auto take = testing::writeTinyTake(folder / "take", {.seconds = 20});
    const auto output = folder / "movie.mp4";
    testing::writeTextFile(output, "the movie of yesterday");
    const std::vector<std::string> arguments{
        "export", take.manifestURL.string(), "-o", output.string(), "--size", "1280x720"};

    const auto interrupted =
        testing::orvelleSignalledWhileWriting(arguments, environment, folder.path(), SIGINT);
    EXPECT_EQ(interrupted.status, 130) << interrupted.err;
    EXPECT_NE(interrupted.err.find("cancelled"), std::string::npos) << interrupted.err;
    EXPECT_EQ(readFile(output), "the movie of yesterday");
    EXPECT_TRUE(testing::partialFilesIn(folder.path()).empty());

    const auto killed =
        testing::orvelleSignalledWhileWriting(arguments, environment, folder.path(), SIGKILL);
    EXPECT_EQ(killed.status, -1);
    EXPECT_EQ(readFile(output), "the movie of yesterday");
    EXPECT_EQ(testing::partialFilesIn(folder.path()).size(), 1u);

    const auto done = run({take.manifestURL.string(), "-o", output.string(), "--size", "160x90"});
    EXPECT_EQ(done.status, 0) << done.err;
    EXPECT_NE(probeMediaFile(output).firstVideo(), nullptr);
    EXPECT_TRUE(testing::partialFilesIn(folder.path()).empty());
}

} // namespace
} // namespace orvelle
