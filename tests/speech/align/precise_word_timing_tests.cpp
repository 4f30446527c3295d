#include "alignment_test_support.h"
#include "speech/align/alignment_error.h"
#include "speech/align/precise_word_timing_alignment_service.h"
#include "speech/transcript/orvelle_model_storage.h"
#include "support/scoped_environment.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace orvelle {
namespace {

using testing::Burst;
using testing::ctcBundle;
using testing::TemporaryDirectory;
using testing::writeBursts;

EditorTranscript roughTranscript(const std::vector<std::pair<double, double>>& times) {
    TranscriptAnalysis analysis;
    const std::vector<std::string> texts{"Hi", "there,", "friends", "again"};
    for (size_t i = 0; i < times.size(); ++i) {
        analysis.words.push_back(TranscriptWord{texts[i % texts.size()], times[i].first,
                                                times[i].second, 1.0, std::nullopt, std::nullopt});
        analysis.text += (i ? " " : "") + texts[i % texts.size()];
    }
    analysis.source.analyzer = "ParakeetTDT";
    analysis.source.modelDescription = "/models/parakeet";
    return EditorTranscript(analysis);
}

class PreciseWordTimingTest : public ::testing::Test {
protected:
    void SetUp() override { writeBursts(audio_, 3.0, bursts_); }

