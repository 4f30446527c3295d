#include "local_ai/youtube_metadata_progress.h"

#include "speech/transcript/unicode_text.h"

#include <array>
#include <utility>

namespace orvelle {

namespace {

// The fixed words, each shown once when its key first appears in the output.
constexpr std::array<std::pair<std::string_view, std::string_view>, 3> kKeyMessages{{
    {"\"title\"", "Thinking"},
    {"\"description\"", "Writing description"},
    {"\"chapters\"", "Finding chapters"},
}};

} // namespace

std::vector<std::string> YouTubeMetadataProgressExtractor::consume(std::string_view piece) {
    std::vector<std::string> messages;
    output_ += piece;
    while (true) {
        if (!thinking_) {
            const auto start = output_.find(kThoughtStart, scanned_);
            if (start == std::string::npos) {
                break;
            }
            thinking_ = true;
            thoughtStart_ = start + kThoughtStart.size();
            scanned_ = thoughtStart_;
        }
        std::string line;
        while (nextThoughtLine(line)) {
            messages.push_back(std::move(line));
        }
        const auto end = output_.find(kThoughtEnd, thoughtStart_);
        if (end == std::string::npos) {
            break;
        }
        const std::string last = trimmingWhitespace(
            std::string_view(output_).substr(thoughtStart_, end - thoughtStart_));
        if (!last.empty()) {
            messages.push_back(last);
        }
        thinking_ = false;
        scanned_ = end + kThoughtEnd.size();
    }
    if (!thinking_) {
        fallbackMessage(messages);
    }
    return messages;
}

bool YouTubeMetadataProgressExtractor::nextThoughtLine(std::string& line) {
    while (true) {
        const auto newline = output_.find('\n', thoughtStart_);
        const auto end = output_.find(kThoughtEnd, thoughtStart_);
        if (newline == std::string::npos || (end != std::string::npos && end < newline)) {
            return false;
        }
        line = trimmingWhitespace(
            std::string_view(output_).substr(thoughtStart_, newline - thoughtStart_));
        thoughtStart_ = newline + 1;
        if (!line.empty()) {
            return true;
        }
    }
}

void YouTubeMetadataProgressExtractor::fallbackMessage(std::vector<std::string>& messages) {
    // Keys are searched only outside thinking: a thought that quotes "title" is no sign of
    // the answer.
    const std::string_view answer = std::string_view(output_).substr(scanned_);
    for (const auto& [key, message] : kKeyMessages) {
        if (!emitted_.contains(std::string(message)) && answer.find(key) != std::string::npos) {
            emitted_.insert(std::string(message));
            messages.emplace_back(message);
        }
    }
}

} // namespace orvelle
