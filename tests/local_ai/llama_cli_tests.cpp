// The real llama.cpp: llama-cli built by scripts/fetch-llama, run through our helper on a
// tiny GGUF model written at test time (tools/make_test_gguf.py). This proves the command
// line, the process handling and the output capture against the program itself.

#include "local_ai/export_transcript_context.h"
#include "local_ai/llama_cpp_youtube_metadata_generator.h"
#include "local_ai/transcript_paragraph_suggester.h"
#include "local_ai/youtube_metadata_draft.h"
#include "local_ai/youtube_metadata_prompt.h"
#include "platform/process/helper_process_registry.h"
#include "platform/process/process.h"
#include "support/process_groups.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

namespace orvelle {
namespace {

using namespace std::chrono_literals;
using testing::livingProcessesInGroup;

const std::filesystem::path kHelper = ORVELLE_TEST_LLM_HELPER;
const std::filesystem::path kLlamaCLI = ORVELLE_TEST_LLAMA_CLI;

std::filesystem::path tinyModel() {
    return testing::binaryDirectory() / "test-models/tiny-qwen2.gguf";
}

class RealLlamaTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(isExecutableFile(kLlamaCLI))
            << kLlamaCLI << " is missing: run scripts/fetch-llama (bootstrap does)";
        ASSERT_TRUE(std::filesystem::exists(tinyModel())) << "the test_gguf fixture did not run";
    }

    static LLMGenerationSettings settings() {
        LLMGenerationSettings result{.contextSize = 2048,
                                     .maxGeneratedTokens = 400,
                                     .systemPrompt = YouTubeMetadataPromptBuilder::systemPrompt(),
                                     .jsonSchema = YouTubeMetadataPromptBuilder::outputSchema()};
        return result;
    }

    LlamaCPPYouTubeMetadataGenerator generator(const std::filesystem::path& executable,
                                               int maxGeneratedTokens = 400) const {
        LlamaCPPYouTubeMetadataGenerator::Configuration configuration;
        configuration.executableURL = executable;
        configuration.contextSize = 4096;
        configuration.maxGeneratedTokens = maxGeneratedTokens;
        configuration.limits.timeout = 300s;
        return LlamaCPPYouTubeMetadataGenerator(configuration, {{}, tinyModel()});
    }

    static YouTubeMetadataGenerationRequest request() {
        std::vector<ExportTranscriptWord> words;
        for (int i = 0; i < 60; ++i) {
            const double time = i * 1.5;
            words.push_back({i % 10 == 9 ? "done." : "word", time, time + 0.5, time, time + 0.5});
        }
        return {ExportTranscriptContextBuilder::make(words, 95), "", std::nullopt, {}};
    }
};

TEST_F(RealLlamaTest, TheHelperPassesOnOnlyTheAnswerUnderTheSchema) {
    testing::TemporaryDirectory folder;
    const TemporaryTextFile prompt;
    prompt.write("Write the metadata for a short screen recording.\n");
    ProcessOptions options{.arguments = llmOneShotArguments(tinyModel(), settings(), prompt.path()),
                           .timeout = 300s};
    const auto result = runProcess(kHelper, options);
    ASSERT_EQ(result.status, 0) << result.error;
    // Nothing of llama-cli's banner, echo or closing words: the answer is one JSON object
    // that the schema shaped.
    const Json answer = parseJson(result.output);
    ASSERT_TRUE(answer.is_object()) << result.output;
    for (const auto* key : {"title", "description", "chapters", "tags"}) {
        EXPECT_TRUE(answer.contains(key)) << key << " in " << result.output;
    }
    EXPECT_TRUE(answer["title"].is_string());
    EXPECT_TRUE(answer["chapters"].is_array());
}

