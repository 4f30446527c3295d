#include "online/online_endpoints.h"

#include "core/files.h"
#include "core/json.h"
#include "core/xdg_paths.h"

#include <cstdlib>

namespace orvelle {

std::filesystem::path OnlineServiceEndpoints::settingsFile() {
    return configDirectory() / "settings.json";
}

OnlineServiceEndpoints OnlineServiceEndpoints::load() {
    return load(settingsFile());
}

OnlineServiceEndpoints OnlineServiceEndpoints::load(const std::filesystem::path& settingsFile) {
    OnlineServiceEndpoints endpoints;
    if (fileExists(settingsFile)) {
        try {
            const Json settings = readJsonFile(settingsFile);
            if (settings.is_object()) {
                const JsonObjectReader reader(settings, {});
                endpoints.youtubeUploadURL =
                    reader.value<std::string>("youtubeUploadURL", endpoints.youtubeUploadURL);
                endpoints.musicLibraryURL =
                    reader.value<std::string>("musicLibraryURL", endpoints.musicLibraryURL);
            }
        } catch (const JsonDecodeError& error) {
            throw JsonDecodeError(settingsFile.string(), error.what());
        }
    }
    for (auto [name, field] :
         {std::pair{"ORVELLE_YOUTUBE_UPLOAD_URL", &endpoints.youtubeUploadURL},
          std::pair{"ORVELLE_MUSIC_LIBRARY_URL", &endpoints.musicLibraryURL}}) {
        if (const char* value = std::getenv(name); value != nullptr && *value != '\0') {
            *field = value;
        }
    }
    return endpoints;
}

} // namespace orvelle
