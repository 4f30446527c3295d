#pragma once

// The single owner of the live edit. Every change of an edit goes through it, so that
// undo, selection and normalisation are right by construction: a change runs inside
// edit(), which sorts what it touched, clears a selection of a clip that is gone, and
// pushes one undo step unless a transaction is open, in which case the transaction's
// outermost end pushes one step for everything it took in. An operation that cannot
// apply returns absent, changes nothing and pushes nothing.
//
// Main thread only. project, selection, isApplyingPreset, canUndo and canRedo are
// published: observers are told after each change.

#include "editor/clip_lane.h"
#include "editor/editor_undo_history.h"
#include "editor/published.h"
#include "project/cursor_recording.h"
#include "project/editor_document.h"
#include "timeline/timeline_engine.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace orvelle {

// The look fields a preset replaces; an absent field stays as it is. A camera look
// leaves the project's camera layout clips in place.
struct EditorPresetPayload {
    std::optional<ScreenAnimationStyle> screenStyle;
    std::optional<BackgroundSettings> background;
    std::optional<CursorSettings> cursor;
    std::optional<CameraOverlaySettings> camera;
    std::optional<AudioSettings> audio;
    std::optional<ScreenSettings> screen;

    friend bool operator==(const EditorPresetPayload&, const EditorPresetPayload&) = default;
};

// A two-way binding into the project that writes through edit(), for a panel's control.
template <class T>
struct EditorBinding {
    std::function<T()> get;
    std::function<void(const T&)> set;
};

class EditorStore {
public:
    explicit EditorStore(EditorProjectState project);
    EditorStore(const EditorStore&) = delete;
    EditorStore& operator=(const EditorStore&) = delete;

    const EditorProjectState& project() const { return project_.value(); }
    const EditorSelectionState& selection() const { return selection_.value(); }
    bool isApplyingPreset() const { return isApplyingPreset_.value(); }
    bool canUndo() const { return canUndo_.value(); }
    bool canRedo() const { return canRedo_.value(); }
    const EditorUndoHistory& undoHistory() const { return history_; }
    const std::optional<EditorUndoTransaction>& activeUndoTransaction() const {
        return transaction_;
    }
    bool isApplyingHistory() const { return isApplyingHistory_; }

    [[nodiscard]] Subscription
    observeProject(std::function<void(const EditorProjectState&)> f) const;
    [[nodiscard]] Subscription
    observeSelection(std::function<void(const EditorSelectionState&)> f) const;
    [[nodiscard]] Subscription observeIsApplyingPreset(std::function<void(const bool&)> f) const;
    [[nodiscard]] Subscription observeCanUndo(std::function<void(const bool&)> f) const;
    [[nodiscard]] Subscription observeCanRedo(std::function<void(const bool&)> f) const;

    // Transactions nest by depth; the outermost call's label stands, and its end pushes
    // one step if anything changed. Ignored while undo or redo applies.
    void beginUndoTransaction(std::string label);
    void endUndoTransaction();
    // true begins, false ends: the shape of a slider's editing-changed callback.
    std::function<void(bool)> undoTransaction(std::string label);

    using Mutation = std::function<void(EditorProjectState&, EditorSelectionState&)>;
    // Runs a change of the project (and possibly the selection) as one undo step.
    void edit(std::string_view label, const Mutation& body);

    template <class T>
    EditorBinding<T> binding(T EditorProjectState::*field, const std::string& label) {
        return {[this, field] { return project().*field; },
                [this, field, label](const T& value) {
                    edit(label,
                         [&](EditorProjectState& p, EditorSelectionState&) { p.*field = value; });
                }};
    }

    // Steps back or forward through the history, restoring the selection of that moment
    // where its clip exists. Closes an open transaction first. Absent when there is no step.
    std::optional<EditorProjectHistoryChange> undo();
    std::optional<EditorProjectHistoryChange> redo();

    // Takes a document's project as the live one. Saving a package keeps the history (the
    // document changes identity, the edit does not); opening another document drops it.
    void replaceProject(const EditorDocument& document, bool preservingUndoHistory);

