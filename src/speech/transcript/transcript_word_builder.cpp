#include "speech/transcript/transcript_word_builder.h"

#include "speech/transcript/unicode_text.h"

#include <optional>

namespace orvelle::TranscriptWordBuilder {

namespace {

constexpr std::string_view kWordMark = "\u2581"; // "▁"

bool opensWord(std::string_view text) {
    return text.starts_with(' ') || text.starts_with(kWordMark);
}

// The word in progress while walking the tokens.
struct PendingWord {
    std::string text;
    std::optional<double> startTime;
    std::optional<double> endTime;
    int startTokenIndex = 0;
    int endTokenIndex = 0;
    double confidenceSum = 0;
    int tokenCount = 0;

    void flush(std::vector<TranscriptWord>& words) {
        std::string trimmed = trimmingWhitespace(text);
        if (!trimmed.empty() && startTime && endTime) {
            TranscriptWord word;
            word.text = std::move(trimmed);
            word.startTime = startTime;
            word.endTime = endTime;
            if (tokenCount >= 1) {
                word.confidence = confidenceSum / tokenCount;
            }
            word.startTokenIndex = startTokenIndex;
            word.endTokenIndex = endTokenIndex;
            words.push_back(std::move(word));
        }
        *this = PendingWord{};
    }
};

} // namespace

std::string stripWordPrefix(std::string_view text) {
    while (true) {
        if (text.starts_with(' ')) {
            text.remove_prefix(1);
        } else if (text.starts_with(kWordMark)) {
            text.remove_prefix(kWordMark.size());
        } else {
            return std::string(text);
        }
    }
}

std::vector<TranscriptWord> words(const std::vector<TranscriptToken>& tokens) {
    std::vector<TranscriptWord> result;
    PendingWord pending;
    for (size_t index = 0; index < tokens.size(); ++index) {
        const TranscriptToken& token = tokens[index];
        if (token.text.empty() || token.text == "<blank>" || token.text == "<pad>") {
            continue;
        }
        const bool startsWord = opensWord(token.text);
        std::string stripped = stripWordPrefix(token.text);
        if (startsWord && !pending.text.empty()) {
            pending.flush(result);
        }
        if (pending.text.empty()) {
            pending.text = std::move(stripped);
            pending.startTime = token.startTime;
            pending.startTokenIndex = static_cast<int>(index);
        } else {
            pending.text += token.text;
        }
        pending.confidenceSum += token.confidence;
        pending.endTime = token.endTime;
        pending.endTokenIndex = static_cast<int>(index);
        pending.tokenCount += 1;
    }
    pending.flush(result);
    return result;
}

std::vector<TranscriptWord> untimedWords(std::string_view text) {
    std::vector<TranscriptWord> result;
    for (std::string& piece : splitAtWhitespace(text)) {
        result.push_back(TranscriptWord{.text = std::move(piece)});
    }
    return result;
}

} // namespace orvelle::TranscriptWordBuilder
