#include "project/orvelle_project_package.h"

#include "core/file_url.h"
#include "core/files.h"
#include "core/log.h"

#include <cstdio>
#include <map>
#include <set>
#include <system_error>

namespace orvelle {

namespace fs = std::filesystem;

namespace {

std::string messageFor(OrvelleProjectPackageErrorCode code) {
    switch (code) {
    case OrvelleProjectPackageErrorCode::missingScreenMovie:
        return "The project does not have a screen recording to save.";
    case OrvelleProjectPackageErrorCode::invalidPackage:
        return "The selected Orvelle project could not be opened.";
    }
    return "The selected Orvelle project could not be opened.";
}

[[noreturn]] void throwFileError(const std::string& what, const fs::path& path,
                                 const std::error_code& error) {
    throw FileError(what + " \"" + path.string() + "\": " + error.message());
}

using Kind = MediaTrackManifest::Kind;

std::string_view defaultExtension(Kind kind) {
    switch (kind) {
    case Kind::screen:
    case Kind::camera:
        return "mov";
    case Kind::systemAudio:
    case Kind::microphone:
        return "m4a";
    case Kind::cursor:
        return "json";
    case Kind::music:
        return "mp3";
    }
    return "bin";
}

// "screen-001.mov": made up at save, never taken from the source's name.
std::string mediaFileName(Kind kind, int ordinal, const fs::path& source) {
    std::string extension = source.extension().string();
    extension = extension.empty() ? std::string(defaultExtension(kind)) : extension.substr(1);
    char number[16];
    std::snprintf(number, sizeof number, "%03d", ordinal);
    return std::string(MediaTrackManifest::fileSlug(kind)) + "-" + number + "." + extension;
}

struct PackagePaths {
    fs::path packageURL;

