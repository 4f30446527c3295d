#include "cli/commands.h"
#include "cli/edit_operations.h"
#include "cli/output.h"
#include "cli/project_input.h"
#include "project/orvelle_project_package.h"

#include <iostream>

namespace orvelle::cli {

namespace {

int runEdit(const Arguments& arguments) {
    const EditorDocument document = openDocument(arguments.positional(0, "the document to edit"));
    const auto opsPath = arguments.value("--ops");
    if (!opsPath) {
        throw UsageError("Name the operations to apply with --ops OPS.json.");
    }
    const Json operations = readOperations(*opsPath);
    // The store, the gesture sessions and the gestures, as the editor window holds them.
    EditorStore store(document.project);
    loadDocument(store, document, document.project.screen.zoomScale);
    EditSessionCoordinator sessions(store);
    TimelineEditGestures gestures(store, sessions);
    EditOperations session(store, gestures, document);
    for (size_t i = 0; i < operations.size(); ++i) {
        session.apply(operations[i], JsonDecodeContext().key("ops").index(i));
    }
    const Json& results = session.results();
    std::optional<std::filesystem::path> package;
    if (const auto out = arguments.value("--save")) {
        // Saved as the editor window saves: open gestures end first, and the store then
        // works on the saved package's document, keeping its history.
        gestures.finishAllEditSessions();
        package = OrvelleProjectPackage::write(store.project(), *out);
        store.replaceProject(OrvelleProjectPackage::load(*package), true);
    }
    Json output = session.state();
    output["results"] = results;
    if (package) {
        output["package"] = package->string();
    }
    if (arguments.flag("--json")) {
        printJson(output);
        return 0;
    }
    std::cout << results.size() << " operations applied; " << output["undoLabels"].size()
              << " undo steps\n";
    if (package) {
        std::cout << "saved " << package->string() << "\n";
    }
    return 0;
}

} // namespace

Command editCommand() {
    static const std::string help =
        "orvelle edit DOCUMENT --ops OPS.json [--save OUT.orvelle] [--json]\n\n"
        "Opens DOCUMENT as the editor does (a take that was never saved gets a timeline\n"
        "over the whole take and zooms planned from its pointer data), applies the\n"
        "operations of OPS.json (a JSON list; '-' reads stdin) through the editor store\n"
        "and the timeline gestures, in order, and with --save writes the edit as a\n"
        "project package. With --json prints {project, selection, undoLabels, redoLabels,\n"
        "results, package}: one result per operation, the id or value it returned, or\n"
        "null when it did not apply.\n\n" +
        std::string(kEditOperationsHelp);
    return {"edit",
            "apply editing operations to a document, with undo",
            help,
            {{"--ops", true}, {"--save", true}, {"--json"}},
            runEdit};
}

} // namespace orvelle::cli
