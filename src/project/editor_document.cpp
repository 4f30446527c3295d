#include "project/editor_document.h"

#include "core/file_url.h"
#include "core/files.h"
#include "platform/media/media_probe.h"
#include "project/orvelle_project_package.h"
#include "project/recording_take_builder.h"

#include <cctype>

namespace orvelle {

namespace {

// A package that cannot be loaded is opened as a plain file, as the user would expect of
// any file they pick; the screen that cannot be played then says what is wrong.
std::optional<EditorDocument> loadSavedPackage(const std::filesystem::path& url) {
    try {
        return OrvelleProjectPackage::load(url);
    } catch (const Error&) {
        return std::nullopt;
    }
}

bool hasPackageExtension(const std::filesystem::path& url) {
    return standardizedPath(url).extension() == "." + std::string(kProjectPackageExtension);
}

std::string trimmed(const std::string& text) {
    const auto isSpace = [](unsigned char c) { return std::isspace(c) != 0; };
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && isSpace(static_cast<unsigned char>(text[begin]))) {
        ++begin;
    }
    while (end > begin && isSpace(static_cast<unsigned char>(text[end - 1]))) {
        --end;
    }
    return text.substr(begin, end - begin);
}

} // namespace

EditorDocument EditorDocument::load(const std::filesystem::path& url) {
    return load(url, LastEditorSettingsStore());
}

EditorDocument EditorDocument::load(const std::filesystem::path& url,
                                    const LastEditorSettingsStore& settingsStore) {
    if (hasPackageExtension(url)) {
        if (auto document = loadSavedPackage(url)) {
            return *document;
        }
    }
    const auto lastSettings = settingsStore.load();
    if (auto manifest = TakeManifest::load(url)) {
        return sidecarDocument(url, std::move(*manifest), lastSettings);
    }
    return sidecarDocument(url, singleScreenManifest(url), lastSettings);
}

EditorDocument EditorDocument::sidecarDocument(const std::filesystem::path& url,
                                               TakeManifest manifest,
                                               const LastEditorSettings& lastSettings) {
    const LastEditorSettings look = lastSettings.normalizedForTrimmedEditor();
    EditorDocument document;
    document.documentURL = url;
    document.screenURL = url;
    document.project.manifest = manifest;
    document.project.animation = look.animation;
    document.project.background = look.background;
    document.project.cursor = look.cursor;
    document.project.camera = look.camera;
    document.project.audio = look.audio;
    document.project.screen = look.screen;
    document.project.exportSettings = look.exportSettings;
    document.manifest = std::move(manifest);
    return document;
}

std::string EditorDocument::displayTitle() const {
    if (!hasSavedProject) {
        const std::string title = trimmed(baseName(screenURL));
        return title.empty() ? "Orvelle Recording" : title;
    }
    return baseName(standardizedPath(packageURL.value_or(screenURL)));
}

std::string EditorDocument::suggestedSaveName() const {
    return displayTitle() + "." + std::string(kProjectPackageExtension);
}

std::filesystem::path editorDocumentURL(const std::filesystem::path& picked) {
    namespace fs = std::filesystem;
    const fs::path path = standardizedPath(picked);
    // Something picked inside a package (its project.json, say) opens the package.
    for (fs::path folder = path.parent_path(); !folder.empty() && folder != folder.root_path();
         folder = folder.parent_path()) {
        if (hasPackageExtension(folder)) {
            return folder;
        }
    }
    constexpr std::string_view manifestSuffix = ".take.json";
    if (!path.filename().string().ends_with(manifestSuffix)) {
        return path;
    }
    // The manifest lies beside the first screen movie and is named after it.
    std::string bytes;
    try {
        bytes = readFile(path);
    } catch (const FileError&) {
        return path;
    }
    if (const auto manifest = TakeManifest::decode(bytes)) {
        for (const auto& screen : manifest->segmentsFor(MediaTrackManifest::Kind::screen)) {
            if (TakeManifest::sidecarURL(screen.url) == path) {
                return screen.url;
            }
        }
    }
    return path;
}

SourceTime takeSourceDuration(const TakeManifest& manifest) {
    if (const double duration = manifest.duration(); duration > 0) {
        return SourceTime(duration);
    }
    const auto screens = manifest.segmentsFor(MediaTrackManifest::Kind::screen);
    if (screens.empty()) {
        return SourceTime(0);
    }
    try {
        return SourceTime(probeMediaFile(screens.front().url).duration);
    } catch (const MediaError&) {
        return SourceTime(0);
    }
}

} // namespace orvelle
