#include "core/files.h"
#include "core/json.h"
#include "core/user_defaults.h"
#include "core/xdg_paths.h"
#include "support/scoped_environment.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace orvelle {
namespace {

namespace fs = std::filesystem;

TEST(AtomicWrite, ReplacesTheWholeFileAndLeavesNoTemporaryFile) {
    testing::TemporaryDirectory folder;
    const fs::path target = folder / "state.json";
    writeFileAtomically(target, "first");
    writeFileAtomically(target, "second, longer");
    EXPECT_EQ(readFile(target), "second, longer");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 1);
}

TEST(AtomicWrite, AFailedReplaceKeepsWhatWasThereAndCleansUp) {
    testing::TemporaryDirectory folder;
    // A folder in the way makes the final rename fail, even for root.
    const fs::path target = folder / "state.json";
    fs::create_directories(target / "inside");
    EXPECT_THROW(writeFileAtomically(target, "new"), FileError);
    EXPECT_TRUE(fs::is_directory(target / "inside"));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 1);
}

TEST(AtomicWrite, AMissingFolderIsAFileErrorNamingTheFile) {
    testing::TemporaryDirectory folder;
    const fs::path target = folder / "missing" / "state.json";
    if (const auto error = testing::thrown<FileError>([&] { writeFileAtomically(target, "x"); })) {
        EXPECT_NE(std::string(error->what()).find("state.json"), std::string::npos);
    }
    EXPECT_FALSE(fileExists(target));
}

TEST(AtomicWrite, JsonGoesThroughTheSameReplace) {
    testing::TemporaryDirectory folder;
    const fs::path target = folder / "value.json";
    writeJsonAtomically(target, Json{{"b", 1}, {"a", 2}});
    EXPECT_EQ(readFile(target), "{\n  \"a\": 2,\n  \"b\": 1\n}\n");
    EXPECT_EQ(readJsonFile(target), (Json{{"a", 2}, {"b", 1}}));
}

TEST(UserDefaults, KeepsOtherWritersKeysAndSurvivesABrokenFile) {
    testing::TemporaryDirectory folder;
    const fs::path url = folder / "config" / "settings.json";
    UserDefaults first(url);
    EXPECT_FALSE(first.value("OrvelleRecentDocuments"));
    first.set("OrvelleRecentDocuments", Json::array({"/a.orvelle"}));

    // Another owner writes a key of its own; the first one's next write keeps it.
    UserDefaults second(url);
    EXPECT_EQ(second.get<std::vector<std::string>>("OrvelleRecentDocuments"),
              std::vector<std::string>{"/a.orvelle"});
    second.set("OrvelleSelectedCameraID", "cam-1");
    first.set("OrvelleEditorInspectorPanel", "pointer");
    EXPECT_EQ(UserDefaults(url).get<std::string>("OrvelleSelectedCameraID"), "cam-1");
    EXPECT_EQ(UserDefaults(url).get<std::string>("OrvelleEditorInspectorPanel"), "pointer");

    // A value of another shape reads as absent, a removed key is gone.
    EXPECT_FALSE(first.get<int>("OrvelleSelectedCameraID"));
    first.remove("OrvelleSelectedCameraID");
    EXPECT_FALSE(UserDefaults(url).value("OrvelleSelectedCameraID"));

    // A file that is not a JSON object reads as empty and is replaced by the next write.
    writeFileAtomically(url, "[1, 2");
    UserDefaults broken(url);
    EXPECT_FALSE(broken.value("OrvelleEditorInspectorPanel"));
    broken.set("OrvelleEditorInspectorPanel", "audio");
    EXPECT_EQ(readJsonFile(url), (Json{{"OrvelleEditorInspectorPanel", "audio"}}));
}

TEST(ReadFile, AMissingFileIsAFileError) {
    EXPECT_THROW(readFile("/nonexistent/orvelle/file"), FileError);
}

TEST(XdgPaths, FollowTheEnvironmentAndFallBackUnderHome) {
    {
        const testing::ScopedEnvironment environment({{"XDG_DATA_HOME", "/data/home"},
                                                      {"XDG_CACHE_HOME", "relative/is/ignored"},
                                                      {"HOME", "/home/someone"}});
        EXPECT_EQ(applicationSupportDirectory(), "/data/home/Orvelle");
        EXPECT_EQ(cachesDirectory(), "/home/someone/.cache/Orvelle");
    }
    const testing::ScopedEnvironment environment(
        {{"XDG_DATA_HOME", std::nullopt}, {"HOME", "/home/someone"}});
    EXPECT_EQ(applicationSupportDirectory(), "/home/someone/.local/share/Orvelle");
}

// A partial file replaces its destination only when committed. Partial files of processes
// that are gone are removed by the next one made in their folder; those of running
// processes, and other hidden files, are left alone.
TEST(PartialFile, ReplacesOnCommitAndCleansUpAfterTheDead) {
    testing::TemporaryDirectory folder;
    const fs::path target = folder / "movie.mp4";
    testing::writeTextFile(target, "old");
    {
        PartialFile partial(target);
        testing::writeTextFile(partial.path(), "half");
    }
    EXPECT_EQ(readFile(target), "old");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 1);

    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(0);
    }
    ::waitpid(child, nullptr, 0);
    const std::string dead = ".partial-" + std::to_string(child) + "-0-movie.mp4";
    for (const std::string& name :
         {dead, std::string(".partial-1-0-movie.mp4"), std::string(".partial-movie.mp4")}) {
        testing::writeTextFile(folder / name, "left behind");
    }
    PartialFile partial(target);
    testing::writeTextFile(partial.path(), "new");
    partial.commit();
    EXPECT_EQ(readFile(target), "new");
    EXPECT_FALSE(fileExists(folder / dead));
    EXPECT_TRUE(fileExists(folder / ".partial-1-0-movie.mp4"));
    EXPECT_TRUE(fileExists(folder / ".partial-movie.mp4"));
    EXPECT_FALSE(fileExists(partial.path()));
}

} // namespace
} // namespace orvelle
