#include "project/cursor_settings.h"

#include <algorithm>

namespace orvelle {

namespace {

constexpr std::array<EnumName<CursorStyle>, 7> kCursorStyleNames{{
    {CursorStyle::soft, "soft"},
    {CursorStyle::crisp, "crisp"},
    {CursorStyle::obsidian, "obsidian"},
    {CursorStyle::brutalist, "brutalist"},
    {CursorStyle::beveled, "beveled"},
    {CursorStyle::pointer, "pointer"},
    {CursorStyle::dot, "dot"},
}};

constexpr std::array<std::string_view, 5> kRetiredCrispNames{"system", "blackPointer", "chalk",
                                                             "inked", "iridescent"};

} // namespace

std::span<const EnumName<CursorStyle>> jsonNames(CursorStyle) {
    return kCursorStyleNames;
}

CursorStyle JsonCoder<CursorStyle>::decode(const Json& json, const JsonDecodeContext& context) {
    const std::string name = decodeString(json, context);
    if (auto style = enumFromName<CursorStyle>(name)) {
        return *style;
    }
    if (std::find(kRetiredCrispNames.begin(), kRetiredCrispNames.end(), name) !=
        kRetiredCrispNames.end()) {
        return CursorStyle::crisp;
    }
    context.fail("Unknown cursor style: " + name);
}

CursorSettings JsonCoder<CursorSettings>::decode(const Json& json,
                                                 const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    const CursorSettings defaults;
    CursorSettings settings;
    settings.sizeAmount = reader.sanitised("sizeAmount", 0, 1, defaults.sizeAmount);
    settings.style = reader.value<CursorStyle>("style", defaults.style);
    settings.isHidden = reader.value<bool>("isHidden", defaults.isHidden);
    settings.clickSoundVolume =
        reader.sanitised("clickSoundVolume", 0, 1, defaults.clickSoundVolume);
    settings.dotColor = reader.value<BackgroundColorRGBA>("dotColor", defaults.dotColor);
    settings.tiltEnabled = reader.value<bool>("tiltEnabled", defaults.tiltEnabled);
    return settings;
}

Json JsonCoder<CursorSettings>::encode(const CursorSettings& settings) {
    return {{"sizeAmount", settings.sizeAmount},
            {"style", encodeJson(settings.style)},
            {"isHidden", settings.isHidden},
            {"clickSoundVolume", settings.clickSoundVolume},
            {"dotColor", encodeJson(settings.dotColor)},
            {"tiltEnabled", settings.tiltEnabled}};
}

} // namespace orvelle