    TemporaryDirectory folder_;
    std::filesystem::path audio_ = folder_ / "take.wav";
    std::vector<Burst> bursts_{{0.4, 0.7}, {1.2, 1.5}, {2.0, 2.5}};
    PreciseWordTimingAlignmentService service_{ctcBundle("ctc-char")};
};

TEST_F(PreciseWordTimingTest, CorrectsTheWordsAndKeepsTheFirstBaseline) {
    const EditorTranscript rough = roughTranscript({{0.2, 0.5}, {1.0, 1.3}, {2.2, 2.9}});
    const auto first = service_.alignTranscript(rough, audio_, 3.0);
    const auto& words = first.transcript.analysis.words;
    ASSERT_EQ(words.size(), 3u);
    for (size_t i = 0; i < words.size(); ++i) {
        EXPECT_NEAR(*words[i].startTime, bursts_[i].start, 0.045);
        EXPECT_NEAR(*words[i].endTime, bursts_[i].end, 0.045);
        // The test model tells loud from quiet, not one letter from another.
        EXPECT_LT(*words[i].confidence, 0.12);
    }
    EXPECT_EQ(first.transcript.analysis.source.modelDescription,
              "/models/parakeet + native precise word timing");
    ASSERT_TRUE(first.transcript.alignmentBaselineWords);
    const auto& baseline = *first.transcript.alignmentBaselineWords;
    EXPECT_EQ(baseline[1].text, "there,");
    EXPECT_EQ(baseline[1].startTime, 1.0);
    EXPECT_EQ(baseline[1].endTime, 1.3);
    ASSERT_EQ(first.report.baselineChanges.size(), 3u);
    EXPECT_EQ(first.report.baselineChanges[0].oldStart, 0.2);
    EXPECT_EQ(first.report.baselineChanges[0].newStart, *words[0].startTime);

    // Aligning again compares with the first rough times, and marks the model once.
    const auto second = service_.alignTranscript(first.transcript, audio_, 3.0);
    EXPECT_EQ(second.transcript.alignmentBaselineWords, first.transcript.alignmentBaselineWords);
    EXPECT_EQ(second.transcript.analysis.source.modelDescription,
              "/models/parakeet + native precise word timing");
    EXPECT_EQ(second.report.baselineChanges, first.report.baselineChanges);
    EXPECT_NE(second.report.id, first.report.id);
    EXPECT_EQ(second.transcript.analysis.tokens, rough.analysis.tokens);
}

TEST_F(PreciseWordTimingTest, SourceDurationCoversTheLastWord) {
    // The caller knows of 2 s only; the last rough word ends at 2.9 s, so words may go there.
    const auto result = service_.alignTranscript(
        roughTranscript({{0.2, 0.5}, {1.0, 1.3}, {2.2, 2.9}}), audio_, 2.0);
    EXPECT_NEAR(*result.transcript.analysis.words[2].endTime, 2.5, 0.045);
}

TEST_F(PreciseWordTimingTest, RefusesMissingAudioAndEmptyTranscripts) {
    if (const auto error = testing::thrown<PreciseWordTimingAlignmentError>([&] {
            service_.alignTranscript(roughTranscript({{0, 1}}), folder_ / "gone.wav", 3.0);
        })) {
        EXPECT_EQ(error->code(), PreciseWordTimingAlignmentErrorCode::audioMissing);
        EXPECT_NE(std::string(error->what()).find((folder_ / "gone.wav").string()),
                  std::string::npos);
    }
    if (const auto error = testing::thrown<PreciseWordTimingAlignmentError>(
            [&] { service_.alignTranscript(roughTranscript({}), audio_, 3.0); })) {
        EXPECT_EQ(error->code(), PreciseWordTimingAlignmentErrorCode::noWords);
    }
}

TEST(PreciseWordTimingAlignmentService, BundleFromTheEnvironmentWhenItExists) {
    TemporaryDirectory folder;
    const auto bundleWith = [&](std::optional<std::string> variable) {
        const testing::ScopedEnvironment environment(
            {{"XDG_DATA_HOME", folder.path().string()},
             {"ORVELLE_PRECISE_WORD_TIMING_MODEL_BUNDLE", std::move(variable)}});
        return PreciseWordTimingAlignmentService().bundleURL();
    };
    EXPECT_EQ(bundleWith(ctcBundle("ctc-char").string()), ctcBundle("ctc-char"));
    EXPECT_EQ(bundleWith((folder / "nowhere").string()),
              folder / "Orvelle" / "Models" / "precise-word-timing-wav2vec2-base-960h");
    EXPECT_EQ(bundleWith(std::nullopt),
              folder / "Orvelle" / "Models" / "precise-word-timing-wav2vec2-base-960h");
    EXPECT_EQ(PreciseWordTimingAlignmentService(folder / "given").bundleURL(), folder / "given");

    // Without a bundle installed the service says so.
    TemporaryDirectory take;
    writeBursts(take / "a.wav", 1.0, {{0.2, 0.5}});
    if (const auto error = testing::thrown<AlignmentError>([&] {
            PreciseWordTimingAlignmentService(folder / "not installed")
                .alignTranscript(roughTranscript({{0.1, 0.4}}), take / "a.wav", 1.0);
        })) {
        EXPECT_EQ(error->code(), AlignmentErrorCode::modelBundleMissing);
    }
}

TEST(PreciseWordTimingReport, SummaryText) {
    PreciseWordTimingReport report;
    report.alignmentReport.totalWords = 12;
    report.alignmentReport.changedWords = 7;
    report.alignmentReport.averageBoundaryShift = 0.0426;
    report.alignmentReport.largestBoundaryShift = 0.2504;
    report.alignmentReport.largestShiftWord = "again";
    report.alignmentReport.failedSpans = {{"1", "2", 0, 1, 2, "fallback"},
                                          {"5", "5", 2, 3, 1, "low_confidence"}};
    report.warnings = {{"a", {}}, {"b", {}}, {"c", {}}};
    // Of the 12 words, 3 kept fallback timing: the two counts add up.
    EXPECT_EQ(report.summaryText(), "9 words aligned.\n"
                                    "7 words changed by at least 5 ms.\n"
                                    "Average boundary shift: 43 ms.\n"
                                    "Largest boundary shift: 250 ms.\n"
                                    "Largest shift word: \"again\".\n"
                                    "3 words used fallback or low-confidence timing.\n"
                                    "3 nonfatal alignment warnings.");
    report.alignmentReport.failedSpans.clear();
    report.alignmentReport.largestShiftWord.reset();
    report.warnings.clear();
    EXPECT_EQ(report.summaryText(), "12 words aligned.\n"
                                    "7 words changed by at least 5 ms.\n"
                                    "Average boundary shift: 43 ms.\n"
                                    "Largest boundary shift: 250 ms.");
}

} // namespace
} // namespace orvelle
