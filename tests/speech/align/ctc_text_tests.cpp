#include "speech/align/alignment_error.h"
#include "speech/align/ctc_number_expansion.h"
#include "speech/align/ctc_transcript_normalizer.h"
#include "speech/align/ctc_vocabulary.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <limits>

namespace orvelle {
namespace {

using testing::TemporaryDirectory;
using testing::writeTextFile;

struct TextCase {
    std::string input;
    std::string expected;
};

TEST(CTCNumberExpansion, SpellsOutEveryKindOfNumber) {
    const std::vector<TextCase> table{
        // currency
        {"$3.50", "three dollars and fifty cents"},
        {"$1", "one dollar"},
        {"$1.01", "one dollar and one cent"},
        {"$3.00", "three dollars"},
        {"$3.5", "three point five dollars"},
        {"$2,500", "two thousand five hundred dollars"},
        // years and the year-like
        {"1999", "nineteen ninety nine"},
        {"2005", "two thousand five"},
        {"2000", "two thousand"},
        {"1905", "nineteen oh five"},
        {"1900", "nineteen hundred"},
        {"1100", "eleven hundred"},
        {"2100", "two thousand one hundred"},
        {"1099", "one thousand ninety nine"},
        // digits read one by one
        {"007", "zero zero seven"},
        {"1234567890123", "one two three four five six seven eight nine zero one two three"},
        {"99999999999999999999", "nine nine nine nine nine nine nine nine nine nine nine nine "
                                 "nine nine nine nine nine nine nine nine"},
        // decimals and percent
        {"3.14", "three point one four"},
        {"1.2.3", "one point two point three"},
        {"50%", "fifty percent"},
        {"2.5%", "two point five percent"},
        // ordinals
        {"21st", "twenty first"},
        {"30th", "thirtieth"},
        {"2nd", "second"},
        {"3rd", "third"},
        {"5th", "fifth"},
        {"8th", "eighth"},
        {"9th", "ninth"},
        {"11th", "eleventh"},
        {"12th", "twelfth"},
        {"100th", "one hundredth"},
        {"0th", "zeroth"},
        // times
        {"10:05", "ten oh five"},
        {"10:00", "ten o clock"},
        {"9:45", "nine forty five"},
        // thousands separators and big numbers
        {"1,000", "one thousand"},
        {"1,234,567", "one million two hundred thirty four thousand five hundred sixty seven"},
        {"123456789012", "one hundred twenty three billion four hundred fifty six million seven "
                         "hundred eighty nine thousand twelve"},
        {"1,00", "one,zero zero"},
        // inside words and sentences
        {"mp3", "mp three"},
        {"4k", "four k"},
        {"a12b", "a one two b"},
        {"3:05pm", "three oh five pm"},
        {"room 101, floor 2", "room one hundred one, floor two"},
        {"-5", "-five"},
        {"no digits here", "no digits here"},
        {"", ""},
    };
    for (const auto& test : table) {
        EXPECT_EQ(CTCNumberExpansion::expandNumbers(test.input), test.expected)
            << "for \"" << test.input << "\"";
    }
}

// What the sentence table above does not reach: large, negative and extreme cardinals.
TEST(CTCNumberExpansion, WordTables) {
    using namespace CTCNumberExpansion;
    EXPECT_EQ(cardinalWords(1'000'001), "one million one");
    EXPECT_EQ(cardinalWords(2'000'000'000'000), "two trillion");
    EXPECT_EQ(cardinalWords(-42), "minus forty two");
    EXPECT_EQ(cardinalWords(std::numeric_limits<std::int64_t>::min()).substr(0, 24),
              "minus nine million two h");
    EXPECT_EQ(digitWords("4a2"), "four two");
}

TEST(CTCTranscriptNormalizer, NormalizedTextFoldsToLettersDigitsAndSingleBlanks) {
    const std::vector<TextCase> table{
        {"Café", "cafe"},
        {"R&D", "r and d"},
        {"don't", "dont"},
        {"don\u2019t", "dont"},
        {"\u2018quoted\u2019", "quoted"},
        {"well-known", "wellknown"},
        {"  Hello,   World!  ", "hello world"},
        {"$3.50,", "three dollars and fifty cents"},
        {"\uFF21\uFF22\uFF23\uFF11\uFF12", "abc one two"}, // full width
        {"Stra\u00DFe", "strasse"},
        {"NA\u00CFVE", "naive"},
        {"line\nbreak\ttab", "line break tab"},
        {"!!!", ""},
        {"In 1999, 50% of us", "in nineteen ninety nine fifty percent of us"},
        {std::string("bad\xFF"
                     "byte"),
         "badbyte"},
    };
    for (const auto& test : table) {
        EXPECT_EQ(CTCTranscriptNormalizer::normalizedText(test.input), test.expected)
            << "for \"" << test.input << "\"";
    }
}

AlignmentTokenizerMetadata characterMetadata() {
    AlignmentTokenizerMetadata metadata{.type = "ctc_char",
                                        .vocabularyFile = "vocab.json",
                                        .blankToken = "<pad>",
                                        .unknownToken = "<unk>",
                                        .wordSeparatorToken = "|"};
    return metadata;
}

// The character vocabulary of the common English wav2vec2 CTC models, in the "vocab" shape.
constexpr std::string_view kCharacterVocabulary = R"({"vocab": {"<pad>": 0, "<s>": 1, "</s>": 2,
  "<unk>": 3, "|": 4, "E": 5, "T": 6, "A": 7, "O": 8, "N": 9, "I": 10, "H": 11, "S": 12,
  "R": 13, "D": 14, "L": 15, "U": 16, "M": 17, "W": 18, "C": 19, "F": 20, "G": 21, "Y": 22,
  "P": 23, "B": 24, "V": 25, "K": 26, "'": 27, "X": 28, "J": 29, "Q": 30, "Z": 31}})";

