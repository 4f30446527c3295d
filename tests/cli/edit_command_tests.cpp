#include "cli/cli_test_support.h"
#include "core/file_url.h"
#include "core/files.h"
#include "project/cursor_recording.h"
#include "project/recording_take_builder.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

namespace orvelle {
namespace {

using Kind = MediaTrackManifest::Kind;
using testing::orvelleJson;
using testing::runProgram;
using testing::TemporaryDirectory;

// A 20 s take: screen and camera movies, and pointer data with the pointer moving from 5 s
// to 7 s and a click at 15 s.
class EditCommand : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directories(folder_ / "take");
        const testing::TestMovieOptions options{
            .width = 64, .height = 48, .frameRate = 5, .frameCount = 100, .keyframeInterval = 25};
        testing::writeNumberedMovie(screen_, options);
        testing::writeNumberedMovie(folder_ / "take" / "Take-camera.mp4", options);
        CursorRecording pointer;
        pointer.captureFrame = {0, 0, 1280, 720};
        for (int i = 0; i < 20 * 60; ++i) {
            const double t = i / 60.0;
            const double x = 0.4 + 0.15 * std::clamp(t - 5, 0.0, 2.0);
            pointer.samples.push_back({t, x, 0.5, true});
        }
        pointer.clicks = {{15, 0}};
        pointer.save(folder_ / "take" / "Take.cursor.json");
        RecordedMediaSegment screen{.url = screen_, .duration = 20, .mediaDuration = 20};
        RecordedMediaSegment camera = screen;
        camera.kind = Kind::camera;
        camera.url = folder_ / "take" / "Take-camera.mp4";
        TakeManifestWriter::write(screen_, {screen}, {camera}, {},
                                  folder_ / "take" / "Take.cursor.json");
    }

    Json edit(const Json& operations, std::vector<std::string> extra = {}) {
        const auto path = folder_ / ("ops-" + std::to_string(++files_) + ".json");
        testing::writeTextFile(path, operations.dump());
        std::vector<std::string> arguments = {"edit", screen_.string(), "--ops", path.string(),
                                              "--json"};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        return orvelleJson(arguments, environment_);
    }

    TemporaryDirectory folder_;
    std::filesystem::path screen_ = folder_ / "take" / "Take.mp4";
    std::map<std::string, std::string> environment_{{"XDG_DATA_HOME", (folder_ / "data").string()}};
    int files_ = 0;
};

std::vector<std::pair<double, double>> ranges(const Json& clips) {
    std::vector<std::pair<double, double>> result;
    for (const auto& clip : clips) {
        result.emplace_back(clip["start"].get<double>(), clip["end"].get<double>());
    }
    return result;
}

using Ranges = std::vector<std::pair<double, double>>;

TEST_F(EditCommand, AFreshTakeOpensWithItsTimelineAndActivityZooms) {
    const Json result = edit(Json::array());
    const Json& project = result["project"];
    EXPECT_EQ(ranges(project["timeline"]["clips"]), (Ranges{{0, 20}}));
    // Movement from 5 s to 7 s and the click at 15 s.
    const auto zooms = ranges(project["animation"]["zoomClips"]);
    ASSERT_EQ(zooms.size(), 2u);
    EXPECT_NEAR(zooms[0].first, 5 - 0.6, 0.1);
    EXPECT_NEAR(zooms[1].first, 14.3, 1e-9);
    EXPECT_EQ(result["undoLabels"], Json::array());
    EXPECT_EQ(result["selection"], nullptr);
}

