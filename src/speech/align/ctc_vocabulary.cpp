#include "speech/align/ctc_vocabulary.h"

#include "core/files.h"
#include "speech/align/alignment_error.h"
#include "speech/transcript/unicode_text.h"

#include <utf8proc.h>

#include <cmath>
#include <limits>

namespace orvelle {

namespace {

[[noreturn]] void failTokenization(const std::string& reason) {
    throw AlignmentError(AlignmentErrorCode::tokenizationFailed, reason);
}

int tokenIDValue(const std::string& token, const Json& value) {
    if (value.is_number_integer()) {
        if (value.is_number_unsigned() &&
            value.get<std::uint64_t>() >
                static_cast<std::uint64_t>(std::numeric_limits<int>::max())) {
            failTokenization("vocabulary token '" + token + "' does not have an integer ID");
        }
        const auto id = value.get<std::int64_t>();
        if (id >= std::numeric_limits<int>::min() && id <= std::numeric_limits<int>::max()) {
            return static_cast<int>(id);
        }
    } else if (value.is_number_float()) {
        // Some writers store every number as a float; an integral one is still an id.
        const double id = value.get<double>();
        if (std::isfinite(id) && std::floor(id) == id && id >= std::numeric_limits<int>::min() &&
            id <= std::numeric_limits<int>::max()) {
            return static_cast<int>(id);
        }
    }
    failTokenization("vocabulary token '" + token + "' does not have an integer ID");
}

bool isArrayOfStrings(const Json& json) {
    if (!json.is_array()) {
        return false;
    }
    for (const auto& entry : json) {
        if (!entry.is_string()) {
            return false;
        }
    }
    return true;
}

void addToken(CTCVocabulary& vocabulary, const std::string& token, int id) {
    vocabulary.tokensByID[id] = token;
    vocabulary.idsByToken[token] = id;
}

void readTokenArray(CTCVocabulary& vocabulary, const Json& tokens) {
    for (size_t i = 0; i < tokens.size(); ++i) {
        if (i > static_cast<size_t>(std::numeric_limits<int>::max())) {
            failTokenization("vocabulary has too many tokens");
        }
        addToken(vocabulary, tokens[i].get<std::string>(), static_cast<int>(i));
    }
}

void readTokenMap(CTCVocabulary& vocabulary, const Json& vocab) {
    for (const auto& [token, value] : vocab.items()) {
        addToken(vocabulary, token, tokenIDValue(token, value));
    }
}

std::vector<std::string> splitAtBlanks(std::string_view text) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= text.size()) {
        const size_t end = std::min(text.find(' ', start), text.size());
        if (end > start) {
            parts.emplace_back(text.substr(start, end - start));
        }
        start = end + 1;
    }
    return parts;
}

void readMerges(CTCVocabulary& vocabulary, const Json& merges) {
    if (!merges.is_array()) {
        failTokenization("BPE merges must be a list");
    }
    for (size_t rank = 0; rank < merges.size(); ++rank) {
        const Json& entry = merges[rank];
        const std::string prefix = "BPE merge at rank " + std::to_string(rank);
        CTCBPEMergePair pair;
        if (entry.is_string()) {
            const auto parts = splitAtBlanks(entry.get<std::string>());
            if (parts.size() != 2) {
                failTokenization(prefix + " does not contain two tokens");
            }
            pair = {parts[0], parts[1]};
        } else if (entry.is_array() && entry.size() == 2 && entry[0].is_string() &&
                   entry[1].is_string()) {
            pair = {entry[0].get<std::string>(), entry[1].get<std::string>()};
        } else {
            failTokenization(prefix + " is not a token pair");
        }
        // The first occurrence of a pair keeps its rank.
        vocabulary.bpeMergeRanks.emplace(std::move(pair), static_cast<int>(rank));
    }
}

// The replacement of a "Metaspace" entry, looked for in the entry itself and in the list of
// a "Sequence".
std::optional<std::string> findMetaspaceReplacement(const Json& entry) {
    if (!entry.is_object()) {
        return std::nullopt;
    }
    const auto type = entry.find("type");
    if (type != entry.end() && *type == "Metaspace") {
        const auto replacement = entry.find("replacement");
        if (replacement != entry.end() && replacement->is_string()) {
            return replacement->get<std::string>();
        }
        return std::nullopt;
    }
    for (const char* listKey : {"pretokenizers", "decoders"}) {
        const auto list = entry.find(listKey);
        if (list != entry.end() && list->is_array()) {
            for (const auto& member : *list) {
                if (auto replacement = findMetaspaceReplacement(member)) {
                    return replacement;
                }
            }
        }
    }
    return std::nullopt;
}

std::optional<int> exactID(const CTCVocabulary& vocabulary, const std::string& token) {
    const auto found = vocabulary.idsByToken.find(token);
    if (found == vocabulary.idsByToken.end()) {
        return std::nullopt;
    }
    return found->second;
}

std::string mapCase(std::string_view text, bool upper) {
    std::string result;
    result.reserve(text.size());
    for (const char32_t scalar : decodeUTF8(text)) {
        const auto value = static_cast<utf8proc_int32_t>(scalar);
        appendUTF8(result, static_cast<char32_t>(upper ? utf8proc_toupper(value)
                                                       : utf8proc_tolower(value)));
    }
    return result;
}

} // namespace

