#include "core/files.h"
#include "project/cursor_recording.h"
#include "project/recording_take_builder.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

using testing::TemporaryDirectory;
using testing::writeTextFile;

TEST(CursorRecording, RoundTripsThroughItsFileBesideTheMovie) {
    EXPECT_EQ(CursorRecording::fileURL("/takes/a.b.mov"), "/takes/a.b.cursor.json");
    TemporaryDirectory folder;
    CursorRecording recording{
        .captureFrame = {100, 50, 1280, 720},
        .samples = {{0, 0.5, 0.25, true}, {1.0 / 60, 0.51, 0.26, true}, {0.05, 1, 0, false}},
        .clicks = {{0.02, 0}, {0.04, 1}}};
    const auto path = folder / "take.cursor.json";
    recording.save(path);
    const Json json = readJsonFile(path);
    EXPECT_EQ(json.at("version"), Json(1));
    EXPECT_EQ(json.at("captureFrame").at("width"), Json(1280.0));
    EXPECT_EQ(json.at("samples")[0].at("visible"), Json(true));
    EXPECT_EQ(json.at("clicks")[1].at("button"), Json(1));
    EXPECT_EQ(CursorRecording::load(path), recording);
    // An empty recording is still a file.
    CursorRecording{}.save(path);
    EXPECT_EQ(CursorRecording::load(path), CursorRecording{});
    // Unknown keys are ignored.
    writeTextFile(path, R"({"version": 1, "extra": [1, 2],
        "captureFrame": {"x": 0, "y": 0, "width": 10, "height": 10, "scale": 2},
        "samples": [{"time": 0.5, "x": 0.1, "y": 0.9, "visible": true, "pressure": 1}],
        "clicks": []})");
    EXPECT_EQ(CursorRecording::load(path).samples,
              (std::vector<CursorSample>{{0.5, 0.1, 0.9, true}}));
}

TEST(CursorRecording, AMissingKeyOrFileFailsNamingIt) {
    TemporaryDirectory folder;
    const std::vector<std::pair<const char*, const char*>> table{
        {R"({"version": 1, "samples": [], "clicks": []})", "captureFrame"},
        {R"({"version": 1, "captureFrame": {"x": 0, "y": 0, "width": 1}, "samples": [],
             "clicks": []})",
         "captureFrame.height"},
        {R"({"version": 1, "captureFrame": {"x": 0, "y": 0, "width": 1, "height": 1},
             "samples": [{"time": 0, "x": 0, "y": 0}], "clicks": []})",
         "samples[0].visible"},
        {R"({"version": 1, "captureFrame": {"x": 0, "y": 0, "width": 1, "height": 1},
             "samples": [], "clicks": [{"time": 1}]})",
         "clicks[0].button"}};
    for (const auto& [text, key] : table) {
        writeTextFile(folder / "c.json", text);
        if (const auto error = testing::thrown<JsonDecodeError>(
                [&] { CursorRecording::load(folder / "c.json"); })) {
            EXPECT_EQ(error->path(), key);
        }
    }
    EXPECT_THROW(CursorRecording::load(folder / "none.cursor.json"), FileError);
}

TEST(CursorRecording, OfATakeIsItsCursorSegmentsFileWhenItReads) {
    TemporaryDirectory folder;
    const auto screen = folder / "Take.mov";
    RecordedMediaSegment segment{.url = screen, .duration = 4};
    const auto manifest =
        TakeManifestWriter::write(screen, {segment}, {}, {}, folder / "Take.cursor.json");
    // Listed but not written: no pointer data.
    EXPECT_EQ(takeCursorRecording(manifest), std::nullopt);
    CursorRecording recording;
    recording.clicks = {{1.5, 1}};
    recording.save(folder / "Take.cursor.json");
    EXPECT_EQ(takeCursorRecording(manifest), recording);
    writeTextFile(folder / "Take.cursor.json", "{\"version\": 1}");
    EXPECT_EQ(takeCursorRecording(manifest), std::nullopt);
    EXPECT_EQ(
        takeCursorRecording(TakeManifestWriter::write(screen, {segment}, {}, {}, std::nullopt)),
        std::nullopt);
}

} // namespace
} // namespace orvelle
