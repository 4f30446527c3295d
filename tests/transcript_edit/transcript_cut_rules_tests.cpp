// Cutting by words without media: where a cut of words begins and ends (the splice rules
// with and without a loudness profile), the tokens the text shows, and the markers a
// timeline's omissions give.

#include "transcript_edit/transcript_text_editing.h"

#include <gtest/gtest.h>

#include <cmath>

namespace orvelle {
namespace {

constexpr double kMinimumCut = 0.08;

TranscriptWord word(const std::string& text, double start, double end) {
    return {text, start, end, 0.9, std::nullopt, std::nullopt};
}

EditorTranscript transcriptOf(std::vector<TranscriptWord> words, std::vector<int> breaks = {}) {
    TranscriptAnalysis analysis;
    analysis.words = std::move(words);
    return EditorTranscript(std::move(analysis), std::move(breaks), true);
}

TimelineState timelineOf(double duration, std::vector<std::pair<double, double>> clips) {
    TimelineState state;
    state.sourceDuration = SourceTime(duration);
    for (const auto& [start, end] : clips) {
        TimelineClip clip{.id = Uuid::random(), .start = SourceTime(start), .end = SourceTime(end)};
        state.clips.push_back(clip);
    }
    return state;
}

// A profile of 5 ms buckets: loud (0.2) where a word is said, room tone (0.001) elsewhere.
TranscriptSpliceEnergyProfile profileOf(double duration,
                                        std::vector<std::pair<double, double>> loud) {
    TranscriptSpliceEnergyProfile profile;
    profile.bucketDuration = 0.005;
    const auto count = static_cast<size_t>(std::ceil(duration / profile.bucketDuration));
    for (size_t i = 0; i < count; ++i) {
        const double t = (static_cast<double>(i) + 0.5) * profile.bucketDuration;
        bool isLoud = false;
        for (const auto& [from, to] : loud) {
            isLoud = isLoud || (t >= from && t < to);
        }
        profile.rms.push_back(isLoud ? 0.2f : 0.001f);
    }
    return profile;
}

TEST(TranscriptSplicePunctuationTest, LooksAfterTheLastLetterOrDigit) {
    using P = TranscriptSplicePunctuation;
    const std::vector<std::pair<std::string, P>> cases = {
        {"word.", P::sentence},
        {"really?!", P::sentence},
        {"so\u2026", P::sentence},
        {"well,", P::clause},
        {"this:", P::clause},
        {"then\u2014", P::clause},
        {"U.S", P::none},
        {"caf\u00e9", P::none},
        {"42", P::none},
        {"\u201cyes.\u201d", P::sentence},
        {"", P::none},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(TranscriptSplicePunctuationRules::from(text), expected) << text;
    }
}

// The splice rules on a line of words, each case a selection and where its cut must fall.
TEST(TranscriptDeletionRangeTest, KeepsABudgetOfSilenceByPunctuationAndHalvesShortGaps) {
    // "Hello world. Next one, then 3.0s pause, last" with gaps of various sizes.
    const EditorTranscript transcript = transcriptOf({
        word("Hello", 0.20, 0.60),  // 0
        word("world.", 0.70, 1.10), // 1: a sentence ends
        word("Next", 2.10, 2.40),   // 2: 1 s after "world."
        word("one,", 2.50, 2.80),   // 3: a clause ends
        word("then", 3.30, 3.60),   // 4: 0.5 s after "one,"
        word("tiny", 3.62, 3.64),   // 5: 20 ms long, 20 ms from its neighbours
        word("gap", 3.66, 3.90),    // 6
        word("last", 6.90, 7.30),   // 7: after a 3 s pause
    });
    const TranscriptTimelineEditing editing(transcript);
    const TimelineState timeline = timelineOf(8.0, {{0, 8}});
    struct Case {
        const char* what;
        TranscriptTokenIDRange range;
        std::optional<TranscriptSourceRange> expected;
    };
    const std::vector<Case> cases = {
        {"the first word starts the cut at 0", TranscriptTokenIDRange::words(0, 0),
         TranscriptSourceRange{0.0, 0.65}},
        {"after a sentence at most 0.25 s stays, not the 0.5 s half-gap",
         TranscriptTokenIDRange::words(2, 2), TranscriptSourceRange{1.35, 2.45}},
        {"after a clause 0.16 s, before the next word the half-gap",
         TranscriptTokenIDRange::words(4, 4), TranscriptSourceRange{2.96, 3.61}},
        {"a pause alone loses all but a budget at each end", TranscriptTokenIDRange{13, 13},
         TranscriptSourceRange{4.01, 6.79}},
        {"a word before a pause reaches 0.12 s into it", TranscriptTokenIDRange::words(6, 6),
         TranscriptSourceRange{3.65, 4.02}},
        {"a word after a pause reaches 0.12 s back into it", TranscriptTokenIDRange::words(7, 7),
         TranscriptSourceRange{6.78, 8.0}},
        {"a very short word widens to the shortest cut", TranscriptTokenIDRange::words(5, 5),
         std::nullopt},
    };
    for (const auto& c : cases) {
        const auto range = editing.deletionRange(c.range, timeline);
        ASSERT_EQ(range.has_value(), c.expected.has_value()) << c.what;
        if (range) {
            EXPECT_NEAR(range->start, c.expected->start, 1e-9) << c.what;
            EXPECT_NEAR(range->end, c.expected->end, 1e-9) << c.what;
        }
    }
}

TEST(TranscriptDeletionRangeTest, WidensAShortCutAroundItsMiddleWhereThereIsRoom) {
    // 30 ms either side of a 20 ms word: the half-gaps give 50 ms, the gaps hold 80 ms.
    const TranscriptTimelineEditing editing(
        transcriptOf({word("so", 0.20, 0.97), word("uh", 1.00, 1.02), word("yes", 1.05, 1.50)}));
    const auto range =
        editing.deletionRange(TranscriptTokenIDRange::words(1, 1), timelineOf(2.0, {{0, 2}}));
    ASSERT_TRUE(range);
    EXPECT_NEAR(range->start, 0.97, 1e-9);
    EXPECT_NEAR(range->end, 1.05, 1e-9);
    // A source shorter than the shortest cut has no cut at all.
    const TranscriptTimelineEditing tiny(transcriptOf({word("a", 0.0, 0.05)}));
    EXPECT_FALSE(
        tiny.deletionRange(TranscriptTokenIDRange::words(0, 0), timelineOf(0.05, {{0, 0.05}})));
}

TEST(TranscriptDeletionRangeTest, ALoudnessProfileMovesEachEndToWhereSilenceReallyEnds) {
    // "Next" is stamped at 2.10 but its sound starts at 1.30; "one," is stamped at 2.50 but
    // sounds from 2.43. The defaults would leave both onsets half cut.
    const EditorTranscript transcript = transcriptOf(
        {word("world.", 0.70, 1.10), word("Next", 2.10, 2.40), word("one,", 2.50, 2.80)});
    const auto profile = profileOf(3.0, {{0.70, 1.10}, {1.30, 2.40}, {2.43, 2.80}});
    const TimelineState timeline = timelineOf(3.0, {{0, 3}});
    const auto plain = TranscriptTimelineEditing(transcript)
                           .deletionRange(TranscriptTokenIDRange::words(1, 1), timeline);
    ASSERT_TRUE(plain);
    EXPECT_NEAR(plain->start, 1.35, 1e-9);
    EXPECT_NEAR(plain->end, 2.45, 1e-9);
    const auto snapped = TranscriptTimelineEditing(transcript, profile)
                             .deletionRange(TranscriptTokenIDRange::words(1, 1), timeline);
    ASSERT_TRUE(snapped);
    EXPECT_NEAR(snapped->start, 1.30, 1e-9);
    EXPECT_NEAR(snapped->end, 2.40, 1e-9);
}

TEST(TranscriptSpliceEnergyProfileTest, FindsSilenceRunsOrFallsBackToTheQuietestBucket) {
    TranscriptSpliceEnergyProfile profile;
    profile.bucketDuration = 0.005;
    // Room tone, speech, a dip of two buckets (too short to be silence), speech, room tone.
    profile.rms = {0.001f, 0.001f, 0.001f, 0.001f, 0.3f,   0.3f,   0.25f,  0.3f,  0.001f,
                   0.001f, 0.3f,   0.3f,   0.3f,   0.001f, 0.001f, 0.001f, 0.001f};
    // All silent: the lowest threshold, one run, the cut begins at the window's end.
    EXPECT_FLOAT_EQ(*profile.silenceThreshold(0.0, 0.02), 0.0022f);
    EXPECT_NEAR(*profile.deletionStart(0.0, 0.02), 0.02, 1e-12);
    EXPECT_NEAR(*profile.deletionEnd(0.0, 0.02), 0.0, 1e-12);
    // Silence before and after speech: begin where the first silence ends, end where the
    // last one starts.
    EXPECT_NEAR(*profile.deletionStart(0.0, 0.085), 0.02, 1e-12);
    EXPECT_NEAR(*profile.deletionEnd(0.0, 0.085), 0.065, 1e-12);
    // Only speech and the short dip: the middle of the first quietest bucket.
    EXPECT_NEAR(*profile.deletionStart(0.02, 0.065), 0.0425, 1e-12);
    EXPECT_NEAR(*profile.deletionEnd(0.02, 0.065), 0.0425, 1e-12);
    // No bucket in the window, or no buckets at all.
    EXPECT_FALSE(profile.deletionStart(1.0, 2.0));
    profile.bucketDuration = 0;
    EXPECT_FALSE(profile.deletionEnd(0.0, 0.02));
}

TEST(TranscriptWordTokensTest, WordsPausesAndParagraphsInReadingOrder) {
    // A 2.5 s pause after word 1, where a paragraph also ends; 1.99 s after word 2 is no pause.
    const auto paragraphs = makeWordParagraphs(transcriptOf(
        {word(" One ", 0.0, 0.5),
         word("two.", 0.6, 1.0),
         word("three", 3.5, 4.0),
         word("four", 5.99, 6.3),
         {"five", std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt}},
        {1, 7, -3}));
    ASSERT_EQ(paragraphs.size(), 2u);
    ASSERT_EQ(paragraphs[0].size(), 3u);
    EXPECT_EQ(paragraphs[0][0].text, "One");
    EXPECT_EQ(paragraphs[0][1].id, 2);
    const auto& pause = paragraphs[0][2];
    EXPECT_TRUE(pause.isPause());
    EXPECT_EQ(pause.id, 3);
    EXPECT_EQ(pause.text, "2.5s");
    EXPECT_EQ(pause.kind.index, 1);
    EXPECT_DOUBLE_EQ(*pause.startTime, 1.0);
    EXPECT_DOUBLE_EQ(*pause.endTime, 3.5);
    std::vector<int> ids;
    for (const auto& token : paragraphs[1]) {
        ids.push_back(token.id);
    }
    EXPECT_EQ(ids, (std::vector<int>{4, 6, 8}));
    EXPECT_FALSE(paragraphs[1][2].hasTimes());
}

TEST(TranscriptCollapsedRangeTest, MarkersComeFromTheTimelinesOmissions) {
    const TranscriptWordParagraphs paragraphs = makeWordParagraphs(
        transcriptOf({word("a", 0.0, 0.4), word("b", 0.5, 0.9), word("c", 1.0, 1.4),
                      word("d", 1.5, 1.9), word("e", 2.0, 2.4), word("f", 2.5, 2.9)}));
    struct Case {
        const char* what;
        std::vector<std::pair<double, double>> clips;
        std::vector<TranscriptTokenIDRange> markers;
    };
    const std::vector<Case> cases = {
        {"nothing cut", {{0, 3}}, {}},
        {"a cut of 0.05 s is no omission", {{0, 0.95}, {1.0, 3}}, {}},
        {"an omission over part of a word but not its middle hides nothing",
         {{0, 1.25}, {1.35, 3}},
         {}},
        {"the words whose middles lie inside", {{0, 0.95}, {1.95, 3}}, {{4, 6}}},
        {"touching cuts make one marker", {{0, 0.45}, {1.45, 3}}, {{2, 4}}},
        {"a sliver kept between cuts makes two",
         {{0, 0.45}, {0.95, 0.97}, {1.45, 3}},
         {{2, 2}, {4, 4}}},
        {"the source's end after the last clip", {{0, 2.45}}, {{10, 10}}},
        {"the source's start before the first clip", {{0.45, 3}}, {{0, 0}}},
    };
    for (const auto& c : cases) {
        const auto ranges = collapsedRanges(paragraphs, timelineOf(3.0, c.clips), {});
        std::vector<TranscriptTokenIDRange> got;
        for (const auto& range : ranges) {
            got.push_back(range.wordRange);
        }
        EXPECT_EQ(got, c.markers) << c.what;
    }
    // A marker whose omission is unchanged keeps its id; one that moved gets a new one.
    const TimelineState cut = timelineOf(3.0, {{0, 0.95}, {1.95, 3}});
    const auto first = collapsedRanges(paragraphs, cut, {});
    ASSERT_EQ(first.size(), 1u);
    EXPECT_EQ(collapsedRanges(paragraphs, cut, first)[0].id, first[0].id);
    EXPECT_NE(collapsedRanges(paragraphs, timelineOf(3.0, {{0, 0.96}, {1.95, 3}}), first)[0].id,
              first[0].id);
}

TEST(TranscriptCollapsedRangeTest, MergingJoinsNeighboursAndKeepsTheFirstID) {
    const Uuid first = Uuid::random();
    const auto merged = mergedCollapsedRanges({{Uuid::random(), {6, 8}, 3.0, 4.0},
                                               {first, {2, 5}, 1.0, 2.5},
                                               {Uuid::random(), {12, 12}, 6.0, 6.5}});
    ASSERT_EQ(merged.size(), 2u);
    EXPECT_EQ(merged[0].id, first);
    EXPECT_EQ(merged[0].wordRange, (TranscriptTokenIDRange{2, 8}));
    EXPECT_DOUBLE_EQ(merged[0].sourceStart, 1.0);
    EXPECT_DOUBLE_EQ(merged[0].sourceEnd, 4.0);
    EXPECT_EQ(merged[1].wordRange, (TranscriptTokenIDRange{12, 12}));
}

TEST(TranscriptTextLayoutTest, RangesCountUTF16UnitsAndSelectionsMapToTokenIDs) {
    const auto paragraphs = makeWordParagraphs(transcriptOf(
        {word("Caf\u00e9", 0.0, 0.4), word("\U0001F600", 0.5, 0.9), word("cut", 1.0, 1.4),
         word("words", 1.5, 1.9), word("end.", 2.0, 2.4), word("Next", 4.6, 5.0)},
        {4}));
    const Uuid marker = Uuid::random();
    const auto layout = layoutTranscriptText(paragraphs, {{marker, {4, 6}, 0.95, 1.95}});
    EXPECT_EQ(layout.text, "Caf\u00e9 \U0001F600 [2 words cut] end. [2.2s]\n\nNext");
    ASSERT_EQ(layout.wordRanges.size(), 5u);
    EXPECT_EQ(layout.wordRanges[1].range, (TranscriptCharacterRange{5, 2})); // a surrogate pair
    ASSERT_EQ(layout.markerRanges.size(), 1u);
    EXPECT_EQ(layout.markerRanges[0].markerID, marker);
    EXPECT_EQ(layout.markerRanges[0].range, (TranscriptCharacterRange{8, 13}));
    EXPECT_EQ(layout.wordRanges[2].range, (TranscriptCharacterRange{22, 4}));
    EXPECT_EQ(layout.wordRanges[3].wordID, 9); // the pause after "end."
    EXPECT_EQ(layout.wordRanges[4].range.location, 35);
    // From inside "Café" to inside "end.": every id between, the cut ones too.
    EXPECT_EQ(layout.tokenIDs(2, 24), (TranscriptTokenIDRange{0, 8}));
    EXPECT_EQ(layout.tokenIDs(36, 36), (TranscriptTokenIDRange{10, 10})); // a caret in "Next"
    EXPECT_FALSE(layout.tokenIDs(10, 12));                                // only the marker
}

TEST(TranscriptActionLinkTest, CutAndRestoreLinksRoundTrip) {
    const Uuid id = Uuid::random();
    EXPECT_EQ(parseTranscriptActionLink(transcriptCollapseLink(id))->restore, id);
    EXPECT_EQ(parseTranscriptActionLink(transcriptCutLink({4, 9}))->cut,
              (TranscriptTokenIDRange{4, 9}));
    for (const char* bad : {"orvelle-transcript-cut:9:4", "orvelle-transcript-cut:1:2x",
                            "orvelle-transcript-collapse:nope", "https://example.com"}) {
        EXPECT_FALSE(parseTranscriptActionLink(bad)) << bad;
    }
}

} // namespace
} // namespace orvelle
