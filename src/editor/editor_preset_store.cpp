#include "editor/editor_preset_store.h"

#include "core/log.h"
#include "core/xdg_paths.h"

#include <algorithm>
#include <system_error>

namespace orvelle {

namespace fs = std::filesystem;

EditorPresetPayload presetPayload(const EditorProjectState& project) {
    EditorPresetPayload payload;
    payload.screenStyle = project.animation.screenStyle;
    payload.background = project.background;
    payload.cursor = project.cursor;
    payload.camera = project.camera;
    payload.camera->dynamicLayoutClips.clear();
    payload.audio = project.audio;
    payload.screen = project.screen;
    return payload;
}

EditorPresetPayload JsonCoder<EditorPresetPayload>::decode(const Json& json,
                                                           const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    EditorPresetPayload payload;
    payload.screenStyle = reader.optional<ScreenAnimationStyle>("screenStyle");
    payload.background = reader.optional<BackgroundSettings>("background");
    payload.cursor = reader.optional<CursorSettings>("cursor");
    payload.camera = reader.optional<CameraOverlaySettings>("camera");
    if (payload.camera) {
        payload.camera->dynamicLayoutClips.clear();
    }
    payload.audio = reader.optional<AudioSettings>("audio");
    payload.screen = reader.optional<ScreenSettings>("screen");
    return payload;
}

Json JsonCoder<EditorPresetPayload>::encode(const EditorPresetPayload& value) {
    Json json = Json::object();
    setOptional(json, "screenStyle", value.screenStyle);
    setOptional(json, "background", value.background);
    setOptional(json, "cursor", value.cursor);
    setOptional(json, "camera", value.camera);
    setOptional(json, "audio", value.audio);
    setOptional(json, "screen", value.screen);
    return json;
}

EditorPreset JsonCoder<EditorPreset>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.required<std::string>("name"), reader.required<EditorPresetPayload>("payload")};
}

Json JsonCoder<EditorPreset>::encode(const EditorPreset& value) {
    return Json{{"name", value.name}, {"payload", encodeJson(value.payload)}};
}

fs::path EditorPresetStore::defaultURL() {
    return applicationSupportDirectory() / "presets.json";
}

EditorPresetStore::EditorPresetStore(fs::path url) : url_(std::move(url)) {}

std::vector<EditorPreset> EditorPresetStore::load() const {
    std::error_code error;
    if (!fs::exists(url_, error)) {
        return {};
    }
    std::vector<EditorPreset> presets;
    try {
        const Json json = readJsonFile(url_);
        const JsonObjectReader reader(json, {});
        const Json& list = reader.raw("presets");
        if (!list.is_array()) {
            throw JsonDecodeError("presets", "expected a list");
        }
        for (size_t i = 0; i < list.size(); ++i) {
            try {
                presets.push_back(
                    decodeJson<EditorPreset>(list[i], JsonDecodeContext{}.key("presets").index(i)));
            } catch (const Error& failure) {
                logWarning("presets", url_.string(), ": ", failure.what());
            }
        }
    } catch (const Error& failure) {
        logWarning("presets", url_.string(), ": ", failure.what());
    }
    return presets;
}

void EditorPresetStore::save(const std::vector<EditorPreset>& presets) const {
    std::error_code error;
    fs::create_directories(url_.parent_path(), error);
    writeJsonAtomically(url_, Json{{"presets", encodeJson(presets)}});
}

std::vector<EditorPreset> EditorPresetStore::put(EditorPreset preset) const {
    std::vector<EditorPreset> presets = load();
    const auto same = std::find_if(presets.begin(), presets.end(),
                                   [&](const EditorPreset& p) { return p.name == preset.name; });
    if (same != presets.end()) {
        *same = std::move(preset);
    } else {
        presets.push_back(std::move(preset));
    }
    save(presets);
    return presets;
}

std::vector<EditorPreset> EditorPresetStore::remove(const std::string& name) const {
    std::vector<EditorPreset> presets = load();
    std::erase_if(presets, [&](const EditorPreset& p) { return p.name == name; });
    save(presets);
    return presets;
}

} // namespace orvelle
