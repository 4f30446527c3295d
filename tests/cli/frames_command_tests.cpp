#include "cli/cli_test_support.h"
#include "project/cursor_recording.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

namespace orvelle {
namespace {

using testing::orvelleJson;
using testing::TemporaryDirectory;

// A ten-second take: the pointer rests on the left, darts right with a click at 4.5 s and
// rests on the right.
class FramesCommand : public ::testing::Test {
protected:
    void SetUp() override {
        testing::writeNumberedMovie(movie_, {.width = 160,
                                             .height = 90,
                                             .frameRate = 30,
                                             .frameCount = 300,
                                             .keyframeInterval = 60});
        CursorRecording recording;
        recording.captureFrame = {0, 0, 1600, 900};
        for (int i = 0; i <= 600; ++i) {
            const double t = i / 60.0;
            const double x = t < 4 ? 0.2 : (t < 5 ? 0.2 + 0.6 * (t - 4) : 0.8);
            recording.samples.push_back({t, x, 0.5, true});
        }
        recording.clicks = {{4.5, 0}};
        recording.save(CursorRecording::fileURL(movie_));
    }

    Json frames(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"frames", movie_.string()});
        arguments.push_back("--json");
        return orvelleJson(arguments).at("frames");
    }

    TemporaryDirectory folder_;
    std::filesystem::path movie_ = folder_ / "Demo.mp4";
};

TEST_F(FramesCommand, GeometryFollowsThePointerIntoTheZoomAndOut) {
    const Json result = frames({"--size", "1280x720", "--fps", "30", "--time", "2", "--time", "3.9",
                                "--time", "5.8", "--time", "8.5"});
    ASSERT_EQ(result.size(), 4u);
    const auto screen = [&](size_t i) { return result[i]["preview"]["screen"]; };
    // Before the activity the card is wide and centred.
    EXPECT_EQ(screen(0)["zoomScale"], 1.0);
    EXPECT_EQ(screen(0)["offset"]["width"], 0.0);
    // Zoomed in while the pointer is on the left: the card moves right to show it.
    EXPECT_EQ(screen(1)["zoomScale"], 1.5);
    EXPECT_GT(screen(1)["offset"]["width"].get<double>(), 10);
    // After the dart the card has followed to the right.
    EXPECT_EQ(screen(2)["zoomScale"], 1.5);
    EXPECT_LT(screen(2)["offset"]["width"].get<double>(), -10);
    // And out again.
    EXPECT_EQ(screen(3)["zoomScale"], 1.0);
    EXPECT_EQ(screen(3)["offset"]["width"], 0.0);

    const Json& frame = result[1];
    EXPECT_EQ(frame["stageSize"], (Json{{"width", 1280.0}, {"height", 720.0}}));
    EXPECT_EQ(frame["sourceNaturalSize"], (Json{{"width", 160.0}, {"height", 90.0}}));
    EXPECT_TRUE(frame["cameraNaturalSize"].is_null());
    EXPECT_TRUE(frame["preview"]["camera"].is_null());
    EXPECT_TRUE(frame["preview"]["mask"].is_null());
    EXPECT_TRUE(frame["preview"]["cursor"].is_object());
    EXPECT_EQ(frame["cursorStyle"], "soft");
    EXPECT_TRUE(frame["textClips"].is_array());
}

TEST_F(FramesCommand, TimesRoundDownToTheirFramesAndRangesIncludeBothEnds) {
    const Json result =
        frames({"--fps", "10", "--time", "2.35", "--from", "1", "--to", "1.5", "--time", "1.2"});
    std::vector<double> times;
    for (const auto& frame : result) {
        times.push_back(frame["editTime"].get<double>());
    }
    EXPECT_EQ(times, (std::vector<double>{1.0, 1.1, 1.2, 1.3, 1.4, 1.5, 2.3}));
    EXPECT_EQ(result[0]["stageSize"], (Json{{"width", 1920.0}, {"height", 1080.0}}));
}

TEST_F(FramesCommand, MotionBuildsUpAsInAnExport) {
    // The camera pans during the dart; asking for one frame alone gives the same motion as
    // asking for the whole stretch, since every frame from the start is worked out.
    const Json alone = frames({"--time", "4.6"});
    const Json stretch = frames({"--from", "4", "--to", "4.6"});
    EXPECT_EQ(alone[0]["cameraFrameMotion"], stretch.back()["cameraFrameMotion"]);
    EXPECT_GT(std::abs(alone[0]["cameraFrameMotion"]["dx"].get<double>()), 0);
}

TEST_F(FramesCommand, BadRequestsSayWhatIsWrong) {
    struct Case {
        std::vector<std::string> arguments;
        int status;
        std::string message;
    };
    const std::string movie = movie_.string();
    const Case cases[] = {
        {{"frames", movie, "--time", "11"}, 2, "lies after the end of the edit"},
        {{"frames", movie, "--time", "-1"}, 2, "a time of 0 s or more"},
        {{"frames", movie, "--size", "1920by1080"}, 2, "a size such as 1920x1080"},
        {{"frames", movie, "--fps", "0"}, 2, "--fps"},
        {{"frames", movie, "--from", "3", "--to", "2"}, 2, "--to must not lie before --from"},
        {{"frames", (folder_ / "missing.mp4").string()}, 1, "does not exist"},
    };
    for (const auto& c : cases) {
        EXPECT_TRUE(testing::orvelleRefuses(c.arguments, c.status, c.message));
    }
}

} // namespace
} // namespace orvelle
