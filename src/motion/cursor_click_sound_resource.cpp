#include "motion/cursor_click_sound_resource.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string>
#include <system_error>
#include <vector>

namespace orvelle::CursorClickSoundResource {

namespace {

namespace fs = std::filesystem;

std::string lowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool isAudioFile(const fs::path& path) {
    static constexpr std::array<std::string_view, 7> kExtensions = {".wav", ".aif", ".aiff", ".caf",
                                                                    ".m4a", ".mp3", ".flac"};
    const std::string extension = lowercase(path.extension().string());
    return std::find(kExtensions.begin(), kExtensions.end(), extension) != kExtensions.end();
}

bool isRegularFile(const fs::path& path) {
    std::error_code error;
    return fs::is_regular_file(path, error);
}

} // namespace

std::optional<fs::path> url(const fs::path& resourcesDirectory) {
    for (const char* folder : {"MouseClicks", "Sounds", "MouseAudio"}) {
        const fs::path candidate = resourcesDirectory / folder / kFileName;
        if (isRegularFile(candidate)) {
            return candidate;
        }
    }
    std::vector<fs::path> candidates;
    std::error_code error;
    for (fs::recursive_directory_iterator it(resourcesDirectory, error), end; !error && it != end;
         it.increment(error)) {
        const fs::path& path = it->path();
        if (isAudioFile(path) &&
            lowercase(path.stem().string()).find("click") != std::string::npos &&
            isRegularFile(path)) {
            candidates.push_back(path);
        }
    }
    if (candidates.empty()) {
        return std::nullopt;
    }
    return *std::min_element(candidates.begin(), candidates.end());
}

} // namespace orvelle::CursorClickSoundResource
