#include "cli/cli_test_support.h"
#include "core/uuid.h"
#include "project/recording_take_builder.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

namespace orvelle {
namespace {

using testing::orvelleJson;
using testing::TemporaryDirectory;

struct Span {
    double start;
    double end;
    double speed = 1.0;
};

// A project state with the given clips and deleted gaps and nothing else of note.
Json stateJson(const std::vector<Span>& clips, const std::vector<Span>& gaps,
               double sourceDuration) {
    Json clipList = Json::array();
    for (const auto& clip : clips) {
        clipList.push_back({{"id", Uuid::random().string()},
                            {"start", clip.start},
                            {"end", clip.end},
                            {"speed", clip.speed}});
    }
    Json gapList = Json::array();
    for (const auto& gap : gaps) {
        gapList.push_back(
            {{"id", Uuid::random().string()}, {"sourceStart", gap.start}, {"sourceEnd", gap.end}});
    }
    return {{"manifest",
             {{"version", 2},
              {"createdAt", "2025-05-04T10:20:30.250Z"},
              {"tracks", Json::array()},
              {"segments", Json::array()}}},
            {"timeline",
             {{"sourceDuration", sourceDuration}, {"clips", clipList}, {"deletedGaps", gapList}}}};
}

// The mapping itself is the resolved timeline's; here each question reaches it and each
// answer comes back in its place, null where there is none. Two clips with the stretch
// between them deleted: a cut resolves after itself.
TEST(TimelineMap, AnswersEveryQuestionInItsPlace) {
    TemporaryDirectory folder;
    const auto path = folder / "state.json";
    testing::writeTextFile(path, stateJson({{0, 10}, {20, 30}}, {{10, 20}}, 30).dump());
    const std::vector<std::tuple<std::string, std::string, double, Json>> queries{
        {"--edit", "sourceTimeForEditTime", 10, 20},
        {"--edit", "sourceTimeForEditTime", 99, 30},
        {"--source", "editTimeForSourceTime", 15, 10},
        {"--source", "editTimeForSourceTime", 25, 15},
        {"--after", "playableTimeAtOrAfter", 10, 20},
        {"--after", "playableTimeAtOrAfter", 30, nullptr},
        {"--before", "playableTimeAtOrBefore", 15, 10}};
    std::vector<std::string> arguments{"timeline", "map", path.string()};
    for (const auto& [option, key, time, answer] : queries) {
        arguments.push_back(option);
        arguments.push_back(std::to_string(time));
    }
    const Json json = orvelleJson(arguments);
    EXPECT_DOUBLE_EQ(json["duration"].get<double>(), 20);
    std::map<std::string, size_t> seen;
    for (const auto& [option, key, time, answer] : queries) {
        const Json& pair = json[key].at(seen[key]++);
        EXPECT_DOUBLE_EQ(pair[0].get<double>(), time) << key;
        EXPECT_EQ(pair[1], answer) << key << " at " << time;
    }
    for (const auto& [key, count] : seen) {
        EXPECT_EQ(json[key].size(), count) << key;
    }
    // A malformed time is a usage error.
    EXPECT_TRUE(
        testing::orvelleRefuses({"timeline", "map", path.string(), "--edit", "soon"}, 2, "--edit"));
}

TEST(TimelineMapOfATake, SeedsATimelineNeverBuiltOverTheWholeTake) {
    TemporaryDirectory folder;
    const auto movie = folder / "take.mp4";
    testing::writeNumberedMovie(movie,
                                {.width = 64, .height = 48, .frameRate = 30, .frameCount = 30});
    RecordedMediaSegment screen{.url = movie, .duration = 1.0, .mediaDuration = 1.0};
    TakeManifestWriter::write(movie, {screen}, {}, {}, std::nullopt);
    const Json json = orvelleJson({"timeline", "map", movie.string(), "--edit", "0.25"},
                                  {{"XDG_DATA_HOME", (folder / "data").string()}});
    EXPECT_EQ(json["duration"], 1.0);
    EXPECT_EQ(json["sourceTimeForEditTime"][0][1], 0.25);
}

} // namespace
} // namespace orvelle
