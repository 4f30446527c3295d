#pragma once

// Cleanup suggestions from the transcript alone: long pauses to shorten, filler words and
// phrases, and phrases said twice. Each is a ready cut, by token ids and by source range,
// that the user takes or leaves; an id that stays the same across runs lets a dismissed
// one be recognised again.

#include "core/json.h"
#include "speech/transcript/transcript_analysis.h"
#include "transcript_edit/transcript_word_tokens.h"

#include <optional>
#include <string>
#include <vector>

namespace orvelle {

struct TranscriptCleanupSuggestion {
    enum class Kind { longPause, filler, repeatedPhrase };

    std::string id;
    Kind kind = Kind::longPause;
    std::optional<TranscriptTokenIDRange> wordRange;
    double sourceStart = 0; // the stretch to remove
    double sourceEnd = 0;
    std::string title;
    std::string snippet;
    std::string leadingContext;
    std::string targetText;
    std::string trailingContext;
    std::string removedText;
    double estimatedRemovedDuration = 0;
    double confidence = 0;

    friend bool operator==(const TranscriptCleanupSuggestion&,
                           const TranscriptCleanupSuggestion&) = default;
};

std::span<const EnumName<TranscriptCleanupSuggestion::Kind>>
    jsonNames(TranscriptCleanupSuggestion::Kind);

// A word that can take part: it has both times, start before end, and some letter or digit.
struct IndexedTranscriptWord {
    int index = 0; // in the analysis
    int tokenID = 0;
    std::string text;
    std::string normalizedText; // lower case, letters and digits only
    double startTime = 0;
    double endTime = 0;
    std::optional<double> confidence;
};

std::vector<IndexedTranscriptWord> indexedTranscriptWords(const TranscriptAnalysis& analysis);

// Whether the system's own sound is doing something in a stretch (a pause with a sound
// playing through it is worth keeping).
struct TranscriptCleanupAudioActivity {
    std::vector<float> peaks; // the system audio's waveform
    double duration = 0;
    float referenceLevel = 0.0001f; // the waveform's loudest peak, at least 0.0001
    float activeThreshold = 0.22f;
    float minimumRawPeak = 0.015f;
    double minimumActiveCoverage = 0.18;
    double minimumActiveDuration = 0.25;

    // From a waveform's peaks and length.
    static TranscriptCleanupAudioActivity fromWaveform(std::vector<float> peaks, double duration);

    bool hasMeaningfulActivity(double start, double end) const;
};

namespace TranscriptCleanupSuggester {

inline constexpr double kLongPause = 2.0;
inline constexpr double kPauseKept = 0.225; // of silence left at each end of a long pause

// Pauses, then fillers, then repeats, with any that overlap one before them dropped.
std::vector<TranscriptCleanupSuggestion>
suggestions(const TranscriptAnalysis& analysis, double sourceDuration,
            const std::optional<TranscriptCleanupAudioActivity>& systemAudioActivity);

} // namespace TranscriptCleanupSuggester

template <>
struct JsonCoder<TranscriptCleanupSuggestion> {
    static Json encode(const TranscriptCleanupSuggestion& suggestion);
};

} // namespace orvelle
