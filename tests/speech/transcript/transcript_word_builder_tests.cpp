#include "speech/transcript/transcript_word_builder.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

TranscriptToken token(std::string text, double start, double end, double confidence = 1.0) {
    return TranscriptToken{std::move(text), 0, start, end, confidence};
}

struct WordExpectation {
    std::string text;
    double start;
    double end;
    int firstToken;
    int lastToken;
};

struct WordBuildingCase {
    std::string name;
    std::vector<TranscriptToken> tokens;
    std::vector<WordExpectation> words;
};

TEST(TranscriptWordBuilder, BuildsWordsFromMarkedPieces) {
    const std::vector<WordBuildingCase> table{
        {"marks open words",
         {token("\u2581Hel", 0.0, 0.2), token("lo", 0.2, 0.4), token("\u2581world", 0.5, 0.9)},
         {{"Hello", 0.0, 0.4, 0, 1}, {"world", 0.5, 0.9, 2, 2}}},
        {"a leading blank opens a word like the mark",
         {token(" Hi", 0.0, 0.1), token(" there", 0.2, 0.3)},
         {{"Hi", 0.0, 0.1, 0, 0}, {"there", 0.2, 0.3, 1, 1}}},
        {"padding inside a word is skipped without ending it",
         {token("\u2581Hel", 0.0, 0.2), token("<pad>", 0.2, 0.3), token("lo", 0.3, 0.4),
          token("<blank>", 0.4, 0.5), token("", 0.5, 0.6)},
         {{"Hello", 0.0, 0.4, 0, 2}}},
        {"a first token without a mark begins a word",
         {token("ing", 1.0, 1.1), token("\u2581on", 1.2, 1.3)},
         {{"ing", 1.0, 1.1, 0, 0}, {"on", 1.2, 1.3, 1, 1}}},
        {"punctuation as its own piece joins the word before it",
         {token("\u2581Yes", 0.0, 0.3), token(",", 0.3, 0.35), token("\u2581no", 0.4, 0.6),
          token(".", 0.6, 0.65)},
         {{"Yes,", 0.0, 0.35, 0, 1}, {"no.", 0.4, 0.65, 2, 3}}},
        {"several marks and blanks are all stripped",
         {token("\u2581 \u2581go", 0.0, 0.5)},
         {{"go", 0.0, 0.5, 0, 0}}},
        {"a bare mark starts nothing: the next piece begins the word",
         {token("\u2581", 0.0, 0.1), token("up", 0.1, 0.2)},
         {{"up", 0.1, 0.2, 1, 1}}},
        {"no tokens, no words", {}, {}},
    };
    for (const auto& test : table) {
        SCOPED_TRACE(test.name);
        const auto words = TranscriptWordBuilder::words(test.tokens);
        ASSERT_EQ(words.size(), test.words.size());
        for (size_t i = 0; i < words.size(); ++i) {
            EXPECT_EQ(words[i].text, test.words[i].text);
            EXPECT_EQ(words[i].startTime, test.words[i].start);
            EXPECT_EQ(words[i].endTime, test.words[i].end);
            EXPECT_EQ(words[i].startTokenIndex, test.words[i].firstToken);
            EXPECT_EQ(words[i].endTokenIndex, test.words[i].lastToken);
        }
    }
}

TEST(TranscriptWordBuilder, ConfidenceIsTheMeanOfTheWordsTokens) {
    const auto words =
        TranscriptWordBuilder::words({token("\u2581a", 0, 1, 0.5), token("b", 1, 2, 1.0),
                                      token("c", 2, 3, 0.0), token("\u2581d", 3, 4, 0.25)});
    ASSERT_EQ(words.size(), 2u);
    EXPECT_DOUBLE_EQ(*words[0].confidence, 0.5);
    EXPECT_DOUBLE_EQ(*words[1].confidence, 0.25);
}

TEST(TranscriptWordBuilder, StripsOnlyLeadingMarks) {
    EXPECT_EQ(TranscriptWordBuilder::stripWordPrefix("\u2581\u2581 a\u2581b "), "a\u2581b ");
    EXPECT_EQ(TranscriptWordBuilder::stripWordPrefix("\u2581 "), "");
    EXPECT_EQ(TranscriptWordBuilder::stripWordPrefix("plain"), "plain");
}

TEST(TranscriptWordBuilder, UntimedWordsSplitAtAnyWhitespace) {
    const auto words = TranscriptWordBuilder::untimedWords("  one\ttwo\u00A0three\n\u2003four ");
    ASSERT_EQ(words.size(), 4u);
    EXPECT_EQ(words[0].text, "one");
    EXPECT_EQ(words[2].text, "three");
    EXPECT_EQ(words[3].text, "four");
    EXPECT_FALSE(words[0].startTime);
    EXPECT_FALSE(words[0].startTokenIndex);
}

} // namespace
} // namespace orvelle
