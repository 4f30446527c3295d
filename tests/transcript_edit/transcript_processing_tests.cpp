// The editor transcript on disk and the processing pipeline on real takes: the store's
// ladder of older forms, and the three passes with the tiny generated speech and timing
// models, a missing language model, and what fails or falls back.

#include "core/files.h"
#include "project/orvelle_project_package.h"
#include "speech/transcript/transcript_output_writer.h"
#include "support/spoken_take.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"
#include "transcript_edit/editor_transcript_store.h"
#include "transcript_edit/transcript_processing.h"

#include <gtest/gtest.h>

#include <chrono>

namespace orvelle {
namespace {

namespace fs = std::filesystem;

fs::path testModel(const std::string& name) {
    return testing::binaryDirectory() / "test-models" / name;
}

TranscriptWord word(const std::string& text, double start, double end) {
    return {text, start, end, 0.9, std::nullopt, std::nullopt};
}

TEST(EditorTranscriptStoreTest, OpensTheNewestFormThereIsAndSavesAllThree) {
    testing::TemporaryDirectory folder;
    const fs::path screen = folder / "Take.mov";
    EXPECT_EQ(EditorTranscriptStore::defaultTranscriptURL(screen),
              folder / "Take.transcript.editor.json");
    EXPECT_FALSE(EditorTranscriptStore::load(screen));

    // Plain text only: untimed words, so nothing can be cut until it is transcribed again.
    testing::writeTextFile(folder / "Take.transcript.txt", "  \n ");
    EXPECT_FALSE(EditorTranscriptStore::load(screen));
    testing::writeTextFile(folder / "Take.transcript.txt", "\n Hello there, world.\n");
    auto legacy = EditorTranscriptStore::load(screen);
    ASSERT_TRUE(legacy);
    EXPECT_EQ(legacy->analysis.text, "Hello there, world.");
    ASSERT_EQ(legacy->analysis.words.size(), 3u);
    EXPECT_FALSE(legacy->analysis.words[0].startTime);
    EXPECT_EQ(legacy->analysis.source.analyzer, "legacy-text-sidecar");
    EXPECT_EQ(legacy->analysis.source.audioURL, screen);
    EXPECT_EQ(legacy->analysis.source.modelDescription, "Unknown");

    // The analysis sidecar wins over the text: no paragraphs, no baseline.
    TranscriptAnalysis analysis{
        .text = "from the sidecar",
        .words = {word("from", 0, 0.3), word("the", 0.4, 0.5), word("sidecar", 0.6, 1.0)}};
    analysis.source.audioURL = folder / "Take.wav";
    TranscriptOutputWriter::writeJSON(analysis, folder / "Take.transcript.json");
    auto fromAnalysis = EditorTranscriptStore::load(screen);
    ASSERT_TRUE(fromAnalysis);
    EXPECT_EQ(fromAnalysis->analysis, analysis);
    EXPECT_FALSE(fromAnalysis->paragraphBreaksSuggested);
    EXPECT_FALSE(fromAnalysis->alignmentBaselineWords);

    // Saving a legacy transcript writes all three; the editor file then wins.
    fs::remove(folder / "Take.transcript.json");
    EditorTranscript edited = *legacy;
    edited.paragraphBreakAfterWordIndices = {1};
    edited.paragraphBreaksSuggested = true;
    EditorTranscriptStore::save(edited, screen);
    for (const auto& sidecar : OrvelleProjectPackage::transcriptSidecarURLs(screen)) {
        EXPECT_TRUE(fs::exists(sidecar)) << sidecar;
    }
    EXPECT_EQ(readFile(folder / "Take.transcript.txt"), "Hello there, world.\n");
    EXPECT_EQ(*EditorTranscriptStore::load(screen), edited);

    // Breaks are held in normal form when read.
    Json json = readJsonFile(folder / "Take.transcript.editor.json");
    json["paragraphBreakAfterWordIndices"] = Json::array({7, 3, 3, -1});
    writeJsonAtomically(folder / "Take.transcript.editor.json", json);
    EXPECT_EQ(EditorTranscriptStore::load(screen)->paragraphBreakAfterWordIndices,
              (std::vector<int>{3, 7}));

    // A corrupt editor file is an error that names it, not a silent fall back.
    testing::writeTextFile(folder / "Take.transcript.editor.json", R"({"analysis": 3})");
    if (const auto error =
            testing::thrown<JsonDecodeError>([&] { EditorTranscriptStore::load(screen); })) {
        EXPECT_NE(std::string(error->what()).find("Take.transcript.editor.json"), std::string::npos)
            << error->what();
    }
}

TEST(EditorTranscriptSmoothingTest, RoughTimesAreClampedOrderedAndLongEnough) {
    TranscriptAnalysis analysis;
    analysis.words = {word("a", -0.5, 0.2),
                      word("b", 0.1, 0.105),
                      word("c", 0.9, 0.95),
                      {"d", std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt},
                      word("e", 2.99, 3.4)};
    const auto smoothed = EditorTranscriptProcessingPipeline::smoothingRoughWordTimings(
        EditorTranscript(analysis), 3.0, 0.02);
    const auto& words = smoothed.analysis.words;
    const std::vector<std::pair<double, double>> expected = {
        {0.0, 0.2}, {0.2, 0.22}, {0.9, 0.95}, {0, 0}, {2.99, 3.0}};
    for (size_t i = 0; i < words.size(); ++i) {
        if (i == 3) {
            EXPECT_FALSE(words[i].startTime);
            continue;
        }
        EXPECT_NEAR(*words[i].startTime, expected[i].first, 1e-12) << i;
        EXPECT_NEAR(*words[i].endTime, expected[i].second, 1e-12) << i;
    }
}

class EditorTranscriptPipelineTest : public ::testing::Test {
protected:
    static EditorTranscriptProcessingOptions options(bool withBundle = true) {
        EditorTranscriptProcessingOptions result{
            .speechModel = TranscriptModelSource{testModel("parakeet-split")},
            .alignmentBundle = withBundle ? testModel("ctc-char") : testModel("no-such-bundle")};
        // No language model here: the paragraph pass must fall back.
        QwenTranscriptParagraphSuggesterConfiguration qwen;
        qwen.model = testModel("no-such-model.gguf");
        result.paragraphSuggester = std::make_shared<QwenTranscriptParagraphSuggester>(qwen);
        return result;
    }

