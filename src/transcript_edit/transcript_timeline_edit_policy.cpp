#include "transcript_edit/transcript_timeline_edit_policy.h"

#include "speech/transcript/unicode_text.h"

#include <algorithm>

namespace orvelle {

namespace {

// How far into a neighbouring pause a cut may reach to find its silence.
constexpr double kPauseNeighbourReach = 0.12;

constexpr std::u32string_view kSentenceMarks = U".!?\u2026";
constexpr std::u32string_view kClauseMarks = U",;:\u2014\u2013";

struct Window {
    double lo = 0;
    double hi = 0;
};

} // namespace

namespace TranscriptSplicePunctuationRules {

TranscriptSplicePunctuation from(std::string_view wordText) {
    const std::u32string scalars = decodeUTF8(wordText);
    size_t tail = scalars.size();
    while (tail > 0 && !isLetterOrDigit(scalars[tail - 1])) {
        --tail;
    }
    const std::u32string_view trailing(scalars.data() + tail, scalars.size() - tail);
    const auto holdsAny = [&](std::u32string_view marks) {
        return trailing.find_first_of(marks) != std::u32string_view::npos;
    };
    if (holdsAny(kSentenceMarks)) {
        return TranscriptSplicePunctuation::sentence;
    }
    if (holdsAny(kClauseMarks)) {
        return TranscriptSplicePunctuation::clause;
    }
    return TranscriptSplicePunctuation::none;
}

double budget(TranscriptSplicePunctuation punctuation) {
    switch (punctuation) {
    case TranscriptSplicePunctuation::sentence:
        return 0.25;
    case TranscriptSplicePunctuation::clause:
        return 0.16;
    case TranscriptSplicePunctuation::none:
        break;
    }
    return 0.11;
}

} // namespace TranscriptSplicePunctuationRules

std::optional<TranscriptSpliceContext> spliceContext(const TranscriptWordParagraphs& paragraphs,
                                                     const TranscriptTokenIDRange& range,
                                                     double timelineSourceDuration) {
    const auto tokens = flattenedTokens(paragraphs);
    std::optional<size_t> first;
    std::optional<size_t> last;
    for (size_t i = 0; i < tokens.size(); ++i) {
        if (range.contains(tokens[i].id)) {
            first = first.value_or(i);
            last = i;
        }
    }
    if (!first || !tokens[*first].hasTimes() || !tokens[*last].hasTimes()) {
        return std::nullopt;
    }
    const auto& head = tokens[*first];
    const auto& tail = tokens[*last];
    TranscriptSpliceContext context;
    context.selectionStart = *head.startTime;
    context.selectionEnd = *tail.endTime;
    context.firstIsPause = head.isPause();
    context.lastIsPause = tail.isPause();
    if (*first > 0) {
        const auto& before = tokens[*first - 1];
        if (!before.hasTimes()) {
            return std::nullopt;
        }
        context.previousIsPause = before.isPause();
        context.previousBoundary = before.isPause() ? *before.startTime : *before.endTime;
    }
    if (*last + 1 < tokens.size()) {
        const auto& after = tokens[*last + 1];
        if (!after.hasTimes()) {
            return std::nullopt;
        }
        context.nextIsPause = after.isPause();
        context.nextBoundary = after.isPause() ? *after.endTime : *after.startTime;
    }
    for (size_t i = *first; i-- > 0;) {
        if (!tokens[i].isPause()) {
            context.punctuation = TranscriptSplicePunctuationRules::from(tokens[i].text);
            break;
        }
    }
    context.sourceDuration = std::max({timelineSourceDuration, context.selectionEnd, 0.0});
    return context;
}

namespace TranscriptTimelineEditPolicy {

std::optional<TranscriptSourceRange> deletionRange(const TranscriptSpliceContext& context,
                                                   const TranscriptSpliceEnergyProfile* energy,
                                                   double minimumDuration) {
    const double total = std::max(context.sourceDuration, 0.0);
    if (minimumDuration > total) {
        return std::nullopt;
    }
    const double budget = TranscriptSplicePunctuationRules::budget(context.punctuation);
    const double start = context.selectionStart;
    const double end = context.selectionEnd;

    // Where the cut begins.
    Window leadWindow;
    double lead = 0;
    bool leadSnaps = true;
    if (!context.previousBoundary) {
        leadSnaps = false; // from the very start
    } else if (context.previousIsPause) {
        leadWindow = {std::max(start - kPauseNeighbourReach, *context.previousBoundary), start};
        lead = leadWindow.lo; // a little of the pause goes, none of the word
    } else if (!context.firstIsPause) {
        const double previous = *context.previousBoundary;
        const double wordStart = std::max(start, previous);
        const double hi = std::max(previous, std::min(wordStart, previous + budget));
        leadWindow = {previous, hi};
        lead = std::min(hi, previous + (wordStart - previous) * 0.5);
    } else {
        leadWindow = {start, std::max(start, std::min(end, start + budget))};
        lead = leadWindow.hi; // a budget of the selected pause stays
    }
    if (leadSnaps && energy != nullptr) {
        lead = energy->deletionStart(leadWindow.lo, leadWindow.hi).value_or(lead);
    }

    // Where it ends, mirrored.
    Window trailWindow{total, total};
    double trail = total;
    bool trailSnaps = true;
    if (!context.nextBoundary) {
        trailSnaps = false; // to the very end
    } else if (context.nextIsPause) {
        trailWindow = {end,
                       std::max(end, std::min(*context.nextBoundary, end + kPauseNeighbourReach))};
        trail = trailWindow.hi;
    } else if (!context.lastIsPause) {
        const double next = *context.nextBoundary;
        const double wordEnd = std::min(next, end);
        trailWindow = {std::min(std::max(wordEnd, next - budget), next), next};
        trail = std::max(trailWindow.lo, next - (next - wordEnd) * 0.5);
    } else {
        trailWindow = {std::min(end, std::max(end - budget, start)), end};
        trail = trailWindow.lo;
    }
    if (trailSnaps && energy != nullptr) {
        trail = energy->deletionEnd(trailWindow.lo, trailWindow.hi).value_or(trail);
    }

    lead = std::clamp(lead, 0.0, total);
    trail = std::clamp(trail, 0.0, total);
    if (trail - lead >= minimumDuration) {
        return TranscriptSourceRange{lead, trail};
    }
    // Too short: widen around the middle, inside the outer limits of the two windows.
    const double lowest = std::clamp(leadWindow.lo, 0.0, total);
    const double highest = std::min(trailWindow.hi, total);
    const double middle = (lead + trail) / 2;
    double from = middle - minimumDuration / 2;
    double to = middle + minimumDuration / 2;
    if (from < lowest) {
        from = lowest;
        to = from + minimumDuration;
    }
    if (to > highest) {
        to = highest;
        from = to - minimumDuration;
    }
    if (from < lowest - 1e-9 || to - from < minimumDuration - 1e-9) {
        return std::nullopt;
    }
    return TranscriptSourceRange{from, to};
}

} // namespace TranscriptTimelineEditPolicy

} // namespace orvelle
