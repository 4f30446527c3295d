#pragma once

// Token ids to text for the speech model. The vocabulary comes from a tokenizer.json
// (model.vocab and added_tokens) or from a vocab.txt of "piece id" lines. A piece that
// begins with "<" and ends with ">" is special, and so is an added token marked special.
// Immutable after construction.

#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace orvelle {

class Tokenizer {
public:
    // Reads a tokenizer.json. Throws ParakeetError (tokenizerLoadFailed).
    explicit Tokenizer(const std::filesystem::path& tokenizerJSONURL);
    // Reads a vocab.txt: one "piece id" per line. Throws ParakeetError (tokenizerLoadFailed).
    static Tokenizer fromVocabularyFile(const std::filesystem::path& vocabularyURL);

    // The pieces of the ids in order, with "▁" as a blank and the one blank at the start
    // removed. Ids out of range, with an empty piece or (with skipSpecial) special are left
    // out.
    std::string decode(std::span<const int> ids, bool skipSpecial) const;
    // The piece with its word marker "▁" turned into a blank.
    static std::string text(std::string_view fromPiece);

    const std::vector<std::string>& idToPiece() const { return idToPiece_; }
    const std::unordered_set<int>& specialIDs() const { return specialIDs_; }
    bool isSpecial(int id) const { return specialIDs_.contains(id); }

private:
    Tokenizer() = default;
    void assign(const std::vector<std::pair<std::string, long long>>& pairs,
                const std::filesystem::path& source);

    std::vector<std::string> idToPiece_;
    std::unordered_set<int> specialIDs_;
};

} // namespace orvelle
