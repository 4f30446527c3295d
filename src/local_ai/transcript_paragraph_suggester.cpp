#include "local_ai/transcript_paragraph_suggester.h"

#include "core/cancellation.h"
#include "local_ai/youtube_metadata.h"
#include "local_ai/youtube_metadata_draft.h"
#include "local_ai/youtube_metadata_model_store.h"
#include "speech/transcript/unicode_text.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

namespace TranscriptParagraphPrompt {

std::string systemPrompt() {
    return "You format rough spoken transcripts into readable paragraphs.\n\n"
           "Return only valid JSON that matches the requested schema. Do not include markdown, "
           "comments, or prose outside JSON.";
}

std::string userPrompt(const std::vector<TranscriptWord>& words, int first, int count) {
    std::string prompt =
        "Choose paragraph breaks for this rough spoken transcript.\n\n"
        "Each word is written after its index in brackets. Return only JSON of the form "
        "{\"break_after_word_indices\": [12, 40]}, listing the index of the last word of every "
        "paragraph except the final one. Start a new paragraph where the speaker moves on to a "
        "new step or topic; a paragraph usually holds two to six sentences. Do not change any "
        "words.\n\nTranscript:\n";
    const int end = std::min<int>(first + count, static_cast<int>(words.size()));
    for (int i = first; i < end; ++i) {
        if (i > first) {
            prompt += ' ';
        }
        prompt += "[" + std::to_string(i) + "] " +
                  trimmingWhitespace(words[static_cast<std::size_t>(i)].text);
    }
    return prompt;
}

std::string outputSchema() {
    return R"({"type":"object","properties":{"break_after_word_indices":)"
           R"({"type":"array","items":{"type":"integer"}}},)"
           R"("required":["break_after_word_indices"]})";
}

std::optional<std::vector<int>> parseBreaks(std::string_view output, int first, int count,
                                            int wordCount) {
    const auto spans = YouTubeMetadataDraftParser::jsonObjectTexts(output);
    for (auto span = spans.rbegin(); span != spans.rend(); ++span) {
        Json object;
        try {
            object = Json::parse(*span);
        } catch (const Json::exception&) {
            continue;
        }
        if (!object.is_object() || !object.contains("break_after_word_indices") ||
            !object["break_after_word_indices"].is_array()) {
            continue;
        }
        std::vector<int> breaks;
        for (const Json& entry : object["break_after_word_indices"]) {
            if (!entry.is_number()) {
                continue;
            }
            const double value = entry.get<double>();
            if (!std::isfinite(value) || value != std::floor(value) || value < first ||
                value >= first + count || value >= wordCount - 1) {
                continue;
            }
            breaks.push_back(static_cast<int>(value));
        }
        std::sort(breaks.begin(), breaks.end());
        breaks.erase(std::unique(breaks.begin(), breaks.end()), breaks.end());
        return breaks;
    }
    return std::nullopt;
}

} // namespace TranscriptParagraphPrompt

QwenTranscriptParagraphSuggester::QwenTranscriptParagraphSuggester(Configuration configuration)
    : configuration_(std::move(configuration)) {}

std::vector<int> QwenTranscriptParagraphSuggester::suggestBreaks(const TranscriptAnalysis& analysis,
                                                                 const std::stop_token& stop) {
    const auto model = configuration_.model
                           ? configuration_.model
                           : YouTubeMetadataModelStore::standard().installedModel();
    if (!model || !std::filesystem::is_regular_file(*model)) {
        throw YouTubeMetadataGenerationError(YouTubeMetadataGenerationErrorCode::modelNotInstalled);
    }
    const auto executable = resolvedLLMHelperExecutable(configuration_.executableURL);
    const int wordCount = static_cast<int>(analysis.words.size());
    const int window = std::max(1, configuration_.windowWords);

    LLMGenerationSettings settings;
    settings.contextSize = configuration_.contextSize;
    settings.maxGeneratedTokens = configuration_.maxGeneratedTokens;
    settings.temperature = configuration_.temperature;
    settings.topP = configuration_.topP;
    settings.systemPrompt = TranscriptParagraphPrompt::systemPrompt();
    settings.jsonSchema = TranscriptParagraphPrompt::outputSchema();

    std::vector<int> breaks;
    for (int first = 0; first < wordCount; first += window) {
        throwIfCancelled(stop);
        const TemporaryTextFile prompt;
        prompt.write(TranscriptParagraphPrompt::userPrompt(analysis.words, first, window));
        const auto output = LLMHelperProcessRunner::run(
            executable, llmOneShotArguments(*model, settings, prompt.path()), {},
            configuration_.limits, stop);
        if (output.status != 0) {
            throw YouTubeMetadataGenerationError::runtimeFailed(
                output.status, helperErrorSummary(output.standardError));
        }
        const auto found =
            TranscriptParagraphPrompt::parseBreaks(output.standardOutput, first, window, wordCount);
        if (!found) {
            throw YouTubeMetadataGenerationError::invalidOutput(output.standardOutput);
        }
        breaks.insert(breaks.end(), found->begin(), found->end());
    }
    return breaks;
}

} // namespace orvelle
