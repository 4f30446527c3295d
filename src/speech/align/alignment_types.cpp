#include "speech/align/alignment_types.h"

#include <array>

namespace orvelle {

namespace {

constexpr std::array<EnumName<AlignmentWordQuality>, 4> kQualityNames{{
    {AlignmentWordQuality::aligned, "aligned"},
    {AlignmentWordQuality::lowConfidence, "low_confidence"},
    {AlignmentWordQuality::fallback, "fallback"},
    {AlignmentWordQuality::skipped, "skipped"},
}};

} // namespace

std::span<const EnumName<AlignmentWordQuality>> jsonNames(AlignmentWordQuality) {
    return kQualityNames;
}

Json JsonCoder<AlignmentWarning>::encode(const AlignmentWarning& warning) {
    return {{"message", warning.message}, {"wordIDs", encodeJson(warning.wordIDs)}};
}

Json JsonCoder<AlignedWordTiming>::encode(const AlignedWordTiming& word) {
    Json json = {{"wordID", word.wordID},
                 {"text", word.text},
                 {"start", word.start},
                 {"end", word.end},
                 {"quality", encodeJson(word.quality)},
                 {"usedFallbackTiming", word.usedFallbackTiming}};
    setOptional(json, "confidence", word.confidence);
    return json;
}

Json JsonCoder<AlignmentFailedSpan>::encode(const AlignmentFailedSpan& span) {
    return {{"startWordID", span.startWordID}, {"endWordID", span.endWordID},
            {"startTime", span.startTime},     {"endTime", span.endTime},
            {"wordCount", span.wordCount},     {"reason", span.reason}};
}

Json JsonCoder<AlignmentReport>::encode(const AlignmentReport& report) {
    Json json = {{"totalWords", report.totalWords},
                 {"changedWords", report.changedWords},
                 {"failedSpans", encodeJson(report.failedSpans)},
                 {"averageBoundaryShift", report.averageBoundaryShift},
                 {"largestBoundaryShift", report.largestBoundaryShift}};
    setOptional(json, "largestShiftWordID", report.largestShiftWordID);
    setOptional(json, "largestShiftWord", report.largestShiftWord);
    return json;
}

} // namespace orvelle
