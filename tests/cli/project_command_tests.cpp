#include "cli/cli_test_support.h"
#include "core/files.h"
#include "project/editor_project_state.h"
#include "support/temporary_directory.h"

namespace orvelle {
namespace {

using testing::orvelleJson;
using testing::runProgram;
using testing::TemporaryDirectory;

const Json kManifest = {{"version", 2},
                        {"createdAt", "2025-05-04T10:20:30.250Z"},
                        {"tracks", {{{"id", "screen"}, {"kind", "screen"}}}},
                        {"segments",
                         {{{"id", "screen-segment1"},
                           {"trackID", "screen"},
                           {"kind", "screen"},
                           {"url", "file:///takes/My%20Take.mov"},
                           {"programStart", 0},
                           {"duration", 12},
                           {"mediaStart", 0},
                           {"mediaDuration", 12}}}}};

Json rangeClip(int number, double start, double end, const Json& extra = Json::object()) {
    char id[40];
    std::snprintf(id, sizeof id, "6A1B2C3D-0000-4000-8000-%012d", number);
    Json clip = {{"id", id}, {"start", start}, {"end", end}};
    clip.update(extra);
    return clip;
}

// A state as an older build or a careless hand wrote it: keys missing, numbers out of
// range, retired names.
Json untidyState() {
    return {
        {"manifest", kManifest},
        {"timeline",
         {{"sourceDuration", 12},
          {"clips", {rangeClip(1, 0, 12, {{"speed", 40}, {"fadeInDuration", 9}})}}}},
        {"cursor", {{"style", "inked"}}},
        {"background", {{"wallpaper", "blue-4"}}},
        {"text", {{"clips", {rangeClip(2, 1, 3, {{"size", 9}, {"lineHeight", nullptr}})}}}},
        {"mask", {{"clips", {rangeClip(3, 2, 4, {{"opacity", 3}})}}}},
        {"music", {{"clips", {rangeClip(4, 0, 5, {{"segmentOrdinal", 0}, {"title", "Theme"}})}}}}};
}

class ProjectNormalize : public ::testing::Test {
protected:
    std::filesystem::path write(const std::string& name, const Json& json) {
        const auto path = folder_ / name;
        testing::writeTextFile(path, json.dump());
        return path;
    }

    TemporaryDirectory folder_;
};

TEST_F(ProjectNormalize, FillsDefaultsClampsAndReplacesRetiredNames) {
    const Json json = orvelleJson({"project", "normalize", write("state.json", untidyState())});
    EXPECT_EQ(json["cursor"]["style"], "crisp");
    EXPECT_EQ(json["cursor"]["clickSoundVolume"], 0.15);
    EXPECT_EQ(json["background"]["wallpaper"], "Blue/blue-4");
    EXPECT_EQ(json["screen"], (Json{{"aspectRatio", "wide"}, {"zoomScale", 1.5}}));
    EXPECT_EQ(json["timeline"]["clips"][0]["speed"], 24.0);
    EXPECT_EQ(json["timeline"]["clips"][0]["fadeInDuration"], 5.0);
    EXPECT_EQ(json["timeline"]["deletedGaps"], Json::array());
    EXPECT_EQ(json["text"]["clips"][0]["size"], 4.0);
    EXPECT_EQ(json["text"]["clips"][0]["lineHeight"], 1.25);
    EXPECT_EQ(json["mask"]["clips"][0]["opacity"], 1.0);
    EXPECT_EQ(json["music"]["clips"][0]["segmentID"], "music-0001");
    EXPECT_FALSE(json["music"]["clips"][0].contains("segmentOrdinal"));
    EXPECT_FALSE(json.contains("export")); // absent stays absent
    EXPECT_EQ(json["manifest"], kManifest);

    // What it writes reads back to itself; a project file's state reads as the state.
    EXPECT_EQ(orvelleJson({"project", "normalize", write("again.json", json)}), json);
    const Json wrapped = {{"version", 1}, {"project", untidyState()}};
    EXPECT_EQ(orvelleJson({"project", "normalize", write("project.json", wrapped)}), json);
}

TEST_F(ProjectNormalize, WritesToAFileWhenAsked) {
    const auto input = write("state.json", untidyState());
    const auto output = folder_ / "tidy.json";
    const auto result =
        runProgram(testing::orvelleBinary(), {"project", "normalize", input, "-o", output});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(result.out.empty());
    const Json written = parseJson(readFile(output));
    EXPECT_EQ(written["cursor"]["style"], "crisp");
    EXPECT_EQ(readFile(output).back(), '\n');
}

Json withKey(const std::string& key, const Json& value) {
    Json state = {{"manifest", kManifest}};
    state[key] = value;
    return state;
}

// What is wrong with a state is found by its reader; the command exits with status 1, says
// where, and leaves the output file as it was.
TEST(ProjectNormalizeErrors, ExitWithStatusOneNamingTheKeyAndWriteNothing) {
    TemporaryDirectory folder;
    const auto input = folder / "broken.json";
    const auto output = folder / "out.json";
    testing::writeTextFile(output, "untouched");
    const std::vector<std::pair<Json, std::string>> table{
        {withKey("cursor", {{"style", "sparkly"}}), "cursor.style: Unknown cursor style: sparkly"},
        {withKey("mask", {{"clips", {{{"id", "x"}, {"start", 0}, {"end", 1}}}}}),
         "mask.clips[0].id: not a UUID"},
        {{{"project", {{"manifest", kManifest}}}}, "version: required key is missing"},
        {{{"version", 1}, {"project", withKey("screen", {{"aspectRatio", "9:16"}})}},
         "project.screen.aspectRatio: unknown value \"9:16\""},
        {Json::array(), "expected an object"}};
    for (const auto& [json, message] : table) {
        testing::writeTextFile(input, json.dump());
        EXPECT_TRUE(
            testing::orvelleRefuses({"project", "normalize", input, "-o", output}, 1, message));
    }
    EXPECT_EQ(readFile(output), "untouched"); // nothing half-written replaces a file

    EXPECT_TRUE(testing::orvelleRefuses(
        {"project", "normalize", (folder / "missing.json").string()}, 1, "missing.json"));
    testing::writeTextFile(folder / "text.json", "this is not json");
    EXPECT_TRUE(testing::orvelleRefuses({"project", "normalize", (folder / "text.json").string()},
                                        1, "not valid JSON"));
}

} // namespace
} // namespace orvelle
