#pragma once

#include <sstream>
#include <string_view>

namespace orvelle {

enum class LogLevel { debug, info, warning, error };

// Diagnostics to stderr, one line each, for the developer and the system journal; never
// user-facing text. The threshold comes from ORVELLE_LOG (debug, info, warning, error;
// default warning). Thread-safe.
void logMessage(LogLevel level, std::string_view category, std::string_view message);
bool isLogEnabled(LogLevel level);
void setLogLevel(LogLevel level);

// logInfo("export", "wrote ", frames, " frames") — the parts are streamed only when the
// level is enabled.
template <class... Parts>
void logAt(LogLevel level, std::string_view category, const Parts&... parts) {
    if (!isLogEnabled(level)) {
        return;
    }
    std::ostringstream text;
    (text << ... << parts);
    logMessage(level, category, text.str());
}

template <class... Parts>
void logDebug(std::string_view category, const Parts&... parts) {
    logAt(LogLevel::debug, category, parts...);
}
template <class... Parts>
void logInfo(std::string_view category, const Parts&... parts) {
    logAt(LogLevel::info, category, parts...);
}
template <class... Parts>
void logWarning(std::string_view category, const Parts&... parts) {
    logAt(LogLevel::warning, category, parts...);
}
template <class... Parts>
void logError(std::string_view category, const Parts&... parts) {
    logAt(LogLevel::error, category, parts...);
}

} // namespace orvelle
