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

// One question to the command: which mapping, at which time, and the answer expected
// (null for none).
struct Query {
    std::string option; // --edit, --source, --after, --before
    double time;
    Json answer;
};

struct MapCase {
    std::string name;
    Json state;
    double duration;
    std::vector<Query> queries;
};

class TimelineMap : public ::testing::TestWithParam<MapCase> {};

std::string outputKey(const std::string& option) {
    if (option == "--edit") {
        return "sourceTimeForEditTime";
    }
    if (option == "--source") {
        return "editTimeForSourceTime";
    }
    return option == "--after" ? "playableTimeAtOrAfter" : "playableTimeAtOrBefore";
}

TEST_P(TimelineMap, GivesTheDesignsAnswers) {
    const auto& param = GetParam();
    TemporaryDirectory folder;
    const auto path = folder / "state.json";
    testing::writeTextFile(path, param.state.dump());
    std::vector<std::string> arguments{"timeline", "map", path.string()};
    for (const auto& query : param.queries) {
        arguments.push_back(query.option);
        arguments.push_back(std::to_string(query.time));
    }
    const Json json = orvelleJson(arguments);
    EXPECT_DOUBLE_EQ(json["duration"].get<double>(), param.duration);
    std::map<std::string, size_t> seen;
    for (const auto& query : param.queries) {
        const std::string key = outputKey(query.option);
        const Json& pair = json[key].at(seen[key]++);
        EXPECT_DOUBLE_EQ(pair[0].get<double>(), query.time) << key;
        if (query.answer.is_null()) {
            EXPECT_TRUE(pair[1].is_null()) << key << " at " << query.time << ": " << pair[1];
        } else {
            ASSERT_TRUE(pair[1].is_number()) << key << " at " << query.time;
            EXPECT_NEAR(pair[1].get<double>(), query.answer.get<double>(), 1e-9)
                << key << " at " << query.time;
        }
    }
    for (const auto& [key, count] : seen) {
        EXPECT_EQ(json[key].size(), count) << key;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Timelines, TimelineMap,
    ::testing::Values(
        // Two clips with the stretch between them deleted: a cut resolves after itself.
        MapCase{"CutInTheMiddle",
                stateJson({{0, 10}, {20, 30}}, {{10, 20}}, 30),
                20,
                {{"--edit", 10, 20},
                 {"--edit", 0, 0},
                 {"--edit", 9.5, 9.5},
                 {"--edit", 20, 30},
                 {"--edit", 99, 30},
                 {"--source", 15, 10},
                 {"--source", 10, 10},
                 {"--source", 20, 10},
                 {"--source", 25, 15},
                 {"--after", 10, 20},
                 {"--after", 30, nullptr},
                 {"--after", 35, nullptr},
                 {"--before", 15, 10},
                 {"--before", 35, 30}}},
        MapCase{"Speed",
                stateJson({{0, 10, 2}}, {}, 10),
                5,
                {{"--edit", 2.5, 5}, {"--source", 5, 2.5}}},
        MapCase{
            "SpeedsAreClampedOnReading", stateJson({{0, 3, 0.1}}, {}, 3), 4, {{"--edit", 2, 1.5}}},
        MapCase{"Empty",
                stateJson({}, {}, 0),
                0,
                {{"--edit", 0, nullptr},
                 {"--source", 3, 0},
                 {"--after", 0, nullptr},
                 {"--before", 0, nullptr}}},
        MapCase{"GapBeforeTheFirstClip",
                stateJson({{5, 10}}, {{0, 5}}, 10),
                5,
                {{"--edit", 0, 5}, {"--source", 2, 0}}},
        MapCase{"TrailingGap",
                stateJson({{0, 10}}, {{10, 20}}, 20),
                10,
                {{"--edit", 10, 10}, {"--before", 20, 10}}},
        MapCase{"NothingBeforeTheFirstClip",
                stateJson({{5, 10}}, {}, 10),
                5,
                {{"--source", 2, 0}, {"--after", 0, 5}}}),
    [](const auto& param) { return param.param.name; });

TEST(TimelineMapOfATake, SeedsATimelineNeverBuiltOverTheWholeTake) {
    TemporaryDirectory folder;
    const auto movie = folder / "take.mp4";
    testing::writeNumberedMovie(movie,
                                {.width = 64, .height = 48, .frameRate = 30, .frameCount = 30});
    RecordedMediaSegment screen;
    screen.url = movie;
    screen.duration = 1.0;
    screen.mediaDuration = 1.0;
    TakeManifestWriter::write(movie, {screen}, {}, {}, std::nullopt);
    const Json json = orvelleJson({"timeline", "map", movie.string(), "--edit", "0.25"},
                                  {{"XDG_DATA_HOME", (folder / "data").string()}});
    EXPECT_EQ(json["duration"], 1.0);
    EXPECT_EQ(json["sourceTimeForEditTime"][0][1], 0.25);
}

TEST(TimelineMapUsage, AMalformedTimeIsAUsageError) {
    const auto result = testing::runProgram(testing::orvelleBinary(),
                                            {"timeline", "map", "x.json", "--edit", "soon"});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("--edit"), std::string::npos) << result.err;
}

} // namespace
} // namespace orvelle