CTCVocabulary CTCVocabulary::load(const std::filesystem::path& from,
                                  const AlignmentTokenizerMetadata& metadata) {
    if (!fileExists(from)) {
        throw AlignmentError(AlignmentErrorCode::missingVocabulary, from.string());
    }
    std::string bytes;
    try {
        bytes = readFile(from);
    } catch (const FileError& error) {
        throw AlignmentError(AlignmentErrorCode::missingVocabulary,
                             from.string() + " (" + error.what() + ")");
    }
    return decode(bytes, metadata);
}

CTCVocabulary CTCVocabulary::decode(std::string_view bytes,
                                    const AlignmentTokenizerMetadata& metadata) {
    Json root;
    try {
        root = parseJson(bytes);
    } catch (const JsonDecodeError& error) {
        failTokenization(std::string("vocabulary file is ") + error.what());
    }

    CTCVocabulary vocabulary;
    vocabulary.tokenizerType = metadata.type;
    if (isArrayOfStrings(root)) {
        readTokenArray(vocabulary, root);
    } else if (root.is_object() && root.contains("tokens") && isArrayOfStrings(root["tokens"])) {
        readTokenArray(vocabulary, root["tokens"]);
    } else if (root.is_object() && root.contains("vocab") && root["vocab"].is_object()) {
        readTokenMap(vocabulary, root["vocab"]);
    } else if (root.is_object() && root.contains("model") && root["model"].is_object() &&
               root["model"].contains("vocab") && root["model"]["vocab"].is_object()) {
        const Json& model = root["model"];
        readTokenMap(vocabulary, model["vocab"]);
        if (model.contains("merges") && !model["merges"].is_null()) {
            readMerges(vocabulary, model["merges"]);
        }
    } else {
        failTokenization("unsupported vocabulary JSON format");
    }

    if (metadata.metaspaceReplacement) {
        vocabulary.metaspaceReplacement = *metadata.metaspaceReplacement;
    } else if (root.is_object()) {
        for (const char* key : {"pre_tokenizer", "decoder"}) {
            if (root.contains(key)) {
                if (auto replacement = findMetaspaceReplacement(root[key])) {
                    vocabulary.metaspaceReplacement = *replacement;
                    break;
                }
            }
        }
    }

    if (metadata.blankTokenID) {
        vocabulary.blankTokenID = *metadata.blankTokenID;
    } else if (auto blank = exactID(vocabulary, metadata.blankToken)) {
        vocabulary.blankTokenID = *blank;
    } else {
        failTokenization("blank token '" + metadata.blankToken +
                         "' is missing from the vocabulary");
    }
    if (metadata.unknownToken) {
        vocabulary.unknownTokenID = exactID(vocabulary, *metadata.unknownToken);
    }
    if (metadata.wordSeparatorToken) {
        vocabulary.wordSeparatorTokenID = exactID(vocabulary, *metadata.wordSeparatorToken);
    }
    return vocabulary;
}

bool CTCVocabulary::usesBPE() const {
    return mapCase(tokenizerType, false).find("bpe") != std::string::npos || !bpeMergeRanks.empty();
}

std::optional<std::string> CTCVocabulary::token(int id) const {
    const auto found = tokensByID.find(id);
    if (found == tokensByID.end()) {
        return std::nullopt;
    }
    return found->second;
}

std::optional<int> CTCVocabulary::tokenID(std::string_view text) const {
    for (const std::string& candidate :
         {std::string(text), mapCase(text, true), mapCase(text, false)}) {
        if (auto id = exactID(*this, candidate)) {
            return id;
        }
    }
    return std::nullopt;
}

std::vector<int> CTCVocabulary::bpeTokenIDs(std::string_view normalizedWord) const {
    std::vector<int> ids;
    for (const std::string& part : splitAtBlanks(normalizedWord)) {
        std::vector<std::string> pieces = characters(metaspaceReplacement + part);
        while (pieces.size() >= 2) {
            size_t best = pieces.size();
            int bestRank = std::numeric_limits<int>::max();
            for (size_t i = 0; i + 1 < pieces.size(); ++i) {
                const auto rank = bpeMergeRanks.find(CTCBPEMergePair{pieces[i], pieces[i + 1]});
                // Strictly lower only: on equal rank the first pair in the word wins.
                if (rank != bpeMergeRanks.end() && rank->second < bestRank) {
                    best = i;
                    bestRank = rank->second;
                }
            }
            if (best == pieces.size()) {
                break;
            }
            pieces[best] += pieces[best + 1];
            pieces.erase(pieces.begin() + static_cast<std::ptrdiff_t>(best) + 1);
        }
        for (const std::string& piece : pieces) {
            if (auto id = tokenID(piece)) {
                ids.push_back(*id);
            } else if (unknownTokenID) {
                ids.push_back(*unknownTokenID);
            }
        }
    }
    return ids;
}

std::vector<std::string> characters(std::string_view text) {
    std::vector<std::string> result;
    utf8proc_int32_t state = 0;
    char32_t previous = 0;
    bool first = true;
    for (const char32_t scalar : decodeUTF8(text)) {
        if (first ||
            utf8proc_grapheme_break_stateful(static_cast<utf8proc_int32_t>(previous),
                                             static_cast<utf8proc_int32_t>(scalar), &state)) {
            result.emplace_back();
        }
        appendUTF8(result.back(), scalar);
        previous = scalar;
        first = false;
    }
    return result;
}

} // namespace orvelle
