#include "cli/cli_test_support.h"
#include "core/file_url.h"
#include "project/editor_project_state.h"
#include "project/last_editor_settings_store.h"
#include "project/recording_take_builder.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

#include <set>

namespace orvelle {
namespace {

using Kind = MediaTrackManifest::Kind;
using testing::orvelleJson;
using testing::TemporaryDirectory;

class DocumentCommand : public ::testing::Test {
protected:
    void SetUp() override {
        testing::writeNumberedMovie(movie_,
                                    {.width = 64, .height = 48, .frameRate = 30, .frameCount = 15});
    }

    TakeManifest writeTake() {
        RecordedMediaSegment screen{
            .url = movie_, .duration = 0.5, .mediaDuration = 0.5, .width = 64, .height = 48};
        RecordedMediaSegment microphone{.kind = Kind::microphone,
                                        .url = folder_ / "Demo Take-microphone-001.m4a",
                                        .duration = 0.8,
                                        .mediaDuration = 0.8};
        return TakeManifestWriter::write(movie_, {screen}, {}, {microphone},
                                         folder_ / "Demo Take.cursor.json");
    }

    Json document(const std::filesystem::path& path) {
        return orvelleJson({"document", path.string(), "--json"}, environment_);
    }

    TemporaryDirectory folder_;
    std::filesystem::path movie_ = folder_ / "Demo Take.mp4";
    // Remembered settings live in the application's data folder: keep the user's out.
    std::map<std::string, std::string> environment_{{"XDG_DATA_HOME", (folder_ / "data").string()}};
};

// How a document opens (bare movies, broken manifests, the remembered look) is the editor
// document's; here, what the command prints and where it finds the remembered look.
TEST_F(DocumentCommand, ATakeOpensWithItsManifestAndTheLookOfTheLastEdit) {
    const TakeManifest manifest = writeTake();
    LastEditorSettings look;
    look.cursor.style = CursorStyle::obsidian;
    LastEditorSettingsStore(folder_ / "data" / "Orvelle" / "last-editor-settings.json").save(look);
    const Json json = document(movie_);

    std::set<std::string> keys;
    for (const auto& [key, value] : json.items()) {
        keys.insert(key);
    }
    EXPECT_EQ(keys, (std::set<std::string>{"documentURL", "screenURL", "packageURL",
                                           "hasSavedProject", "displayTitle", "suggestedSaveName",
                                           "duration", "manifest", "project"}));
    EXPECT_EQ(json["documentURL"], fileURLString(movie_));
    EXPECT_EQ(json["screenURL"], fileURLString(movie_));
    EXPECT_TRUE(json["packageURL"].is_null());
    EXPECT_EQ(json["hasSavedProject"], false);
    EXPECT_EQ(json["displayTitle"], "Demo Take");
    EXPECT_EQ(json["suggestedSaveName"], "Demo Take.orvelle");
    // The microphone runs longer than the screen and does not lengthen the take.
    EXPECT_EQ(json["duration"], 0.5);
    EXPECT_EQ(decodeJson<TakeManifest>(json["manifest"]), manifest);
    const auto project = decodeJson<EditorProjectState>(json["project"]);
    EXPECT_EQ(project.manifest, manifest);
    EXPECT_EQ(project.timeline, TimelineState::defaultState());
    EXPECT_EQ(project.cursor.style, CursorStyle::obsidian);

    // The take's manifest stands for the movie beside it.
    EXPECT_EQ(document(folder_ / "Demo Take.take.json")["documentURL"], fileURLString(movie_));
}

TEST_F(DocumentCommand, TextOutputNamesTheTitleAndSegmentsAndUsageSaysWhatIsMissing) {
    writeTake();
    const auto result =
        testing::runProgram(testing::orvelleBinary(), {"document", movie_.string()}, environment_);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("Demo Take (not saved)"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("microphone-segment1"), std::string::npos) << result.out;
    EXPECT_TRUE(testing::orvelleRefuses({"document", "--json"}, 2, "Missing the file to open"));
}

} // namespace
} // namespace orvelle
