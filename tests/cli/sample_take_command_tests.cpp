#include "cli/cli_test_support.h"
#include "core/file_url.h"
#include "core/files.h"
#include "support/temporary_directory.h"

namespace orvelle {
namespace {

using testing::orvelleJson;
using testing::TemporaryDirectory;

TEST(SampleTakeCommand, MakesATakeThatOpensAsADocument) {
    TemporaryDirectory folder;
    const auto take = folder / "take";
    const Json made =
        orvelleJson({"sample-take", take.string(), "--width", "128", "--duration", "3", "--json"});
    EXPECT_EQ(made["width"], 128);
    EXPECT_EQ(made["height"], 72);
    EXPECT_EQ(made["frameCount"], 90);
    EXPECT_EQ(made["duration"], 3.0);
    EXPECT_EQ(made["clickCount"], 1); // only the first click happens in three seconds
    for (const char* key : {"screenURL", "microphoneURL", "cursorURL", "manifestURL"}) {
        EXPECT_TRUE(fileExists(pathFromFileURL(made[key].get<std::string>()))) << key;
    }
    for (const auto& sentence : made["narration"]) {
        EXPECT_LT(sentence["start"].get<double>(), 3.0);
        EXPECT_LE(sentence["end"].get<double>(), 3.0);
    }
    EXPECT_GT(made["secondsToMake"].get<double>(), 0);

    const Json document = orvelleJson(
        {"document", pathFromFileURL(made["manifestURL"].get<std::string>()).string(), "--json"},
        {{"XDG_DATA_HOME", (folder / "data").string()}});
    EXPECT_EQ(document["screenURL"], made["screenURL"]);
    EXPECT_EQ(document["displayTitle"], "Orvelle Sample");
    EXPECT_EQ(document["duration"], 3.0);
    EXPECT_EQ(document["manifest"]["segments"].size(), 4u);

    EXPECT_TRUE(testing::orvelleRefuses(
        {"sample-take", (folder / "big").string(), "--width", "9000"}, 2, "width"));
}

} // namespace
} // namespace orvelle
