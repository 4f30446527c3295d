// Paints the wallpapers of one category, or of all, and their thumbnails:
//   orvelle-wallpapers OUTPUT [--category FOLDER] [--size WxH] [--stamp FILE]
// Files go to OUTPUT/Wallpapers/<folder>/<name>.png and
// OUTPUT/BackgroundThumbnails/<folder>/<name>-thumbnail.png; the stamp is written last, so
// that a build that stopped half way paints the category again.

#include "core/files.h"
#include "project/background_settings.h"
#include "wallpaper_art.h"

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

namespace {

constexpr int kThumbnailWidth = 384;
constexpr int kThumbnailHeight = 216;

bool parseSize(const std::string& text, int& width, int& height) {
    return std::sscanf(text.c_str(), "%dx%d", &width, &height) == 2 && width > 0 && height > 0;
}

} // namespace

int main(int argc, char** argv) {
    using namespace orvelle;
    std::vector<std::string> arguments(argv + 1, argv + argc);
    std::filesystem::path output;
    std::string only;
    std::filesystem::path stamp;
    int width = 3840;
    int height = 2160;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& word = arguments[i];
        const bool hasValue = i + 1 < arguments.size();
        if (word == "--category" && hasValue) {
            only = arguments[++i];
        } else if (word == "--stamp" && hasValue) {
            stamp = arguments[++i];
        } else if (word == "--size" && hasValue) {
            if (!parseSize(arguments[++i], width, height)) {
                std::cerr << "orvelle-wallpapers: --size wants WIDTHxHEIGHT.\n";
                return 2;
            }
        } else if (output.empty() && !word.starts_with("--")) {
            output = word;
        } else {
            std::cerr << "Usage: orvelle-wallpapers OUTPUT [--category FOLDER] [--size WxH] "
                         "[--stamp FILE]\n";
            return 2;
        }
    }
    if (output.empty()) {
        std::cerr << "orvelle-wallpapers: name the folder to paint into.\n";
        return 2;
    }
    try {
        bool any = false;
        for (const WallpaperCategory category : kWallpaperCategories) {
            const std::string folder(wallpaperFolder(category));
            if (!only.empty() && only != folder) {
                continue;
            }
            any = true;
            std::filesystem::create_directories(output / "Wallpapers" / folder);
            std::filesystem::create_directories(output / "BackgroundThumbnails" / folder);
            for (const WallpaperPreset& preset : WallpaperPreset::presets(category)) {
                const int index = *wallpaperIndex(category, preset.resourceName());
                const Bitmap picture = wallpapers::paintWallpaper(category, index, width, height);
                writePNG(picture, output / "Wallpapers" / (preset.rawValue + ".png"));
                writePNG(wallpapers::thumbnail(picture, kThumbnailWidth, kThumbnailHeight),
                         output / (preset.thumbnailResource() + ".png"));
            }
        }
        if (!any) {
            std::cerr << "orvelle-wallpapers: there is no category \"" << only << "\".\n";
            return 2;
        }
        if (!stamp.empty()) {
            writeFileAtomically(stamp, "painted\n");
        }
    } catch (const std::exception& error) {
        std::cerr << "orvelle-wallpapers: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
