#pragma once

// The transcript panel's model: edit the video by editing its words. Selecting words and
// deleting them cuts the matching stretch of source out of the timeline through the
// playback model (one undo step, like any cut); the words then fold into a collapsed
// marker that brings them back when activated. The timeline stays the single truth: the
// markers, each word's place in the movie and the cleanup suggestions are worked out again
// from the clips after every change of the timeline, so a cut made on the timeline shows
// in the text and the other way round.
//
// Main thread only: it lives on the executor the playback model was given. Transcription,
// the microphone's loudness profile and the preview's wait run elsewhere and come back
// there. A view observes the published values and calls the actions; character positions
// are UTF-16 code units, as a text view counts them.

#include "core/executor.h"
#include "editor/published.h"
#include "playback/playback_model.h"
#include "transcript_edit/transcript_processing.h"
#include "transcript_edit/transcript_text_editing.h"

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace orvelle {

class EditorTranscriptController {
public:
    static constexpr std::string_view kNoRecordingText = "No recording is open.";
    static constexpr std::string_view kModelsRequiredText = "Local AI models required";
    static constexpr std::string_view kModelsRequiredReason =
        "Transcribe requires the speech transcription, text assistant, and precise word "
        "timing models.";
    // The shortest preview of a selection, in seconds.
    static constexpr double kShortestPreview = 0.12;

    // Models named in `processing` count as installed.
    EditorTranscriptController(PlaybackModel& playback, Executor& main,
                               EditorTranscriptProcessingOptions processing = {});
    ~EditorTranscriptController();
    EditorTranscriptController(const EditorTranscriptController&) = delete;
    EditorTranscriptController& operator=(const EditorTranscriptController&) = delete;

    // ---- The transcript ------------------------------------------------------------------------

    // For the document the playback model has open: loads its transcript if one is stored
    // (otherwise only says what can be done) and starts reading the microphone's loudness.
    void prepare();
    // Clears every published value and stops the background work.
    void resetLoadedTranscript();
    // Runs the processing pipeline (all passes with `force`) for the open document; a new
    // forced run replaces a running one. Refused, with the reason in errorText, when no
    // document is open or a required model is missing (missingModels names them).
    void startTranscription(bool force = false);
    void cancelTranscription();
    const EditorTranscript* transcript() const;
    const TranscriptTimelineEditing* editing() const { return editing_.get(); }

    // ---- Text editing --------------------------------------------------------------------------

    void updateWordSelection(std::optional<TranscriptTokenIDRange> range);
    // The tokens a selection of characters of the visible text touches.
    void updateSelectionFromCharacters(int begin, int end);
    // Puts the cursor on a word and the playhead at its start.
    void placeCursor(int wordID);
    // Plays what a cut of the selection would remove, then pauses where it began; again
    // while it plays stops it.
    void previewSelection();
    void cutWordRange(const TranscriptTokenIDRange& range);
    // The delete key.
    void cutSelection();
    void restoreCollapsedRange(const Uuid& id);
    void syncCollapsedRangesToTimeline();
    // "orvelle-transcript-cut:L:U" and "orvelle-transcript-collapse:UUID"; false for others.
    bool activateLink(std::string_view link);
    // Takes a suggestion as a cut of its words (false when it is not on offer), or hides it.
    bool applyCleanupSuggestion(const std::string& id);
    void dismissCleanupSuggestion(const std::string& id);

    // ---- Published -----------------------------------------------------------------------------

    const Published<bool>& hasTranscript() const { return hasTranscript_; }
    // The text as shown, with the place of every visible token and marker.
    const Published<TranscriptTextLayout>& visibleTranscript() const { return visibleTranscript_; }
    const Published<TranscriptWordParagraphs>& wordParagraphs() const { return wordParagraphs_; }
    // Every token's place in the finished movie, in reading order.
    const Published<std::vector<TranscriptTokenEditTime>>& wordEditTimes() const {
        return wordEditTimes_;
    }
    const Published<std::vector<EditorTranscriptCollapsedRange>>& collapsedWordRanges() const {
        return collapsedWordRanges_;
    }
    const Published<std::vector<TranscriptCleanupSuggestion>>& cleanupSuggestions() const {
        return cleanupSuggestions_;
    }
    const Published<std::optional<TranscriptTokenIDRange>>& selectedWordRange() const {
        return selectedWordRange_;
    }
    const Published<std::optional<int>>& transcriptCursorWordID() const {
        return transcriptCursorWordID_;
    }
    // The word under the playhead.
    const Published<std::optional<int>>& playheadWordID() const { return playheadWordID_; }
    const Published<std::string>& statusText() const { return statusText_; }
    const Published<std::string>& errorText() const { return errorText_; }
    // What a pass that fell back said ("Precise word timing failed. ...").
    const Published<std::string>& nonfatalErrorText() const { return nonfatalErrorText_; }
    // Ids of the required models that are missing ("speech", "alignment", "language"),
    // after a start was refused for want of them.
    const Published<std::vector<std::string>>& missingModels() const { return missingModels_; }
    const Published<std::optional<EditorTranscriptProcessingProgress>>& processing() const {
        return processing_;
    }
    const Published<bool>& isTranscribing() const { return isTranscribing_; }
    const Published<bool>& isAligningTimestamps() const { return isAligningTimestamps_; }
    const Published<bool>& isFormattingParagraphs() const { return isFormattingParagraphs_; }
    const Published<bool>& isPreviewingSelection() const { return isPreviewingSelection_; }
    const Published<std::shared_ptr<const PreciseWordTimingReport>>& alignmentReport() const {
        return alignmentReport_;
    }
    // True once the loudness profile is in, so that cuts land in silence.
    const Published<bool>& hasSpliceEnergyProfile() const { return hasSpliceEnergyProfile_; }

private:
    void publishTranscript(EditorTranscript transcript);
    void applyProcessingStage(const EditorTranscriptProcessingProgress& progress);
    void finishProcessing();
    void timelineChanged(bool force);
    void refreshSuggestions();
    void refreshPlayheadWord();
    void loadSpliceEnergyProfileIfNeeded();
    void cancelPreview();

    PlaybackModel& playback_;
    Executor& main_;
    EditorTranscriptProcessingOptions processingOptions_;
    std::unique_ptr<TranscriptTimelineEditing> editing_;
    std::optional<std::filesystem::path> loadedDocumentURL_;
    std::optional<TimelineState> syncedTimeline_;
    std::set<std::string> dismissedSuggestions_;
    std::unique_ptr<EditorTranscriptProcessingTask> processingTask_;
    std::optional<TranscriptSpliceEnergyProfile> pendingProfile_;
    std::unique_ptr<SerialQueue> energyQueue_;
    std::stop_source energyStop_;
    std::jthread previewTask_;
    Subscription previewPlayingSubscription_;
    uint64_t generation_ = 0;

    Published<bool> hasTranscript_{false};
    Published<TranscriptTextLayout> visibleTranscript_;
    Published<TranscriptWordParagraphs> wordParagraphs_;
    Published<std::vector<TranscriptTokenEditTime>> wordEditTimes_;
    Published<std::vector<EditorTranscriptCollapsedRange>> collapsedWordRanges_;
    Published<std::vector<TranscriptCleanupSuggestion>> cleanupSuggestions_;
    Published<std::optional<TranscriptTokenIDRange>> selectedWordRange_;
    Published<std::optional<int>> transcriptCursorWordID_;
    Published<std::optional<int>> playheadWordID_;
    Published<std::string> statusText_;
    Published<std::string> errorText_;
    Published<std::string> nonfatalErrorText_;
    Published<std::vector<std::string>> missingModels_;
    Published<std::optional<EditorTranscriptProcessingProgress>> processing_;
    Published<bool> isTranscribing_{false};
    Published<bool> isAligningTimestamps_{false};
    Published<bool> isFormattingParagraphs_{false};
    Published<bool> isPreviewingSelection_{false};
    Published<std::shared_ptr<const PreciseWordTimingReport>> alignmentReport_;
    Published<bool> hasSpliceEnergyProfile_{false};

    Subscription projectSubscription_;
    Subscription playheadSubscription_;
    Subscription systemAudioSubscription_;
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);
};

} // namespace orvelle
