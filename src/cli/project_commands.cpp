#include "cli/commands.h"
#include "cli/output.h"
#include "cli/project_input.h"
#include "editor/editor_store.h"
#include "project/orvelle_project_package.h"

#include <iostream>

namespace orvelle::cli {

namespace {

int runProjectNormalize(const Arguments& arguments) {
    const EditorProjectState project =
        readProjectJson(arguments.positional(0, "the project JSON to read"));
    const Json json = encodeJson(project);
    if (const auto output = arguments.value("--output")) {
        writeJsonAtomically(*output, json);
        return 0;
    }
    printJson(json);
    return 0;
}

int runProjectSave(const Arguments& arguments) {
    const EditorDocument document = openDocument(arguments.positional(0, "the document to save"));
    // The project the editor would show: a fresh take gets its timeline and zooms first.
    EditorStore store(document.project);
    loadDocument(store, document, document.project.screen.zoomScale);
    const auto package = OrvelleProjectPackage::write(
        store.project(), arguments.positional(1, "the package to write"));
    if (arguments.flag("--json")) {
        printJson({{"package", package.string()}});
        return 0;
    }
    std::cout << package.string() << "\n";
    return 0;
}

} // namespace

Command projectSaveCommand() {
    return {"project save",
            "save a document as a self-contained project package",
            "orvelle project save DOCUMENT OUT[.orvelle] [--json]\n\n"
            "Opens DOCUMENT as the editor does (a take, a bare movie or a package; a take\n"
            "that was never saved gets its timeline over the whole take and zooms from its\n"
            "pointer data) and saves it as the package OUT, \".orvelle\" appended when\n"
            "missing: project.json, take.json, media/ and cursor/ with every file the edit\n"
            "uses, and the transcript sidecars. An existing package is replaced only once\n"
            "the new one is complete. Prints the package's path.",
            {{"--json"}},
            runProjectSave};
}

Command projectNormalizeCommand() {
    return {"project normalize",
            "read a project state and write it as this program saves it",
            "orvelle project normalize IN [-o OUT]\n\n"
            "Reads IN, an editor project state or a project.json with `version` and\n"
            "`project`, and writes the state as this program saves it: every missing key\n"
            "with its default, numbers clamped into range, retired names replaced, keys\n"
            "sorted. Writes to OUT (replaced atomically) or to stdout. A file that does not\n"
            "decode exits with status 1 and a message naming the offending key.",
            {{"--output", true, "-o"}, {"--json"}},
            runProjectNormalize};
}

} // namespace orvelle::cli
