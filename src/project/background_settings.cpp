#include "project/background_settings.h"

#include "core/resources.h"

#include <algorithm>
#include <cctype>

namespace orvelle {

namespace {

constexpr std::array<EnumName<BackgroundKind>, 2> kBackgroundKindNames{{
    {BackgroundKind::wallpaper, "wallpaper"},
    {BackgroundKind::color, "color"},
}};

struct CategoryInfo {
    WallpaperCategory category;
    std::string_view folder;
    int count;
};

constexpr std::array<CategoryInfo, 7> kCategories{{
    {WallpaperCategory::macOS, "macOS", 16},
    {WallpaperCategory::bright, "Bright", 23},
    {WallpaperCategory::dark, "Dark", 18},
    {WallpaperCategory::blue, "Blue", 9},
    {WallpaperCategory::green, "Green", 24},
    {WallpaperCategory::pink, "Pink", 12},
    {WallpaperCategory::gradient, "Gradient", 9},
}};

// Names that earlier builds wrote for wallpapers that no longer exist.
constexpr std::array<std::string_view, 4> kRetiredWallpaperNames{"macOS", "spring", "sunset",
                                                                 "radial"};

const CategoryInfo& info(WallpaperCategory category) {
    return *std::find_if(
        kCategories.begin(), kCategories.end(),
        [category](const CategoryInfo& entry) { return entry.category == category; });
}

std::string lowercase(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

// A decimal integer: digits with an optional sign, leading zeros allowed ("+3", "003").
std::optional<int> decimal(std::string_view text) {
    const bool negative = !text.empty() && text.front() == '-';
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        text.remove_prefix(1);
    }
    if (text.empty() ||
        !std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); })) {
        return std::nullopt;
    }
    int value = 0;
    for (const char c : text) {
        value = std::min(value * 10 + (c - '0'), 1'000'000); // far past every category's count
    }
    return negative ? -value : value;
}

