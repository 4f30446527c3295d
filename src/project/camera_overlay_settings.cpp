#include "project/camera_overlay_settings.h"

namespace orvelle {

namespace {

constexpr std::array<EnumName<CameraOverlayPosition>, 9> kPositionNames{{
    {CameraOverlayPosition::topLeft, "topLeft"},
    {CameraOverlayPosition::top, "top"},
    {CameraOverlayPosition::topRight, "topRight"},
    {CameraOverlayPosition::left, "left"},
    {CameraOverlayPosition::center, "center"},
    {CameraOverlayPosition::right, "right"},
    {CameraOverlayPosition::bottomLeft, "bottomLeft"},
    {CameraOverlayPosition::bottom, "bottom"},
    {CameraOverlayPosition::bottomRight, "bottomRight"},
}};

constexpr std::array<EnumName<CameraOverlayShape>, 4> kShapeNames{{
    {CameraOverlayShape::square, "square"},
    {CameraOverlayShape::horizontal, "horizontal"},
    {CameraOverlayShape::vertical, "vertical"},
    {CameraOverlayShape::original, "original"},
}};

constexpr std::array<EnumName<CameraLayoutMode>, 3> kLayoutModeNames{{
    {CameraLayoutMode::fullscreen, "fullscreen"},
    {CameraLayoutMode::defaultOverlay, "defaultOverlay"},
    {CameraLayoutMode::hidden, "hidden"},
}};

} // namespace

std::span<const EnumName<CameraOverlayPosition>> jsonNames(CameraOverlayPosition) {
    return kPositionNames;
}

std::span<const EnumName<CameraOverlayShape>> jsonNames(CameraOverlayShape) {
    return kShapeNames;
}

std::span<const EnumName<CameraLayoutMode>> jsonNames(CameraLayoutMode) {
    return kLayoutModeNames;
}

std::optional<CameraLayoutClip> CameraOverlaySettings::activeLayoutClip(EditTime time) const {
    for (const auto& clip : dynamicLayoutClips) {
        if (!clip.isDisabled && clip.start <= time && time < clip.end) {
            return clip;
        }
    }
    return std::nullopt;
}

CameraLayoutClip JsonCoder<CameraLayoutClip>::decode(const Json& json,
                                                     const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    CameraLayoutClip clip;
    clip.id = reader.required<Uuid>("id");
    clip.start = reader.required<EditTime>("start");
    clip.end = reader.required<EditTime>("end");
    clip.mode = reader.required<CameraLayoutMode>("mode");
    clip.isDisabled = reader.value<bool>("isDisabled", false);
    clip.animatesTransition = reader.value<bool>("animatesTransition", true);
    clip.position = reader.optional<CameraOverlayPosition>("position");
    clip.sizeAmount = reader.sanitised("sizeAmount", 0, 1, kDefaultCameraSizeAmount);
    clip.isMirrored = reader.optional<bool>("isMirrored");
    return clip;
}

Json JsonCoder<CameraLayoutClip>::encode(const CameraLayoutClip& clip) {
    Json json = {{"id", encodeJson(clip.id)},     {"start", encodeJson(clip.start)},
                 {"end", encodeJson(clip.end)},   {"mode", encodeJson(clip.mode)},
                 {"isDisabled", clip.isDisabled}, {"animatesTransition", clip.animatesTransition},
                 {"sizeAmount", clip.sizeAmount}};
    setOptional(json, "position", clip.position);
    setOptional(json, "isMirrored", clip.isMirrored);
    return json;
}

CameraOverlaySettings JsonCoder<CameraOverlaySettings>::decode(const Json& json,
                                                               const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    const CameraOverlaySettings defaults;
    CameraOverlaySettings settings;
    settings.position = reader.value<CameraOverlayPosition>("position", defaults.position);
    settings.sizeAmount = reader.sanitised("sizeAmount", 0, 1, defaults.sizeAmount);
    settings.roundnessAmount = reader.sanitised("roundnessAmount", 0, 1, defaults.roundnessAmount);
    settings.shape = reader.value<CameraOverlayShape>("shape", defaults.shape);
    settings.isMirrored = reader.value<bool>("isMirrored", defaults.isMirrored);
    settings.isHidden = reader.value<bool>("isHidden", defaults.isHidden);
    settings.zoomSizeAmount = reader.sanitised("zoomSizeAmount", 0, 1, defaults.zoomSizeAmount);
    settings.dynamicLayoutClips =
        reader.value<std::vector<CameraLayoutClip>>("dynamicLayoutClips", {});
    return settings;
}

Json JsonCoder<CameraOverlaySettings>::encode(const CameraOverlaySettings& settings) {
    return {{"position", encodeJson(settings.position)},
            {"sizeAmount", settings.sizeAmount},
            {"roundnessAmount", settings.roundnessAmount},
            {"shape", encodeJson(settings.shape)},
            {"isMirrored", settings.isMirrored},
            {"isHidden", settings.isHidden},
            {"zoomSizeAmount", settings.zoomSizeAmount},
            {"dynamicLayoutClips", encodeJson(settings.dynamicLayoutClips)}};
}

} // namespace orvelle
