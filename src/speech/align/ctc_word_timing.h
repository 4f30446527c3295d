#pragma once

// Word start and end times from the aligned token spans, with a confidence and a grade, and
// the smoother that keeps words in order, apart and of a least length.

#include "speech/align/alignment_types.h"
#include "speech/align/ctc_forced_aligner.h"

#include <vector>

namespace orvelle {

struct CTCWordTimings {
    std::vector<AlignedWordTiming> words; // one per input word, in input order
    std::vector<AlignmentWarning> warnings;
};

namespace CTCWordTimingBuilder {

// Words whose tokens were aligned take the frames of their spans; the others keep their
// rough times (fallback) or, without usable ones, a stub at the start (skipped). All then
// pass through the smoother with the options' minimum word duration.
CTCWordTimings buildWordTimings(const std::vector<AlignmentInputWord>& inputWords,
                                const std::vector<CTCAlignedTokenSpan>& tokenSpans,
                                double sourceDuration, double frameStrideSeconds,
                                const AlignmentOptions& options);

} // namespace CTCWordTimingBuilder

namespace MonotonicWordTimingSmoother {

// Clamps to [0, sourceDuration], never lets a word start before the previous one ends, and
// gives each word at least minimumDuration where the end of the source allows it.
std::vector<AlignedWordTiming> smooth(std::vector<AlignedWordTiming> words, double sourceDuration,
                                      double minimumDuration);

} // namespace MonotonicWordTimingSmoother

} // namespace orvelle
