#include "speech/transcript/transcript_analysis.h"

#include <array>

namespace orvelle {

namespace {

constexpr std::array<EnumName<TranscriptComputeUnits>, 4> kComputeUnitNames{{
    {TranscriptComputeUnits::ane, "ane"},
    {TranscriptComputeUnits::gpu, "gpu"},
    {TranscriptComputeUnits::cpu, "cpu"},
    {TranscriptComputeUnits::all, "all"},
}};

} // namespace

std::span<const EnumName<TranscriptComputeUnits>> jsonNames(TranscriptComputeUnits) {
    return kComputeUnitNames;
}

double realtimeFactor(double audioDurationSeconds, double inferenceDurationSeconds) {
    return inferenceDurationSeconds > 0 ? audioDurationSeconds / inferenceDurationSeconds : 0;
}

TranscriptToken JsonCoder<TranscriptToken>::decode(const Json& json,
                                                   const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    TranscriptToken token;
    token.text = reader.required<std::string>("text");
    token.tokenID = reader.value<int>("tokenID", 0);
    token.startTime = reader.required<double>("startTime");
    token.endTime = reader.required<double>("endTime");
    token.confidence = reader.sanitised("confidence", 0, 1, 1);
    return token;
}

Json JsonCoder<TranscriptToken>::encode(const TranscriptToken& token) {
    return {{"text", token.text},
            {"tokenID", token.tokenID},
            {"startTime", token.startTime},
            {"endTime", token.endTime},
            {"confidence", token.confidence}};
}

TranscriptWord JsonCoder<TranscriptWord>::decode(const Json& json,
                                                 const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    TranscriptWord word;
    word.text = reader.required<std::string>("text");
    word.startTime = reader.optional<double>("startTime");
    word.endTime = reader.optional<double>("endTime");
    word.confidence = reader.optional<double>("confidence");
    word.startTokenIndex = reader.optional<int>("startTokenIndex");
    word.endTokenIndex = reader.optional<int>("endTokenIndex");
    return word;
}

Json JsonCoder<TranscriptWord>::encode(const TranscriptWord& word) {
    Json json = {{"text", word.text}};
    setOptional(json, "startTime", word.startTime);
    setOptional(json, "endTime", word.endTime);
    setOptional(json, "confidence", word.confidence);
    setOptional(json, "startTokenIndex", word.startTokenIndex);
    setOptional(json, "endTokenIndex", word.endTokenIndex);
    return json;
}

TranscriptSourceMetadata
JsonCoder<TranscriptSourceMetadata>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    TranscriptSourceMetadata source;
    source.analyzer = reader.value<std::string>("analyzer", "");
    source.audioURL = reader.value<std::filesystem::path>("audioURL", {});
    source.modelDescription = reader.value<std::string>("modelDescription", "");
    source.computeUnits = reader.value<std::string>("computeUnits", "");
    source.audioDurationSeconds = reader.sanitised("audioDurationSeconds", 0, 1e9, 0);
    source.inferenceDurationSeconds = reader.sanitised("inferenceDurationSeconds", 0, 1e9, 0);
    source.realtimeFactor = reader.sanitised("realtimeFactor", 0, 1e9, 0);
    source.createdAt = reader.required<Date>("createdAt");
    return source;
}

Json JsonCoder<TranscriptSourceMetadata>::encode(const TranscriptSourceMetadata& source) {
    return {{"analyzer", source.analyzer},
            {"audioURL", encodeJson(source.audioURL)},
            {"modelDescription", source.modelDescription},
            {"computeUnits", source.computeUnits},
            {"audioDurationSeconds", source.audioDurationSeconds},
            {"inferenceDurationSeconds", source.inferenceDurationSeconds},
            {"realtimeFactor", source.realtimeFactor},
            {"createdAt", encodeJson(source.createdAt)}};
}

TranscriptAnalysis JsonCoder<TranscriptAnalysis>::decode(const Json& json,
                                                         const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    TranscriptAnalysis analysis;
    analysis.text = reader.value<std::string>("text", "");
    analysis.tokens = reader.value<std::vector<TranscriptToken>>("tokens", {});
    analysis.words = reader.value<std::vector<TranscriptWord>>("words", {});
    analysis.source = reader.required<TranscriptSourceMetadata>("source");
    return analysis;
}

Json JsonCoder<TranscriptAnalysis>::encode(const TranscriptAnalysis& analysis) {
    return {{"text", analysis.text},
            {"tokens", encodeJson(analysis.tokens)},
            {"words", encodeJson(analysis.words)},
            {"source", encodeJson(analysis.source)}};
}

} // namespace orvelle
