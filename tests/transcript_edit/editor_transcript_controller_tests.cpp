// The transcript panel's controller over a real playback model and editor store, on a take
// whose microphone speaks known words: cutting by text and by timeline both ways, undo,
// restoring a marker, the cursor and playhead, the preview, cleanup, and transcription.

#include "support/spoken_take.h"
#include "support/temporary_directory.h"
#include "transcript_edit/editor_transcript_controller.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

namespace orvelle {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

// Word indexes of the passage: 0 Welcome 1 to 2 the 3 demo. 4 Today 5 we 6 um 7 look 8 at
// (a pause of 2.6 s) 9 the 10 the 11 editor 12 and 13 you 14 know 15 cut 16 words.
constexpr const char* kPassage =
    "Welcome to the demo. Today we um look at /2.6/ the the editor and you know cut words.";

fs::path testModel(const std::string& name) {
    return testing::binaryDirectory() / "test-models" / name;
}

class EditorTranscriptControllerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        folder_ = new testing::TemporaryDirectory();
        spoken_ = new testing::SpokenTake(
            testing::writeSpokenTake(folder_->path(), testing::passageWords(kPassage)));
    }
    static void TearDownTestSuite() {
        delete spoken_;
        delete folder_;
    }

    void SetUp() override { open(spoken_->take.screenURL); }

    void open(const fs::path& screen, EditorTranscriptProcessingOptions processing = {}) {
        controller.reset();
        model.reset();
        document = EditorDocument::load(screen);
        store = std::make_unique<EditorStore>(document.project);
        PlaybackModelOptions options;
        options.player.withSound = false;
        options.player.frameRate = 30;
        options.player.previewSize = {160, 90};
        model = std::make_unique<PlaybackModel>(*store, loop, options);
        model->load(document);
        ASSERT_TRUE(loop.runUntil(
            [&] { return model->hasCompositionSource().value() && !model->isLoading(); }, 30s));
        controller =
            std::make_unique<EditorTranscriptController>(*model, loop, std::move(processing));
        controller->prepare();
    }

    const SampleTake::SpokenWord& word(int index) const {
        return spoken_->passage.words[static_cast<size_t>(index)];
    }

    TranscriptCharacterRange characters(int tokenID) const {
        for (const auto& range : controller->visibleTranscript().value().wordRanges) {
            if (range.wordID == tokenID) {
                return range.range;
            }
        }
        ADD_FAILURE() << "token " << tokenID << " is not shown";
        return {};
    }

    std::optional<TranscriptTokenEditTime> editTime(int tokenID) const {
        for (const auto& time : controller->wordEditTimes().value()) {
            if (time.id == tokenID) {
                return time;
            }
        }
        return std::nullopt;
    }

    std::vector<TranscriptTokenIDRange> markers() const {
        std::vector<TranscriptTokenIDRange> ranges;
        for (const auto& range : controller->collapsedWordRanges().value()) {
            ranges.push_back(range.wordRange);
        }
        return ranges;
    }

    inline static testing::TemporaryDirectory* folder_ = nullptr;
    inline static testing::SpokenTake* spoken_ = nullptr;
    RunLoop loop;
    EditorDocument document;
    std::unique_ptr<EditorStore> store;
    std::unique_ptr<PlaybackModel> model;
    std::unique_ptr<EditorTranscriptController> controller;
};