AlignmentTokenizerMetadata bpeMetadata() {
    AlignmentTokenizerMetadata metadata{.type = "bpe",
                                        .vocabularyFile = "tokenizer.json",
                                        .blankToken = "<blk>",
                                        .unknownToken = "<unk>"};
    return metadata;
}

constexpr std::string_view kBPEVocabulary = R"({
  "model": {
    "vocab": {"<blk>": 0, "\u2581": 1, "a": 2, "b": 3, "c": 4, "\u2581a": 5, "ab": 6,
              "\u2581ab": 7, "bc": 8, "<unk>": 9, "aa": 10},
    "merges": ["\u2581 a", ["a", "b"], "\u2581a b", "b c", "a a"]
  },
  "pre_tokenizer": {"type": "Sequence", "pretokenizers": [
    {"type": "WhitespaceSplit"}, {"type": "Metaspace", "replacement": "\u2581"}]}
})";

TEST(CTCVocabulary, ReadsTheFourShapes) {
    AlignmentTokenizerMetadata metadata = characterMetadata();
    metadata.wordSeparatorToken = "b";
    const std::vector<std::string> shapes{
        R"(["<pad>", "a", "b", "<unk>"])",
        R"({"tokens": ["<pad>", "a", "b", "<unk>"]})",
        R"({"vocab": {"<pad>": 0, "a": 1, "b": 2, "<unk>": 3.0}})",
        R"({"model": {"vocab": {"<pad>": 0, "a": 1, "b": 2, "<unk>": 3}}})",
    };
    for (const auto& shape : shapes) {
        SCOPED_TRACE(shape);
        const auto vocabulary = CTCVocabulary::decode(shape, metadata);
        EXPECT_EQ(vocabulary.blankTokenID, 0);
        EXPECT_EQ(vocabulary.tokenID("a"), 1);
        EXPECT_EQ(vocabulary.token(2), "b");
        EXPECT_EQ(vocabulary.unknownTokenID, 3);
        EXPECT_EQ(vocabulary.wordSeparatorTokenID, 2);
        EXPECT_FALSE(vocabulary.usesBPE());
        EXPECT_FALSE(vocabulary.token(4));
    }
}

