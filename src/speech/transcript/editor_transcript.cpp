#include "speech/transcript/editor_transcript.h"

#include <algorithm>

namespace orvelle {

EditorTranscript::EditorTranscript(
    TranscriptAnalysis analysis_, std::vector<int> paragraphBreaks, bool paragraphBreaksSuggested_,
    std::optional<std::vector<EditorTranscriptAlignmentBaselineWord>> alignmentBaselineWords_)
    : analysis(std::move(analysis_)),
      paragraphBreakAfterWordIndices(normalizedBreaks(std::move(paragraphBreaks))),
      paragraphBreaksSuggested(paragraphBreaksSuggested_),
      alignmentBaselineWords(std::move(alignmentBaselineWords_)) {}

std::vector<int> EditorTranscript::normalizedBreaks(std::vector<int> breaks) {
    std::erase_if(breaks, [](int index) { return index < 0; });
    std::sort(breaks.begin(), breaks.end());
    breaks.erase(std::unique(breaks.begin(), breaks.end()), breaks.end());
    return breaks;
}

EditorTranscriptAlignmentBaselineWord
JsonCoder<EditorTranscriptAlignmentBaselineWord>::decode(const Json& json,
                                                         const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    EditorTranscriptAlignmentBaselineWord word;
    word.wordIndex = reader.required<int>("wordIndex");
    word.text = reader.value<std::string>("text", "");
    word.startTime = reader.optional<double>("startTime");
    word.endTime = reader.optional<double>("endTime");
    return word;
}

Json JsonCoder<EditorTranscriptAlignmentBaselineWord>::encode(
    const EditorTranscriptAlignmentBaselineWord& word) {
    Json json = {{"wordIndex", word.wordIndex}, {"text", word.text}};
    setOptional(json, "startTime", word.startTime);
    setOptional(json, "endTime", word.endTime);
    return json;
}

EditorTranscript JsonCoder<EditorTranscript>::decode(const Json& json,
                                                     const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    EditorTranscript transcript(
        reader.required<TranscriptAnalysis>("analysis"),
        reader.value<std::vector<int>>("paragraphBreakAfterWordIndices", {}),
        reader.value<bool>("paragraphBreaksSuggested", false),
        reader.optional<std::vector<EditorTranscriptAlignmentBaselineWord>>(
            "alignmentBaselineWords"));
    transcript.schemaVersion =
        reader.value<int>("schemaVersion", EditorTranscript::kCurrentSchemaVersion);
    return transcript;
}

Json JsonCoder<EditorTranscript>::encode(const EditorTranscript& transcript) {
    Json json = {
        {"schemaVersion", transcript.schemaVersion},
        {"analysis", encodeJson(transcript.analysis)},
        {"paragraphBreakAfterWordIndices", encodeJson(transcript.paragraphBreakAfterWordIndices)},
        {"paragraphBreaksSuggested", transcript.paragraphBreaksSuggested}};
    setOptional(json, "alignmentBaselineWords", transcript.alignmentBaselineWords);
    return json;
}

} // namespace orvelle