TEST_F(EditorTranscriptControllerTest, CutsByTextShowOnTheTimelineAndTimelineCutsShowInTheText) {
    ASSERT_TRUE(controller->hasTranscript().value());
    ASSERT_TRUE(loop.runUntil([&] { return controller->hasSpliceEnergyProfile().value(); }, 30s));

    // Select "to the demo." by its characters and press delete.
    const auto from = characters(2);
    const auto to = characters(6);
    controller->updateSelectionFromCharacters(from.location + 1, to.location + to.length - 1);
    EXPECT_EQ(controller->selectedWordRange().value(), (TranscriptTokenIDRange{2, 6}));
    controller->cutSelection();
    const auto& timeline = store->project().timeline;
    ASSERT_EQ(timeline.deletedGaps.size(), 1u);
    const DeletedTimelineGap gap = timeline.deletedGaps[0];
    // All of the words go, nothing of their neighbours.
    EXPECT_LE(gap.sourceStart.seconds, word(1).start);
    EXPECT_GE(gap.sourceStart.seconds, word(0).end);
    EXPECT_GE(gap.sourceEnd.seconds, word(3).end);
    EXPECT_LE(gap.sourceEnd.seconds, word(4).start);
    EXPECT_EQ(markers(), (std::vector<TranscriptTokenIDRange>{{2, 6}}));
    EXPECT_NE(controller->visibleTranscript().value().text.find("Welcome [3 words cut] Today"),
              std::string::npos);
    EXPECT_FALSE(controller->selectedWordRange().value());
    EXPECT_FALSE(editTime(4)->editStart);
    const double removed = gap.sourceEnd.seconds - gap.sourceStart.seconds;
    EXPECT_NEAR(*editTime(8)->editStart, word(4).start - removed, 1e-6);
    EXPECT_EQ(store->undoHistory().undoStack().back().label, "Delete Range");

    // Undo brings the words back; redo folds them again.
    model->undo();
    EXPECT_TRUE(markers().empty());
    EXPECT_NEAR(*editTime(4)->editStart, word(2).start, 1e-6);
    model->redo();
    EXPECT_EQ(markers(), (std::vector<TranscriptTokenIDRange>{{2, 6}}));

    // A cut made on the timeline over "editor" folds that word.
    ASSERT_TRUE(model->deleteSourceRange(SourceTime(word(11).start - 0.05),
                                         SourceTime(word(11).end + 0.05)));
    EXPECT_EQ(markers(), (std::vector<TranscriptTokenIDRange>{{2, 6}, {22, 22}}));
    // Its marker brings back its clip.
    const Uuid editorMarker = controller->collapsedWordRanges().value()[1].id;
    EXPECT_TRUE(controller->activateLink(transcriptCollapseLink(editorMarker)));
    EXPECT_EQ(markers(), (std::vector<TranscriptTokenIDRange>{{2, 6}}));
    EXPECT_NEAR(*editTime(22)->editEnd - *editTime(22)->editStart, word(11).end - word(11).start,
                1e-6);
    // And a cut link does what the delete key does.
    EXPECT_TRUE(controller->activateLink(transcriptCutLink(TranscriptTokenIDRange::words(15, 16))));
    EXPECT_EQ(markers(), (std::vector<TranscriptTokenIDRange>{{2, 6}, {30, 32}}));
    EXPECT_FALSE(controller->activateLink("https://example.com"));
}

TEST_F(EditorTranscriptControllerTest, TheCursorSeeksAndThePreviewPlaysWhatWouldGo) {
    const uint64_t rebuilds = model->rebuildGeneration();
    controller->cutWordRange(TranscriptTokenIDRange::words(1, 3));
    // The player takes up the new edit before the user's next action.
    ASSERT_TRUE(loop.runUntil(
        [&] {
            return model->rebuildGeneration() > rebuilds && !model->isReplacingScreenItem() &&
                   !model->pendingSeekGeneration();
        },
        10s));
    const double wordStart = *editTime(8)->editStart; // "Today" after the cut
    controller->placeCursor(8);
    EXPECT_EQ(controller->transcriptCursorWordID().value(), 8);
    ASSERT_TRUE(loop.runUntil([&] { return !model->pendingSeekGeneration(); }, 10s));
    EXPECT_NEAR(model->timelinePlayheadTime().value(), wordStart, 1.0 / 30 + 1e-6);
    EXPECT_EQ(controller->playheadWordID().value(), 8);

    // The preview plays the stretch a cut of "look" would take, then waits at its start.
    controller->updateWordSelection(TranscriptTokenIDRange::words(7, 7));
    controller->previewSelection();
    EXPECT_TRUE(controller->isPreviewingSelection().value());
    ASSERT_TRUE(loop.runUntil([&] { return model->isPlaying().value(); }, 10s));
    ASSERT_TRUE(loop.runUntil([&] { return !controller->isPreviewingSelection().value(); }, 10s));
    EXPECT_FALSE(model->isPlaying().value());
    ASSERT_TRUE(loop.runUntil([&] { return !model->pendingSeekGeneration(); }, 10s));
    const double lookStart = *editTime(14)->editStart;
    EXPECT_LT(model->timelinePlayheadTime().value(), lookStart);
    EXPECT_GT(model->timelinePlayheadTime().value(), *editTime(12)->editEnd - 1.0 / 30);
    // Nothing was cut by previewing.
    EXPECT_EQ(store->project().timeline.deletedGaps.size(), 1u);
}

