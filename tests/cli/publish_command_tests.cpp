// `orvelle publish draft` as a user runs it: a take with its transcript, the real helper and
// llama-cli on the tiny test model, and a stand-in helper that hangs until the command is
// stopped.

#include "cli/cli_test_support.h"
#include "core/files.h"
#include "project/orvelle_project_package.h"
#include "speech/transcript/transcript_analysis.h"
#include "support/child_process.h"
#include "support/process_groups.h"
#include "support/temporary_directory.h"
#include "support/tiny_take.h"

#include <chrono>
#include <csignal>
#include <thread>

namespace orvelle {
namespace {

using namespace std::chrono_literals;
using testing::orvelleJson;
using testing::runProgram;
using testing::TemporaryDirectory;

class PublishDraftCommand : public ::testing::Test {
protected:
    void SetUp() override {
        take = testing::writeTinyTake(
            folder.path(),
            {.frameRate = 5, .seconds = 40, .withMicrophone = false, .withPointer = false});
        TranscriptAnalysis analysis;
        for (int i = 0; i < 70; ++i) {
            const double time = 0.5 + i * 0.55;
            analysis.words.push_back(
                {i % 7 == 6 ? "done." : "step", time, time + 0.4, 0.9, {}, {}});
        }
        writeJsonAtomically(OrvelleProjectPackage::transcriptJSONURL(take.screenURL),
                            encodeJson(analysis));
    }

    std::vector<std::string> command(std::vector<std::string> extra) const {
        std::vector<std::string> words{"publish", "draft",        take.manifestURL.string(),
                                       "--model", model.string(), "--context-size",
                                       "4096",    "--max-tokens", "400"};
        words.insert(words.end(), extra.begin(), extra.end());
        return words;
    }

    TemporaryDirectory folder;
    testing::TinyTake take;
    std::filesystem::path model = testing::binaryDirectory() / "test-models/tiny-qwen2.gguf";
};

TEST_F(PublishDraftCommand, DraftsWithTheRealHelperAndShowsWhatItWouldRun) {
    const Json draft = orvelleJson(command({"--json"}));
    ASSERT_TRUE(draft.is_object());
    EXPECT_TRUE(draft["title"].is_string());
    EXPECT_TRUE(draft["tags"].is_array());
    ASSERT_GE(draft["chapters"].size(), 3u);
    EXPECT_EQ(draft["chapters"][0]["time"], 0);
    EXPECT_EQ(draft["chapterLines"][0].get<std::string>().substr(0, 5), "0:00 ");
    EXPECT_NEAR(draft["duration"].get<double>(), 40, 0.2);

    const Json plan = orvelleJson(command({"--dry-run", "--json"}));
    const auto arguments = plan["arguments"].get<std::vector<std::string>>();
    ASSERT_GE(arguments.size(), 4u);
    EXPECT_EQ(arguments[1], model.string());
    EXPECT_EQ(arguments[arguments.size() - 2], "-f");
    EXPECT_EQ(std::filesystem::path(plan["executable"].get<std::string>()).filename(),
              "orvelle-llm-helper");
    EXPECT_NE(plan["userPrompt"].get<std::string>().find("Timestamped transcript:\n[0:00] step"),
              std::string::npos);
}

TEST_F(PublishDraftCommand, SaysWhatIsMissing) {
    EXPECT_TRUE(testing::orvelleRefuses(
        {"publish", "draft", take.manifestURL.string(), "--model", (folder / "none.gguf").string()},
        1, "The YouTube metadata model is not installed."));
    std::filesystem::remove(OrvelleProjectPackage::transcriptJSONURL(take.screenURL));
    EXPECT_TRUE(testing::orvelleRefuses(command({}), 1,
                                        "Could not create a transcript for this recording. Run "
                                        "'orvelle transcript process"));
}

TEST_F(PublishDraftCommand, StoppingTheCommandStopsItsHelper) {
    const auto pidFile = folder / "helper.pid";
    testing::writeExecutableScript(folder / "hanging-helper",
                                   "#!/bin/sh\necho $$ > '" + pidFile.string() +
                                       "'\ntrap '' TERM\nsleep 60 &\nwhile :; do sleep 1; done\n");
    pid_t helperGroup = 0;
    const auto result = runProgram(
        testing::orvelleBinary(), command({"--helper", (folder / "hanging-helper").string()}), {},
        [&](int processID) {
            testing::waitUntil([&] { return std::filesystem::exists(pidFile); }, 60s);
            std::this_thread::sleep_for(100ms);
            helperGroup = std::stoi(readFile(pidFile));
            ::kill(processID, SIGTERM);
        });
    EXPECT_EQ(result.status, 130) << result.err;
    ASSERT_NE(helperGroup, 0);
    // SIGKILL has been sent to the whole group; the kernel ends its members shortly.
    EXPECT_TRUE(testing::waitUntil(
        [&] { return testing::livingProcessesInGroup(helperGroup).empty(); }, 2s));
}

} // namespace
} // namespace orvelle