    // Runs the pipeline and keeps the stages it reported.
    EditorTranscriptProcessingResult run(const EditorDocument& document,
                                         const EditorTranscriptProcessingOptions& options,
                                         bool force = false) {
        stages.clear();
        return EditorTranscriptProcessingPipeline(options).process(
            document, force, takeSourceDuration(document.manifest).seconds,
            [&](const EditorTranscriptProcessingProgress& progress) {
                if (stages.empty() || stages.back() != progress.stage) {
                    stages.push_back(progress.stage);
                }
            });
    }

    testing::TemporaryDirectory folder;
    std::vector<EditorTranscriptProcessingStage> stages;
};

TEST_F(EditorTranscriptPipelineTest, RunsThePassesThatAreMissingAndSavesEach) {
    using Stage = EditorTranscriptProcessingStage;
    const auto spoken = testing::writeSpokenTake(
        folder.path(), testing::passageWords("Hello world this is a take"), false);
    const EditorDocument document = EditorDocument::load(spoken.take.screenURL);
    const auto result = run(document, options());
    EXPECT_EQ(stages,
              (std::vector<Stage>{Stage::preparingAudio, Stage::transcribing,
                                  Stage::preparingAlignment, Stage::aligning, Stage::formatting}));
    EXPECT_EQ(result.passesRun, (std::vector<std::string>{"transcription", "alignment"}));
    EXPECT_EQ(result.nonfatalError,
              std::string(EditorTranscriptProcessingPipeline::kParagraphsFailedMessage));
    ASSERT_FALSE(result.transcript.analysis.words.empty());
    EXPECT_TRUE(result.transcript.alignmentBaselineWords);
    EXPECT_TRUE(result.transcript.paragraphBreaksSuggested);
    EXPECT_TRUE(result.transcript.paragraphBreakAfterWordIndices.empty());
    EXPECT_TRUE(result.alignmentReport);
    // One paragraph: the words joined by blanks.
    EXPECT_EQ(result.displayText.find('\n'), std::string::npos);
    EXPECT_NE(result.displayText.find(' '), std::string::npos);
    const auto saved = EditorTranscriptStore::load(document);
    ASSERT_TRUE(saved);
    EXPECT_EQ(*saved, result.transcript);

    // Done already: a second run without force runs no pass and writes nothing.
    const fs::path editorFile = EditorTranscriptStore::defaultTranscriptURL(document.screenURL);
    const auto written = fs::last_write_time(editorFile);
    const auto again = run(document, options());
    EXPECT_TRUE(again.passesRun.empty());
    EXPECT_TRUE(stages.empty());
    EXPECT_EQ(again.transcript, result.transcript);
    EXPECT_EQ(fs::last_write_time(editorFile), written);

    // Forced, everything runs again.
    EXPECT_EQ(run(document, options(), true).passesRun.size(), 2u);
}

TEST_F(EditorTranscriptPipelineTest, WithoutTheTimingModelTheRoughTimesStayUsable) {
    const auto spoken = testing::writeSpokenTake(
        folder.path(), testing::passageWords("Hello world this is a take"), false);
    const EditorDocument document = EditorDocument::load(spoken.take.screenURL);
    const auto result = run(document, options(false));
    EXPECT_EQ(result.passesRun, (std::vector<std::string>{"transcription"}));
    EXPECT_EQ(result.nonfatalError,
              std::string(EditorTranscriptProcessingPipeline::kAlignmentFailedMessage));
    EXPECT_FALSE(result.transcript.alignmentBaselineWords);
    double previousEnd = 0;
    for (const auto& w : result.transcript.analysis.words) {
        ASSERT_TRUE(w.startTime && w.endTime);
        EXPECT_GE(*w.startTime, previousEnd - 1e-12);
        EXPECT_GE(*w.endTime - *w.startTime, 0.02 - 1e-12);
        previousEnd = *w.endTime;
    }
    // The paragraph pass was done, so a later run only tries the timing again.
    const auto later = run(document, options(true));
    EXPECT_EQ(later.passesRun, (std::vector<std::string>{"alignment"}));
    EXPECT_FALSE(later.nonfatalError);
}

TEST_F(EditorTranscriptPipelineTest, OnlyTheFirstPassCanFailTheRun) {
    // No microphone at all.
    const auto silentTake = testing::writeTinyTake(folder / "mute", {.withMicrophone = false});
    const EditorDocument mute = EditorDocument::load(silentTake.screenURL);
    if (const auto error =
            testing::thrown<EditorTranscriptServiceError>([&] { run(mute, options()); })) {
        EXPECT_EQ(error->code(), EditorTranscriptServiceErrorCode::missingAudio);
    }
    EXPECT_FALSE(EditorTranscriptStore::load(mute));

    // Half a second: the recogniser hears nothing, and the run ends there.
    testing::TinyTakeOptions brief;
    brief.seconds = 0.5;
    const auto shortTake = testing::writeTinyTake(folder / "brief", brief);
    const EditorDocument document = EditorDocument::load(shortTake.screenURL);
    const auto result = run(document, options());
    EXPECT_EQ(stages.back(), EditorTranscriptProcessingStage::noSpeech);
    EXPECT_TRUE(result.transcript.analysis.words.empty());
    EXPECT_EQ(stageDescription(stages.back()), "No speech detected");
}

TEST_F(EditorTranscriptPipelineTest, TheBackgroundProcessorTranscribesATakeJustRecorded) {
    const auto spoken = testing::writeSpokenTake(
        folder.path(), testing::passageWords("Hello world this is a take"), false);
    const EditorDocument document = EditorDocument::load(spoken.take.screenURL);
    RunLoop main;
    EditorTranscriptBackgroundProcessor processor(main, options());
    EXPECT_FALSE(processor.enqueue(
        EditorDocument::load(
            testing::writeTinyTake(folder / "mute", {.withMicrophone = false}).screenURL),
        {}));
    std::optional<EditorTranscriptProcessingResult> done;
    std::optional<std::string> failed;
    ASSERT_TRUE(processor.enqueue(document, [&](const EditorDocument&, auto result, auto error) {
        failed = std::move(error);
        done = std::move(result);
    }));
    EXPECT_TRUE(processor.isBusy());
    ASSERT_TRUE(main.runUntil([&] { return done || failed; }, std::chrono::seconds(120)));
    ASSERT_FALSE(failed) << *failed;
    EXPECT_EQ(done->passesRun.size(), 2u);
    EXPECT_TRUE(main.runUntil([&] { return !processor.isBusy(); }, std::chrono::seconds(5)));
    EXPECT_TRUE(EditorTranscriptStore::load(document));
}

} // namespace
} // namespace orvelle
