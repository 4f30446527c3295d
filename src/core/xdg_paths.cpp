#include "core/xdg_paths.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace orvelle {

namespace fs = std::filesystem;

namespace {

fs::path homeDirectory() {
    if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') {
        return home;
    }
    if (const passwd* entry = ::getpwuid(::getuid()); entry != nullptr && entry->pw_dir) {
        return entry->pw_dir;
    }
    return "/tmp";
}

// The XDG rule: the variable when it holds an absolute path, otherwise the fallback.
fs::path xdgBase(const char* variable, const char* fallbackUnderHome) {
    if (const char* value = std::getenv(variable); value != nullptr && value[0] == '/') {
        return value;
    }
    return homeDirectory() / fallbackUnderHome;
}

} // namespace

fs::path applicationSupportDirectory() {
    return xdgBase("XDG_DATA_HOME", ".local/share") / "Orvelle";
}

fs::path cachesDirectory() {
    return xdgBase("XDG_CACHE_HOME", ".cache") / "Orvelle";
}

fs::path configDirectory() {
    return xdgBase("XDG_CONFIG_HOME", ".config") / "Orvelle";
}

} // namespace orvelle