std::string_view trimmed(std::string_view text) {
    const auto isSpace = [](unsigned char c) { return std::isspace(c) != 0; };
    while (!text.empty() && isSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

} // namespace

std::span<const EnumName<BackgroundKind>> jsonNames(BackgroundKind) {
    return kBackgroundKindNames;
}

std::string_view wallpaperFolder(WallpaperCategory category) {
    return info(category).folder;
}

int wallpaperImageCount(WallpaperCategory category) {
    return info(category).count;
}

std::string wallpaperResourceName(WallpaperCategory category, int index) {
    if (category == WallpaperCategory::macOS) {
        return std::to_string(index);
    }
    return lowercase(info(category).folder) + "-" + std::to_string(index);
}

std::optional<int> wallpaperIndex(WallpaperCategory category, std::string_view resourceName) {
    std::optional<int> index;
    if (category == WallpaperCategory::macOS) {
        index = decimal(resourceName);
    } else {
        const std::string prefix = lowercase(info(category).folder) + "-";
        if (resourceName.starts_with(prefix)) {
            index = decimal(resourceName.substr(prefix.size()));
        }
    }
    if (index && *index >= 1 && *index <= wallpaperImageCount(category)) {
        return index;
    }
    return std::nullopt;
}

WallpaperPreset::WallpaperPreset(WallpaperCategory category, int index) {
    const int clamped = std::clamp(index, 1, wallpaperImageCount(category));
    rawValue =
        std::string(wallpaperFolder(category)) + "/" + wallpaperResourceName(category, clamped);
}

WallpaperPreset WallpaperPreset::parse(std::string_view text) {
    text = trimmed(text);
    if (text.empty() || std::find(kRetiredWallpaperNames.begin(), kRetiredWallpaperNames.end(),
                                  text) != kRetiredWallpaperNames.end()) {
        return defaultPreset();
    }
    // "<folder>/<resource name>"
    if (const auto slash = text.find('/'); slash != std::string_view::npos) {
        const auto folder = text.substr(0, slash);
        for (const auto& entry : kCategories) {
            if (entry.folder == folder) {
                if (auto index = wallpaperIndex(entry.category, text.substr(slash + 1))) {
                    return WallpaperPreset(entry.category, *index);
                }
            }
        }
    }
    // A resource name that starts with a category's name, such as "blue-4".
    const auto lastSlash = text.rfind('/');
    const auto lastComponent =
        lastSlash == std::string_view::npos ? text : text.substr(lastSlash + 1);
    for (const auto& entry : kCategories) {
        if (text.starts_with(lowercase(entry.folder) + "-")) {
            if (auto index = wallpaperIndex(entry.category, lastComponent)) {
                return WallpaperPreset(entry.category, *index);
            }
        }
    }
    return defaultPreset();
}

std::vector<WallpaperPreset> WallpaperPreset::presets(WallpaperCategory category) {
    std::vector<WallpaperPreset> result;
    for (int index = 1; index <= wallpaperImageCount(category); ++index) {
        result.emplace_back(category, index);
    }
    return result;
}

std::optional<WallpaperCategory> WallpaperPreset::category() const {
    const auto slash = rawValue.find('/');
    if (slash == std::string::npos) {
        return std::nullopt;
    }
    const std::string_view folder(rawValue.data(), slash);
    for (const auto& entry : kCategories) {
        if (entry.folder == folder) {
            return entry.category;
        }
    }
    return std::nullopt;
}

std::string WallpaperPreset::resourceName() const {
    const auto slash = rawValue.find('/');
    return slash == std::string::npos ? rawValue : rawValue.substr(slash + 1);
}

std::string WallpaperPreset::thumbnailResource() const {
    const auto folder = category();
    return "BackgroundThumbnails/" +
           std::string(folder ? wallpaperFolder(*folder) : std::string_view()) + "/" +
           resourceName() + "-thumbnail";
}

std::filesystem::path WallpaperPreset::resourceURL() const {
    return resourcesDirectory() / "Wallpapers" / (rawValue + ".png");
}

std::filesystem::path WallpaperPreset::thumbnailURL() const {
    return resourcesDirectory() / (thumbnailResource() + ".png");
}

BackgroundColorRGBA JsonCoder<BackgroundColorRGBA>::decode(const Json& json,
                                                           const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    const auto component = [&reader](const char* key) {
        return sanitisedNumber(reader.required<double>(key), 0.0, 1.0, 0.0);
    };
    return {component("red"), component("green"), component("blue"), component("alpha")};
}

Json JsonCoder<BackgroundColorRGBA>::encode(const BackgroundColorRGBA& color) {
    return {
        {"red", color.red}, {"green", color.green}, {"blue", color.blue}, {"alpha", color.alpha}};
}

WallpaperPreset JsonCoder<WallpaperPreset>::decode(const Json& json, const JsonDecodeContext&) {
    // A wallpaper value never fails a decode.
    return json.is_string() ? WallpaperPreset::parse(json.get<std::string>())
                            : WallpaperPreset::defaultPreset();
}

BackgroundSettings JsonCoder<BackgroundSettings>::decode(const Json& json,
                                                         const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    const BackgroundSettings defaults;
    BackgroundSettings settings;
    settings.kind = reader.value<BackgroundKind>("kind", defaults.kind);
    settings.wallpaper = reader.value<WallpaperPreset>("wallpaper", defaults.wallpaper);
    settings.paddingAmount = reader.sanitised("paddingAmount", 0, 1, defaults.paddingAmount);
    settings.shadowAmount = reader.sanitised("shadowAmount", 0, 1, defaults.shadowAmount);
    settings.solidColor = reader.value<BackgroundColorRGBA>("solidColor", defaults.solidColor);
    return settings;
}

Json JsonCoder<BackgroundSettings>::encode(const BackgroundSettings& settings) {
    return {{"kind", encodeJson(settings.kind)},
            {"wallpaper", encodeJson(settings.wallpaper)},
            {"paddingAmount", settings.paddingAmount},
            {"shadowAmount", settings.shadowAmount},
            {"solidColor", encodeJson(settings.solidColor)}};
}

} // namespace orvelle