    fs::path projectFile() const { return packageURL / "project.json"; }
    fs::path takeFile() const { return packageURL / "take.json"; }
    fs::path mediaFolder() const { return packageURL / "media"; }
    fs::path cursorFolder() const { return packageURL / "cursor"; }
    fs::path segmentFileURL(Kind kind, const fs::path& filename) const {
        return (kind == Kind::cursor ? cursorFolder() : mediaFolder()) / filename;
    }
};

std::optional<TakeSegmentManifest> firstScreenSegment(const TakeManifest& manifest) {
    const auto screens = manifest.segmentsFor(Kind::screen);
    if (screens.empty()) {
        return std::nullopt;
    }
    return screens.front();
}

// A sibling of the package in its folder: "<base><infix><UUID>.orvelle".
fs::path siblingPackage(const fs::path& packageURL, std::string_view infix) {
    return packageURL.parent_path() /
           (baseName(packageURL) + std::string(infix) + Uuid::random().string() + "." +
            std::string(kProjectPackageExtension));
}

struct CopiedMedia {
    TakeManifest manifest;  // pointing at the final package
    fs::path primaryCopy;   // the first screen movie's staged copy
    fs::path primarySource; // and where it came from
};

// Copies every segment's file into the staging package under a made-up name, once per
// file, and rewrites the manifest to the files' places in the final package.
CopiedMedia copySegmentMedia(const TakeManifest& manifest, const PackagePaths& staging,
                             const PackagePaths& final, PackageFileOperations& files) {
    std::map<fs::path, std::pair<fs::path, fs::path>> copied; // source -> (staged, final)
    std::map<Kind, int> counts;
    std::set<std::string> keptTrackIDs;
    std::vector<TakeSegmentManifest> kept;
    CopiedMedia result;
    for (const auto& original : manifest.segments) {
        if (!files.exists(original.url)) {
            if (original.kind == Kind::screen) {
                throw OrvelleProjectPackageError(
                    OrvelleProjectPackageErrorCode::missingScreenMovie);
            }
            // A missing camera or music file costs only that layer.
            continue;
        }
        const fs::path source = standardizedPath(original.url);
        auto found = copied.find(source);
        if (found == copied.end()) {
            // A screen movie and its system-audio twin share one file.
            const std::string name = mediaFileName(original.kind, ++counts[original.kind], source);
            const fs::path stagedURL = staging.segmentFileURL(original.kind, name);
            files.createDirectories(stagedURL.parent_path());
            files.copyFile(source, stagedURL);
            found = copied
                        .emplace(source,
                                 std::pair(stagedURL, final.segmentFileURL(original.kind, name)))
                        .first;
        }
        TakeSegmentManifest segment = original;
        segment.url = found->second.second;
        if (segment.kind == Kind::screen && result.primaryCopy.empty()) {
            result.primaryCopy = found->second.first;
            result.primarySource = source;
        }
        keptTrackIDs.insert(segment.trackID);
        kept.push_back(std::move(segment));
    }
    if (result.primaryCopy.empty()) {
        throw OrvelleProjectPackageError(OrvelleProjectPackageErrorCode::missingScreenMovie);
    }
    result.manifest = manifest;
    result.manifest.segments = std::move(kept);
    std::erase_if(result.manifest.tracks,
                  [&](const TakeTrackManifest& track) { return !keptTrackIDs.contains(track.id); });
    return result;
}

// The sidecars follow the file's own name: inside a package they are named after
// "screen-001". A failed copy ends this step quietly and leaves no half-copied sidecar;
// the save goes on.
void copyTranscriptSidecars(const fs::path& source, const fs::path& target,
                            PackageFileOperations& files) {
    const auto sources = OrvelleProjectPackage::transcriptSidecarURLs(source);
    const auto targets = OrvelleProjectPackage::transcriptSidecarURLs(target);
    for (size_t i = 0; i < sources.size(); ++i) {
        if (!files.exists(sources[i])) {
            continue;
        }
        try {
            files.copyFile(sources[i], targets[i]);
        } catch (const std::exception& error) {
            logWarning("package", "transcript sidecars not copied: ", error.what());
            removeIgnoringErrors(targets[i]);
            return;
        }
    }
}

// Swaps the staged package in. The old package is moved aside first and moved back if the
// swap fails; only its removal afterwards may fail with the new package in place.
void replacePackage(const fs::path& final, const fs::path& staging, PackageFileOperations& files) {
    if (!files.exists(final)) {
        files.moveItem(staging, final);
        return;
    }
    const fs::path backup = siblingPackage(final, "-backup-");
    files.moveItem(final, backup);
    try {
        files.moveItem(staging, final);
    } catch (...) {
        if (!files.exists(final)) {
            try {
                files.moveItem(backup, final);
            } catch (const std::exception& error) {
                logWarning("package", "could not move the old package back from ", backup.string(),
                           ": ", error.what());
            }
        }
        throw;
    }
    files.removeItem(backup);
}

} // namespace

OrvelleProjectPackageError::OrvelleProjectPackageError(OrvelleProjectPackageErrorCode code)
    : CodedError(code, messageFor(code)) {}

OrvelleProjectFile JsonCoder<OrvelleProjectFile>::decode(const Json& json,
                                                         const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    OrvelleProjectFile file;
    file.version = reader.required<int>("version");
    file.project = reader.required<EditorProjectState>("project");
    return file;
}

Json JsonCoder<OrvelleProjectFile>::encode(const OrvelleProjectFile& file) {
    return {{"version", file.version}, {"project", encodeJson(file.project)}};
}

bool PackageFileOperations::exists(const fs::path& path) const {
    return fileExists(path);
}

void PackageFileOperations::createDirectories(const fs::path& path) {
    std::error_code error;
    fs::create_directories(path, error);
    if (error) {
        throwFileError("Could not create the folder", path, error);
    }
}

void PackageFileOperations::copyFile(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::remove_all(to, error);
    if (error) {
        throwFileError("Could not replace", to, error);
    }
    fs::copy_file(from, to, error);
    if (error) {
        throwFileError("Could not copy \"" + from.string() + "\" to", to, error);
    }
}

void PackageFileOperations::moveItem(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::rename(from, to, error);
    if (error) {
        throwFileError("Could not move \"" + from.string() + "\" to", to, error);
    }
}

void PackageFileOperations::removeItem(const fs::path& path) {
    std::error_code error;
    fs::remove_all(path, error);
    if (error) {
        throwFileError("Could not remove", path, error);
    }
}

void PackageFileOperations::writeFileAtomically(const fs::path& path, std::string_view bytes) {
    orvelle::writeFileAtomically(path, bytes);
}

namespace OrvelleProjectPackage {

fs::path packageURL(const fs::path& url) {
    const std::string extension = "." + std::string(kProjectPackageExtension);
    fs::path result = standardizedPath(url);
    if (result.extension() == extension) {
        return result;
    }
    result += extension;
    return result;
}

fs::path write(const EditorProjectState& project, const fs::path& url) {
    PackageFileOperations files;
    return write(project, url, files);
}

fs::path write(const EditorProjectState& project, const fs::path& url,
               PackageFileOperations& files) {
    const PackagePaths final{packageURL(url)};
    files.createDirectories(final.packageURL.parent_path());
    const auto screen = firstScreenSegment(project.manifest);
    if (!screen || !files.exists(screen->url)) {
        throw OrvelleProjectPackageError(OrvelleProjectPackageErrorCode::missingScreenMovie);
    }
    const PackagePaths staging{siblingPackage(final.packageURL, "-")};
    try {
        files.createDirectories(staging.mediaFolder());
        files.createDirectories(staging.cursorFolder());
        CopiedMedia media = copySegmentMedia(project.manifest, staging, final, files);
        copyTranscriptSidecars(media.primarySource, media.primaryCopy, files);
        OrvelleProjectFile file{OrvelleProjectFile::kCurrentVersion, project};
        file.project.manifest = media.manifest;
        files.writeFileAtomically(staging.projectFile(), prettyJson(encodeJson(file)));
        files.writeFileAtomically(staging.takeFile(), prettyJson(encodeJson(media.manifest)));
        replacePackage(final.packageURL, staging.packageURL, files);
    } catch (...) {
        // Clean-up: a failure to remove the staged copy must not hide the cause.
        try {
            files.removeItem(staging.packageURL);
        } catch (const std::exception& error) {
            logWarning("package", "could not remove the staged package: ", error.what());
        }
        throw;
    }
    return final.packageURL;
}

TakeManifest rebase(const TakeManifest& manifest, const fs::path& packageURL) {
    const PackagePaths paths{packageURL};
    std::set<std::string> keptTrackIDs;
    TakeManifest result = manifest;
    result.segments.clear();
    for (const auto& original : manifest.segments) {
        const fs::path candidate = paths.segmentFileURL(original.kind, original.url.filename());
        if (fileExists(candidate)) {
            TakeSegmentManifest segment = original;
            segment.url = candidate;
            keptTrackIDs.insert(segment.trackID);
            result.segments.push_back(std::move(segment));
        } else if (original.kind == Kind::screen) {
            // Kept with its stored place, which load() rejects unless the movie is still
            // there.
            keptTrackIDs.insert(original.trackID);
            result.segments.push_back(original);
        }
    }
    std::erase_if(result.tracks,
                  [&](const TakeTrackManifest& track) { return !keptTrackIDs.contains(track.id); });
    return result;
}

EditorDocument load(const fs::path& url) {
    const fs::path package = packageURL(url);
    OrvelleProjectFile file;
    try {
        file = decodeJsonWithEitherDateForm<OrvelleProjectFile>(
            readJsonFile(package / "project.json"));
    } catch (const Error& error) {
        logInfo("package", "could not read ", package.string(), ": ", error.what());
        throw OrvelleProjectPackageError(OrvelleProjectPackageErrorCode::invalidPackage);
    }
    // The paths in the file are those of the place of the last save and are not trusted.
    file.project.manifest = rebase(file.project.manifest, package);
    const auto screen = firstScreenSegment(file.project.manifest);
    if (!screen || !fileExists(screen->url)) {
        throw OrvelleProjectPackageError(OrvelleProjectPackageErrorCode::invalidPackage);
    }
    EditorDocument document;
    document.documentURL = package;
    document.screenURL = screen->url;
    document.manifest = file.project.manifest;
    document.project = std::move(file.project);
    document.packageURL = package;
    document.hasSavedProject = true;
    return document;
}

std::vector<fs::path> deletableURLs(const EditorDocument& document) {
    if (document.packageURL) {
        return {*document.packageURL};
    }
    std::vector<fs::path> candidates{TakeManifest::sidecarURL(document.screenURL)};
    for (const auto& sidecar : transcriptSidecarURLs(document.screenURL)) {
        candidates.push_back(sidecar);
    }
    for (const auto& media : document.manifest.mediaURLs()) {
        candidates.push_back(media);
    }
    std::vector<fs::path> result;
    std::set<fs::path> seen;
    for (const auto& candidate : candidates) {
        const fs::path path = standardizedPath(candidate);
        if (seen.insert(path).second && fileExists(path)) {
            result.push_back(path);
        }
    }
    return result;
}

fs::path transcriptTextURL(const fs::path& screenURL) {
    return replacingExtension(screenURL, "transcript.txt");
}

fs::path transcriptJSONURL(const fs::path& screenURL) {
    return replacingExtension(screenURL, "transcript.json");
}

fs::path editorTranscriptURL(const fs::path& screenURL) {
    return replacingExtension(screenURL, "transcript.editor.json");
}

std::vector<fs::path> transcriptSidecarURLs(const fs::path& screenURL) {
    return {transcriptTextURL(screenURL), transcriptJSONURL(screenURL),
            editorTranscriptURL(screenURL)};
}

} // namespace OrvelleProjectPackage

} // namespace orvelle
