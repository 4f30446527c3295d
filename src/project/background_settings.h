#pragma once

// The stage behind the recording: a wallpaper image or a solid colour, with padding and a
// shadow. BackgroundColorRGBA is the colour type of the whole project.

#include "core/json.h"

#include <array>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvelle {

// Four components in 0...1; all four are required wherever the record occurs.
struct BackgroundColorRGBA {
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 1;

    friend bool operator==(const BackgroundColorRGBA&, const BackgroundColorRGBA&) = default;
};

enum class BackgroundKind { wallpaper, color };
std::span<const EnumName<BackgroundKind>> jsonNames(BackgroundKind);

enum class WallpaperCategory { macOS, bright, dark, blue, green, pink, gradient };

inline constexpr std::array<WallpaperCategory, 7> kWallpaperCategories{
    WallpaperCategory::macOS,   WallpaperCategory::bright, WallpaperCategory::dark,
    WallpaperCategory::blue,    WallpaperCategory::green,  WallpaperCategory::pink,
    WallpaperCategory::gradient};

// "macOS", "Bright", ...: the folder of the category's images.
std::string_view wallpaperFolder(WallpaperCategory category);
int wallpaperImageCount(WallpaperCategory category);
// The resource name of image n (from 1): "3" in macOS, "bright-3" in Bright.
std::string wallpaperResourceName(WallpaperCategory category, int index);
// The image number a resource name stands for in a category, or absent when the name is
// not one of the category's.
std::optional<int> wallpaperIndex(WallpaperCategory category, std::string_view resourceName);

// One wallpaper image, stored in JSON as its raw value "<folder>/<resource name>".
struct WallpaperPreset {
    std::string rawValue = "macOS/1";

    WallpaperPreset() = default;
    // The index is clamped into the category's images.
    WallpaperPreset(WallpaperCategory category, int index);

    static WallpaperPreset defaultPreset() { return {}; }
    // Reads any stored form: the current one, a bare resource name ("blue-4"), retired
    // names (the default). Never fails: what it cannot place is the default.
    static WallpaperPreset parse(std::string_view text);
    // The images of a category, in order.
    static std::vector<WallpaperPreset> presets(WallpaperCategory category);

    std::optional<WallpaperCategory> category() const;
    std::string resourceName() const;
    // "BackgroundThumbnails/<folder>/<resource name>-thumbnail"
    std::string thumbnailResource() const;
    // The image files in the application's resources: "Wallpapers/<raw value>.png" and the
    // thumbnail resource with ".png".
    std::filesystem::path resourceURL() const;
    std::filesystem::path thumbnailURL() const;

    friend bool operator==(const WallpaperPreset&, const WallpaperPreset&) = default;
};

struct BackgroundSettings {
    BackgroundKind kind = BackgroundKind::wallpaper;
    WallpaperPreset wallpaper;
    double paddingAmount = 0.1;
    double shadowAmount = 0.25;
    BackgroundColorRGBA solidColor{0.43, 0.23, 1.0, 1.0};

    friend bool operator==(const BackgroundSettings&, const BackgroundSettings&) = default;
};

template <>
struct JsonCoder<BackgroundColorRGBA> {
    static BackgroundColorRGBA decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const BackgroundColorRGBA& value);
};

template <>
struct JsonCoder<WallpaperPreset> {
    static WallpaperPreset decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const WallpaperPreset& value) { return value.rawValue; }
};

template <>
struct JsonCoder<BackgroundSettings> {
    static BackgroundSettings decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const BackgroundSettings& value);
};

} // namespace orvelle
