#pragma once

// The values that pass through precise word timing: the words handed in with their rough
// times, the options, the timings that come out, warnings, and the report.

#include "core/json.h"

#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvelle {

struct AlignmentInputWord {
    std::string id;
    std::string text;
    std::optional<double> roughStart;
    std::optional<double> roughEnd;

    friend bool operator==(const AlignmentInputWord&, const AlignmentInputWord&) = default;
};

// A problem that cost precision but not the run.
struct AlignmentWarning {
    std::string message;
    std::vector<std::string> wordIDs;

    friend bool operator==(const AlignmentWarning&, const AlignmentWarning&) = default;
};

struct AlignmentOptions {
    double minimumWordDuration = 0.02;
    double significantShiftThreshold = 0.005;
    double lowConfidenceThreshold = 0.12;
    double maximumChunkDuration = 120;
    double chunkOverlap = 3;

    friend bool operator==(const AlignmentOptions&, const AlignmentOptions&) = default;
};

enum class AlignmentWordQuality { aligned, lowConfidence, fallback, skipped };

std::span<const EnumName<AlignmentWordQuality>> jsonNames(AlignmentWordQuality);

struct AlignedWordTiming {
    std::string wordID;
    std::string text;
    double start = 0;
    double end = 0;
    std::optional<double> confidence;
    AlignmentWordQuality quality = AlignmentWordQuality::aligned;
    bool usedFallbackTiming = false;

    friend bool operator==(const AlignedWordTiming&, const AlignedWordTiming&) = default;
};

// A run of words that did not get aligned timing.
struct AlignmentFailedSpan {
    std::string startWordID;
    std::string endWordID;
    double startTime = 0;
    double endTime = 0;
    int wordCount = 0;
    std::string reason; // the first word's quality as text

    friend bool operator==(const AlignmentFailedSpan&, const AlignmentFailedSpan&) = default;
};

struct AlignmentReport {
    int totalWords = 0;
    int changedWords = 0;
    std::vector<AlignmentFailedSpan> failedSpans;
    double averageBoundaryShift = 0;
    double largestBoundaryShift = 0;
    std::optional<std::string> largestShiftWordID;
    std::optional<std::string> largestShiftWord;

    // Compares the aligned words with the rough times of the input words of the same id.
    static AlignmentReport make(const std::vector<AlignedWordTiming>& words,
                                const std::vector<AlignmentInputWord>& inputWords,
                                const AlignmentOptions& options);

    friend bool operator==(const AlignmentReport&, const AlignmentReport&) = default;
};

// One piece of a long file: the source range is what the chunk answers for, the inference
// range (a little wider) is what the model hears.
struct AlignmentChunk {
    double sourceStart = 0;
    double sourceEnd = 0;
    double inferenceStart = 0;
    double inferenceEnd = 0;

    friend bool operator==(const AlignmentChunk&, const AlignmentChunk&) = default;
};

struct AlignmentAudioBuffer {
    std::vector<float> samples; // mono
    double sampleRate = 16000;

    double duration() const {
        return sampleRate > 0 ? static_cast<double>(samples.size()) / sampleRate : 0;
    }
};

struct AlignmentRequest {
    std::filesystem::path audioFileURL;
    std::vector<AlignmentInputWord> words;
    double sourceDuration = 0;
    AlignmentOptions options;
};

struct AlignmentResult {
    std::vector<AlignedWordTiming> words;
    AlignmentReport report;
    std::vector<AlignmentWarning> warnings;
};

template <>
struct JsonCoder<AlignmentWarning> {
    static Json encode(const AlignmentWarning& warning);
};
template <>
struct JsonCoder<AlignedWordTiming> {
    static Json encode(const AlignedWordTiming& word);
};
template <>
struct JsonCoder<AlignmentFailedSpan> {
    static Json encode(const AlignmentFailedSpan& span);
};
template <>
struct JsonCoder<AlignmentReport> {
    static Json encode(const AlignmentReport& report);
};

} // namespace orvelle
