#pragma once

// The paragraph pass of transcript processing: which words end a paragraph, asked of the
// local language model through the helper process. The transcript editor calls it through
// the TranscriptParagraphSuggester interface and stores the breaks with its transcript.

#include "local_ai/llm_helper.h"
#include "speech/transcript/transcript_analysis.h"

#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace orvelle {

class TranscriptParagraphSuggester {
public:
    virtual ~TranscriptParagraphSuggester() = default;
    // Indexes into analysis.words after which a paragraph ends: ascending, no repeats, never
    // the last word. Throws when no suggestion could be had (the caller shows the plain
    // transcript); CancellationError once `stop` is requested.
    virtual std::vector<int> suggestBreaks(const TranscriptAnalysis& analysis,
                                           const std::stop_token& stop) = 0;
};

struct QwenTranscriptParagraphSuggesterConfiguration {
    std::optional<std::filesystem::path> executableURL; // first in the helper search
    std::optional<std::filesystem::path> model;         // absent: the installed model
    // Words per request; a longer transcript is asked about window by window.
    int windowWords = 600;
    int contextSize = 8192;
    int maxGeneratedTokens = 512;
    double temperature = 0.1;
    double topP = 0.9;
    LLMHelperProcessRunner::Limits limits;
};

class QwenTranscriptParagraphSuggester final : public TranscriptParagraphSuggester {
public:
    using Configuration = QwenTranscriptParagraphSuggesterConfiguration;

    explicit QwenTranscriptParagraphSuggester(Configuration configuration = {});

    // Throws YouTubeMetadataGenerationError: modelNotInstalled, runtimeNotFound, the helper's
    // failures, or invalidOutput when a reply holds no break list.
    std::vector<int> suggestBreaks(const TranscriptAnalysis& analysis,
                                   const std::stop_token& stop) override;

private:
    Configuration configuration_;
};

namespace TranscriptParagraphPrompt {

std::string systemPrompt();
// Begins "Choose paragraph breaks for this rough spoken transcript."; the words
// [first, first + count) of the transcript, each after its index in brackets.
std::string userPrompt(const std::vector<TranscriptWord>& words, int first, int count);
// {"break_after_word_indices": [integers]}, required.
std::string outputSchema();

// The reply's break_after_word_indices (the last object that has them), checked: entries
// that are not whole numbers or lie outside [first, first + count) are dropped, and so is a
// break after the transcript's last word (`wordCount` - 1); sorted, without repeats. Absent
// when no object in the reply holds such a list.
std::optional<std::vector<int>> parseBreaks(std::string_view output, int first, int count,
                                            int wordCount);

} // namespace TranscriptParagraphPrompt

} // namespace orvelle
