#pragma once

// What the editor opens: a manifest, the movie that plays as the screen, and the starting
// state of the edit, however the document came to exist (a saved project package, a fresh
// take with its manifest, or a bare movie). Opening never fails at this level.

#include "project/editor_project_state.h"
#include "project/last_editor_settings_store.h"
#include "project/take_manifest.h"
#include "timeline/timeline_time.h"

#include <filesystem>
#include <optional>
#include <string>

namespace orvelle {

struct EditorDocument {
    std::filesystem::path documentURL; // what the user opened
    // The movie that plays as the screen; sibling files of a document without a package
    // are found from it.
    std::filesystem::path screenURL;
    TakeManifest manifest;
    EditorProjectState project;
    std::optional<std::filesystem::path> packageURL; // a saved project's package
    bool hasSavedProject = false;                    // true only for a document read from a package

    // Reads files; a caller that opens a window keeps it off the main thread. Never
    // throws: a broken manifest opens the movie alone, with its other tracks missing.
    static EditorDocument load(const std::filesystem::path& url);
    static EditorDocument load(const std::filesystem::path& url,
                               const LastEditorSettingsStore& settingsStore);

    // A fresh document for a take: an empty edit with the look of the last one.
    static EditorDocument sidecarDocument(const std::filesystem::path& url, TakeManifest manifest,
                                          const LastEditorSettings& lastSettings);

    std::string displayTitle() const;
    std::string suggestedSaveName() const; // the title followed by ".orvelle"

    friend bool operator==(const EditorDocument&, const EditorDocument&) = default;
};

inline constexpr std::string_view kProjectPackageExtension = "orvelle";

// The path the editor opens for a path the user picked or named: absolute; a take's
// ".take.json" stands for the movie it describes, and a file inside a project package
// for the package. Reads the manifest when given one.
std::filesystem::path editorDocumentURL(const std::filesystem::path& picked);

// The length of a take's source: the manifest's, or where that says 0 (a movie that came
// without one), the length of the screen movie as its file states it. 0 when neither is
// known.
SourceTime takeSourceDuration(const TakeManifest& manifest);

} // namespace orvelle
