#include "project/last_editor_settings_store.h"

#include "core/files.h"
#include "core/log.h"
#include "core/xdg_paths.h"

#include <system_error>

namespace orvelle {

LastEditorSettings LastEditorSettings::from(const EditorProjectState& project) {
    return {project.animation, project.background, project.cursor,        project.camera,
            project.audio,     project.screen,     project.exportSettings};
}

LastEditorSettings LastEditorSettings::normalizedForTrimmedEditor() const {
    LastEditorSettings result = *this;
    result.animation.zoomClips.clear();
    result.camera.dynamicLayoutClips.clear();
    if (result.exportSettings) {
        const ProjectExportSettings defaults;
        result.exportSettings->youtubeTitle = defaults.youtubeTitle;
        result.exportSettings->youtubeDescription = defaults.youtubeDescription;
        result.exportSettings->youtubeChapters.clear();
        result.exportSettings->metadataConversation.clear();
    }
    return result;
}

std::filesystem::path LastEditorSettingsStore::defaultURL() {
    return applicationSupportDirectory() / "last-editor-settings.json";
}

LastEditorSettingsStore::LastEditorSettingsStore(std::filesystem::path url)
    : url_(std::move(url)) {}

LastEditorSettings LastEditorSettingsStore::load() const {
    if (!fileExists(url_)) {
        return {};
    }
    try {
        return decodeJson<LastEditorSettings>(readJsonFile(url_));
    } catch (const Error& error) {
        logWarning("project", "ignoring the remembered editor settings: ", error.what());
        return {};
    }
}

void LastEditorSettingsStore::save(const LastEditorSettings& settings) const {
    std::error_code ignored;
    std::filesystem::create_directories(url_.parent_path(), ignored);
    writeJsonAtomically(url_, encodeJson(settings));
}

LastEditorSettings JsonCoder<LastEditorSettings>::decode(const Json& json,
                                                         const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    LastEditorSettings settings;
    settings.animation = reader.value<AnimationSettings>("animation", {});
    settings.background = reader.value<BackgroundSettings>("background", {});
    settings.cursor = reader.value<CursorSettings>("cursor", {});
    settings.camera = reader.value<CameraOverlaySettings>("camera", {});
    settings.audio = reader.value<AudioSettings>("audio", {});
    settings.screen = reader.value<ScreenSettings>("screen", {});
    settings.exportSettings = reader.optional<ProjectExportSettings>("export");
    return settings;
}

Json JsonCoder<LastEditorSettings>::encode(const LastEditorSettings& settings) {
    Json json = {{"animation", encodeJson(settings.animation)},
                 {"background", encodeJson(settings.background)},
                 {"cursor", encodeJson(settings.cursor)},
                 {"camera", encodeJson(settings.camera)},
                 {"audio", encodeJson(settings.audio)},
                 {"screen", encodeJson(settings.screen)}};
    setOptional(json, "export", settings.exportSettings);
    return json;
}

} // namespace orvelle
