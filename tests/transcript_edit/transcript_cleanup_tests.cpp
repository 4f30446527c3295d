// Cleanup suggestions from words and times alone: long pauses, fillers and repeats, their
// texts and ids, and how they give way to each other.

#include "transcript_edit/transcript_cleanup.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

using Kind = TranscriptCleanupSuggestion::Kind;

// Words a third of a second long with `gap` between them, from a text split at blanks.
TranscriptAnalysis spoken(const std::string& text, double gap = 0.1) {
    TranscriptAnalysis analysis;
    double t = 0.5;
    size_t start = 0;
    while (start < text.size()) {
        const size_t end = std::min(text.find(' ', start), text.size());
        analysis.words.push_back({text.substr(start, end - start), t, t + 0.3, std::nullopt,
                                  std::nullopt, std::nullopt});
        t += 0.3 + gap;
        start = end + 1;
    }
    return analysis;
}

struct Found {
    Kind kind;
    std::string title;
    std::optional<TranscriptTokenIDRange> wordRange;
    friend bool operator==(const Found&, const Found&) = default;
};

std::vector<Found> found(const TranscriptAnalysis& analysis) {
    std::vector<Found> result;
    for (const auto& s : TranscriptCleanupSuggester::suggestions(analysis, 100, std::nullopt)) {
        result.push_back({s.kind, s.title, s.wordRange});
    }
    return result;
}

TEST(TranscriptCleanupTest, FindsFillersAndRepeatsAndLetsTheEarlierKindWinAnOverlap) {
    struct Case {
        std::string text;
        std::vector<Found> expected;
    };
    const std::vector<Case> cases = {
        {"so um we start", {{Kind::filler, "Remove filler word", TranscriptTokenIDRange{2, 2}}}},
        {"Uh, fine", {{Kind::filler, "Remove filler word", TranscriptTokenIDRange{0, 0}}}},
        // The longest phrase wins over the short one inside it.
        {"do you know what I mean right",
         {{Kind::filler, "Remove filler phrase", TranscriptTokenIDRange{0, 10}}}},
        // Two fillers; the repeat of the second is the same range and gives way.
        {"you know you know",
         {{Kind::filler, "Remove filler phrase", TranscriptTokenIDRange{0, 2}},
          {Kind::filler, "Remove filler phrase", TranscriptTokenIDRange{4, 6}}}},
        {"the the cat",
         {{Kind::repeatedPhrase, "Remove repeated word", TranscriptTokenIDRange{2, 2}}}},
        // The longer repeat first, and its words are not used again.
        {"I think I think I think",
         {{Kind::repeatedPhrase, "Remove repeated phrase", TranscriptTokenIDRange{4, 6}}}},
        {"We. we said",
         {{Kind::repeatedPhrase, "Remove repeated word", TranscriptTokenIDRange{2, 2}}}},
        {"nothing to see here", {}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(found(spoken(c.text)), c.expected) << c.text;
    }
}

TEST(TranscriptCleanupTest, LongPausesKeepSilenceAtEachEndUnlessTheSystemSoundIsBusy) {
    TranscriptAnalysis analysis;
    analysis.words = {{"one", 0.0, 1.0, 0.7, std::nullopt, std::nullopt},
                      {"two", 2.99, 3.5, std::nullopt, std::nullopt, std::nullopt},  // 1.99 s
                      {"three", 5.5, 6.0, std::nullopt, std::nullopt, std::nullopt}, // 2.0 s
                      {"four", 10.0, 10.5, std::nullopt, std::nullopt, std::nullopt}};
    const auto suggestions = TranscriptCleanupSuggester::suggestions(analysis, 11, std::nullopt);
    ASSERT_EQ(suggestions.size(), 2u);
    const auto& pause = suggestions[0];
    EXPECT_EQ(pause.kind, Kind::longPause);
    EXPECT_EQ(pause.title, "Shorten 2.0s pause");
    EXPECT_EQ(pause.snippet, "two [2.0s pause] three");
    EXPECT_EQ(pause.wordRange, (TranscriptTokenIDRange{3, 3}));
    EXPECT_NEAR(pause.sourceStart, 3.725, 1e-9);
    EXPECT_NEAR(pause.sourceEnd, 5.275, 1e-9);
    EXPECT_NEAR(pause.estimatedRemovedDuration, 1.55, 1e-9);
    EXPECT_EQ(pause.removedText, "silence");
    EXPECT_DOUBLE_EQ(pause.confidence, 0.96);
    EXPECT_EQ(pause.id, "longPause:1:2:3725:5275");
    EXPECT_EQ(suggestions[1].title, "Shorten 4.0s pause");

    // A sound through the second pause keeps it; quiet noise under the first does not.
    std::vector<float> peaks(110, 0.005f); // 0.1 s buckets over 11 s
    for (size_t i = 65; i < 95; ++i) {
        peaks[i] = 0.4f;
    }
    const auto activity = TranscriptCleanupAudioActivity::fromWaveform(peaks, 11);
    EXPECT_TRUE(activity.hasMeaningfulActivity(6.0, 10.0));
    EXPECT_FALSE(activity.hasMeaningfulActivity(3.5, 5.5));
    const auto busy = TranscriptCleanupSuggester::suggestions(analysis, 11, activity);
    ASSERT_EQ(busy.size(), 1u);
    EXPECT_EQ(busy[0].title, "Shorten 2.0s pause");
}

TEST(TranscriptCleanupTest, WordRemovalTextsContextAndConfidence) {
    TranscriptAnalysis analysis = spoken("one two three four five um six seven eight nine");
    analysis.words[5].confidence = 0.5;
    analysis.words[2].startTime.reset(); // a word without times takes no part
    const auto suggestions = TranscriptCleanupSuggester::suggestions(analysis, 100, std::nullopt);
    ASSERT_EQ(suggestions.size(), 1u);
    const auto& s = suggestions[0];
    EXPECT_EQ(s.leadingContext, "one two four five");
    EXPECT_EQ(s.trailingContext, "six seven eight nine");
    EXPECT_EQ(s.snippet, "one two four five um six seven eight nine");
    EXPECT_EQ(s.targetText, "um");
    EXPECT_DOUBLE_EQ(s.confidence, 0.5);
    EXPECT_DOUBLE_EQ(s.sourceStart, *analysis.words[5].startTime);
    EXPECT_EQ(s.id, "filler:5:5:2500:2800");
    const auto unsure = TranscriptCleanupSuggester::suggestions(spoken("hm"), 10, std::nullopt);
    ASSERT_EQ(unsure.size(), 1u);
    EXPECT_DOUBLE_EQ(unsure[0].confidence, 0.82); // no word said how sure it was
    EXPECT_TRUE(TranscriptCleanupSuggester::suggestions({}, 10, std::nullopt).empty());
}

} // namespace
} // namespace orvelle
