// The edited transcript: words carried through a timeline with cuts and a faster clip, and
// grouped into chunks.

#include "local_ai/export_transcript_context.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

TranscriptWord word(const std::string& text, double start, double end) {
    return {text, start, end, 1.0, std::nullopt, std::nullopt};
}

TEST(ExportTranscriptContextTest, WordsLandWhereTheyAreHeardInTheEditedVideo) {
    // Source 0-10 s at speed 1, 10-14 s deleted, 14-20 s at speed 2.
    const ResolvedEditTimeline timeline(
        {{Uuid::random(), SourceTime(0), SourceTime(10), 1.0, {}, false, 0, 0},
         {Uuid::random(), SourceTime(14), SourceTime(20), 2.0, {}, false, 0, 0}},
        {{Uuid::random(), SourceTime(10), SourceTime(14)}}, SourceTime(20));
    TranscriptAnalysis analysis;
    analysis.words = {
        word("kept", 1.0, 1.5),
        word("straddles", 9.6, 10.2),  // middle 9.9: kept, its end clamped to the cut
        word("deleted", 11.0, 12.0),   // inside the deleted gap
        word("leans-out", 13.5, 14.3), // middle 13.9: in the gap
        word("fast", 16.0, 17.0),      // 2 s into the fast clip: 1 s after the cut
        word("  ", 2.0, 2.5),          // no text
        {"untimed", std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt},
        word("early", 0.2, 0.4), // out of order in the sidecar
    };
    const auto words = editedTranscriptWords(analysis, timeline);
    ASSERT_EQ(words.size(), 4u);
    EXPECT_EQ(words[0].text, "early");
    EXPECT_EQ(words[1].text, "kept");
    EXPECT_DOUBLE_EQ(words[1].start, 1.0);
    EXPECT_EQ(words[2].text, "straddles");
    EXPECT_DOUBLE_EQ(words[2].start, 9.6);
    EXPECT_DOUBLE_EQ(words[2].end, 10.0);
    EXPECT_DOUBLE_EQ(words[2].sourceEnd, 10.2); // the source keeps what was said
    EXPECT_EQ(words[3].text, "fast");
    EXPECT_DOUBLE_EQ(words[3].start, 11.0);
    EXPECT_DOUBLE_EQ(words[3].end, 11.5);
    EXPECT_DOUBLE_EQ(words[3].sourceStart, 16.0);
    EXPECT_DOUBLE_EQ(timeline.duration(), 13.0);
}

TEST(ExportTranscriptContextTest, ChunksEndAtSentencesPausesAndALengthLimit) {
    std::vector<ExportTranscriptWord> words;
    const auto add = [&words](const std::string& text, double start) {
        words.push_back({text, start, start + 0.4, start, start + 0.4});
    };
    // 0-21 s of speech ending a sentence: a chunk (sentence after 20 s).
    for (int i = 0; i < 21; ++i) {
        add(i == 20 ? "done." : "w", i);
    }
    // A sentence end after only 3 s does not close; the pause of 2 s after 9 s does.
    add("a", 22);
    add("short.", 25);
    for (int i = 0; i < 6; ++i) {
        add("w", 26 + i);
    }
    add("x", 34); // after a 2.6 s pause
    // 50 s without a pause or a sentence end: cut at 45 s.
    for (int i = 0; i < 50; ++i) {
        add("v", 35 + i);
    }
    const auto context = ExportTranscriptContextBuilder::make(words, 90);
    ASSERT_EQ(context.chunks.size(), 4u);
    EXPECT_EQ(context.duration, 90);
    EXPECT_EQ(context.chunks[0].words.back().text, "done.");
    EXPECT_EQ(context.chunks[1].start, 22);
    EXPECT_EQ(context.chunks[1].text, "a short. w w w w w w");
    EXPECT_EQ(context.chunks[2].start, 34);
    EXPECT_LE(context.chunks[2].end - context.chunks[2].start, 45.0);
    EXPECT_EQ(context.chunks[3].end, 84.4);
    for (size_t i = 0; i < context.chunks.size(); ++i) {
        EXPECT_EQ(context.chunks[i].id, static_cast<int>(i));
    }
    EXPECT_TRUE(ExportTranscriptContextBuilder::make({}, 12).chunks.empty());
}

} // namespace
} // namespace orvelle
