#include "project/text_overlay_settings.h"

namespace orvelle {

namespace {

constexpr std::array<EnumName<TextAnimationPreset>, 3> kPresetNames{{
    {TextAnimationPreset::rise, "rise"},
    {TextAnimationPreset::slide, "slide"},
    {TextAnimationPreset::pop, "pop"},
}};

constexpr std::array<EnumName<TextBlockAlignment>, 3> kAlignmentNames{{
    {TextBlockAlignment::leading, "leading"},
    {TextBlockAlignment::center, "center"},
    {TextBlockAlignment::trailing, "trailing"},
}};

} // namespace

std::span<const EnumName<TextAnimationPreset>> jsonNames(TextAnimationPreset) {
    return kPresetNames;
}

std::span<const EnumName<TextBlockAlignment>> jsonNames(TextBlockAlignment) {
    return kAlignmentNames;
}

std::vector<TextClip> TextOverlaySettings::activeClips(EditTime time) const {
    std::vector<TextClip> result;
    for (const auto& clip : clips) {
        if (clip.start <= time && time < clip.end) {
            result.push_back(clip);
        }
    }
    return result;
}

TextAnchor JsonCoder<TextAnchor>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.required<double>("x"), reader.required<double>("y")};
}

Json JsonCoder<TextAnchor>::encode(const TextAnchor& anchor) {
    return {{"x", anchor.x}, {"y", anchor.y}};
}

TextClip JsonCoder<TextClip>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    const TextClip defaults;
    TextClip clip;
    clip.id = reader.required<Uuid>("id");
    clip.start = reader.required<EditTime>("start");
    clip.end = reader.required<EditTime>("end");
    clip.text = reader.value<std::string>("text", defaults.text);
    clip.preset = reader.value<TextAnimationPreset>("preset", defaults.preset);
    clip.color = reader.value<BackgroundColorRGBA>("color", defaults.color);
    clip.alignment = reader.value<TextBlockAlignment>("alignment", defaults.alignment);
    clip.size = reader.sanitised("size", 0.5, 4.0, defaults.size);
    clip.lineHeight = reader.sanitised("lineHeight", 1.0, 4.0, defaults.lineHeight);
    clip.animationSpeed = reader.sanitised("animationSpeed", 0.25, 3.0, defaults.animationSpeed);
    clip.position = reader.value<TextAnchor>("position", defaults.position);
    return clip;
}

Json JsonCoder<TextClip>::encode(const TextClip& clip) {
    return {{"id", encodeJson(clip.id)},
            {"start", encodeJson(clip.start)},
            {"end", encodeJson(clip.end)},
            {"text", clip.text},
            {"preset", encodeJson(clip.preset)},
            {"color", encodeJson(clip.color)},
            {"alignment", encodeJson(clip.alignment)},
            {"size", clip.size},
            {"lineHeight", clip.lineHeight},
            {"animationSpeed", clip.animationSpeed},
            {"position", encodeJson(clip.position)}};
}

TextOverlaySettings JsonCoder<TextOverlaySettings>::decode(const Json& json,
                                                           const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.value<std::vector<TextClip>>("clips", {})};
}

Json JsonCoder<TextOverlaySettings>::encode(const TextOverlaySettings& settings) {
    return {{"clips", encodeJson(settings.clips)}};
}

} // namespace orvelle