TEST_F(EditCommand, AppliesOperationsWithResultsAndUndoesInGestureSizedSteps) {
    const Json result = edit(Json::parse(R"([
        {"op": "splitTimelineClip", "containing": 12.5},
        {"op": "deleteSourceRange", "start": 4, "end": 9.95},
        {"op": "splitTimelineClip", "containing": 12.52},
        {"op": "trimClip", "id": "$0", "edge": "end", "by": -1, "rippleFollows": true},
        {"op": "trimClip", "id": "$0", "edge": "end", "by": -3, "rippleFollows": true},
        {"op": "endGesture"},
        {"op": "addAnimationClip", "at": 3},
        {"op": "undo"},
        {"op": "undo"},
        {"op": "redo"},
        {"op": "updateTimelineClip", "id": "@timeline:0", "set": {"speed": 100}},
        {"op": "restoreTimelineCut", "beforeClipID": "@timeline:0"}
    ])"));
    const Json& results = result["results"];
    ASSERT_EQ(results.size(), 12u);
    EXPECT_TRUE(results[0].is_string());
    EXPECT_EQ(results[1]["sourceStart"], 4.0);
    EXPECT_EQ(results[1]["sourceEnd"], 9.95);
    EXPECT_EQ(results[2], nullptr); // 0.02 s from the cut: too short
    EXPECT_EQ(results[4]["end"], 17.0);
    EXPECT_EQ(results[7], "Add Zoom");
    EXPECT_EQ(results[8], "Trim Clip End");
    EXPECT_EQ(results[9], "Trim Clip End");
    EXPECT_EQ(results[10]["speed"], 24.0); // clamped as when read
    EXPECT_EQ(results[11], nullptr);       // the first clip has no cut before it
    EXPECT_EQ(result["undoLabels"],
              Json::parse(R"(["Split Clip", "Delete Range", "Trim Clip End", "Change Clip"])"));
    // The change after the redo emptied the redo stack.
    EXPECT_EQ(result["redoLabels"], Json::array());
    const Json& timeline = result["project"]["timeline"];
    EXPECT_EQ(ranges(timeline["clips"]), (Ranges{{0, 4}, {9.95, 12.5}, {12.5, 17}}));
    // The zoom over the click at 15 s lay after the trimmed clip's end (14.05 s on the edit
    // axis once the cut took 5.95 s) and followed it back by 3 s; the cut itself moves no
    // lane clip.
    const auto zooms = ranges(result["project"]["animation"]["zoomClips"]);
    EXPECT_NEAR(zooms.back().first, 14.3 - 3, 1e-9);
}

TEST_F(EditCommand, AnEditedTakeSavedMovedAndReopenedIsTheSameProject) {
    const auto package = folder_ / "projects" / "Demo";
    const Json edited = edit(Json::parse(R"([
        {"op": "deleteSourceRange", "start": 2, "end": 3},
        {"op": "addTextClip", "at": 1},
        {"op": "updateTextClip", "id": "$1", "set": {"text": "Hello"}},
        {"op": "addMaskClip", "at": 8, "rect": {"x": 0.1, "y": 0.1, "width": 0.3, "height": 0.3}},
        {"op": "setRemovesNoise", "value": true}
    ])"),
                             {"--save", package.string()});
    const std::string saved = edited["package"];
    EXPECT_EQ(saved, standardizedPath(folder_ / "projects" / "Demo.orvelle").string());

    const auto moved = folder_ / "elsewhere" / "Moved.orvelle";
    std::filesystem::create_directories(moved.parent_path());
    std::filesystem::rename(saved, moved);
    std::filesystem::remove_all(folder_ / "take");
    const Json reopened = orvelleJson({"document", moved.string(), "--json"}, environment_);
    EXPECT_TRUE(reopened["hasSavedProject"].get<bool>());

    // The same project, its files found in the package's new place.
    std::string expected = edited["project"].dump();
    const std::string from = fileURLString(saved);
    const std::string to = fileURLString(standardizedPath(moved));
    for (size_t at = expected.find(from); at != std::string::npos; at = expected.find(from, at)) {
        expected.replace(at, from.size(), to);
        at += to.size();
    }
    EXPECT_EQ(reopened["project"], Json::parse(expected));
    EXPECT_EQ(reopened["project"]["text"]["clips"][0]["text"], "Hello");
    EXPECT_EQ(reopened["manifest"]["segments"].size(), 4u); // screen, its sound, camera, cursor

    // Editing the reopened package goes on from the saved edit.
    const auto ops = folder_ / "undo.json";
    testing::writeTextFile(ops, R"([{"op": "undo"}])");
    const Json again =
        orvelleJson({"edit", moved.string(), "--ops", ops.string(), "--json"}, environment_);
    EXPECT_EQ(again["results"][0], nullptr); // a reopened document starts a fresh history
    EXPECT_EQ(again["project"], reopened["project"]);
}

