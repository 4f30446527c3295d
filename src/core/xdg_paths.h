#pragma once

#include <filesystem>

namespace orvelle {

// The application's folders, from the XDG environment with the usual fallbacks under
// $HOME. Nothing is created here; writers create what they need.

// $XDG_DATA_HOME/Orvelle, default ~/.local/share/Orvelle: captures, models, music cache.
std::filesystem::path applicationSupportDirectory();
// $XDG_CACHE_HOME/Orvelle, default ~/.cache/Orvelle.
std::filesystem::path cachesDirectory();
// $XDG_CONFIG_HOME/Orvelle, default ~/.config/Orvelle: settings.json.
std::filesystem::path configDirectory();

} // namespace orvelle
