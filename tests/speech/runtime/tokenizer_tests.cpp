#include "speech/runtime/parakeet_error.h"
#include "speech/runtime/tokenizer.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

Tokenizer tokenizerFrom(const testing::TemporaryDirectory& folder, std::string_view json) {
    testing::writeTextFile(folder / "tokenizer.json", json);
    return Tokenizer(folder / "tokenizer.json");
}

std::string loadFailure(const std::filesystem::path& path, bool vocabulary) {
    const auto error = testing::thrown<ParakeetError>(
        [&] { (void)(vocabulary ? Tokenizer::fromVocabularyFile(path) : Tokenizer(path)); });
    EXPECT_TRUE(error && error->code() == ParakeetErrorCode::tokenizerLoadFailed);
    return error ? error->what() : "no error";
}

TEST(Tokenizer, DecodeJoinsPiecesAndDropsOnlyTheOneLeadingBlank) {
    const testing::TemporaryDirectory folder;
    const Tokenizer tokenizer = tokenizerFrom(folder, R"({"model": {"vocab": {
        "<unk>": 0, "▁Hello": 1, "▁world": 2, "!": 3, "▁": 4, "▁▁two": 5, "x▁y": 6}}})");
    struct Case {
        std::vector<int> ids;
        std::string text;
    };
    for (const Case& c :
         {Case{{1, 2}, "Hello world"}, Case{{1, 2, 3}, "Hello world!"}, Case{{3, 1}, "! Hello"},
          Case{{4, 4, 1}, "  Hello"}, Case{{5}, " two"}, Case{{6}, "x y"}, Case{{}, ""},
          Case{{0, 1}, "Hello"}, Case{{-1, 99, 2}, "world"}}) {
        EXPECT_EQ(tokenizer.decode(c.ids, true), c.text);
    }
    EXPECT_EQ(tokenizer.decode(std::vector<int>{0, 1}, false), "<unk> Hello");
    EXPECT_EQ(Tokenizer::text("▁world"), " world");
    EXPECT_EQ(Tokenizer::text("a▁b▁"), "a b ");
}

TEST(Tokenizer, SpecialTokensByBracketsOrByAddedTokens) {
    const testing::TemporaryDirectory folder;
    const Tokenizer tokenizer = tokenizerFrom(folder, R"({
        "model": {"vocab": {"<unk>": 0, "▁a": 1, "<": 2, "<b>": 3, "plain": 4}},
        "added_tokens": [
            {"id": 4, "content": "[MARK]", "special": true},
            {"id": 7, "content": "▁late", "special": false},
            {"id": "8", "content": "skipped: the id is text"},
            {"content": "skipped: no id"}
        ]})");
    EXPECT_EQ(tokenizer.specialIDs(), (std::unordered_set<int>{0, 3, 4}));
    ASSERT_EQ(tokenizer.idToPiece().size(), 8u);
    EXPECT_EQ(tokenizer.idToPiece()[4], "[MARK]") << "a later pair wins";
    EXPECT_EQ(tokenizer.idToPiece()[5], "") << "ids nobody uses are empty";
    EXPECT_EQ(tokenizer.decode(std::vector<int>{1, 2, 3, 4, 5, 7}, true), "a< late");
}

TEST(Tokenizer, VocabularyIdsMayBeAnyNumberAndNegativeOnesAreIgnored) {
    const testing::TemporaryDirectory folder;
    const Tokenizer tokenizer =
        tokenizerFrom(folder, R"({"model": {"vocab": {"▁a": 2.0, "▁b": -3, "▁c": "4", "▁d": 1}}})");
    EXPECT_EQ(tokenizer.idToPiece(), (std::vector<std::string>{"", "▁d", "▁a"}));
}

TEST(Tokenizer, BrokenFilesSayWhatIsWrong) {
    const testing::TemporaryDirectory folder;
    const auto path = folder / "tokenizer.json";
    EXPECT_EQ(
        loadFailure(folder / "absent.json", false)
            .rfind("Failed to load tokenizer at " + (folder / "absent.json").string() + ": ", 0),
        0u);
    for (const char* document :
         {R"({"model": {}})", R"({"vocab": {}})", R"({"model": {"vocab": [1, 2]}})", "[]"}) {
        testing::writeTextFile(path, document);
        EXPECT_EQ(loadFailure(path, false), "Failed to load tokenizer at " + path.string() +
                                                ": Missing model.vocab in tokenizer.json")
            << document;
    }
    testing::writeTextFile(path, "{\"model\": ");
    EXPECT_NE(loadFailure(path, false).find("parse error"), std::string::npos);
    testing::writeTextFile(path, R"({"model": {"vocab": {"a": 999999999999}}})");
    EXPECT_NE(loadFailure(path, false).find("out of range"), std::string::npos);
}

TEST(Tokenizer, VocabularyFileHasAPieceAndAnIdPerLine) {
    const testing::TemporaryDirectory folder;
    const auto path = folder / "vocab.txt";
    testing::writeTextFile(path, "<unk> 0\n▁Hello 1\r\n\n▁world 2\n<blk> 3\n");
    const Tokenizer tokenizer = Tokenizer::fromVocabularyFile(path);
    EXPECT_EQ(tokenizer.idToPiece(),
              (std::vector<std::string>{"<unk>", "▁Hello", "▁world", "<blk>"}));
    EXPECT_EQ(tokenizer.specialIDs(), (std::unordered_set<int>{0, 3}));
    EXPECT_EQ(tokenizer.decode(std::vector<int>{1, 3, 2}, true), "Hello world");

    for (const char* line : {"nothing\n", "▁a b\n", " 4\n", "▁a 4x\n"}) {
        testing::writeTextFile(path, std::string("<unk> 0\n") + line);
        EXPECT_EQ(loadFailure(path, true),
                  "Failed to load tokenizer at " + path.string() + ": line 2 is not \"piece id\"")
            << line;
    }
}

} // namespace
} // namespace orvelle
