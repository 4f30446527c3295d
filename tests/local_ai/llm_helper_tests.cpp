// The pieces around the helper process that need no process: where the helper is looked
// for (its command line is proven against llama-cli itself), text decoding across reads, what is
// kept of llama-cli's output, and the progress read from the streaming answer.

#include "local_ai/llama_cli_output_filter.h"
#include "local_ai/llm_helper.h"
#include "local_ai/youtube_metadata.h"
#include "local_ai/youtube_metadata_progress.h"
#include "support/process_groups.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

using testing::TemporaryDirectory;
using testing::writeExecutableScript;
using testing::writeTextFile;

TEST(LLMHelperSearchTest, TheFirstExecutableCandidateWinsInTheDocumentedOrder) {
    TemporaryDirectory folder;
    LLMHelperSearchPlaces places{.programDirectory = folder / "bin",
                                 .currentDirectory = folder / "work",
                                 .resourcesDirectory = folder / "share/orvelle",
                                 .homeDirectory = folder / "home",
                                 .helperVariable = (folder / "variable-helper").string(),
                                 .llamaCLIVariable = (folder / "variable-llama-cli").string()};
    const std::filesystem::path configured = folder / "configured";

    const std::vector<std::filesystem::path> order{
        configured,
        folder / "bin/orvelle-llm-helper",
        folder / "variable-helper",
        folder / "variable-llama-cli",
        folder / "work/build/default/bin/orvelle-llm-helper",
        folder / "share/orvelle/llm-helper/orvelle-llm-helper",
        folder / "home/Projects/llama.cpp/build/bin/llama-cli",
        folder / "home/Projects/llama.cpp/build/bin/main",
        "/tmp/llama.cpp/build/bin/llama-cli",
    };
    EXPECT_EQ(llmHelperCandidates(configured, places), order);

    // Nothing executable anywhere: the system's words.
    if (const auto error = testing::thrown<YouTubeMetadataGenerationError>(
            [&] { resolvedLLMHelperExecutable(configured, places); })) {
        EXPECT_EQ(error->code(), YouTubeMetadataGenerationErrorCode::runtimeNotFound);
        EXPECT_STREQ(error->what(), "The local AI helper is not bundled. Run make llm-helper, "
                                    "then rebuild the app.");
    }
    // Made executable from the back of the list to the front, each one wins over the rest;
    // a variable naming a file that is not executable, or a folder, is passed over.
    writeTextFile(folder / "variable-helper", "not a program");
    std::filesystem::create_directories(folder / "work/build/default/bin/orvelle-llm-helper");
    for (size_t i = order.size() - 1; i-- > 0;) {
        if (i == 2 || i == 4) {
            continue;
        }
        writeExecutableScript(order[i], "#!/bin/sh\n");
        EXPECT_EQ(resolvedLLMHelperExecutable(configured, places), order[i]) << i;
    }
    EXPECT_EQ(resolvedLLMHelperExecutable(std::nullopt, places), order[1]);
}

TEST(UTF8ChunkDecoderTest, CharactersSplitAcrossReadsAreHeldUntilWhole) {
    const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z"; // a é € 😀 z
    // Every way of cutting the text in two gives the text back.
    for (size_t cut = 0; cut <= text.size(); ++cut) {
        UTF8ChunkDecoder decoder;
        std::string out = decoder.decode(text.substr(0, cut));
        out += decoder.decode(text.substr(cut));
        out += decoder.finish();
        EXPECT_EQ(out, text) << cut;
    }
    UTF8ChunkDecoder decoder;
    EXPECT_EQ(decoder.decode("\xF0\x9F"), "");
    EXPECT_EQ(decoder.decode("\x98"), "");
    EXPECT_EQ(decoder.decode("\x80!"), "\xF0\x9F\x98\x80!");
    // Bytes that can never form a character, and a character cut short for good.
    EXPECT_EQ(decoder.decode("\xFF"
                             "a"
                             "\xC3"
                             "b"),
              "\xEF\xBF\xBD"
              "a"
              "\xEF\xBF\xBD"
              "b");
    EXPECT_EQ(decoder.decode("\xE2\x82"), "");
    EXPECT_EQ(decoder.finish(), "\xEF\xBF\xBD");
}