    // Seeds the timeline of a new document: one clip over the whole source, and zooms
    // from the pointer data when the zoom lane is empty. Not an edit: no undo step.
    void resetTimeline(SourceTime sourceDuration, double defaultZoomScale,
                       const std::vector<CursorSample>& cursorSamples,
                       const std::vector<CursorClick>& cursorClicks);

    void applyPreset(const EditorPresetPayload& payload);

    // The main lane.
    void selectTimelineClip(const Uuid& id);
    std::optional<Uuid> splitTimelineClip(SourceTime containing,
                                          double minimumDuration = kMinimumTimelineClipDuration);
    std::optional<TimelineClip> deleteTimelineClip(const Uuid& id);
    // Cuts a stretch of source time and records it as a restorable gap ("Delete Range").
    std::optional<DeletedTimelineGap>
    deleteTimelineSourceRange(SourceTime sourceStart, SourceTime sourceEnd,
                              double minimumDuration = kMinimumTimelineClipDuration);
    std::optional<TimelineClip>
    updateTimelineClip(const Uuid& id, const std::function<void(TimelineClip&)>& mutation);
    std::optional<TimelineClip>
    restoreTimelineSourceRange(SourceTime sourceStart, SourceTime sourceEnd,
                               double minimumDuration = kMinimumTimelineClipDuration);
    std::optional<TimelineClip>
    restoreTimelineCut(const Uuid& beforeClipID,
                       double minimumDuration = kMinimumTimelineClipDuration);
    std::optional<TimelineClip> restoreTimelineEdgeTrim(const Uuid& clipID, TimelineTrimEdge edge);
    std::optional<TimelineClip> selectedTimelineClip() const;

    // The auxiliary lanes. New clips go into the nearest free space and are selected.
    std::optional<AnimationClip> addAnimationClip(EditTime at, double defaultZoomScale,
                                                  EditTime minimumDuration);
    std::optional<CameraLayoutClip> addCameraLayoutClip(EditTime at, EditTime minimumDuration);
    std::optional<MaskClip> addMaskClip(EditTime at, EditTime minimumDuration,
                                        const MaskRect& rect = MaskRect());
    // A placeholder titled "Music", playing no file yet.
    std::optional<MusicClip> addEmptyMusicClip(EditTime at, EditTime minimumDuration);
    std::optional<MusicClip>
    addMusicClip(const MusicClip& clip,
                 EditTime minimumDuration = EditTime(kLaneMinimumClipDuration));
    std::optional<TextClip> addTextClip(EditTime at, EditTime minimumDuration);

    std::optional<AnimationClip>
    updateAnimationClip(const Uuid& id, const std::function<void(AnimationClip&)>& mutation);
    std::optional<CameraLayoutClip>
    updateCameraLayoutClip(const Uuid& id, const std::function<void(CameraLayoutClip&)>& mutation);
    std::optional<MaskClip> updateMaskClip(const Uuid& id,
                                           const std::function<void(MaskClip&)>& mutation);
    std::optional<MusicClip> updateMusicClip(const Uuid& id,
                                             const std::function<void(MusicClip&)>& mutation);
    std::optional<TextClip> updateTextClip(const Uuid& id, std::string_view label,
                                           const std::function<void(TextClip&)>& mutation);

    // Any lane, by its description: the update under the lane's Change label, and the
    // forms the panels use on whatever clip of the lane is selected.
    template <RangeEditableClip Clip>
    std::optional<Clip> updateClip(const ClipLane<Clip>& lane, const Uuid& id,
                                   const std::function<void(Clip&)>& mutation,
                                   std::string_view label = {});
    template <RangeEditableClip Clip>
    std::optional<Clip> updateSelectedClip(const ClipLane<Clip>& lane,
                                           const std::function<void(Clip&)>& mutation);
    template <RangeEditableClip Clip>
    std::optional<Clip> selectedClip(const ClipLane<Clip>& lane) const;
    // The copy goes into the nearest free space of at least `minimumDuration`.
    template <RangeEditableClip Clip>
    std::optional<Clip>
    duplicateClip(const Uuid& id, const ClipLane<Clip>& lane,
                  EditTime minimumDuration = EditTime(kLaneMinimumClipDuration));
    template <RangeEditableClip Clip>
    std::optional<Clip> deleteSelectedClip(const ClipLane<Clip>& lane);
    template <RangeEditableClip Clip>
    void select(const Uuid& id, const ClipLane<Clip>& lane);

