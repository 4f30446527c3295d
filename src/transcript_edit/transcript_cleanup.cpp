#include "transcript_edit/transcript_cleanup.h"

#include "speech/transcript/unicode_text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <set>

namespace orvelle {

namespace {

using Kind = TranscriptCleanupSuggestion::Kind;

constexpr std::array kKindNames{
    EnumName<Kind>{Kind::longPause, "longPause"},
    EnumName<Kind>{Kind::filler, "filler"},
    EnumName<Kind>{Kind::repeatedPhrase, "repeatedPhrase"},
};

constexpr std::array<std::string_view, 15> kFillerWords{"ah", "ahh", "basically", "er", "erm",
                                                        "hm", "hmm", "literally", "mm", "mmm",
                                                        "uh", "uhh", "uhm",       "um", "umm"};

constexpr std::array<std::string_view, 11> kFillerPhrases{"you know what i mean",
                                                          "do you know what i mean",
                                                          "you know",
                                                          "i mean",
                                                          "kind of",
                                                          "sort of",
                                                          "you see",
                                                          "i guess",
                                                          "or whatever",
                                                          "and stuff",
                                                          "and things"};

constexpr size_t kContextWords = 4;
constexpr int kLongestRepeat = 4;
constexpr double kMinimumRemoval = 0.08;
constexpr double kPauseConfidence = 0.96;
constexpr double kDefaultWordConfidence = 0.82;
constexpr double kSameStart = 0.0001;

std::string secondsLabel(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1fs", seconds);
    return text;
}

std::string joined(const std::vector<IndexedTranscriptWord>& words, size_t from, size_t to) {
    std::string text;
    for (size_t i = from; i < to; ++i) {
        if (!text.empty()) {
            text += ' ';
        }
        text += words[i].text;
    }
    return text;
}

std::vector<std::string> phraseWords(std::string_view phrase) {
    return splitAtWhitespace(phrase);
}

std::string stableID(Kind kind, int lowerIndex, int upperIndex, double start, double end) {
    return std::string(enumName(kind)) + ":" + std::to_string(lowerIndex) + ":" +
           std::to_string(upperIndex) + ":" + std::to_string(std::llround(start * 1000)) + ":" +
           std::to_string(std::llround(end * 1000));
}

// The suggestion that removes words[a...b] (both included).
TranscriptCleanupSuggestion wordRemoval(const std::vector<IndexedTranscriptWord>& words, size_t a,
                                        size_t b, Kind kind) {
    TranscriptCleanupSuggestion suggestion;
    suggestion.kind = kind;
    const bool single = a == b;
    suggestion.title = kind == Kind::filler
                           ? (single ? "Remove filler word" : "Remove filler phrase")
                           : (single ? "Remove repeated word" : "Remove repeated phrase");
    suggestion.sourceStart = words[a].startTime;
    suggestion.sourceEnd = words[b].endTime;
    suggestion.wordRange = TranscriptTokenIDRange{words[a].tokenID, words[b].tokenID};
    const std::string target = joined(words, a, b + 1);
    suggestion.leadingContext = joined(words, a >= kContextWords ? a - kContextWords : 0, a);
    suggestion.trailingContext =
        joined(words, b + 1, std::min(words.size(), b + 1 + kContextWords));
    std::string snippet = suggestion.leadingContext;
    for (const std::string* piece :
         {&target, static_cast<const std::string*>(&suggestion.trailingContext)}) {
        if (!piece->empty()) {
            snippet += (snippet.empty() ? "" : " ") + *piece;
        }
    }
    suggestion.snippet = snippet;
    suggestion.targetText = target;
    suggestion.removedText = target;
    suggestion.estimatedRemovedDuration =
        std::max(suggestion.sourceEnd - suggestion.sourceStart, 0.0);
    double sum = 0;
    int count = 0;
    for (size_t i = a; i <= b; ++i) {
        if (words[i].confidence) {
            sum += *words[i].confidence;
            ++count;
        }
    }
    suggestion.confidence = count > 0 ? sum / count : kDefaultWordConfidence;
    suggestion.id = stableID(kind, words[a].index, words[b].index, suggestion.sourceStart,
                             suggestion.sourceEnd);
    return suggestion;
}

std::vector<TranscriptCleanupSuggestion>
pauseSuggestions(const std::vector<IndexedTranscriptWord>& words, double sourceDuration,
                 const std::optional<TranscriptCleanupAudioActivity>& activity) {
    std::vector<TranscriptCleanupSuggestion> result;
    const double total = std::max(sourceDuration, 0.0);
    for (size_t i = 0; i + 1 < words.size(); ++i) {
        const auto& before = words[i];
        const auto& after = words[i + 1];
        const double gap = after.startTime - before.endTime;
        if (gap < TranscriptCleanupSuggester::kLongPause) {
            continue;
        }
        if (activity && activity->hasMeaningfulActivity(before.endTime, after.startTime)) {
            continue; // something the viewer should hear or see goes on
        }
        const double start =
            std::clamp(before.endTime + TranscriptCleanupSuggester::kPauseKept, 0.0, total);
        const double end =
            std::clamp(after.startTime - TranscriptCleanupSuggester::kPauseKept, 0.0, total);
        if (end - start < kMinimumRemoval) {
            continue;
        }
        const std::string length = secondsLabel(gap);
        TranscriptCleanupSuggestion suggestion;
        suggestion.kind = Kind::longPause;
        suggestion.wordRange = TranscriptTokenIDRange{2 * before.index + 1, 2 * before.index + 1};
        suggestion.sourceStart = start;
        suggestion.sourceEnd = end;
        suggestion.title = "Shorten " + length + " pause";
        suggestion.snippet = before.text + " [" + length + " pause] " + after.text;
        suggestion.leadingContext = before.text;
        suggestion.targetText = length + " pause";
        suggestion.trailingContext = after.text;
        suggestion.removedText = "silence";
        suggestion.confidence = kPauseConfidence;
        suggestion.estimatedRemovedDuration = end - start;
        suggestion.id = stableID(Kind::longPause, before.index, after.index, start, end);
        result.push_back(std::move(suggestion));
    }
    return result;
}

std::vector<TranscriptCleanupSuggestion>
fillerSuggestions(const std::vector<IndexedTranscriptWord>& words) {
    std::vector<std::vector<std::string>> phrases;
    phrases.reserve(kFillerPhrases.size());
    for (const auto phrase : kFillerPhrases) {
        phrases.push_back(phraseWords(phrase));
    }
    std::stable_sort(phrases.begin(), phrases.end(),
                     [](const auto& a, const auto& b) { return a.size() > b.size(); });
    std::vector<TranscriptCleanupSuggestion> result;
    std::vector<bool> used(words.size(), false);
    for (const auto& phrase : phrases) {
        const size_t n = phrase.size();
        for (size_t i = 0; i + n <= words.size(); ++i) {
            if (std::any_of(used.begin() + static_cast<long>(i),
                            used.begin() + static_cast<long>(i + n), [](bool u) { return u; })) {
                continue;
            }
            bool matches = true;
            for (size_t k = 0; k < n && matches; ++k) {
                matches = words[i + k].normalizedText == phrase[k];
            }
            if (matches) {
                result.push_back(wordRemoval(words, i, i + n - 1, Kind::filler));
                std::fill(used.begin() + static_cast<long>(i),
                          used.begin() + static_cast<long>(i + n), true);
            }
        }
    }
    for (size_t i = 0; i < words.size(); ++i) {
        if (!used[i] && std::find(kFillerWords.begin(), kFillerWords.end(),
                                  words[i].normalizedText) != kFillerWords.end()) {
            result.push_back(wordRemoval(words, i, i, Kind::filler));
        }
    }
    return result;
}

std::vector<TranscriptCleanupSuggestion>
repeatedPhraseSuggestions(const std::vector<IndexedTranscriptWord>& words) {
    std::vector<TranscriptCleanupSuggestion> result;
    const size_t count = words.size();
    if (count < 2) {
        return result;
    }
    std::vector<bool> used(count, false);
    const size_t longest = std::min<size_t>(count, 2 * kLongestRepeat) / 2;
    for (size_t n = longest; n >= 1; --n) {
        for (size_t i = 0; i + 2 * n <= count; ++i) {
            bool skip = false;
            for (size_t k = i; k < i + 2 * n && !skip; ++k) {
                skip = used[k] || words[k].normalizedText.empty();
            }
            if (skip) {
                continue;
            }
            bool same = true;
            for (size_t k = 0; k < n && same; ++k) {
                same = words[i + k].normalizedText == words[i + n + k].normalizedText;
            }
            if (same) {
                result.push_back(wordRemoval(words, i + n, i + 2 * n - 1, Kind::repeatedPhrase));
                std::fill(used.begin() + static_cast<long>(i + n),
                          used.begin() + static_cast<long>(i + 2 * n), true);
            }
        }
    }
    return result;
}

std::vector<TranscriptCleanupSuggestion>
nonOverlappingSuggestions(std::vector<TranscriptCleanupSuggestion> suggestions) {
    std::stable_sort(suggestions.begin(), suggestions.end(), [](const auto& a, const auto& b) {
        if (std::abs(a.sourceStart - b.sourceStart) <= kSameStart) {
            return static_cast<int>(a.kind) < static_cast<int>(b.kind);
        }
        return a.sourceStart < b.sourceStart;
    });
    std::vector<TranscriptCleanupSuggestion> kept;
    for (auto& suggestion : suggestions) {
        const bool overlaps = std::any_of(kept.begin(), kept.end(), [&](const auto& other) {
            return suggestion.sourceStart < other.sourceEnd &&
                   other.sourceStart < suggestion.sourceEnd;
        });
        if (!overlaps) {
            kept.push_back(std::move(suggestion));
        }
    }
    return kept;
}

} // namespace

std::span<const EnumName<TranscriptCleanupSuggestion::Kind>>
jsonNames(TranscriptCleanupSuggestion::Kind) {
    return kKindNames;
}

std::vector<IndexedTranscriptWord> indexedTranscriptWords(const TranscriptAnalysis& analysis) {
    std::vector<IndexedTranscriptWord> words;
    for (size_t i = 0; i < analysis.words.size(); ++i) {
        const TranscriptWord& word = analysis.words[i];
        if (!word.startTime || !word.endTime || !std::isfinite(*word.startTime) ||
            !std::isfinite(*word.endTime) || !(*word.startTime < *word.endTime)) {
            continue;
        }
        IndexedTranscriptWord indexed;
        indexed.index = static_cast<int>(i);
        indexed.tokenID = 2 * indexed.index;
        indexed.text = trimmingWhitespace(word.text);
        indexed.normalizedText = lowercasedAlphanumerics(word.text);
        if (indexed.normalizedText.empty()) {
            continue;
        }
        indexed.startTime = *word.startTime;
        indexed.endTime = *word.endTime;
        indexed.confidence = word.confidence;
        words.push_back(std::move(indexed));
    }
    return words;
}

TranscriptCleanupAudioActivity
TranscriptCleanupAudioActivity::fromWaveform(std::vector<float> peaks, double duration) {
    TranscriptCleanupAudioActivity activity;
    float loudest = 0;
    for (const float peak : peaks) {
        loudest = std::max(loudest, peak);
    }
    activity.referenceLevel = std::max(loudest, 0.0001f);
    activity.peaks = std::move(peaks);
    activity.duration = duration;
    return activity;
}

bool TranscriptCleanupAudioActivity::hasMeaningfulActivity(double start, double end) const {
    if (peaks.empty() || !(duration > 0)) {
        return false;
    }
    const double lo = std::clamp(start, 0.0, duration);
    const double hi = std::clamp(end, 0.0, duration);
    if (!(hi > lo)) {
        return false;
    }
    const auto n = static_cast<double>(peaks.size());
    const auto first = static_cast<size_t>(std::clamp(std::floor(lo / duration * n), 0.0, n));
    auto last = static_cast<size_t>(std::clamp(std::ceil(hi / duration * n), 0.0, n));
    if (last <= first) {
        last = std::min(first + 1, peaks.size());
        if (last <= first) {
            return false;
        }
    }
    const float reference = std::max(referenceLevel, 0.0001f);
    size_t active = 0;
    for (size_t i = first; i < last; ++i) {
        if (peaks[i] >= minimumRawPeak && peaks[i] / reference >= activeThreshold) {
            ++active;
        }
    }
    const auto total = static_cast<double>(last - first);
    return static_cast<double>(active) / total >= minimumActiveCoverage &&
           static_cast<double>(active) * duration / n >= minimumActiveDuration;
}

namespace TranscriptCleanupSuggester {

std::vector<TranscriptCleanupSuggestion>
suggestions(const TranscriptAnalysis& analysis, double sourceDuration,
            const std::optional<TranscriptCleanupAudioActivity>& systemAudioActivity) {
    const auto words = indexedTranscriptWords(analysis);
    if (words.empty()) {
        return {};
    }
    auto all = pauseSuggestions(words, sourceDuration, systemAudioActivity);
    for (auto& suggestion : fillerSuggestions(words)) {
        all.push_back(std::move(suggestion));
    }
    for (auto& suggestion : repeatedPhraseSuggestions(words)) {
        all.push_back(std::move(suggestion));
    }
    return nonOverlappingSuggestions(std::move(all));
}

} // namespace TranscriptCleanupSuggester

Json JsonCoder<TranscriptCleanupSuggestion>::encode(const TranscriptCleanupSuggestion& s) {
    return {{"id", s.id},
            {"kind", encodeJson(s.kind)},
            {"wordRange", s.wordRange ? encodeJson(*s.wordRange) : Json(nullptr)},
            {"sourceRange", Json::array({s.sourceStart, s.sourceEnd})},
            {"title", s.title},
            {"snippet", s.snippet},
            {"leadingContext", s.leadingContext},
            {"targetText", s.targetText},
            {"trailingContext", s.trailingContext},
            {"removedText", s.removedText},
            {"estimatedRemovedDuration", s.estimatedRemovedDuration},
            {"confidence", s.confidence}};
}

} // namespace orvelle
