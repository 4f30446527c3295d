#pragma once

// The user's saved looks: named preset payloads (screen style, background, pointer, camera
// overlay, sound, screen), kept in <application support>/presets.json and applied through
// EditorStore::applyPreset. A preset never carries a take's content: no clips of any lane.

#include "editor/editor_store.h"

#include <filesystem>
#include <string>
#include <vector>

namespace orvelle {

struct EditorPreset {
    std::string name;
    EditorPresetPayload payload;

    friend bool operator==(const EditorPreset&, const EditorPreset&) = default;
};

// The whole look of a project as a payload; the camera's layout clips stay behind.
EditorPresetPayload presetPayload(const EditorProjectState& project);

class EditorPresetStore {
public:
    static std::filesystem::path defaultURL();
    explicit EditorPresetStore(std::filesystem::path url = defaultURL());

    // In the order saved; none when the file is missing, unreadable ones logged and
    // skipped. Never throws.
    std::vector<EditorPreset> load() const;
    // Writes all presets atomically, creating the folder. Throws FileError.
    void save(const std::vector<EditorPreset>& presets) const;
    // Adds a preset, replacing one of the same name, and saves. Throws FileError.
    std::vector<EditorPreset> put(EditorPreset preset) const;
    std::vector<EditorPreset> remove(const std::string& name) const;

private:
    std::filesystem::path url_;
};

template <>
struct JsonCoder<EditorPresetPayload> {
    static EditorPresetPayload decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const EditorPresetPayload& value);
};

template <>
struct JsonCoder<EditorPreset> {
    static EditorPreset decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const EditorPreset& value);
};

} // namespace orvelle
