#include "local_ai/youtube_metadata.h"

namespace orvelle {

namespace {

std::string messageFor(YouTubeMetadataGenerationErrorCode code) {
    using enum YouTubeMetadataGenerationErrorCode;
    switch (code) {
    case missingDocument:
        return "No recording is loaded.";
    case missingTranscript:
        return "Could not create a transcript for this recording.";
    case emptyTranscript:
        return "The transcript is empty.";
    case modelNotInstalled:
        return "The YouTube metadata model is not installed.";
    case runtimeNotFound:
        return "The local AI helper is not bundled. Run make llm-helper, then rebuild the app.";
    default:
        return "The local AI helper failed.";
    }
}

} // namespace

YouTubeMetadataGenerationError::YouTubeMetadataGenerationError(
    YouTubeMetadataGenerationErrorCode code)
    : CodedError(code, messageFor(code)) {}

YouTubeMetadataGenerationError
YouTubeMetadataGenerationError::runtimeLaunchFailed(const std::string& text) {
    return {YouTubeMetadataGenerationErrorCode::runtimeLaunchFailed,
            "Could not start llama.cpp: " + text};
}

YouTubeMetadataGenerationError
YouTubeMetadataGenerationError::runtimeFailed(int status, const std::string& text) {
    return {YouTubeMetadataGenerationErrorCode::runtimeFailed,
            "llama.cpp exited with status " + std::to_string(status) + ": " +
                (text.empty() ? std::string("No error output was produced.") : text)};
}

YouTubeMetadataGenerationError
YouTubeMetadataGenerationError::invalidOutput(const std::string& output) {
    return {YouTubeMetadataGenerationErrorCode::invalidOutput,
            "Qwen did not return valid metadata JSON. Output: " + output};
}

YouTubeMetadataDraft JsonCoder<YouTubeMetadataDraft>::decode(const Json& json,
                                                             const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.value<std::string>("title", ""), reader.value<std::string>("description", ""),
            reader.value<std::vector<YouTubeChapter>>("chapters", {}),
            reader.value<std::vector<std::string>>("tags", {})};
}

Json JsonCoder<YouTubeMetadataDraft>::encode(const YouTubeMetadataDraft& draft) {
    return {{"title", draft.title},
            {"description", draft.description},
            {"chapters", encodeJson(draft.chapters)},
            {"tags", encodeJson(draft.tags)}};
}

ExportTranscriptWord JsonCoder<ExportTranscriptWord>::decode(const Json& json,
                                                             const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.required<std::string>("text"), reader.required<double>("start"),
            reader.required<double>("end"), reader.required<double>("sourceStart"),
            reader.required<double>("sourceEnd")};
}

Json JsonCoder<ExportTranscriptWord>::encode(const ExportTranscriptWord& word) {
    return {{"text", word.text},
            {"start", word.start},
            {"end", word.end},
            {"sourceStart", word.sourceStart},
            {"sourceEnd", word.sourceEnd}};
}

ExportTranscriptChunk JsonCoder<ExportTranscriptChunk>::decode(const Json& json,
                                                               const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.required<int>("id"), reader.required<double>("start"),
            reader.required<double>("end"), reader.required<std::string>("text"),
            reader.value<std::vector<ExportTranscriptWord>>("words", {})};
}

Json JsonCoder<ExportTranscriptChunk>::encode(const ExportTranscriptChunk& chunk) {
    return {{"id", chunk.id},
            {"start", chunk.start},
            {"end", chunk.end},
            {"text", chunk.text},
            {"words", encodeJson(chunk.words)}};
}

ExportTranscriptContext
JsonCoder<ExportTranscriptContext>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.required<double>("duration"),
            reader.value<std::vector<ExportTranscriptChunk>>("chunks", {})};
}

Json JsonCoder<ExportTranscriptContext>::encode(const ExportTranscriptContext& transcript) {
    return {{"duration", transcript.duration}, {"chunks", encodeJson(transcript.chunks)}};
}

} // namespace orvelle
