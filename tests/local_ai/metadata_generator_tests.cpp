// The generator and the paragraph suggester against stand-in helpers: small scripts that
// take the helper's command line and answer as a model would, or misbehave as a helper
// can (fail, hang, flood, die), so the parsing rules and every failure path are exercised.

#include "core/files.h"
#include "local_ai/export_transcript_context.h"
#include "local_ai/llama_cpp_youtube_metadata_generator.h"
#include "local_ai/transcript_paragraph_suggester.h"
#include "local_ai/youtube_metadata_draft.h"
#include "local_ai/youtube_metadata_prompt.h"
#include "platform/process/helper_process_registry.h"
#include "support/process_groups.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <thread>

namespace orvelle {
namespace {

using namespace std::chrono_literals;
using testing::livingProcessesInGroup;
using testing::TemporaryDirectory;
using testing::writeExecutableScript;
using testing::writeTextFile;
using Code = YouTubeMetadataGenerationErrorCode;

// A transcript of a five-minute video: one sentence every 20 s.
ExportTranscriptContext fiveMinuteTranscript() {
    std::vector<ExportTranscriptWord> words;
    for (int sentence = 0; sentence < 15; ++sentence) {
        const double start = sentence * 20.0;
        const std::vector<std::string> texts{"step", std::to_string(sentence + 1), "is", "done."};
        for (size_t i = 0; i < texts.size(); ++i) {
            const double time = start + static_cast<double>(i) * 0.5;
            words.push_back({texts[i], time, time + 0.4, time + 30, time + 30.4});
        }
    }
    return ExportTranscriptContextBuilder::make(words, 300);
}

class StandInHelperTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directories(folder / "models");
        writeTextFile(folder / "models/tiny.gguf", "GGUF");
        request.context = fiveMinuteTranscript();
    }

    // A stand-in helper: it writes its arguments one per line to args-<n>, copies the
    // prompt file (-f) to prompt-<n> and then runs `body`.
    std::filesystem::path standIn(const std::string& body) {
        const auto path = folder / "helper";
        writeExecutableScript(path, "#!/bin/bash\n"
                                    "n=$(ls '" +
                                        folder.path().string() +
                                        "' | grep -c '^args-')\n"
                                        "printf '%s\\n' \"$@\" > '" +
                                        folder.path().string() +
                                        "/args-'$n\n"
                                        "previous=''\n"
                                        "for argument in \"$@\"; do\n"
                                        "  [ \"$previous\" = -f ] && cp \"$argument\" '" +
                                        folder.path().string() +
                                        "/prompt-'$n\n"
                                        "  previous=$argument\n"
                                        "done\n" +
                                        body + "\n");
        return path;
    }

    LlamaCPPYouTubeMetadataGenerator
    generator(const std::filesystem::path& helper,
              LlamaCPPYouTubeMetadataGenerator::Configuration configuration = {}) {
        configuration.executableURL = helper;
        configuration.limits.timeout = 3s;
        configuration.limits.outputLimit = 1 << 20;
        return LlamaCPPYouTubeMetadataGenerator(configuration, {folder / "models", std::nullopt});
    }

    // The failure's code and words, or a test failure when the generation succeeds.
    std::pair<Code, std::string> failure(LlamaCPPYouTubeMetadataGenerator generator) {
        const auto error = testing::thrown<YouTubeMetadataGenerationError>(
            [&] { generator.generate(request, {}, {}); });
        return error ? std::pair{error->code(), std::string(error->what())}
                     : std::pair<Code, std::string>{};
    }

