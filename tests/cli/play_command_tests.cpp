// `orvelle play` into a private sound server: what it shows is the export's frame, and
// edits made while it plays rebuild it without moving the playhead off its material.

#include "cli/cli_test_support.h"
#include "platform/image/bitmap.h"
#include "support/sound_server.h"
#include "support/temporary_directory.h"
#include "support/tiny_take.h"

#include <cstdio>

namespace orvelle {
namespace {

using testing::orvelleJson;
using testing::TemporaryDirectory;

class PlayCommand : public ::testing::Test {
protected:
    void SetUp() override {
        take_ = testing::writeTinyTake(
            folder_ / "take", {.seconds = 4, .clicks = {1.0, 2.0}, .camera = std::pair{0.5, 3.5}});
    }

    TemporaryDirectory folder_;
    testing::TinyTake take_;
};

TEST_F(PlayCommand, ShowsTheFramesTheExportDraws) {
    const testing::PrivateSoundServer server;
    const auto frames = folder_ / "frames";
    const Json played = orvelleJson({"play", take_.manifestURL.string(), "--size", "320x180",
                                     "--fps", "30", "--frames", frames.string(), "--json"},
                                    server.environment());
    ASSERT_TRUE(played["sound"].get<bool>()) << played["soundProblem"];
    EXPECT_TRUE(played["endReached"].get<bool>());
    EXPECT_NEAR(played["duration"].get<double>(), 4.0, 1e-6);
    EXPECT_GT(played["shownFrames"].get<int>(), 60);
    EXPECT_GE(played["seconds"].size(), 4u);
    EXPECT_LT(played["largestAudioVideoOffset"].get<double>(), 0.020);

    // Before the camera, in the zooms the pointer's clicks plan, and near the end.
    int compared = 0;
    for (const int wanted : {0, 20, 33, 61, 95, 110}) {
        int index = wanted;
        char name[64];
        for (; index < wanted + 5; ++index) { // the nearest frame shown, if one was dropped
            std::snprintf(name, sizeof name, "frame-%06d.png", index);
            if (std::filesystem::exists(frames / name)) {
                break;
            }
        }
        if (index == wanted + 5) {
            continue;
        }
        const auto still = folder_ / ("still-" + std::to_string(index) + ".png");
        char time[32]; // inside the frame, clear of rounding at its edges
        std::snprintf(time, sizeof time, "%.6f", (index + 0.25) / 30.0);
        orvelleJson({"still", take_.manifestURL.string(), "--time", time, "--size", "320x180",
                     "--fps", "30", "-o", still.string(), "--json"});
        const Bitmap shown = readPNG(frames / name);
        const Bitmap expected = readPNG(still);
        ASSERT_EQ(shown.width(), expected.width());
        ASSERT_EQ(shown.height(), expected.height());
        int differing = 0;
        for (int y = 0; y < shown.height(); ++y) {
            for (int x = 0; x < shown.width(); ++x) {
                differing += shown.pixel(x, y) != expected.pixel(x, y) ? 1 : 0;
            }
        }
        EXPECT_EQ(differing, 0) << "frame " << index;
        ++compared;
    }
    EXPECT_GE(compared, 4);
}

TEST_F(PlayCommand, AppliesEditsWhilePlayingWithoutMovingThePlayheadOffItsMaterial) {
    const testing::PrivateSoundServer server;
    const auto ops = folder_ / "cut.json";
    testing::writeTextFile(ops, R"([{"op": "deleteSourceRange", "start": 2.5, "end": 3.5}])");
    const Json played = orvelleJson({"play", take_.manifestURL.string(), "--size", "160x90",
                                     "--ops", ops.string(), "--at", "1", "--json"},
                                    server.environment());
    ASSERT_EQ(played["edits"].size(), 1u);
    const Json& edit = played["edits"][0];
    EXPECT_TRUE(edit["results"][0].is_object()); // the gap it cut
    const double before = edit["before"]["sourceTime"].get<double>();
    const double after = edit["after"]["sourceTime"].get<double>();
    EXPECT_GT(before, 0.8);
    EXPECT_GE(after, before - 1e-6);
    EXPECT_LT(after, before + 0.5);
    EXPECT_TRUE(played["endReached"].get<bool>());
    // A second of the take is gone: three seconds of playing.
    EXPECT_NEAR(played["playedSeconds"].get<double>(), 3.0, 0.4);
    EXPECT_LT(played["largestAudioVideoOffset"].get<double>(), 0.020);
}

TEST_F(PlayCommand, PlaysSilentlyWithoutAServerAndRefusesWhatItCannotDo) {
    const Json silent = orvelleJson(
        {"play", take_.manifestURL.string(), "--size", "160x90", "--seconds", "1", "--json"},
        {{"PULSE_SERVER", "unix:" + (folder_ / "none.sock").string()}});
    EXPECT_FALSE(silent["sound"].get<bool>());
    EXPECT_NE(silent["soundProblem"].get<std::string>().find("No sound server"), std::string::npos);
    EXPECT_GT(silent["shownFrames"].get<int>(), 5);

    const auto refuses = [&](std::vector<std::string> arguments, std::string_view message) {
        arguments.insert(arguments.begin(), {"play", take_.manifestURL.string(), "--no-sound"});
        return testing::orvelleRefuses(arguments, 2, message);
    };
    EXPECT_TRUE(refuses({"--ops", (folder_ / "x.json").string()}, "--at"));
    EXPECT_TRUE(refuses({"--rate", "20"}, ""));
    EXPECT_TRUE(refuses({"--from", "9"}, "runs from 0 to 4.000 s"));
}

} // namespace
} // namespace orvelle
