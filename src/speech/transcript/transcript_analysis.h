#pragma once

// What a transcription of one audio file yields: the text, the recogniser's tokens with
// their times, the words built from them, and where it all came from. Stored as the
// "<name>.transcript.json" sidecar of a take; every time is a take (source) time in seconds.

#include "core/date.h"
#include "core/json.h"

#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace orvelle {

struct TranscriptToken {
    std::string text; // the piece with its word mark turned into a blank
    int tokenID = 0;
    double startTime = 0;
    double endTime = 0;
    double confidence = 1.0;

    friend bool operator==(const TranscriptToken&, const TranscriptToken&) = default;
};

struct TranscriptWord {
    std::string text;
    std::optional<double> startTime;
    std::optional<double> endTime;
    std::optional<double> confidence; // mean of the tokens' confidence
    std::optional<int> startTokenIndex;
    std::optional<int> endTokenIndex; // the last token of the word, inclusive

    friend bool operator==(const TranscriptWord&, const TranscriptWord&) = default;
};

struct TranscriptSourceMetadata {
    std::string analyzer;           // "ParakeetTDT"
    std::filesystem::path audioURL; // the file analysed
    std::string modelDescription;   // the model folder's standardised path
    std::string computeUnits;       // "ane", "gpu", "cpu" or "all"
    double audioDurationSeconds = 0;
    double inferenceDurationSeconds = 0;
    double realtimeFactor = 0; // audio seconds per inference second
    Date createdAt;

    friend bool operator==(const TranscriptSourceMetadata&,
                           const TranscriptSourceMetadata&) = default;
};

struct TranscriptAnalysis {
    std::string text;
    std::vector<TranscriptToken> tokens;
    std::vector<TranscriptWord> words;
    TranscriptSourceMetadata source;

    friend bool operator==(const TranscriptAnalysis&, const TranscriptAnalysis&) = default;
};

// Audio seconds per inference second; 0 when the inference took no measurable time.
double realtimeFactor(double audioDurationSeconds, double inferenceDurationSeconds);

enum class TranscriptComputeUnits { ane, gpu, cpu, all };

std::span<const EnumName<TranscriptComputeUnits>> jsonNames(TranscriptComputeUnits);

// Where the recogniser's model comes from: a folder on this machine.
struct TranscriptModelSource {
    std::filesystem::path local;

    friend bool operator==(const TranscriptModelSource&, const TranscriptModelSource&) = default;
};

template <>
struct JsonCoder<TranscriptToken> {
    static TranscriptToken decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const TranscriptToken& token);
};

template <>
struct JsonCoder<TranscriptWord> {
    static TranscriptWord decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const TranscriptWord& word);
};

template <>
struct JsonCoder<TranscriptSourceMetadata> {
    static TranscriptSourceMetadata decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const TranscriptSourceMetadata& source);
};

template <>
struct JsonCoder<TranscriptAnalysis> {
    static TranscriptAnalysis decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const TranscriptAnalysis& analysis);
};

} // namespace orvelle
