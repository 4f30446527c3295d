#include "speech/align/ctc_transcript_normalizer.h"

#include "speech/align/ctc_number_expansion.h"
#include "speech/transcript/unicode_text.h"

#include <utf8proc.h>

#include <cstdlib>
#include <memory>

namespace orvelle::CTCTranscriptNormalizer {

namespace {

std::string replaceAll(std::string text, std::string_view from, std::string_view to) {
    size_t position = 0;
    while ((position = text.find(from, position)) != std::string::npos) {
        text.replace(position, from.size(), to);
        position += to.size();
    }
    return text;
}

// Full-width and half-width forms to their ordinary ones ("Ａ" to "A", "ｶ" to "カ"). Only
// these compatibility mappings: a broader one would also turn "½" into "1⁄2".
std::string foldWidth(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (const char32_t scalar : decodeUTF8(text)) {
        const auto value = static_cast<utf8proc_int32_t>(scalar);
        const utf8proc_property_t* property = utf8proc_get_property(value);
        if (property->decomp_type == UTF8PROC_DECOMP_TYPE_WIDE ||
            property->decomp_type == UTF8PROC_DECOMP_TYPE_NARROW) {
            utf8proc_int32_t mapped[4];
            int boundary = 0;
            const utf8proc_ssize_t count = utf8proc_decompose_char(
                value, mapped, 4,
                static_cast<utf8proc_option_t>(UTF8PROC_DECOMPOSE | UTF8PROC_COMPAT), &boundary);
            if (count > 0 && count <= 4) {
                for (utf8proc_ssize_t i = 0; i < count; ++i) {
                    appendUTF8(result, static_cast<char32_t>(mapped[i]));
                }
                continue;
            }
        }
        appendUTF8(result, scalar);
    }
    return result;
}

// Case folding and the removal of accents and other combining marks, then lower case.
std::string foldCaseAndDiacritics(const std::string& text) {
    utf8proc_uint8_t* mapped = nullptr;
    const utf8proc_ssize_t length =
        utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                     static_cast<utf8proc_ssize_t>(text.size()), &mapped,
                     static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE |
                                                    UTF8PROC_STRIPMARK | UTF8PROC_CASEFOLD));
    const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(mapped, &std::free);
    std::string folded = length < 0 ? text
                                    : std::string(reinterpret_cast<const char*>(mapped),
                                                  static_cast<size_t>(length));
    std::string lower;
    lower.reserve(folded.size());
    for (const char32_t scalar : decodeUTF8(folded)) {
        appendUTF8(lower,
                   static_cast<char32_t>(utf8proc_tolower(static_cast<utf8proc_int32_t>(scalar))));
    }
    return lower;
}

bool isAlphanumeric(char32_t scalar) {
    switch (utf8proc_category(static_cast<utf8proc_int32_t>(scalar))) {
    case UTF8PROC_CATEGORY_LU:
    case UTF8PROC_CATEGORY_LL:
    case UTF8PROC_CATEGORY_LT:
    case UTF8PROC_CATEGORY_LM:
    case UTF8PROC_CATEGORY_LO:
    case UTF8PROC_CATEGORY_MN:
    case UTF8PROC_CATEGORY_MC:
    case UTF8PROC_CATEGORY_ME:
    case UTF8PROC_CATEGORY_ND:
    case UTF8PROC_CATEGORY_NL:
    case UTF8PROC_CATEGORY_NO:
        return true;
    default:
        return false;
    }
}

void appendToken(CTCNormalizedTranscript& result, int id, std::optional<std::string> wordID) {
    result.targetTokenIDs.push_back(id);
    result.targetTokenWordIDs.push_back(std::move(wordID));
}

} // namespace

std::string normalizedText(std::string_view text) {
    std::string folded = encodeUTF8(decodeUTF8(text)); // malformed bytes become U+FFFD
    for (const std::string_view quote : {"\u2019", "\u2018", "\u02BC"}) {
        folded = replaceAll(std::move(folded), quote, "'");
    }
    folded = replaceAll(std::move(folded), "&", " and ");
    folded = foldCaseAndDiacritics(foldWidth(folded));
    folded = CTCNumberExpansion::expandNumbers(folded);

    std::string result;
    result.reserve(folded.size());
    for (const char32_t scalar : decodeUTF8(folded)) {
        if (isAlphanumeric(scalar)) {
            appendUTF8(result, scalar);
        } else if (isWhitespaceOrNewline(scalar) && !result.empty() && !result.ends_with(' ')) {
            result.push_back(' ');
        }
    }
    while (result.ends_with(' ')) {
        result.pop_back();
    }
    return result;
}

CTCNormalizedTranscript normalize(const std::vector<AlignmentInputWord>& words,
                                  const CTCVocabulary& vocabulary) {
    CTCNormalizedTranscript result;
    const bool usesBPE = vocabulary.usesBPE();
    for (const AlignmentInputWord& word : words) {
        const std::string normalized = normalizedText(word.text);
        if (normalized.empty()) {
            result.warnings.push_back(
                {"Skipped word '" + word.text + "' because normalization produced no CTC tokens.",
                 {word.id}});
            continue;
        }
        int begin = static_cast<int>(result.targetTokenIDs.size());
        if (usesBPE) {
            const std::vector<int> ids = vocabulary.bpeTokenIDs(normalized);
            if (ids.empty()) {
                result.warnings.push_back({"Skipped word '" + word.text +
                                               "' because BPE tokenization produced no CTC tokens.",
                                           {word.id}});
                continue;
            }
            for (const int id : ids) {
                appendToken(result, id, word.id);
            }
        } else {
            const auto& separator = vocabulary.wordSeparatorTokenID;
            if (!result.targetTokenIDs.empty() && separator) {
                appendToken(result, *separator, std::nullopt);
                begin += 1;
            }
            for (const std::string& character : characters(normalized)) {
                if (character == " ") {
                    if (separator && (result.targetTokenIDs.empty() ||
                                      result.targetTokenIDs.back() != *separator)) {
                        appendToken(result, *separator, word.id);
                    }
                } else if (auto id = vocabulary.tokenID(character)) {
                    appendToken(result, *id, word.id);
                } else if (vocabulary.unknownTokenID) {
                    appendToken(result, *vocabulary.unknownTokenID, word.id);
                    result.warnings.push_back({"Mapped unsupported character '" + character +
                                                   "' to the tokenizer unknown token.",
                                               {word.id}});
                } else {
                    result.warnings.push_back({"Dropped unsupported character '" + character +
                                                   "' during CTC tokenization.",
                                               {word.id}});
                }
            }
        }
        const int end = static_cast<int>(result.targetTokenIDs.size());
        if (end > begin) {
            result.words.push_back({word.id, word.text, normalized, {begin, end}});
        }
    }
    return result;
}

} // namespace orvelle::CTCTranscriptNormalizer