TEST(CTCVocabulary, LoadFailuresSayWhatIsWrong) {
    const AlignmentTokenizerMetadata metadata = characterMetadata();
    const std::vector<std::pair<std::string, std::string>> table{
        {R"({"something": 1})", "unsupported vocabulary JSON format"},
        // A bare token-to-id object is none of the shapes: it belongs under "vocab".
        {R"({"<pad>": 0, "a": 1})", "unsupported vocabulary JSON format"},
        {R"([1, 2])", "unsupported vocabulary JSON format"},
        {R"({"tokens": "abc"})", "unsupported vocabulary JSON format"},
        {R"({"vocab": {"<pad>": 0, "a": "x"}})",
         "vocabulary token 'a' does not have an integer ID"},
        {R"({"vocab": {"<pad>": 0, "a": 1.5}})",
         "vocabulary token 'a' does not have an integer ID"},
        {R"({"vocab": {"<pad>": 0, "a": 99999999999}})",
         "vocabulary token 'a' does not have an integer ID"},
        {R"({"model": {"vocab": {"<pad>": 0}, "merges": [["a"]]}})",
         "BPE merge at rank 0 is not a token pair"},
        {R"({"model": {"vocab": {"<pad>": 0}, "merges": ["a b", 5]}})",
         "BPE merge at rank 1 is not a token pair"},
        {R"({"model": {"vocab": {"<pad>": 0}, "merges": ["a b", "abc"]}})",
         "BPE merge at rank 1 does not contain two tokens"},
        {R"({"model": {"vocab": {"<pad>": 0}, "merges": ["a b c"]}})",
         "BPE merge at rank 0 does not contain two tokens"},
        {R"(["a", "b"])", "blank token '<pad>' is missing from the vocabulary"},
    };
    for (const auto& [json, reason] : table) {
        if (const auto error =
                testing::thrown<AlignmentError>([&] { CTCVocabulary::decode(json, metadata); })) {
            EXPECT_EQ(error->code(), AlignmentErrorCode::tokenizationFailed);
            EXPECT_EQ(error->detail(), reason) << json;
            EXPECT_EQ(std::string(error->what()),
                      "Transcript text could not be mapped to the timing model tokenizer: " +
                          reason);
        }
    }
    EXPECT_THROW(CTCVocabulary::decode("not json", metadata), AlignmentError);
}

TEST(CTCVocabulary, AMissingFileIsAMissingVocabulary) {
    TemporaryDirectory folder;
    if (const auto error = testing::thrown<AlignmentError>(
            [&] { CTCVocabulary::load(folder / "vocab.json", characterMetadata()); })) {
        EXPECT_EQ(error->code(), AlignmentErrorCode::missingVocabulary);
        EXPECT_EQ(std::string(error->what()), "Precise word timing vocabulary was not found at " +
                                                  (folder / "vocab.json").string());
    }
    writeTextFile(folder / "vocab.json", kCharacterVocabulary);
    EXPECT_EQ(CTCVocabulary::load(folder / "vocab.json", characterMetadata()).tokensByID.size(),
              32u);
}

TEST(CTCVocabulary, LooksTokensUpAsTheyAreThenUpperThenLowerCase) {
    const auto vocabulary = CTCVocabulary::decode(
        R"({"vocab": {"<pad>": 0, "E": 1, "x": 2, "Ab": 3}})", characterMetadata());
    EXPECT_EQ(vocabulary.tokenID("e"), 1);
    EXPECT_EQ(vocabulary.tokenID("X"), 2);
    EXPECT_EQ(vocabulary.tokenID("Ab"), 3);
    EXPECT_FALSE(vocabulary.tokenID("ab"));
    // A blank id given by the manifest wins over its token.
    AlignmentTokenizerMetadata metadata = characterMetadata();
    metadata.blankToken = "<not there>";
    metadata.blankTokenID = 31;
    EXPECT_EQ(CTCVocabulary::decode(kCharacterVocabulary, metadata).blankTokenID, 31);
}

