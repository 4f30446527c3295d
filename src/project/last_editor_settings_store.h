#pragma once

// The look of the last edit, remembered in a JSON file in the application's data folder,
// so that a new take starts looking like the previous one.

#include "project/editor_project_state.h"

#include <filesystem>

namespace orvelle {

// The look and export fields of a project; no timeline, no layers of one take's content.
struct LastEditorSettings {
    AnimationSettings animation;
    BackgroundSettings background;
    CursorSettings cursor;
    CameraOverlaySettings camera;
    AudioSettings audio;
    ScreenSettings screen;
    std::optional<ProjectExportSettings> exportSettings;

    static LastEditorSettings from(const EditorProjectState& project);

    // Ready for a new take: the look stays, what belonged to the last take goes (its zoom
    // clips and camera layout clips, which lie on its edit axis, and its drafted title,
    // description, chapters and conversation).
    LastEditorSettings normalizedForTrimmedEditor() const;

    friend bool operator==(const LastEditorSettings&, const LastEditorSettings&) = default;
};

class LastEditorSettingsStore {
public:
    // <application support>/last-editor-settings.json
    static std::filesystem::path defaultURL();

    explicit LastEditorSettingsStore(std::filesystem::path url = defaultURL());

    const std::filesystem::path& url() const { return url_; }

    // The remembered settings; the defaults when there are none or the file is unreadable
    // (which is logged). Never throws.
    LastEditorSettings load() const;
    // Writes atomically, creating the folder. Throws FileError.
    void save(const LastEditorSettings& settings) const;

private:
    std::filesystem::path url_;
};

template <>
struct JsonCoder<LastEditorSettings> {
    static LastEditorSettings decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const LastEditorSettings& value);
};

} // namespace orvelle