// llama-cli's output around an answer, as it prints it to a pipe.
std::string llamaCLIOutput(const std::string& prompt, const std::string& answer, bool timings) {
    std::string echo = prompt.size() > 500 ? prompt.substr(0, 500) + " ... (truncated)" : prompt;
    std::string output = "\nLoading model... \n\nbuild      : b1\nmodel      : q.gguf\n\n"
                         "available commands:\n  /exit or Ctrl+C     stop or exit\n\n\n> " +
                         echo + "\n" + answer;
    if (!answer.empty() && answer.back() != '\n') {
        output += "\n";
    }
    if (timings) {
        output += "\n[ Prompt: 812.4 t/s | Generation: 95.1 t/s ]\n";
    }
    return output + "\n\nExiting...\n";
}

TEST(LlamaCLIOutputFilterTest, OnlyTheAnswerPassesWhateverTheReadSizes) {
    const std::string longPrompt = "Describe {\"title\": ...}\n" + std::string(700, 'p');
    struct Case {
        std::string name;
        std::string prompt;
        std::string answer;
        bool timings;
        std::string expected;
    };
    const std::vector<Case> cases{
        {"short prompt", "Hi", "{\"title\": \"T\"}", false, "{\"title\": \"T\"}"},
        {"long prompt echoed in part", longPrompt, "{\"a\": 1}", true, "{\"a\": 1}"},
        {"answer with its own line end", "Hi", "line one\nline two\n", true, "line one\nline two"},
        {"answer that quotes the closing words", "Hi", "Say \n\nExiting...\n now", false,
         "Say \n\nExiting...\n now"},
        {"an empty answer", "Hi", "", false, ""},
    };
    for (const auto& each : cases) {
        const std::string output = llamaCLIOutput(each.prompt, each.answer, each.timings);
        for (const size_t step : {size_t{1}, size_t{7}, size_t{4096}}) {
            LlamaCLIOutputFilter filter(each.prompt);
            std::string passed;
            for (size_t i = 0; i < output.size(); i += step) {
                passed += filter.consume(std::string_view(output).substr(i, step));
            }
            passed += filter.finish();
            EXPECT_EQ(passed, each.expected) << each.name << " in pieces of " << step;
            EXPECT_TRUE(filter.foundAnswer());
            EXPECT_NE(filter.preamble().find("available commands"), std::string::npos);
        }
    }
    // A llama-cli that prints only the generated text: all of it passes.
    LlamaCLIOutputFilter plain("Hi");
    std::string passed = plain.consume("{\"title\": ");
    passed += plain.consume("\"T\"}");
    passed += plain.finish();
    EXPECT_EQ(passed, "{\"title\": \"T\"}");
    EXPECT_FALSE(plain.foundAnswer());
}

TEST(YouTubeMetadataProgressTest, ThinkingLinesOrKeyWordsEachOnce) {
    YouTubeMetadataProgressExtractor extractor;
    std::vector<std::string> shown;
    const auto feed = [&](std::string_view piece) {
        for (auto& message : extractor.consume(piece)) {
            shown.push_back(std::move(message));
        }
    };
    feed("<|chan");
    feed("nel>thought\nLooking at the ");
    feed("transcript.\n\nIt mentions \"title\" of a song.\nThree parts");
    EXPECT_EQ(shown, (std::vector<std::string>{"Looking at the transcript.",
                                               "It mentions \"title\" of a song."}));
    feed(" stand out.<chan");
    feed("nel|>{\"ti");
    feed("tle\": \"A\", \"description\": \"B\", \"title\": \"");
    feed("C\", \"chapters\": [], \"chapters\"");
    EXPECT_EQ(shown, (std::vector<std::string>{"Looking at the transcript.",
                                               "It mentions \"title\" of a song.",
                                               "Three parts stand out.", "Thinking",
                                               "Writing description", "Finding chapters"}));
    EXPECT_EQ(extractor.emittedFallbackMessages().size(), 3u);
}

} // namespace
} // namespace orvelle
