#pragma once

// The editing operations that `orvelle edit` applies to a document and `orvelle play`
// applies while it plays: JSON objects run through an editor store and the timeline
// gestures, as the editor's views run them.

#include "core/json.h"
#include "editor/editor_store.h"
#include "editor/timeline_edit_gestures.h"
#include "project/editor_document.h"

#include <memory>
#include <string>
#include <string_view>

namespace orvelle::cli {

// The operations and their arguments, for the commands' help.
extern const std::string_view kEditOperationsHelp;

class EditOperations {
public:
    // The transcript operations read the document's transcript (and its microphone, so
    // that cuts land in silence) when first used; without a document they do not apply.
    EditOperations(EditorStore& store, TimelineEditGestures& gestures,
                   std::optional<EditorDocument> document = std::nullopt);
    ~EditOperations();
    EditOperations(const EditOperations&) = delete;
    EditOperations& operator=(const EditOperations&) = delete;

    // Runs one operation; its result, or null when it did not apply. A malformed
    // operation throws JsonDecodeError naming it.
    Json apply(const Json& operation, const JsonDecodeContext& context);
    // One result for each operation run so far.
    const Json& results() const;
    // {project, selection, undoLabels, redoLabels}.
    Json state() const;

private:
    class EditSession;
    std::unique_ptr<EditSession> session_;
};

// A JSON list of operations from a file, or from stdin for "-".
Json readOperations(const std::string& argument);

} // namespace orvelle::cli
