#include "speech/runtime/tokenizer.h"

#include "core/files.h"
#include "core/json.h"
#include "speech/runtime/parakeet_error.h"

#include <algorithm>
#include <sstream>

namespace orvelle {

namespace {

constexpr std::string_view wordMarker = "\u2581"; // ▁
// Vocabularies have tens of thousands of pieces; an id far beyond is a broken file, not a
// reason to allocate gigabytes.
constexpr long long maximumTokenID = 10'000'000;

// An id is an integer or any JSON number (read as its integer part); anything else is not.
std::optional<long long> idValue(const Json& value) {
    if (value.is_number_integer()) {
        return value.get<long long>();
    }
    if (value.is_number_float()) {
        return static_cast<long long>(value.get<double>());
    }
    return std::nullopt;
}

bool bracketed(std::string_view piece) {
    return piece.size() >= 2 && piece.front() == '<' && piece.back() == '>';
}

} // namespace

Tokenizer::Tokenizer(const std::filesystem::path& tokenizerJSONURL) {
    Json root;
    try {
        root = Json::parse(readFile(tokenizerJSONURL));
    } catch (const std::exception& error) {
        throw ParakeetError::tokenizerLoadFailed(tokenizerJSONURL, error.what());
    }
    if (!root.is_object() || !root.contains("model") || !root["model"].is_object() ||
        !root["model"].contains("vocab") || !root["model"]["vocab"].is_object()) {
        throw ParakeetError::tokenizerLoadFailed(tokenizerJSONURL,
                                                 "Missing model.vocab in tokenizer.json");
    }
    std::vector<std::pair<std::string, long long>> pairs;
    for (const auto& [piece, value] : root["model"]["vocab"].items()) {
        if (const auto id = idValue(value)) {
            pairs.emplace_back(piece, *id);
        }
    }
    std::vector<long long> addedSpecial;
    if (root.contains("added_tokens") && root["added_tokens"].is_array()) {
        for (const Json& entry : root["added_tokens"]) {
            if (!entry.is_object() || !entry.contains("id") || !entry.contains("content") ||
                !entry["content"].is_string()) {
                continue;
            }
            const auto id = idValue(entry["id"]);
            if (!id) {
                continue;
            }
            pairs.emplace_back(entry["content"].get<std::string>(), *id);
            if (entry.contains("special") && entry["special"].is_boolean() &&
                entry["special"].get<bool>()) {
                addedSpecial.push_back(*id);
            }
        }
    }
    assign(pairs, tokenizerJSONURL);
    for (const long long id : addedSpecial) {
        if (id >= 0) {
            specialIDs_.insert(static_cast<int>(id));
        }
    }
}

Tokenizer Tokenizer::fromVocabularyFile(const std::filesystem::path& vocabularyURL) {
    std::string content;
    try {
        content = readFile(vocabularyURL);
    } catch (const Error& error) {
        throw ParakeetError::tokenizerLoadFailed(vocabularyURL, error.what());
    }
    std::vector<std::pair<std::string, long long>> pairs;
    std::istringstream lines(content);
    std::string line;
    for (size_t number = 1; std::getline(lines, line); ++number) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.empty()) {
            continue;
        }
        // The id follows the last blank; the piece may not be empty.
        const size_t blank = line.rfind(' ');
        long long id = 0;
        size_t used = 0;
        bool valid = blank != std::string::npos && blank > 0 && blank + 1 < line.size();
        if (valid) {
            try {
                id = std::stoll(line.substr(blank + 1), &used);
            } catch (const std::exception&) {
                valid = false;
            }
            valid = valid && used == line.size() - blank - 1;
        }
        if (!valid) {
            throw ParakeetError::tokenizerLoadFailed(
                vocabularyURL, "line " + std::to_string(number) + " is not \"piece id\"");
        }
        pairs.emplace_back(line.substr(0, blank), id);
    }
    Tokenizer tokenizer;
    tokenizer.assign(pairs, vocabularyURL);
    return tokenizer;
}

void Tokenizer::assign(const std::vector<std::pair<std::string, long long>>& pairs,
                       const std::filesystem::path& source) {
    long long maxID = -1;
    for (const auto& pair : pairs) {
        maxID = std::max(maxID, pair.second);
    }
    if (maxID >= maximumTokenID) {
        throw ParakeetError::tokenizerLoadFailed(source, "the token id " + std::to_string(maxID) +
                                                             " is out of range");
    }
    idToPiece_.assign(static_cast<size_t>(maxID + 1), std::string());
    for (const auto& [piece, id] : pairs) {
        if (id >= 0) {
            idToPiece_[static_cast<size_t>(id)] = piece; // a later pair wins
        }
    }
    for (size_t id = 0; id < idToPiece_.size(); ++id) {
        if (bracketed(idToPiece_[id])) {
            specialIDs_.insert(static_cast<int>(id));
        }
    }
}

std::string Tokenizer::decode(std::span<const int> ids, bool skipSpecial) const {
    std::string result;
    for (const int id : ids) {
        if (id < 0 || static_cast<size_t>(id) >= idToPiece_.size()) {
            continue;
        }
        if (skipSpecial && specialIDs_.contains(id)) {
            continue;
        }
        const std::string& piece = idToPiece_[static_cast<size_t>(id)];
        if (piece.empty()) {
            continue;
        }
        result += text(piece);
    }
    if (!result.empty() && result.front() == ' ') {
        result.erase(0, 1);
    }
    return result;
}

std::string Tokenizer::text(std::string_view fromPiece) {
    std::string result;
    result.reserve(fromPiece.size());
    size_t position = 0;
    while (position < fromPiece.size()) {
        const size_t marker = fromPiece.find(wordMarker, position);
        if (marker == std::string_view::npos) {
            result.append(fromPiece.substr(position));
            break;
        }
        result.append(fromPiece.substr(position, marker - position));
        result.push_back(' ');
        position = marker + wordMarker.size();
    }
    return result;
}

} // namespace orvelle
