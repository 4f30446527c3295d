#pragma once

// The transcript as the text editor shows it: a token for each word and for each long
// pause, grouped in paragraphs; the collapsed markers where the timeline no longer plays
// some of them; and the text laid out with the character range of every token.
//
// Token ids are even for words and odd for pauses: word i has id 2i, the pause after word
// i has id 2i + 1. So ids sort in reading order, and a range of ids spans both kinds.
// Transcript times are source times, so tokens stay valid across every edit; the markers
// are worked out from the timeline's clips each time it changes.

#include "core/json.h"
#include "core/uuid.h"
#include "speech/transcript/editor_transcript.h"
#include "timeline/timeline_state.h"

#include <optional>
#include <string>
#include <vector>

namespace orvelle {

// A pause token stands for a silence at least this long between two timed words.
inline constexpr double kTranscriptPauseTokenMinimumGap = 2.0;
// A stretch of source that no clip plays is a marker only when it is at least this long.
inline constexpr double kTranscriptMinimumOmission = 0.08;
// How close a marker's ends must stay to an omission's to keep its id.
inline constexpr double kTranscriptMarkerTolerance = 1.0 / 600.0;

// A closed range of token ids.
struct TranscriptTokenIDRange {
    int lower = 0;
    int upper = 0;

    bool contains(int id) const { return lower <= id && id <= upper; }
    // The range of words first...last (indexes into the analysis, both included).
    static TranscriptTokenIDRange words(int first, int last) { return {2 * first, 2 * last}; }

    friend bool operator==(const TranscriptTokenIDRange&, const TranscriptTokenIDRange&) = default;
};

struct EditorTranscriptTokenKind {
    enum class Case { word, pause };
    Case kind = Case::word;
    int index = 0; // a word's index in the analysis, or the index of the word a pause follows

    friend bool operator==(const EditorTranscriptTokenKind&,
                           const EditorTranscriptTokenKind&) = default;
};

struct EditorTranscriptWordToken {
    int id = 0;
    std::string text;
    std::optional<double> startTime; // source seconds; absent for a word never timed
    std::optional<double> endTime;
    EditorTranscriptTokenKind kind;

    bool isPause() const { return kind.kind == EditorTranscriptTokenKind::Case::pause; }
    bool hasTimes() const { return startTime && endTime; }

    friend bool operator==(const EditorTranscriptWordToken&,
                           const EditorTranscriptWordToken&) = default;
};

using TranscriptWordParagraphs = std::vector<std::vector<EditorTranscriptWordToken>>;

// Words that a cut took out of the timeline, folded into one marker.
struct EditorTranscriptCollapsedRange {
    Uuid id;
    TranscriptTokenIDRange wordRange;
    double sourceStart = 0;
    double sourceEnd = 0;

    friend bool operator==(const EditorTranscriptCollapsedRange&,
                           const EditorTranscriptCollapsedRange&) = default;
};

// A stretch of source that no kept clip shows.
struct TimelineSourceOmission {
    double sourceStart = 0;
    double sourceEnd = 0;

    friend bool operator==(const TimelineSourceOmission&, const TimelineSourceOmission&) = default;
};

// A word token for each word, and a pause token between two timed words that are at least
// kTranscriptPauseTokenMinimumGap apart; a new paragraph after each break of the transcript.
TranscriptWordParagraphs makeWordParagraphs(const EditorTranscript& transcript);

std::vector<EditorTranscriptWordToken> flattenedTokens(const TranscriptWordParagraphs& paragraphs);

// The stretches of [0, S] that no clip plays, S being the larger of the timeline's source
// duration and `lastWordEnd`; only those at least kTranscriptMinimumOmission long.
std::vector<TimelineSourceOmission> timelineOmissions(const TimelineState& timeline,
                                                      double lastWordEnd);

// Sorted by lower id; neighbours whose ids touch or overlap join into one, which keeps the
// first one's id and spans both ranges of ids and of source.
std::vector<EditorTranscriptCollapsedRange>
mergedCollapsedRanges(std::vector<EditorTranscriptCollapsedRange> ranges);

// The markers of a timeline: for each omission the tokens whose middle lies strictly inside
// it; a marker of `previous` with the same ids and ends within kTranscriptMarkerTolerance
// keeps its id. An omission that hides no whole word gives no marker.
std::vector<EditorTranscriptCollapsedRange>
collapsedRanges(const TranscriptWordParagraphs& paragraphs, const TimelineState& timeline,
                const std::vector<EditorTranscriptCollapsedRange>& previous);

// A token's or a marker's place in the laid-out text, in UTF-16 code units (the positions of
// a text view).
struct TranscriptCharacterRange {
    int location = 0;
    int length = 0;

    friend bool operator==(const TranscriptCharacterRange&,
                           const TranscriptCharacterRange&) = default;
};

struct TranscriptWordCharacterRange {
    int wordID = 0;
    TranscriptCharacterRange range;

    friend bool operator==(const TranscriptWordCharacterRange&,
                           const TranscriptWordCharacterRange&) = default;
};

struct TranscriptMarkerCharacterRange {
    Uuid markerID;
    TranscriptCharacterRange range;

    friend bool operator==(const TranscriptMarkerCharacterRange&,
                           const TranscriptMarkerCharacterRange&) = default;
};

// The text as shown: tokens joined by blanks, paragraphs by an empty line, a pause as its
// length ("2.4s"), and each collapsed range as one marker ("[3 words cut]") where its first
// token stood.
struct TranscriptTextLayout {
    std::string text;
    std::vector<TranscriptWordCharacterRange> wordRanges;
    std::vector<TranscriptMarkerCharacterRange> markerRanges;

    // The ids of the tokens a selection of characters [begin, end) touches; absent when it
    // touches none. An empty selection touches the token it stands in.
    std::optional<TranscriptTokenIDRange> tokenIDs(int begin, int end) const;

    friend bool operator==(const TranscriptTextLayout&, const TranscriptTextLayout&) = default;
};

TranscriptTextLayout
layoutTranscriptText(const TranscriptWordParagraphs& paragraphs,
                     const std::vector<EditorTranscriptCollapsedRange>& ranges);

// The marker's text: "[1 word cut]", "[3 words cut]", "[pause cut]".
std::string collapsedRangeLabel(const EditorTranscriptCollapsedRange& range);

// The action links of the text view: "orvelle-transcript-cut:LOWER:UPPER" cuts a range of
// tokens, "orvelle-transcript-collapse:UUID" restores a marker.
std::string transcriptCutLink(const TranscriptTokenIDRange& range);
std::string transcriptCollapseLink(const Uuid& markerID);
struct TranscriptActionLink {
    std::optional<TranscriptTokenIDRange> cut;
    std::optional<Uuid> restore;
};
// Absent for any other text.
std::optional<TranscriptActionLink> parseTranscriptActionLink(std::string_view link);

template <>
struct JsonCoder<TranscriptTokenIDRange> {
    static TranscriptTokenIDRange decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const TranscriptTokenIDRange& range);
};

template <>
struct JsonCoder<EditorTranscriptWordToken> {
    static Json encode(const EditorTranscriptWordToken& token);
};

template <>
struct JsonCoder<EditorTranscriptCollapsedRange> {
    static Json encode(const EditorTranscriptCollapsedRange& range);
};

} // namespace orvelle