TEST(CTCVocabulary, MetaspaceComesFromTheManifestThenPreTokenizerThenDecoder) {
    AlignmentTokenizerMetadata metadata = bpeMetadata();
    const std::string withBoth = R"({"model": {"vocab": {"<blk>": 0}},
        "pre_tokenizer": {"type": "Metaspace", "replacement": "#"},
        "decoder": {"type": "Metaspace", "replacement": "%"}})";
    const std::string decoderOnly = R"({"model": {"vocab": {"<blk>": 0}},
        "decoder": {"type": "Sequence", "decoders": [{"type": "Metaspace", "replacement": "%"}]}})";
    EXPECT_EQ(CTCVocabulary::decode(withBoth, metadata).metaspaceReplacement, "#");
    EXPECT_EQ(CTCVocabulary::decode(decoderOnly, metadata).metaspaceReplacement, "%");
    EXPECT_EQ(CTCVocabulary::decode(R"({"model": {"vocab": {"<blk>": 0}}})", metadata)
                  .metaspaceReplacement,
              "\u2581");
    metadata.metaspaceReplacement = "@";
    EXPECT_EQ(CTCVocabulary::decode(withBoth, metadata).metaspaceReplacement, "@");
}

TEST(CTCVocabulary, BPEMergesByRank) {
    const auto vocabulary = CTCVocabulary::decode(kBPEVocabulary, bpeMetadata());
    ASSERT_TRUE(vocabulary.usesBPE());
    EXPECT_EQ(vocabulary.bpeMergeRanks.at(CTCBPEMergePair{"\u2581a", "b"}), 2);
    const std::vector<std::pair<std::string, std::vector<int>>> table{
        // ▁ a b c → ▁a b c (rank 0) → ▁ab c (rank 2); "▁ab c" has no rank.
        {"abc", {7, 4}},
        // ▁ c a b → ▁ c ab (rank 1).
        {"cab", {1, 4, 6}},
        // ▁ a a a: "▁ a" ranks before "a a".
        {"aaa", {5, 10}},
        // ▁ c a a a: "a a" twice at one rank, the first in the word merges first.
        {"caaa", {1, 4, 10, 2}},
        // Each blank-separated part starts with the mark.
        {"ab c", {7, 1, 4}},
        // Pieces without an id become the unknown token.
        {"xz", {1, 9, 9}},
    };
    for (const auto& [word, ids] : table) {
        EXPECT_EQ(vocabulary.bpeTokenIDs(word), ids) << word;
    }
    AlignmentTokenizerMetadata noUnknown = bpeMetadata();
    noUnknown.unknownToken.reset();
    EXPECT_EQ(CTCVocabulary::decode(kBPEVocabulary, noUnknown).bpeTokenIDs("xz"),
              (std::vector<int>{1}));
}

TEST(CTCVocabulary, UsesBPEByTypeOrMerges) {
    AlignmentTokenizerMetadata metadata = characterMetadata();
    metadata.type = "SentencePiece-BPE";
    EXPECT_TRUE(CTCVocabulary::decode(kCharacterVocabulary, metadata).usesBPE());
    metadata.type = "char";
    EXPECT_FALSE(CTCVocabulary::decode(kCharacterVocabulary, metadata).usesBPE());
}

std::vector<AlignmentInputWord> inputWords(const std::vector<std::string>& texts) {
    std::vector<AlignmentInputWord> words;
    for (size_t i = 0; i < texts.size(); ++i) {
        words.push_back({std::to_string(i), texts[i], std::nullopt, std::nullopt});
    }
    return words;
}

