#pragma once

// The timing model's alphabet: token text to id and back, the blank, unknown and word
// separator tokens, and for sub-word models the merge ranks that split a word into pieces.

#include "speech/align/alignment_model_manifest.h"

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace orvelle {

struct CTCBPEMergePair {
    std::string left;
    std::string right;

    friend bool operator==(const CTCBPEMergePair&, const CTCBPEMergePair&) = default;
};

struct CTCBPEMergePairHash {
    size_t operator()(const CTCBPEMergePair& pair) const noexcept {
        const size_t left = std::hash<std::string>{}(pair.left);
        return left ^ (std::hash<std::string>{}(pair.right) + 0x9e3779b97f4a7c15ULL + (left << 6) +
                       (left >> 2));
    }
};

struct CTCVocabulary {
    std::map<int, std::string> tokensByID;
    std::unordered_map<std::string, int> idsByToken;
    int blankTokenID = 0;
    std::optional<int> unknownTokenID;
    std::optional<int> wordSeparatorTokenID;
    std::string tokenizerType;
    std::string metaspaceReplacement = "\u2581"; // "▁"
    // Rank is the position in the merge list: lower merges first.
    std::unordered_map<CTCBPEMergePair, int, CTCBPEMergePairHash> bpeMergeRanks;

    // Reads the vocabulary file in any of its four JSON shapes: an array of tokens, an
    // object with "tokens" (an array) or "vocab" (token to id), or a tokenizer file with
    // "model.vocab" and optional "model.merges". Throws AlignmentError: missingVocabulary
    // when the file is not there, tokenizationFailed when it does not read.
    static CTCVocabulary load(const std::filesystem::path& from,
                              const AlignmentTokenizerMetadata& metadata);
    static CTCVocabulary decode(std::string_view bytes, const AlignmentTokenizerMetadata& metadata);

    bool usesBPE() const;
    std::optional<std::string> token(int id) const;
    // The text as it is, then upper-cased, then lower-cased.
    std::optional<int> tokenID(std::string_view text) const;
    // The ids of a normalised word by merge ranks, each blank-separated part starting with
    // the metaspace mark. Pieces without an id become the unknown token, or are dropped.
    std::vector<int> bpeTokenIDs(std::string_view normalizedWord) const;

    friend bool operator==(const CTCVocabulary&, const CTCVocabulary&) = default;
};

// The text split into user-perceived characters (grapheme clusters).
std::vector<std::string> characters(std::string_view text);

} // namespace orvelle