    std::optional<AnimationClip>
    updateSelectedAnimationClip(const std::function<void(AnimationClip&)>& mutation) {
        return updateSelectedClip(animationLane, mutation);
    }
    std::optional<CameraLayoutClip>
    updateSelectedCameraLayoutClip(const std::function<void(CameraLayoutClip&)>& mutation) {
        return updateSelectedClip(cameraLayoutLane, mutation);
    }
    std::optional<MaskClip> updateSelectedMaskClip(const std::function<void(MaskClip&)>& mutation) {
        return updateSelectedClip(maskLane, mutation);
    }
    std::optional<MusicClip>
    updateSelectedMusicClip(const std::function<void(MusicClip&)>& mutation) {
        return updateSelectedClip(musicLane, mutation);
    }
    std::optional<TextClip> updateSelectedTextClip(const std::function<void(TextClip&)>& mutation) {
        return updateSelectedClip(textLane, mutation);
    }

    std::optional<AnimationClip> selectedAnimationClip() const {
        return selectedClip(animationLane);
    }
    std::optional<CameraLayoutClip> selectedCameraLayoutClip() const {
        return selectedClip(cameraLayoutLane);
    }
    std::optional<MaskClip> selectedMaskClip() const { return selectedClip(maskLane); }
    std::optional<MusicClip> selectedMusicClip() const { return selectedClip(musicLane); }
    std::optional<TextClip> selectedTextClip() const { return selectedClip(textLane); }

    // Ripple's move of followers, inside a trim's transaction. False for an unknown id.
    bool repositionClip(const Uuid& id, AuxiliaryTimelineTrack track, EditTime start, EditTime end);
    struct ClipPosition {
        Uuid id;
        EditTime start;
        EditTime end;
    };
    void repositionClips(AuxiliaryTimelineTrack track, const std::vector<ClipPosition>& positions);

    void setRemovesNoise(bool value);

    // Adds a `music` segment for a file to the manifest and returns its id ("music-0001").
    // The manifest stands outside the history: no undo step.
    std::string registerMusicSegment(const std::filesystem::path& fileURL, double duration);

    // The length of the edit axis of the current timeline.
    EditTime timelineDuration() const;

private:
    EditorEditableProjectState editableSnapshot() const;
    void pushUndoEntryIfChanged(const std::string& label, const EditorEditableProjectState& before,
                                const EditorSelectionState& selectionBefore);
    void applyHistory(const EditorEditableProjectState& state,
                      const EditorSelectionState& selection);
    void updateHistoryFlags();
    void closeActiveTransaction();
    template <RangeEditableClip Clip>
    std::optional<Clip> addPlacedClip(const ClipLane<Clip>& lane, Clip candidate,
                                      EditTime minimumDuration,
                                      const std::function<void(Clip&)>& placed = nullptr);

    Published<EditorProjectState> project_;
    Published<EditorSelectionState> selection_;
    Published<bool> isApplyingPreset_{false};
    Published<bool> canUndo_{false};
    Published<bool> canRedo_{false};
    EditorUndoHistory history_;
    std::optional<EditorUndoTransaction> transaction_;
    bool isApplyingHistory_ = false;
};

// A selection of a clip that the project does not hold becomes none.
EditorSelectionState normalizedSelection(const EditorSelectionState& selection,
                                         const EditorProjectState& project);

// What the editor does when it opens a document: the store takes its project with an empty
// history, and a take never saved as a project gets a timeline over the whole take (its
// length probed where the manifest does not say) with zooms planned from its pointer data
// at the given scale. A saved project stands as it was saved.
void loadDocument(EditorStore& store, const EditorDocument& document, double defaultZoomScale);

// The length of a new lane clip before it is fitted into free space.
inline constexpr double kNewRangeClipDuration = 3.0;

} // namespace orvelle
