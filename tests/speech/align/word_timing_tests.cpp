#include "speech/align/alignment_chunk_plan.h"
#include "speech/align/ctc_word_timing.h"

#include <gtest/gtest.h>

#include <cmath>

namespace orvelle {
namespace {

using Quality = AlignmentWordQuality;

CTCAlignedTokenSpan span(const std::string& word, int start, int end, double probability) {
    return CTCAlignedTokenSpan{0, 1, word, start, end, static_cast<float>(std::log(probability))};
}

AlignmentInputWord word(const std::string& id, std::optional<double> roughStart = std::nullopt,
                        std::optional<double> roughEnd = std::nullopt) {
    return {id, "word" + id, roughStart, roughEnd};
}

TEST(CTCWordTimingBuilder, AlignedWordsTakeTheirSpansFrames) {
    const auto result = CTCWordTimingBuilder::buildWordTimings(
        {word("0"), word("1")},
        {span("0", 2, 5, 0.5), span("0", 5, 8, 0.3), span("1", 10, 12, 0.9),
         CTCAlignedTokenSpan{2, 4, std::nullopt, 8, 10, 0}},
        10, 0.02, {});
    ASSERT_EQ(result.words.size(), 2u);
    EXPECT_DOUBLE_EQ(result.words[0].start, 0.04);
    EXPECT_DOUBLE_EQ(result.words[0].end, 0.16);
    EXPECT_NEAR(*result.words[0].confidence, 0.4, 1e-6); // mean, not product
    EXPECT_EQ(result.words[0].quality, Quality::aligned);
    EXPECT_FALSE(result.words[0].usedFallbackTiming);
    EXPECT_DOUBLE_EQ(result.words[1].start, 0.2);
    EXPECT_DOUBLE_EQ(result.words[1].end, 0.24);
    EXPECT_TRUE(result.warnings.empty());
}

TEST(CTCWordTimingBuilder, GradesEachWord) {
    const auto result = CTCWordTimingBuilder::buildWordTimings(
        {word("low"), word("rough", 1.0, 1.5), word("late", 9.5, 12.0), word("none"),
         word("backwards", 3.0, 2.0)},
        {span("low", 0, 10, 0.1)}, 10, 0.02, {});
    ASSERT_EQ(result.words.size(), 5u);
    EXPECT_EQ(result.words[0].quality, Quality::lowConfidence);
    EXPECT_EQ(result.words[1].quality, Quality::fallback);
    EXPECT_DOUBLE_EQ(result.words[1].start, 1.0);
    EXPECT_DOUBLE_EQ(result.words[1].end, 1.5);
    EXPECT_FALSE(result.words[1].confidence);
    EXPECT_TRUE(result.words[1].usedFallbackTiming);
    // Rough times are clamped to the source.
    EXPECT_EQ(result.words[2].quality, Quality::fallback);
    EXPECT_DOUBLE_EQ(result.words[2].end, 10.0);
    // Without usable rough times: a stub at 0, pushed behind the word before it.
    EXPECT_EQ(result.words[3].quality, Quality::skipped);
    EXPECT_DOUBLE_EQ(result.words[3].start, 10.0);
    EXPECT_DOUBLE_EQ(result.words[3].end, 10.0);
    EXPECT_EQ(result.words[4].quality, Quality::skipped);

    std::vector<std::string> messages;
    for (const auto& warning : result.warnings) {
        messages.push_back(warning.message);
    }
    EXPECT_EQ(messages, (std::vector<std::string>{
                            "Low confidence timing for 'wordlow'.",
                            "Preserved rough timing for 'wordrough' because CTC alignment did "
                            "not visit its tokens.",
                            "Preserved rough timing for 'wordlate' because CTC alignment did not "
                            "visit its tokens.",
                            "Preserved rough timing for 'wordnone' because CTC alignment did not "
                            "visit its tokens.",
                            "Preserved rough timing for 'wordbackwards' because CTC alignment "
                            "did not visit its tokens.",
                        }));
    EXPECT_EQ(result.warnings[0].wordIDs, std::vector<std::string>{"low"});
}

TEST(CTCWordTimingBuilder, ASkippedWordIsPushedAlongBehindItsNeighbour) {
    const auto result = CTCWordTimingBuilder::buildWordTimings(
        {word("a"), word("b", 2.0)}, {span("a", 50, 60, 0.9)}, 10, 0.02, {});
    EXPECT_EQ(result.words[1].quality, Quality::skipped);
    EXPECT_DOUBLE_EQ(result.words[1].start, 1.2);
    EXPECT_DOUBLE_EQ(result.words[1].end, 1.22);
}

TEST(MonotonicWordTimingSmoother, KeepsOrderLengthAndBounds) {
    struct Case {
        std::string name;
        std::vector<std::pair<double, double>> input;
        double duration;
        std::vector<std::pair<double, double>> expected;
    };
    const std::vector<Case> table{
        {"two words on the same frames follow each other",
         {{1.0, 1.0}, {1.0, 1.0}},
         10,
         {{1.0, 1.02}, {1.02, 1.04}}},
        {"a reversed word is turned round", {{2.0, 1.0}}, 10, {{1.0, 2.0}}},
        {"an overlap moves the later start",
         {{0.0, 1.0}, {0.5, 2.0}},
         10,
         {{0.0, 1.0}, {1.0, 2.0}}},
        {"times are clamped into the source", {{-1.0, 0.5}, {9.0, 12.0}}, 10, {{0, 0.5}, {9, 10}}},
        {"the least length stops at the end of the source",
         {{9.99, 9.99}, {9.995, 10.0}},
         10,
         {{9.99, 10.0}, {10.0, 10.0}}},
        {"a source of length 0 makes every time 0", {{0.2, 0.4}, {1, 3}}, 0, {{0, 0}, {0, 0}}},
        {"a negative source counts as 0", {{0.2, 0.4}}, -5, {{0, 0}}},
    };
    for (const auto& test : table) {
        SCOPED_TRACE(test.name);
        std::vector<AlignedWordTiming> words;
        for (const auto& [start, end] : test.input) {
            words.push_back(AlignedWordTiming{.start = start, .end = end});
        }
        const auto smoothed = MonotonicWordTimingSmoother::smooth(words, test.duration, 0.02);
        ASSERT_EQ(smoothed.size(), test.expected.size());
        for (size_t i = 0; i < smoothed.size(); ++i) {
            EXPECT_NEAR(smoothed[i].start, test.expected[i].first, 1e-12) << i;
            EXPECT_NEAR(smoothed[i].end, test.expected[i].second, 1e-12) << i;
        }
    }
}

TEST(AlignmentChunkPlan, CutsLongAudioIntoOverlappingChunks) {
    struct Case {
        std::string name;
        double duration;
        double maximum;
        double overlap;
        std::vector<AlignmentChunk> expected;
    };
    const std::vector<Case> table{
        {"300 s in chunks of 120 with 3 s of overlap",
         300,
         120,
         3,
         {{0, 120, 0, 123}, {120, 240, 117, 243}, {240, 300, 237, 300}}},
        {"exactly two chunks", 240, 120, 3, {{0, 120, 0, 123}, {120, 240, 117, 240}}},
        {"audio that fits is one chunk", 100, 120, 3, {{0, 100, 0, 100}}},
        {"audio of the maximum length is one chunk", 120, 120, 3, {{0, 120, 0, 120}}},
        {"the overlap is at most a third of the maximum",
         250,
         120,
         60,
         {{0, 120, 0, 160}, {120, 240, 80, 250}, {240, 250, 200, 250}}},
        {"a negative overlap is none", 150, 120, -2, {{0, 120, 0, 120}, {120, 150, 120, 150}}},
        {"a maximum below 1 s becomes 1 s with a third of overlap",
         2.5,
         0.5,
         3,
         {{0, 1, 0, 1 + 1.0 / 3}, {1, 2, 1 - 1.0 / 3, 2 + 1.0 / 3}, {2, 2.5, 2 - 1.0 / 3, 2.5}}},
        {"empty audio is one empty chunk", 0, 120, 3, {{0, 0, 0, 0}}},
        {"no duration at all gives no chunks", std::nan(""), 120, 3, {}},
    };
    for (const auto& test : table) {
        SCOPED_TRACE(test.name);
        const auto chunks = AlignmentChunkPlan::make(test.duration, test.maximum, test.overlap);
        ASSERT_EQ(chunks.size(), test.expected.size());
        for (size_t i = 0; i < chunks.size(); ++i) {
            EXPECT_NEAR(chunks[i].sourceStart, test.expected[i].sourceStart, 1e-12);
            EXPECT_NEAR(chunks[i].sourceEnd, test.expected[i].sourceEnd, 1e-12);
            EXPECT_NEAR(chunks[i].inferenceStart, test.expected[i].inferenceStart, 1e-12);
            EXPECT_NEAR(chunks[i].inferenceEnd, test.expected[i].inferenceEnd, 1e-12);
        }
    }
}

TEST(AlignmentReport, ComparesWithRoughTimesAndJoinsFailedRuns) {
    const std::vector<AlignmentInputWord> inputs{word("0", 0.0, 0.5), word("1", 0.6, 1.0),
                                                 word("2", 1.0, 1.2), word("3"),
                                                 word("4", 2.0, 2.5)};
    std::vector<AlignedWordTiming> words{
        {"0", "word0", 0.001, 0.5, 0.9, Quality::aligned, false},
        {"1", "word1", 0.7, 1.0, 0.9, Quality::aligned, false},
        {"2", "word2", 1.0, 1.2, std::nullopt, Quality::fallback, true},
        {"3", "word3", 1.2, 1.3, std::nullopt, Quality::skipped, true},
        {"4", "word4", 2.0, 2.3, 0.05, Quality::lowConfidence, false},
    };
    const auto report = AlignmentReport::make(words, inputs, AlignmentOptions{});
    EXPECT_EQ(report.totalWords, 5);
    EXPECT_EQ(report.changedWords, 2); // 0.1 and 0.2; 0.001 is below 5 ms
    EXPECT_NEAR(report.averageBoundaryShift, (0.001 + 0.1 + 0 + 0.2) / 4, 1e-12);
    EXPECT_NEAR(report.largestBoundaryShift, 0.2, 1e-12);
    EXPECT_EQ(report.largestShiftWordID, "4");
    EXPECT_EQ(report.largestShiftWord, "word4");
    ASSERT_EQ(report.failedSpans.size(), 1u);
    EXPECT_EQ(report.failedSpans[0], (AlignmentFailedSpan{"2", "4", 1.0, 2.3, 3, "fallback"}));

    const auto empty = AlignmentReport::make({}, {}, AlignmentOptions{});
    EXPECT_EQ(empty.averageBoundaryShift, 0);
    EXPECT_FALSE(empty.largestShiftWordID);
}

} // namespace
} // namespace orvelle
