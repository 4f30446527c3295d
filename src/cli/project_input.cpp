#include "cli/project_input.h"

#include "core/file_url.h"
#include "core/files.h"
#include "project/orvelle_project_package.h"

namespace orvelle::cli {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kManifestSuffix = ".take.json";

bool isTakeManifest(const fs::path& path) {
    return path.filename().string().ends_with(kManifestSuffix);
}

} // namespace

fs::path documentPath(const std::string& argument) {
    return editorDocumentURL(argument);
}

EditorDocument openDocument(const std::string& argument) {
    return EditorDocument::load(documentPath(argument));
}

bool isProjectJsonPath(const fs::path& path) {
    return path.extension() == ".json" && !isTakeManifest(path) && !fs::is_directory(path);
}

EditorProjectState readProjectJson(const fs::path& path) {
    try {
        const Json json = readJsonFile(path);
        // A project.json wraps the state; a state is known by its manifest.
        if (json.is_object() && !json.contains("manifest") && json.contains("project")) {
            return decodeJsonWithEitherDateForm<OrvelleProjectFile>(json).project;
        }
        return decodeJsonWithEitherDateForm<EditorProjectState>(json);
    } catch (const JsonDecodeError& error) {
        throw Error("\"" + path.string() + "\" is not a project: " + error.what());
    }
}

EditorProjectState readProject(const std::string& argument) {
    const fs::path path = standardizedPath(argument);
    if (isProjectJsonPath(path)) {
        return readProjectJson(path);
    }
    EditorProjectState project = openDocument(argument).project;
    project.timeline = seededTimeline(project.timeline, takeSourceDuration(project.manifest));
    return project;
}

} // namespace orvelle::cli
