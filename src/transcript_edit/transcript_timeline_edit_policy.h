#pragma once

// Which stretch of source a cut by words removes: how much of the silence around the
// selected words goes with them. By default the gap to each kept neighbour is halved, with
// at most a budget of silence kept beside it that depends on the punctuation before the
// cut (a sentence end keeps more than a clause, a clause more than nothing); with the
// microphone's energy profile each end moves into real silence.

#include "transcript_edit/transcript_splice_energy.h"
#include "transcript_edit/transcript_word_tokens.h"

#include <optional>
#include <string_view>

namespace orvelle {

enum class TranscriptSplicePunctuation { sentence, clause, none };

namespace TranscriptSplicePunctuationRules {
// The punctuation after a word's last letter or digit: sentence marks (. ! ? …) first,
// then clause marks (, ; : — –).
TranscriptSplicePunctuation from(std::string_view wordText);
// Seconds of silence kept beside a cut: 0.25 after a sentence, 0.16 after a clause, 0.11.
double budget(TranscriptSplicePunctuation punctuation);
} // namespace TranscriptSplicePunctuationRules

struct TranscriptSpliceContext {
    double selectionStart = 0; // start of the first selected token
    double selectionEnd = 0;   // end of the last selected token
    bool firstIsPause = false;
    bool lastIsPause = false;
    // End of the word before, or start of the pause before; absent at the start.
    std::optional<double> previousBoundary;
    bool previousIsPause = false;
    // Start of the word after, or end of the pause after; absent at the end.
    std::optional<double> nextBoundary;
    bool nextIsPause = false;
    TranscriptSplicePunctuation punctuation = TranscriptSplicePunctuation::none;
    double sourceDuration = 0;

    friend bool operator==(const TranscriptSpliceContext&,
                           const TranscriptSpliceContext&) = default;
};

struct TranscriptSourceRange {
    double start = 0;
    double end = 0;

    friend bool operator==(const TranscriptSourceRange&, const TranscriptSourceRange&) = default;
};

// The context of a selection of token ids; absent when no token lies in the range or a
// selected end, or a neighbour, has no times. `timelineSourceDuration` is the timeline's.
std::optional<TranscriptSpliceContext> spliceContext(const TranscriptWordParagraphs& paragraphs,
                                                     const TranscriptTokenIDRange& range,
                                                     double timelineSourceDuration);

namespace TranscriptTimelineEditPolicy {

// The cut, at least `minimumDuration` long (widened around its middle when shorter, inside
// the windows of its two ends); absent when it cannot be.
std::optional<TranscriptSourceRange> deletionRange(const TranscriptSpliceContext& context,
                                                   const TranscriptSpliceEnergyProfile* energy,
                                                   double minimumDuration);

} // namespace TranscriptTimelineEditPolicy

} // namespace orvelle