TEST_F(EditorTranscriptControllerTest, CleanupSuggestionsFollowTheEditAndCanBeTakenOrDismissed) {
    const auto kinds = [&] {
        std::vector<std::pair<TranscriptCleanupSuggestion::Kind, TranscriptTokenIDRange>> list;
        for (const auto& s : controller->cleanupSuggestions().value()) {
            list.emplace_back(s.kind, *s.wordRange);
        }
        return list;
    };
    using Kind = TranscriptCleanupSuggestion::Kind;
    EXPECT_EQ(kinds(), (std::vector<std::pair<Kind, TranscriptTokenIDRange>>{
                           {Kind::filler, {12, 12}},
                           {Kind::longPause, {17, 17}},
                           {Kind::repeatedPhrase, {20, 20}},
                           {Kind::filler, {26, 28}}}));
    const auto suggestions = controller->cleanupSuggestions().value();
    ASSERT_TRUE(controller->applyCleanupSuggestion(suggestions[0].id));
    EXPECT_EQ(markers(), (std::vector<TranscriptTokenIDRange>{{12, 12}}));
    controller->dismissCleanupSuggestion(suggestions[1].id);
    EXPECT_EQ(kinds(), (std::vector<std::pair<Kind, TranscriptTokenIDRange>>{
                           {Kind::repeatedPhrase, {20, 20}}, {Kind::filler, {26, 28}}}));
    // Cutting the second "the" by hand takes its suggestion away too.
    controller->cutWordRange(TranscriptTokenIDRange::words(10, 10));
    EXPECT_EQ(kinds(),
              (std::vector<std::pair<Kind, TranscriptTokenIDRange>>{{Kind::filler, {26, 28}}}));
    EXPECT_FALSE(controller->applyCleanupSuggestion(suggestions[0].id));
}

TEST_F(EditorTranscriptControllerTest, TranscribesWithItsStagesOrSaysWhatIsMissing) {
    testing::TemporaryDirectory data;
    ::setenv("XDG_DATA_HOME", data.path().c_str(), 1); // no model is installed there
    const auto fresh =
        testing::writeSpokenTake(data / "take", testing::passageWords("Hello world again"), false);
    open(fresh.take.screenURL);
    EXPECT_FALSE(controller->hasTranscript().value());
    controller->startTranscription();
    EXPECT_EQ(controller->errorText().value(), EditorTranscriptController::kModelsRequiredText);
    EXPECT_EQ(controller->statusText().value(), EditorTranscriptController::kModelsRequiredReason);
    EXPECT_EQ(controller->missingModels().value(),
              (std::vector<std::string>{"speech", "alignment", "language"}));

    EditorTranscriptProcessingOptions named{.speechModel =
                                                TranscriptModelSource{testModel("parakeet-split")},
                                            .alignmentBundle = testModel("ctc-char")};
    QwenTranscriptParagraphSuggesterConfiguration qwen;
    qwen.model = data / "absent.gguf";
    named.paragraphSuggester = std::make_shared<QwenTranscriptParagraphSuggester>(qwen);
    open(fresh.take.screenURL, named);
    std::vector<std::string> seen;
    const auto watch = controller->statusText().observe([&](const std::string& text) {
        if (!text.empty() && (seen.empty() || seen.back() != text)) {
            seen.push_back(text);
        }
    });
    bool sawTranscribing = false;
    const auto busy = controller->isTranscribing().observe(
        [&](const bool& value) { sawTranscribing = sawTranscribing || value; });
    controller->startTranscription();
    EXPECT_TRUE(controller->processing().value().has_value());
    ASSERT_TRUE(loop.runUntil([&] { return controller->hasTranscript().value(); }, 120s));
    ::unsetenv("XDG_DATA_HOME");
    EXPECT_TRUE(sawTranscribing);
    EXPECT_EQ(seen,
              (std::vector<std::string>{
                  "Preparing microphone audio", "Transcribing audio", "Preparing alignment audio",
                  "Aligning word timing", "Formatting transcript",
                  std::string(EditorTranscriptProcessingPipeline::kParagraphsFailedMessage)}));
    EXPECT_FALSE(controller->processing().value());
    EXPECT_FALSE(controller->isFormattingParagraphs().value());
    EXPECT_TRUE(controller->alignmentReport().value());
    EXPECT_EQ(controller->nonfatalErrorText().value(),
              EditorTranscriptProcessingPipeline::kParagraphsFailedMessage);
    EXPECT_FALSE(controller->wordParagraphs().value().empty());
}

} // namespace
} // namespace orvelle
