#pragma once

// How the commands that work on a take or an edit find it on disk. A document is whatever
// the editor opens (a take's movie, a bare movie, a project package), and also a take's
// ".take.json", which stands for the movie beside it. A project is a state JSON, a
// "project.json" with `version` and `project`, or any document.

#include "project/editor_document.h"
#include "project/editor_project_state.h"

#include <filesystem>
#include <string>

namespace orvelle::cli {

// The path the editor would open for a command-line argument: absolute, and a take's
// manifest replaced by the movie it describes.
std::filesystem::path documentPath(const std::string& argument);

EditorDocument openDocument(const std::string& argument);

// Whether a path names a project JSON rather than a document: a JSON file other than a
// take's manifest.
bool isProjectJsonPath(const std::filesystem::path& path);

// A state JSON or a project.json. Throws orvelle::Error naming the file and, for a decode
// error, the offending key ("timeline.clips[0].start: required key is missing").
EditorProjectState readProjectJson(const std::filesystem::path& path);

// A JSON file (other than a take manifest) is read as a project; anything else opens as a
// document, whose timeline, never built yet, is seeded over the whole take as the editor
// does when it opens one.
EditorProjectState readProject(const std::string& argument);

} // namespace orvelle::cli
