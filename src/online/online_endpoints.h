#pragma once

// Where the online services are. Google's sign-in endpoints come from the OAuth client
// file; the upload and music API bases from the settings file
// ($XDG_CONFIG_HOME/Orvelle/settings.json, keys "youtubeUploadURL" and "musicLibraryURL"),
// overridden by ORVELLE_YOUTUBE_UPLOAD_URL and ORVELLE_MUSIC_LIBRARY_URL. Each client
// checks its address with requireSecureURL before it sends anything.

#include <filesystem>
#include <string>

namespace orvelle {

struct OnlineServiceEndpoints {
    // The host of the resumable upload ("/upload/youtube/v3/videos" is added).
    std::string youtubeUploadURL = "https://www.googleapis.com";
    // The music API's version-1 root ("audio/", "auth_tokens/..." are added).
    std::string musicLibraryURL = "https://api.openverse.org/v1/";
    // The page a finished upload is watched on ("?v=ID" is added).
    std::string youtubeWatchURL = "https://www.youtube.com/watch";

    // The defaults, then the settings file's keys, then the environment. A settings file
    // that is not JSON, or a key that is not a string, is a JsonDecodeError naming it.
    static OnlineServiceEndpoints load();
    static OnlineServiceEndpoints load(const std::filesystem::path& settingsFile);
    static std::filesystem::path settingsFile();
};

} // namespace orvelle