    std::vector<std::string> arguments(int run) const {
        std::vector<std::string> lines;
        std::istringstream text(readFile(folder / ("args-" + std::to_string(run))));
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    TemporaryDirectory folder;
    YouTubeMetadataGenerationRequest request;
    std::vector<std::string> progress;
    YouTubeMetadataProgress record = [this](const std::string& message) {
        progress.push_back(message);
    };
};

TEST_F(StandInHelperTest, ADraftIsParsedNormalisedAndGivenChaptersFromTheTranscript) {
    const auto helper = standIn("echo 'Here you go:'\n"
                                "echo '{\"title\": \"Draft one\"}'\n"
                                "printf '%s' '{\"title\": \"  " +
                                std::string(150, 'T') +
                                "  \", \"description\": \"What we built.\", "
                                "\"chapters\": [{\"time\": 0, \"title\": \"Only one\"}], "
                                "\"tags\": [\"#demo\", \"Demo\", \" steps \"]}'\n");
    auto configuration = LlamaCPPYouTubeMetadataGenerator::Configuration{};
    configuration.writesDebugArtifacts = true;
    configuration.debugArtifactsParent = folder / "debug";
    const auto draft = generator(helper, configuration).generate(request, record, {});

    EXPECT_EQ(draft.title, std::string(100, 'T'));
    EXPECT_EQ(draft.description, "What we built.");
    EXPECT_EQ(draft.tags, (std::vector<std::string>{"demo", "steps"}));
    // One chapter from the model on a five-minute video: the transcript's instead.
    ASSERT_GE(draft.chapters.size(), 3u);
    EXPECT_EQ(draft.chapters.front().time, 0);
    EXPECT_EQ(draft.chapters.front().title, "Step 1 is done");
    EXPECT_EQ(YouTubeMetadataDraftValidator::normalizedChapters(draft.chapters, 300),
              draft.chapters);

    // The command line and the prompt the helper was given.
    const auto args = arguments(0);
    ASSERT_GE(args.size(), 2u);
    EXPECT_EQ(args[0], "-m");
    EXPECT_EQ(args[1], (folder / "models/tiny.gguf").string());
    EXPECT_EQ(args[args.size() - 2], "-f");
    EXPECT_FALSE(std::filesystem::exists(args.back())) << "the prompt file outlived the run";
    EXPECT_EQ(readFile(folder / "prompt-0"), YouTubeMetadataPromptBuilder::userPrompt(request));
    EXPECT_EQ(progress, (std::vector<std::string>{"Loading Qwen", "Thinking", "Writing description",
                                                  "Finding chapters", "Reading draft"}));
    const auto debug = folder / "debug/Orvelle YouTube Metadata Debug";
    for (const auto* name : {"transcript-context.json", "system-prompt.txt", "user-prompt.txt",
                             "llama-output.txt", "metadata-draft.json"}) {
        EXPECT_TRUE(std::filesystem::exists(debug / name)) << name;
    }
    EXPECT_EQ(decodeJson<YouTubeMetadataDraft>(readJsonFile(debug / "metadata-draft.json")), draft);
}

TEST_F(StandInHelperTest, AGPUBackendFailureIsRetriedOnceOnTheCPU) {
    const auto helper = standIn(
        "case \" $* \" in *' -ngl 0 '*) echo '{\"title\": \"From the CPU\"}'; exit 0;; esac\n"
        "echo 'ggml_metal_init: error: failed to create command queue' >&2\nexit 1\n");
    const auto draft = generator(helper).generate(request, record, {});
    EXPECT_EQ(draft.title, "From the CPU");
    EXPECT_EQ(progress.at(1), "Switching to CPU");
    EXPECT_EQ(arguments(1).size(), arguments(0).size() + 2);

    auto configuration = LlamaCPPYouTubeMetadataGenerator::Configuration{};
    configuration.allowsCPUFallback = false;
    const auto [code, words] = failure(generator(helper, configuration));
    EXPECT_EQ(code, Code::runtimeFailed);
    EXPECT_EQ(words, "llama.cpp exited with status 1: ggml_metal_init: error: failed to create "
                     "command queue");
}

TEST_F(StandInHelperTest, EveryFailureOfTheHelperHasItsWords) {
    struct Case {
        std::string name;
        std::string body;
        Code code;
        std::string words;
    };
    const std::vector<Case> cases{
        {"a failing helper", "echo 'error: unable to load model' >&2\nexit 3", Code::runtimeFailed,
         "llama.cpp exited with status 3: error: unable to load model"},
        {"a silent failure", "exit 4", Code::runtimeFailed,
         "llama.cpp exited with status 4: No error output was produced."},
        {"a helper that dies", "echo partial; kill -KILL $$", Code::runtimeFailed,
         "llama.cpp exited with status 137: No error output was produced."},
        {"an answer without JSON", "echo 'I would rather not.'", Code::invalidOutput,
         "Qwen did not return valid metadata JSON. Output: I would rather not.\n"},
        {"a hang", "sleep 60", Code::runtimeTimedOut,
         "llama.cpp did not finish within 3 s and was stopped."},
        {"a flood", "exec yes '{}'", Code::runtimeOutputTooLarge,
         "llama.cpp wrote more than 1 MB of output and was stopped."},
    };
    for (const auto& each : cases) {
        const auto [code, words] = failure(generator(standIn(each.body)));
        EXPECT_EQ(code, each.code) << each.name;
        EXPECT_EQ(words, each.words) << each.name;
        EXPECT_TRUE(HelperProcessRegistry::trackedProcesses().empty()) << each.name;
    }
    // Not a program at all: the system's reason.
    writeTextFile(folder / "not-a-program", "\x7f"
                                            "ELF garbage");
    std::filesystem::permissions(folder / "not-a-program", std::filesystem::perms::owner_all);
    const auto [code, words] = failure(generator(folder / "not-a-program"));
    EXPECT_EQ(code, Code::runtimeLaunchFailed);
    EXPECT_EQ(words, "Could not start llama.cpp: Exec format error");
}

TEST_F(StandInHelperTest, AFloodOfDiagnosticsDoesNotBlockTheAnswer) {
    const auto helper = standIn("head -c 20000000 /dev/zero | tr '\\0' d >&2\n"
                                "echo '{\"title\": \"Still here\"}'");
    EXPECT_EQ(generator(helper).generate(request, {}, {}).title, "Still here");
}

TEST_F(StandInHelperTest, WhatMustBeThereBeforeAnythingRuns) {
    const auto helper = standIn("echo '{}'");
    std::filesystem::remove(folder / "models/tiny.gguf");
    EXPECT_EQ(failure(generator(helper)),
              std::make_pair(Code::modelNotInstalled,
                             std::string("The YouTube metadata model is not installed.")));
    writeTextFile(folder / "models/tiny.gguf", "GGUF");
    request.context = ExportTranscriptContextBuilder::make({}, 40);
    EXPECT_EQ(failure(generator(helper)),
              std::make_pair(Code::emptyTranscript, std::string("The transcript is empty.")));
    EXPECT_FALSE(std::filesystem::exists(folder / "args-0"));
}

TEST_F(StandInHelperTest, CancellingStopsTheHelperAndItsChildren) {
    const auto helper = standIn("echo $$ > '" + (folder / "pid").string() + "'\nsleep 60 &\nwait");
    std::stop_source stop;
    std::thread canceller([&] {
        while (!std::filesystem::exists(folder / "pid")) {
            std::this_thread::sleep_for(10ms);
        }
        std::this_thread::sleep_for(50ms);
        stop.request_stop();
    });
    EXPECT_THROW(generator(helper).generate(request, {}, stop.get_token()), CancellationError);
    canceller.join();
    const pid_t group = std::stoi(readFile(folder / "pid"));
    // SIGKILL has been sent to the whole group; the kernel ends its members shortly.
    const auto end = std::chrono::steady_clock::now() + 2s;
    while (!livingProcessesInGroup(group).empty() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_TRUE(livingProcessesInGroup(group).empty());
}

TEST_F(StandInHelperTest, ParagraphBreaksAreCheckedWindowByWindow) {
    TranscriptAnalysis analysis;
    for (int i = 0; i < 25; ++i) {
        analysis.words.push_back({"w" + std::to_string(i), i * 0.5, i * 0.5 + 0.4, 1.0, {}, {}});
    }
    // Window 0-9 answers with junk around the list; 10-19 with entries out of its range,
    // repeats and fractions; 20-24 with a break after the transcript's last word.
    const auto helper = standIn(
        "prompt=$(cat \"${@: -1}\")\n"
        "case \"$prompt\" in\n"
        "  *'[0] w0'*) echo 'Sure. {\"break_after_word_indices\": [4, 4, 2, -1, 9]} ok';;\n"
        "  *'[10] w10'*) echo '{\"break_after_word_indices\": [3, 12, 12.5, 19, 20, \"15\"]}';;\n"
        "  *) echo '{\"break_after_word_indices\": [22, 24]}';;\n"
        "esac");
    QwenTranscriptParagraphSuggester::Configuration configuration;
    configuration.executableURL = helper;
    configuration.model = folder / "models/tiny.gguf";
    configuration.windowWords = 10;
    QwenTranscriptParagraphSuggester suggester(configuration);
    EXPECT_EQ(suggester.suggestBreaks(analysis, {}), (std::vector<int>{2, 4, 9, 12, 19, 22}));
    const std::string firstPrompt = readFile(folder / "prompt-0");
    EXPECT_EQ(firstPrompt.find("Choose paragraph breaks for this rough spoken transcript."), 0u);
    EXPECT_NE(firstPrompt.find("[0] w0 [1] w1"), std::string::npos);
    EXPECT_EQ(firstPrompt.find("[10]"), std::string::npos);
    const auto args = arguments(1);
    EXPECT_NE(std::find(args.begin(), args.end(), TranscriptParagraphPrompt::outputSchema()),
              args.end());

    standIn("echo 'no list here'");
    if (const auto error = testing::thrown<YouTubeMetadataGenerationError>(
            [&] { suggester.suggestBreaks(analysis, {}); })) {
        EXPECT_EQ(error->code(), Code::invalidOutput);
    }
}

} // namespace
} // namespace orvelle
