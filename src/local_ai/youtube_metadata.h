#pragma once

// The records of a YouTube metadata draft: what the local model is given (the edited
// transcript with its times in the finished movie) and what comes back (title,
// description, chapters, tags), and the errors of a generation. Chapters and conversation
// turns are the project's records, which keep them with the export settings.

#include "core/error.h"
#include "core/json.h"
#include "project/project_export_settings.h"

#include <optional>
#include <string>
#include <vector>

namespace orvelle {

struct YouTubeMetadataDraft {
    std::string title;
    std::string description;
    std::vector<YouTubeChapter> chapters;
    std::vector<std::string> tags;

    friend bool operator==(const YouTubeMetadataDraft&, const YouTubeMetadataDraft&) = default;
};

// A word of the edited transcript: where it is heard in the finished movie, and where it
// was said in the take.
struct ExportTranscriptWord {
    std::string text;
    double start = 0; // edited-video seconds
    double end = 0;
    double sourceStart = 0; // take seconds
    double sourceEnd = 0;

    friend bool operator==(const ExportTranscriptWord&, const ExportTranscriptWord&) = default;
};

struct ExportTranscriptChunk {
    int id = 0;
    double start = 0;
    double end = 0;
    std::string text;
    std::vector<ExportTranscriptWord> words;

    friend bool operator==(const ExportTranscriptChunk&, const ExportTranscriptChunk&) = default;
};

struct ExportTranscriptContext {
    double duration = 0; // the edited video's length
    std::vector<ExportTranscriptChunk> chunks;

    friend bool operator==(const ExportTranscriptContext&,
                           const ExportTranscriptContext&) = default;
};

struct TimestampedTranscriptLine {
    double start = 0;
    double end = 0;
    std::string text;

    friend bool operator==(const TimestampedTranscriptLine&,
                           const TimestampedTranscriptLine&) = default;
};

struct YouTubeMetadataGenerationRequest {
    ExportTranscriptContext context;
    std::string instruction; // empty: the first draft
    std::optional<YouTubeMetadataDraft> currentDraft;
    std::vector<YouTubeMetadataConversationTurn> conversation;
};

enum class YouTubeMetadataGenerationErrorCode {
    runtimeLaunchFailed,
    runtimeFailed,
    runtimeTimedOut,
    runtimeOutputTooLarge,
    invalidOutput,
    missingDocument,
    missingTranscript,
    emptyTranscript,
    modelNotInstalled,
    runtimeNotFound,
};

class YouTubeMetadataGenerationError : public CodedError<YouTubeMetadataGenerationErrorCode> {
public:
    using CodedError::CodedError;

    static YouTubeMetadataGenerationError runtimeLaunchFailed(const std::string& text);
    static YouTubeMetadataGenerationError runtimeFailed(int status, const std::string& text);
    static YouTubeMetadataGenerationError invalidOutput(const std::string& output);
    // The cases whose words never change.
    explicit YouTubeMetadataGenerationError(YouTubeMetadataGenerationErrorCode code);
};

template <>
struct JsonCoder<YouTubeMetadataDraft> {
    static YouTubeMetadataDraft decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const YouTubeMetadataDraft& draft);
};

template <>
struct JsonCoder<ExportTranscriptWord> {
    static ExportTranscriptWord decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const ExportTranscriptWord& word);
};

template <>
struct JsonCoder<ExportTranscriptChunk> {
    static ExportTranscriptChunk decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const ExportTranscriptChunk& chunk);
};

template <>
struct JsonCoder<ExportTranscriptContext> {
    static ExportTranscriptContext decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const ExportTranscriptContext& transcript);
};

} // namespace orvelle
