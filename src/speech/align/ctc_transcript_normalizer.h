#pragma once

// From transcript words to the token ids the forced aligner follows, each tied back to its
// word. A word that cannot be tokenised costs a warning, never the run.

#include "speech/align/alignment_types.h"
#include "speech/align/ctc_vocabulary.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvelle {

// A half-open range of indexes.
struct CTCTokenRange {
    int begin = 0;
    int end = 0;

    int count() const { return end - begin; }
    friend bool operator==(const CTCTokenRange&, const CTCTokenRange&) = default;
};

struct CTCNormalizedWord {
    std::string wordID;
    std::string rawText;
    std::string normalizedText;
    CTCTokenRange targetTokenRange; // into the target arrays

    friend bool operator==(const CTCNormalizedWord&, const CTCNormalizedWord&) = default;
};

struct CTCNormalizedTranscript {
    std::vector<CTCNormalizedWord> words; // may be fewer than the input: skipped words drop out
    std::vector<int> targetTokenIDs;
    // Same length as the ids; separators between words belong to no word.
    std::vector<std::optional<std::string>> targetTokenWordIDs;
    std::vector<AlignmentWarning> warnings;
};

namespace CTCTranscriptNormalizer {

// Quotes folded to "'", "&" read as "and", case, accents and width folded, numbers spelt
// out, then only letters, digits and single blanks kept: "R&D" gives "r and d", "Café"
// gives "cafe", "don't" gives "dont".
std::string normalizedText(std::string_view text);

CTCNormalizedTranscript normalize(const std::vector<AlignmentInputWord>& words,
                                  const CTCVocabulary& vocabulary);

} // namespace CTCTranscriptNormalizer

} // namespace orvelle
