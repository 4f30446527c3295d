#pragma once

// What the editor keeps of a take's speech: the analysis, where paragraphs end, and the
// word times from before the first precise alignment. The record lives here, beside the
// analysis, because precise word timing reads and fills it; the store that reads and
// writes "<name>.transcript.editor.json" belongs to the transcript editor.

#include "speech/transcript/transcript_analysis.h"

#include <optional>
#include <string>
#include <vector>

namespace orvelle {

struct EditorTranscriptAlignmentBaselineWord {
    int wordIndex = 0;
    std::string text;
    std::optional<double> startTime;
    std::optional<double> endTime;

    friend bool operator==(const EditorTranscriptAlignmentBaselineWord&,
                           const EditorTranscriptAlignmentBaselineWord&) = default;
};

struct EditorTranscript {
    static constexpr int kCurrentSchemaVersion = 1;

    int schemaVersion = kCurrentSchemaVersion;
    TranscriptAnalysis analysis;
    // Word indexes after which a paragraph ends; always ascending with no duplicates and no
    // negative entries (see normalizedBreaks).
    std::vector<int> paragraphBreakAfterWordIndices;
    bool paragraphBreaksSuggested = false;
    // Rough times from before the first precise alignment; absent until one has run.
    std::optional<std::vector<EditorTranscriptAlignmentBaselineWord>> alignmentBaselineWords;

    EditorTranscript() = default;
    EditorTranscript(TranscriptAnalysis analysis, std::vector<int> paragraphBreaks = {},
                     bool paragraphBreaksSuggested = false,
                     std::optional<std::vector<EditorTranscriptAlignmentBaselineWord>>
                         alignmentBaselineWords = std::nullopt);

    // Drops negative values and duplicates and sorts ascending.
    static std::vector<int> normalizedBreaks(std::vector<int> breaks);

    friend bool operator==(const EditorTranscript&, const EditorTranscript&) = default;
};

template <>
struct JsonCoder<EditorTranscriptAlignmentBaselineWord> {
    static EditorTranscriptAlignmentBaselineWord decode(const Json& json,
                                                        const JsonDecodeContext& context);
    static Json encode(const EditorTranscriptAlignmentBaselineWord& word);
};

template <>
struct JsonCoder<EditorTranscript> {
    static EditorTranscript decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const EditorTranscript& transcript);
};

} // namespace orvelle
