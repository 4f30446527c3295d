#pragma once

// A saved project: one ".orvelle" folder that holds the whole edit (project.json), a copy
// of the take's manifest (take.json), every media file the edit uses (media/, cursor/) and
// the transcript sidecars of the screen movie. It opens anywhere: media are found by file
// name inside the package, never by the paths stored at the last save.
//
// A save builds a complete staged copy beside the package and only then swaps it in, so a
// failed save never damages the package that was there. write() blocks for as long as the
// copy takes: callers keep it off the main thread. Two saves to one package at once are not
// guarded against.

#include "core/error.h"
#include "project/editor_document.h"

#include <filesystem>
#include <string_view>
#include <vector>

namespace orvelle {

enum class OrvelleProjectPackageErrorCode { missingScreenMovie, invalidPackage };

class OrvelleProjectPackageError : public CodedError<OrvelleProjectPackageErrorCode> {
public:
    explicit OrvelleProjectPackageError(OrvelleProjectPackageErrorCode code);
};

// The JSON wrapper of project.json. Both keys are required when read; the version is
// not compared or acted on.
struct OrvelleProjectFile {
    static constexpr int kCurrentVersion = 1;

    int version = kCurrentVersion;
    EditorProjectState project;

    friend bool operator==(const OrvelleProjectFile&, const OrvelleProjectFile&) = default;
};

template <>
struct JsonCoder<OrvelleProjectFile> {
    static OrvelleProjectFile decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const OrvelleProjectFile& value);
};

// The file operations a save performs, each a step that can fail. The local file system is
// the only real implementation; tests wrap it to fail any one step.
class PackageFileOperations {
public:
    virtual ~PackageFileOperations() = default;
    virtual bool exists(const std::filesystem::path& path) const;
    virtual void createDirectories(const std::filesystem::path& path);
    // Replaces whatever stands at the target.
    virtual void copyFile(const std::filesystem::path& from, const std::filesystem::path& to);
    virtual void moveItem(const std::filesystem::path& from, const std::filesystem::path& to);
    virtual void removeItem(const std::filesystem::path& path);
    virtual void writeFileAtomically(const std::filesystem::path& path, std::string_view bytes);
};

namespace OrvelleProjectPackage {

inline constexpr std::string_view contentType = "com.tolvanic.orvelle.project";

// The package a save to (or a load from) a path means: the path itself when it ends in
// ".orvelle", otherwise the path with ".orvelle" appended.
std::filesystem::path packageURL(const std::filesystem::path& url);

// Saves the project as a package and returns its path. Throws OrvelleProjectPackageError
// (missingScreenMovie) or FileError; on any failure the package that was there stands
// and nothing of the attempt is left behind, except a "-backup-" folder when only its
// removal failed, with the new package already in place.
std::filesystem::path write(const EditorProjectState& project, const std::filesystem::path& url);
std::filesystem::path write(const EditorProjectState& project, const std::filesystem::path& url,
                            PackageFileOperations& files);

// Opens a package. Throws OrvelleProjectPackageError (invalidPackage) when project.json is
// missing or unreadable or the screen movie is gone; other missing media drop out silently.
EditorDocument load(const std::filesystem::path& url);

// The manifest with every segment pointed at its file inside the package, found by file
// name; a non-screen segment whose file is missing is dropped, with its track when it has
// no segment left.
TakeManifest rebase(const TakeManifest& manifest, const std::filesystem::path& packageURL);

// What moving a document to the trash takes with it: the package alone, or for a plain
// take its manifest, transcript sidecars and media files, those that exist.
std::vector<std::filesystem::path> deletableURLs(const EditorDocument& document);

// The transcript sidecars of a screen movie, named after it ("<name>.transcript.txt",
// "<name>.transcript.json", "<name>.transcript.editor.json"). The transcriber writes the
// first two, the transcript editor the third, and a package carries all three.
std::filesystem::path transcriptTextURL(const std::filesystem::path& screenURL);
std::filesystem::path transcriptJSONURL(const std::filesystem::path& screenURL);
std::filesystem::path editorTranscriptURL(const std::filesystem::path& screenURL);
std::vector<std::filesystem::path> transcriptSidecarURLs(const std::filesystem::path& screenURL);

} // namespace OrvelleProjectPackage

} // namespace orvelle
