#include "editor/editor_undo_history.h"

namespace orvelle {

EditorEditableProjectState EditorEditableProjectState::from(const EditorProjectState& project) {
    return {project.timeline, project.animation, project.background, project.cursor,
            project.camera,   project.mask,      project.music,      project.text,
            project.audio,    project.screen};
}

void EditorEditableProjectState::applyTo(EditorProjectState& project) const {
    project.timeline = timeline;
    project.animation = animation;
    project.background = background;
    project.cursor = cursor;
    project.camera = camera;
    project.mask = mask;
    project.music = music;
    project.text = text;
    project.audio = audio;
    project.screen = screen;
}

void EditorUndoHistory::push(EditorUndoHistoryEntry entry) {
    if (entry.before == entry.after) {
        return;
    }
    undoStack_.push_back(std::move(entry));
    if (undoStack_.size() > limit_) {
        undoStack_.erase(undoStack_.begin(), undoStack_.begin() + static_cast<std::ptrdiff_t>(
                                                                      undoStack_.size() - limit_));
    }
    redoStack_.clear();
}

std::optional<EditorUndoHistoryEntry> EditorUndoHistory::popUndo() {
    if (undoStack_.empty()) {
        return std::nullopt;
    }
    EditorUndoHistoryEntry entry = std::move(undoStack_.back());
    undoStack_.pop_back();
    redoStack_.push_back(entry);
    return entry;
}

std::optional<EditorUndoHistoryEntry> EditorUndoHistory::popRedo() {
    if (redoStack_.empty()) {
        return std::nullopt;
    }
    EditorUndoHistoryEntry entry = std::move(redoStack_.back());
    redoStack_.pop_back();
    undoStack_.push_back(entry);
    return entry;
}

void EditorUndoHistory::clear() {
    undoStack_.clear();
    redoStack_.clear();
}

} // namespace orvelle