TEST(CTCTranscriptNormalizer, CharacterTargetsWithSeparatorsBetweenWords) {
    const auto vocabulary = CTCVocabulary::decode(kCharacterVocabulary, characterMetadata());
    const auto result =
        CTCTranscriptNormalizer::normalize(inputWords({"Hi", "there,", "!!", "$1"}), vocabulary);
    // H I | T H E R E | O N E | D O L L A R
    const std::vector<int> expected{11, 10, 4, 6,  11, 5,  13, 5, 4, 8,
                                    9,  5,  4, 14, 8,  15, 15, 7, 13};
    EXPECT_EQ(result.targetTokenIDs, expected);
    using Owner = std::optional<std::string>;
    EXPECT_EQ(result.targetTokenWordIDs[1], Owner("0"));
    EXPECT_EQ(result.targetTokenWordIDs[2], std::nullopt); // between words: nobody's
    EXPECT_EQ(result.targetTokenWordIDs[12], Owner("3"));  // inside "one dollar": the word's
    ASSERT_EQ(result.words.size(), 3u);
    EXPECT_EQ(result.words[0].targetTokenRange, (CTCTokenRange{0, 2}));
    EXPECT_EQ(result.words[1].targetTokenRange, (CTCTokenRange{3, 8}));
    EXPECT_EQ(result.words[2].wordID, "3");
    EXPECT_EQ(result.words[2].normalizedText, "one dollar");
    EXPECT_EQ(result.words[2].targetTokenRange, (CTCTokenRange{9, 19}));
    ASSERT_EQ(result.warnings.size(), 1u);
    EXPECT_EQ(result.warnings[0].message,
              "Skipped word '!!' because normalization produced no CTC tokens.");
    EXPECT_EQ(result.warnings[0].wordIDs, std::vector<std::string>{"2"});
}

TEST(CTCTranscriptNormalizer, UnsupportedCharactersMapToUnknownOrAreDropped) {
    const auto withUnknown = CTCVocabulary::decode(kCharacterVocabulary, characterMetadata());
    const auto mapped = CTCTranscriptNormalizer::normalize(inputWords({"s\u00F8n"}), withUnknown);
    EXPECT_EQ(mapped.targetTokenIDs, (std::vector<int>{12, 3, 9}));
    ASSERT_EQ(mapped.warnings.size(), 1u);
    EXPECT_EQ(mapped.warnings[0].message,
              "Mapped unsupported character '\u00F8' to the tokenizer unknown token.");

    AlignmentTokenizerMetadata metadata = characterMetadata();
    metadata.unknownToken.reset();
    metadata.wordSeparatorToken.reset();
    const auto bare = CTCVocabulary::decode(kCharacterVocabulary, metadata);
    const auto dropped = CTCTranscriptNormalizer::normalize(inputWords({"s\u00F8n", "$1"}), bare);
    // No separator: the words and the blank inside "one dollar" leave no token.
    EXPECT_EQ(dropped.targetTokenIDs, (std::vector<int>{12, 9, 8, 9, 5, 14, 8, 15, 15, 7, 13}));
    ASSERT_EQ(dropped.warnings.size(), 1u);
    EXPECT_EQ(dropped.warnings[0].message,
              "Dropped unsupported character '\u00F8' during CTC tokenization.");
    EXPECT_EQ(dropped.words[1].targetTokenRange, (CTCTokenRange{2, 11}));
}

TEST(CTCTranscriptNormalizer, BPETargetsHaveNoSeparators) {
    AlignmentTokenizerMetadata metadata = bpeMetadata();
    metadata.unknownToken.reset();
    const auto vocabulary = CTCVocabulary::decode(kBPEVocabulary, metadata);
    const auto result =
        CTCTranscriptNormalizer::normalize(inputWords({"ABC", "...", "xz"}), vocabulary);
    EXPECT_EQ(result.targetTokenIDs, (std::vector<int>{7, 4, 1}));
    ASSERT_EQ(result.words.size(), 2u);
    EXPECT_EQ(result.words[1].targetTokenRange, (CTCTokenRange{2, 3}));
    ASSERT_EQ(result.warnings.size(), 1u);
    EXPECT_EQ(result.warnings[0].message,
              "Skipped word '...' because normalization produced no CTC tokens.");

    const auto nothing = CTCVocabulary::decode(R"({"model": {"vocab": {"<blk>": 0}}})", metadata);
    const auto skipped = CTCTranscriptNormalizer::normalize(inputWords({"word"}), nothing);
    ASSERT_EQ(skipped.warnings.size(), 1u);
    EXPECT_EQ(skipped.warnings[0].message,
              "Skipped word 'word' because BPE tokenization produced no CTC tokens.");
    EXPECT_TRUE(skipped.targetTokenIDs.empty());
}

} // namespace
} // namespace orvelle
