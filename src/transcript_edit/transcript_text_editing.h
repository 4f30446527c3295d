#pragma once

// The words of one transcript laid against an edit: which stretch of source a cut of words
// removes, which words the timeline no longer plays (the collapsed markers), where each
// word plays in the finished movie, and the cleanup suggestions for what still plays.
// The editor's transcript controller and the commands both cut and restore by words
// through it; the change itself goes through the editor store, as one undo step.

#include "editor/editor_store.h"
#include "editor/timeline_edit_gestures.h"
#include "project/editor_document.h"
#include "transcript_edit/transcript_cleanup.h"
#include "transcript_edit/transcript_splice_energy.h"
#include "transcript_edit/transcript_timeline_edit_policy.h"
#include "transcript_edit/transcript_word_tokens.h"

#include <filesystem>
#include <optional>
#include <stop_token>
#include <vector>

namespace orvelle {

// Where a token plays in the finished movie; absent times for a token that was cut.
struct TranscriptTokenEditTime {
    int id = 0;
    std::optional<double> editStart;
    std::optional<double> editEnd;

    friend bool operator==(const TranscriptTokenEditTime&,
                           const TranscriptTokenEditTime&) = default;
};

// What a cut by words did.
struct TranscriptWordCut {
    TranscriptTokenIDRange wordRange;
    TranscriptSourceRange requested; // what the splice rules chose
    DeletedTimelineGap gap;          // what the timeline took out
};

class TranscriptTimelineEditing {
public:
    // Cuts are never shorter than this.
    static constexpr double kMinimumCutDuration = 0.08;

    explicit TranscriptTimelineEditing(EditorTranscript transcript,
                                       std::optional<TranscriptSpliceEnergyProfile> energy = {});

    const EditorTranscript& transcript() const { return transcript_; }
    const TranscriptWordParagraphs& paragraphs() const { return paragraphs_; }
    const std::vector<EditorTranscriptWordToken>& tokens() const { return tokens_; }
    const std::optional<TranscriptSpliceEnergyProfile>& spliceEnergyProfile() const {
        return energy_;
    }
    void setSpliceEnergyProfile(std::optional<TranscriptSpliceEnergyProfile> energy) {
        energy_ = std::move(energy);
    }

    // The source a cut of these tokens removes under this timeline; absent when there is no
    // such cut (no timed token in the range, or no room for the shortest cut).
    std::optional<TranscriptSourceRange> deletionRange(const TranscriptTokenIDRange& range,
                                                       const TimelineState& timeline) const;
    std::optional<TranscriptSpliceContext> spliceContext(const TranscriptTokenIDRange& range,
                                                         const TimelineState& timeline) const;

    std::vector<EditorTranscriptCollapsedRange>
    collapsedRanges(const TimelineState& timeline,
                    const std::vector<EditorTranscriptCollapsedRange>& previous = {}) const;

    std::vector<TranscriptTokenEditTime> editTimes(const TimelineState& timeline) const;

    // The id of the word being said at a source time, if any.
    std::optional<int> wordIDAt(double sourceTime) const;

    // The suggestions for the words the timeline still plays, without any whose stretch
    // plays for less than the shortest cut.
    std::vector<TranscriptCleanupSuggestion>
    cleanupSuggestions(const TimelineState& timeline,
                       const std::optional<TranscriptCleanupAudioActivity>& systemAudio) const;

    // The stretch taking a suggestion removes: the cut of its words under the splice rules,
    // or its own source range when its tokens give none.
    std::optional<TranscriptSourceRange>
    suggestionRange(const TranscriptCleanupSuggestion& suggestion,
                    const TimelineState& timeline) const;

    // The edit as it stands, through the store: a cut of words as one undo step
    // ("Delete Range"), and a marker's source put back ("Restore Range"). Absent when
    // nothing changed.
    std::optional<TranscriptWordCut> cutWords(const TranscriptTokenIDRange& range,
                                              EditorStore& store,
                                              TimelineEditGestures& gestures) const;
    std::optional<DeletedTimelineGap> applySuggestion(const TranscriptCleanupSuggestion& suggestion,
                                                      EditorStore& store,
                                                      TimelineEditGestures& gestures) const;
    static std::optional<TimelineClip> restore(const EditorTranscriptCollapsedRange& marker,
                                               EditorStore& store, TimelineEditGestures& gestures);

private:
    EditorTranscript transcript_;
    TranscriptWordParagraphs paragraphs_;
    std::vector<EditorTranscriptWordToken> tokens_;
    std::optional<TranscriptSpliceEnergyProfile> energy_;
};

// The microphone's loudness profile of a document, for cuts that land in silence: read
// from the take's microphone at take times. Absent (with the reason logged) when the take
// has none that can be read.
std::optional<TranscriptSpliceEnergyProfile>
loadSpliceEnergyProfile(const EditorDocument& document, const std::stop_token& stop = {});

// The system audio's activity of a document, for the pause suggestions; absent when it
// has none.
std::optional<TranscriptCleanupAudioActivity>
loadSystemAudioActivity(const EditorDocument& document);

} // namespace orvelle
