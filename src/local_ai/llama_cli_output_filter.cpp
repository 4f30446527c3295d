#include "local_ai/llama_cli_output_filter.h"

namespace orvelle {

namespace {

constexpr std::string_view kClosing = "\n\nExiting...\n";
constexpr std::string_view kTimingStart = "\n[ Prompt: ";
// Enough to hold the closing words and a timing line back until the end is known.
constexpr std::size_t kHeldBytes = 160;

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

} // namespace

LlamaCLIOutputFilter::LlamaCLIOutputFilter(std::string_view prompt) {
    marker_ = "\n> ";
    if (prompt.size() > kEchoLimit) {
        marker_ += prompt.substr(0, kEchoLimit);
        marker_ += " ... (truncated)\n";
    } else {
        marker_ += prompt;
        marker_ += "\n";
    }
}

std::string LlamaCLIOutputFilter::consume(std::string_view bytes) {
    if (!inAnswer_) {
        preamble_ += bytes;
        const auto found = preamble_.find(marker_);
        if (found == std::string::npos) {
            return {};
        }
        inAnswer_ = true;
        held_ = preamble_.substr(found + marker_.size());
        preamble_.erase(found);
    } else {
        held_ += bytes;
    }
    if (held_.size() <= kHeldBytes) {
        return {};
    }
    std::string ready = held_.substr(0, held_.size() - kHeldBytes);
    held_.erase(0, ready.size());
    return ready;
}

std::string LlamaCLIOutputFilter::finish() {
    if (!inAnswer_) {
        // No echo: a llama-cli that prints the generated text alone.
        std::string all = std::move(preamble_);
        preamble_.clear();
        return all;
    }
    std::string rest = std::move(held_);
    held_.clear();
    if (endsWith(rest, kClosing)) {
        rest.resize(rest.size() - kClosing.size());
    }
    // "\n[ Prompt: 123.4 t/s | Generation: 56.7 t/s ]\n" after the answer.
    const auto timing = rest.rfind(kTimingStart);
    if (timing != std::string::npos && endsWith(rest, " ]\n") &&
        rest.find('\n', timing + 1) == rest.size() - 1) {
        rest.resize(timing);
    }
    // The line end llama-cli adds after an answer that has none of its own.
    if (endsWith(rest, "\n")) {
        rest.pop_back();
    }
    return rest;
}

} // namespace orvelle