TEST_F(RealLlamaTest, ADraftFromTheHelperAndFromLlamaCLIItself) {
    const auto req = request();
    for (const auto& executable : {kHelper, kLlamaCLI}) {
        std::vector<std::string> progress;
        const auto draft =
            generator(executable)
                .generate(req, [&](const std::string& message) { progress.push_back(message); },
                          {});
        // The model's own chapters do not survive its toy weights; the transcript's do.
        EXPECT_GE(draft.chapters.size(), 3u) << executable;
        EXPECT_EQ(YouTubeMetadataDraftValidator::normalizedChapters(draft.chapters, 95),
                  draft.chapters)
            << executable;
        EXPECT_LE(draft.title.size(), 400u);
        ASSERT_FALSE(progress.empty());
        EXPECT_EQ(progress.front(), "Loading Qwen");
        EXPECT_EQ(progress.back(), "Reading draft");
    }
}

TEST_F(RealLlamaTest, AnAnswerCutOffByTheTokenLimitIsRefusedInOurWords) {
    // Six tokens cannot hold the four keys: llama-cli stops mid-object, and the draft is
    // refused with what the model did write rather than half read.
    const std::string words = "Qwen did not return valid metadata JSON. Output: {";
    if (const auto error = testing::thrown<YouTubeMetadataGenerationError>(
            [&] { generator(kHelper, 6).generate(request(), {}, {}); })) {
        EXPECT_EQ(error->code(), YouTubeMetadataGenerationErrorCode::invalidOutput)
            << error->what();
        EXPECT_EQ(std::string(error->what()).substr(0, words.size()), words);
    }
}

TEST_F(RealLlamaTest, ParagraphBreaksComeBackInRange) {
    TranscriptAnalysis analysis;
    for (int i = 0; i < 40; ++i) {
        analysis.words.push_back(
            {i % 8 == 7 ? "end." : "word", i * 0.5, i * 0.5 + 0.4, 1.0, {}, {}});
    }
    QwenTranscriptParagraphSuggester::Configuration configuration;
    configuration.executableURL = kHelper;
    configuration.model = tinyModel();
    configuration.windowWords = 25;
    configuration.contextSize = 2048;
    configuration.limits.timeout = 300s;
    const auto breaks = QwenTranscriptParagraphSuggester(configuration).suggestBreaks(analysis, {});
    for (size_t i = 0; i < breaks.size(); ++i) {
        EXPECT_GE(breaks[i], 0);
        EXPECT_LT(breaks[i], 39);
        if (i > 0) {
            EXPECT_GT(breaks[i], breaks[i - 1]);
        }
    }
}

TEST_F(RealLlamaTest, TerminateAllStopsTheHelperAndLlamaCLIMidGeneration) {
    // Told to ignore the end of text, the model writes until stopped.
    auto arguments = llmOneShotArguments(tinyModel(), settings(), std::nullopt, "Go on.");
    arguments.erase(arguments.begin() + 4, arguments.begin() + 6); // no -n limit
    arguments.insert(arguments.begin(), {"-n", "-1", "--ignore-eos"});
    arguments.erase(std::find(arguments.begin(), arguments.end(), "--json-schema"),
                    std::find(arguments.begin(), arguments.end(), "--json-schema") + 2);
    std::promise<void> writing;
    bool told = false;
    auto run = std::async(std::launch::async, [&] {
        ProcessOptions options;
        options.arguments = arguments;
        options.onOutput = [&](std::string_view) {
            if (!told) {
                told = true;
                writing.set_value();
            }
        };
        return runProcess(kHelper, options);
    });
    ASSERT_EQ(writing.get_future().wait_for(300s), std::future_status::ready);
    const auto tracked = HelperProcessRegistry::trackedProcesses();
    ASSERT_EQ(tracked.size(), 1u);
    const pid_t group = tracked.front();
    EXPECT_GE(livingProcessesInGroup(group).size(), 2u) << "the helper and llama-cli";
    HelperProcessRegistry::terminateAll();
    const auto result = run.get();
    EXPECT_NE(result.status, 0);
    const auto end = std::chrono::steady_clock::now() + 5s;
    while (!livingProcessesInGroup(group).empty() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(20ms);
    }
    EXPECT_TRUE(livingProcessesInGroup(group).empty());
}

} // namespace
} // namespace orvelle
