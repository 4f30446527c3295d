#include "project/editor_project_state.h"

namespace orvelle {

namespace {

constexpr std::array<EnumName<ScreenAnimationStyle>, 2> kScreenStyleNames{{
    {ScreenAnimationStyle::focused, "focused"},
    {ScreenAnimationStyle::smooth, "smooth"},
}};

constexpr std::array<EnumName<AspectRatio>, 7> kAspectRatioNames{{
    {AspectRatio::automatic, "auto"},
    {AspectRatio::wide, "wide"},
    {AspectRatio::square, "square"},
    {AspectRatio::classic, "classic"},
    {AspectRatio::vertical, "vertical"},
    {AspectRatio::tall, "tall"},
    {AspectRatio::portrait, "portrait"},
}};

} // namespace

std::span<const EnumName<ScreenAnimationStyle>> jsonNames(ScreenAnimationStyle) {
    return kScreenStyleNames;
}

std::span<const EnumName<AspectRatio>> jsonNames(AspectRatio) {
    return kAspectRatioNames;
}

AnimationSettings JsonCoder<AnimationSettings>::decode(const Json& json,
                                                       const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.value<ScreenAnimationStyle>("screenStyle", ScreenAnimationStyle::focused),
            reader.value<std::vector<AnimationClip>>("zoomClips", {})};
}

Json JsonCoder<AnimationSettings>::encode(const AnimationSettings& settings) {
    return {{"screenStyle", encodeJson(settings.screenStyle)},
            {"zoomClips", encodeJson(settings.zoomClips)}};
}

AudioSettings JsonCoder<AudioSettings>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    const AudioSettings defaults;
    AudioSettings settings;
    settings.isEnabled = reader.value<bool>("isEnabled", defaults.isEnabled);
    settings.microphoneVolume =
        reader.sanitised("microphoneVolume", 0, 1, defaults.microphoneVolume);
    settings.systemAudioVolume =
        reader.sanitised("systemAudioVolume", 0, 1, defaults.systemAudioVolume);
    settings.musicVolume = reader.sanitised("musicVolume", 0, 1, defaults.musicVolume);
    settings.removesNoise = reader.value<bool>("removesNoise", defaults.removesNoise);
    return settings;
}

Json JsonCoder<AudioSettings>::encode(const AudioSettings& settings) {
    return {{"isEnabled", settings.isEnabled},
            {"microphoneVolume", settings.microphoneVolume},
            {"systemAudioVolume", settings.systemAudioVolume},
            {"musicVolume", settings.musicVolume},
            {"removesNoise", settings.removesNoise}};
}

ScreenSettings JsonCoder<ScreenSettings>::decode(const Json& json,
                                                 const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.value<double>("zoomScale", 1.5),
            reader.value<AspectRatio>("aspectRatio", AspectRatio::wide)};
}

Json JsonCoder<ScreenSettings>::encode(const ScreenSettings& settings) {
    return {{"zoomScale", settings.zoomScale}, {"aspectRatio", encodeJson(settings.aspectRatio)}};
}

EditorProjectState JsonCoder<EditorProjectState>::decode(const Json& json,
                                                         const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    EditorProjectState state;
    state.manifest = reader.required<TakeManifest>("manifest");
    state.timeline = reader.value<TimelineState>("timeline", {});
    state.animation = reader.value<AnimationSettings>("animation", {});
    state.background = reader.value<BackgroundSettings>("background", {});
    state.cursor = reader.value<CursorSettings>("cursor", {});
    state.camera = reader.value<CameraOverlaySettings>("camera", {});
    state.mask = reader.value<MaskSettings>("mask", {});
    state.music = reader.value<MusicSettings>("music", {});
    state.text = reader.value<TextOverlaySettings>("text", {});
    state.audio = reader.value<AudioSettings>("audio", {});
    state.screen = reader.value<ScreenSettings>("screen", {});
    state.exportSettings = reader.optional<ProjectExportSettings>("export");
    return state;
}

Json JsonCoder<EditorProjectState>::encode(const EditorProjectState& state) {
    Json json = {
        {"manifest", encodeJson(state.manifest)},   {"timeline", encodeJson(state.timeline)},
        {"animation", encodeJson(state.animation)}, {"background", encodeJson(state.background)},
        {"cursor", encodeJson(state.cursor)},       {"camera", encodeJson(state.camera)},
        {"mask", encodeJson(state.mask)},           {"music", encodeJson(state.music)},
        {"text", encodeJson(state.text)},           {"audio", encodeJson(state.audio)},
        {"screen", encodeJson(state.screen)}};
    setOptional(json, "export", state.exportSettings);
    return json;
}

} // namespace orvelle