TEST_F(EditCommand, ProjectSaveWritesAPackageOfAnyDocument) {
    const Json saved =
        orvelleJson({"project", "save", screen_.string(), (folder_ / "Saved").string(), "--json"},
                    environment_);
    const std::filesystem::path package = saved["package"].get<std::string>();
    EXPECT_TRUE(fileExists(package / "media" / "screen-001.mp4"));
    EXPECT_TRUE(fileExists(package / "media" / "camera-001.mp4"));
    EXPECT_TRUE(fileExists(package / "cursor" / "cursor-001.json"));
    const Json reopened = orvelleJson({"document", package.string(), "--json"}, environment_);
    EXPECT_EQ(ranges(reopened["project"]["timeline"]["clips"]), (Ranges{{0, 20}}));
    EXPECT_EQ(reopened["project"]["animation"]["zoomClips"].size(), 2u);

    std::filesystem::remove(package / "media" / "camera-001.mp4");
    const auto plain = runProgram(
        testing::orvelleBinary(),
        {"project", "save", package.string(), (folder_ / "Copy").string()}, environment_);
    EXPECT_EQ(plain.status, 0) << plain.err;
    EXPECT_EQ(plain.out, standardizedPath(folder_ / "Copy.orvelle").string() + "\n");
    EXPECT_FALSE(fileExists(folder_ / "Copy.orvelle" / "media" / "camera-001.mp4"));

    // Without a screen movie there is nothing to save.
    EXPECT_TRUE(testing::orvelleRefuses(
        {"project", "save", (folder_ / "gone.mov").string(), (folder_ / "Out").string()}, 1,
        "The project does not have a screen recording to save.", environment_));
    EXPECT_FALSE(fileExists(folder_ / "Out.orvelle"));
}

TEST_F(EditCommand, ABadOperationNamesItsPlace) {
    const auto ops = folder_ / "bad.json";
    testing::writeTextFile(ops, R"([{"op": "undo"}, {"op": "trimClip", "id": "@timeline:4",
                                    "edge": "end", "by": 1}])");
    const std::vector<std::string> arguments{"edit", screen_.string(), "--ops", ops.string()};
    EXPECT_TRUE(testing::orvelleRefuses(
        arguments, 1, "ops[1].id: the lane has no clip 4 (it holds 1)", environment_));
    testing::writeTextFile(ops, R"([{"op": "paint"}])");
    EXPECT_TRUE(testing::orvelleRefuses(arguments, 1, "ops[0].op: unknown operation \"paint\"",
                                        environment_));
}

TEST_F(EditCommand, CursorPrintsThePointerDataWithItsActivitySpans) {
    const Json result =
        orvelleJson({"cursor", (folder_ / "take" / "Take.cursor.json").string(), "--json"});
    EXPECT_EQ(result["recording"]["samples"].size(), 1200u);
    EXPECT_EQ(result["recording"]["clicks"][0]["time"], 15.0);
    const auto spans = ranges(result["spans"]);
    ASSERT_EQ(spans.size(), 2u);
    EXPECT_NEAR(spans[1].first, 14.3, 1e-9);
    EXPECT_NEAR(spans[1].second, 16.3, 1e-9);
    EXPECT_NEAR(result["duration"].get<double>(), 1199 / 60.0, 1e-9);

    testing::writeTextFile(folder_ / "broken.json", R"({"version": 1, "captureFrame": {}})");
    EXPECT_TRUE(testing::orvelleRefuses({"cursor", (folder_ / "broken.json").string()}, 1,
                                        "captureFrame.x: required key is missing"));
}

} // namespace
} // namespace orvelle
