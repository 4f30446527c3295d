#include "cli/commands.h"
#include "cli/output.h"
#include "cli/project_input.h"
#include "core/file_url.h"

#include <iostream>

namespace orvelle::cli {

namespace {

Json documentJson(const EditorDocument& document) {
    return {{"documentURL", fileURLString(document.documentURL)},
            {"screenURL", fileURLString(document.screenURL)},
            {"packageURL",
             document.packageURL ? Json(fileURLString(*document.packageURL)) : Json(nullptr)},
            {"hasSavedProject", document.hasSavedProject},
            {"displayTitle", document.displayTitle()},
            {"suggestedSaveName", document.suggestedSaveName()},
            {"duration", document.manifest.duration()},
            {"manifest", encodeJson(document.manifest)},
            {"project", encodeJson(document.project)}};
}

int runDocument(const Arguments& arguments) {
    const EditorDocument document = openDocument(arguments.positional(0, "the file to open"));
    if (arguments.flag("--json")) {
        printJson(documentJson(document));
        return 0;
    }
    std::cout << document.displayTitle() << (document.hasSavedProject ? "" : " (not saved)")
              << "\nscreen   " << document.screenURL.string() << "\nduration "
              << document.manifest.duration() << " s\n";
    for (const auto& segment : document.manifest.segments) {
        std::cout << "  " << segment.id << "  " << segment.programStart << " s + "
                  << segment.duration << " s  " << segment.url.filename().string() << "\n";
    }
    return 0;
}

} // namespace

Command documentCommand() {
    return {"document",
            "open a take, a movie or a project as the editor would",
            "orvelle document PATH [--json]\n\n"
            "Opens PATH as the editor does: a project package, a take's movie with its\n"
            ".take.json (or the .take.json itself), or a bare movie. With --json prints\n"
            "documentURL, screenURL, packageURL (null when absent), hasSavedProject,\n"
            "displayTitle, suggestedSaveName, duration (the end of the last screen segment),\n"
            "and the manifest and starting project as they are saved.",
            {{"--json"}},
            runDocument};
}

} // namespace orvelle::cli
