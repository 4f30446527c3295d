#include "speech/align/ctc_word_timing.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

namespace orvelle {

namespace CTCWordTimingBuilder {

CTCWordTimings buildWordTimings(const std::vector<AlignmentInputWord>& inputWords,
                                const std::vector<CTCAlignedTokenSpan>& tokenSpans,
                                double sourceDuration, double frameStrideSeconds,
                                const AlignmentOptions& options) {
    std::unordered_map<std::string_view, std::vector<const CTCAlignedTokenSpan*>> spansByWord;
    for (const auto& span : tokenSpans) {
        if (span.wordID) {
            spansByWord[*span.wordID].push_back(&span);
        }
    }

    CTCWordTimings result;
    result.words.reserve(inputWords.size());
    for (const AlignmentInputWord& input : inputWords) {
        AlignedWordTiming timing{.wordID = input.id, .text = input.text};
        const auto found = spansByWord.find(input.id);
        if (found != spansByWord.end() && !found->second.empty()) {
            const auto& spans = found->second;
            int startFrame = spans.front()->startFrame;
            int endFrame = spans.front()->endFrameExclusive;
            double probabilitySum = 0;
            for (const CTCAlignedTokenSpan* span : spans) {
                startFrame = std::min(startFrame, span->startFrame);
                endFrame = std::max(endFrame, span->endFrameExclusive);
                probabilitySum += std::exp(static_cast<double>(span->averageLogProbability));
            }
            // The mean token probability, not a product: one weak token should not drown a
            // long word.
            const double confidence = probabilitySum / static_cast<double>(spans.size());
            timing.start = frameStrideSeconds * startFrame;
            timing.end = frameStrideSeconds * endFrame;
            timing.confidence = confidence;
            if (confidence < options.lowConfidenceThreshold) {
                timing.quality = AlignmentWordQuality::lowConfidence;
                result.warnings.push_back(
                    {"Low confidence timing for '" + input.text + "'.", {input.id}});
            } else {
                timing.quality = AlignmentWordQuality::aligned;
            }
        } else {
            if (input.roughStart && input.roughEnd && *input.roughStart < *input.roughEnd) {
                timing.quality = AlignmentWordQuality::fallback;
                timing.start = std::min(std::max(*input.roughStart, 0.0), sourceDuration);
                timing.end = std::min(std::max(*input.roughEnd, 0.0), sourceDuration);
            } else {
                timing.quality = AlignmentWordQuality::skipped;
                timing.start = 0;
                timing.end = std::min(std::max(sourceDuration, 0.0), 0.02);
            }
            timing.usedFallbackTiming = true;
            result.warnings.push_back({"Preserved rough timing for '" + input.text +
                                           "' because CTC alignment did not visit its tokens.",
                                       {input.id}});
        }
        result.words.push_back(std::move(timing));
    }
    result.words = MonotonicWordTimingSmoother::smooth(std::move(result.words), sourceDuration,
                                                       options.minimumWordDuration);
    return result;
}

} // namespace CTCWordTimingBuilder

namespace MonotonicWordTimingSmoother {

std::vector<AlignedWordTiming> smooth(std::vector<AlignedWordTiming> words, double sourceDuration,
                                      double minimumDuration) {
    const double duration = std::max(sourceDuration, 0.0);
    double previousEnd = 0;
    for (AlignedWordTiming& word : words) {
        word.start = std::clamp(word.start, 0.0, duration);
        word.end = std::clamp(word.end, 0.0, duration);
        if (word.start > word.end) {
            std::swap(word.start, word.end);
        }
        if (word.start < previousEnd) {
            word.start = previousEnd;
        }
        if (word.end - word.start < minimumDuration) {
            word.end = std::min(word.start + minimumDuration, duration);
        }
        if (word.end < word.start) {
            word.start = word.end;
        }
        previousEnd = word.end;
    }
    return words;
}

} // namespace MonotonicWordTimingSmoother

} // namespace orvelle
