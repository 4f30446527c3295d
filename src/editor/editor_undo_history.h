#pragma once

// What undo records and how it stacks. Undo covers the edit and its look; the take's
// manifest and the export settings stand outside the history, so undoing the addition of
// music leaves its file registered, and changing export settings is never undone.

#include "editor/editor_selection.h"
#include "project/editor_project_state.h"

#include <optional>
#include <string>
#include <vector>

namespace orvelle {

struct EditorEditableProjectState {
    TimelineState timeline;
    AnimationSettings animation;
    BackgroundSettings background;
    CursorSettings cursor;
    CameraOverlaySettings camera;
    MaskSettings mask;
    MusicSettings music;
    TextOverlaySettings text;
    AudioSettings audio;
    ScreenSettings screen;

    static EditorEditableProjectState from(const EditorProjectState& project);
    // Writes all ten fields into the project; its manifest and export settings stay.
    void applyTo(EditorProjectState& project) const;

    friend bool operator==(const EditorEditableProjectState&,
                           const EditorEditableProjectState&) = default;
};

// A gesture or slider drag in progress: one undo step when its outermost end comes.
struct EditorUndoTransaction {
    std::string label;
    EditorEditableProjectState before;
    EditorSelectionState selectionBefore;
    int depth = 1;
};

struct EditorUndoHistoryEntry {
    std::string label;
    EditorEditableProjectState before;
    EditorEditableProjectState after;
    EditorSelectionState selectionBefore;
    EditorSelectionState selectionAfter;

    friend bool operator==(const EditorUndoHistoryEntry&, const EditorUndoHistoryEntry&) = default;
};

// What an undo or redo changed, so that the playback model can tell what to rebuild.
struct EditorProjectHistoryChange {
    EditorEditableProjectState before;
    EditorEditableProjectState after;

    friend bool operator==(const EditorProjectHistoryChange&,
                           const EditorProjectHistoryChange&) = default;
};

class EditorUndoHistory {
public:
    static constexpr size_t kDefaultLimit = 200;

    explicit EditorUndoHistory(size_t limit = kDefaultLimit) : limit_(limit) {}

    // Appends a step that changed something, drops the oldest beyond the limit, and
    // empties the redo stack.
    void push(EditorUndoHistoryEntry entry);
    // Moves the newest step to the other stack and returns it; absent when empty.
    std::optional<EditorUndoHistoryEntry> popUndo();
    std::optional<EditorUndoHistoryEntry> popRedo();
    void clear();

    const std::vector<EditorUndoHistoryEntry>& undoStack() const { return undoStack_; }
    const std::vector<EditorUndoHistoryEntry>& redoStack() const { return redoStack_; }
    size_t limit() const { return limit_; }

private:
    std::vector<EditorUndoHistoryEntry> undoStack_;
    std::vector<EditorUndoHistoryEntry> redoStack_;
    size_t limit_;
};

} // namespace orvelle
