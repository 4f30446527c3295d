#include "core/log.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

namespace orvelle {

namespace {

LogLevel levelFromEnvironment() {
    const char* value = std::getenv("ORVELLE_LOG");
    if (value == nullptr) {
        return LogLevel::warning;
    }
    const std::string text = value;
    if (text == "debug")
        return LogLevel::debug;
    if (text == "info")
        return LogLevel::info;
    if (text == "error")
        return LogLevel::error;
    return LogLevel::warning;
}

std::atomic<LogLevel>& threshold() {
    static std::atomic<LogLevel> level{levelFromEnvironment()};
    return level;
}

const char* levelName(LogLevel level) {
    switch (level) {
    case LogLevel::debug:
        return "debug";
    case LogLevel::info:
        return "info";
    case LogLevel::warning:
        return "warning";
    case LogLevel::error:
        return "error";
    }
    return "";
}

} // namespace

bool isLogEnabled(LogLevel level) {
    return level >= threshold().load(std::memory_order_relaxed);
}

void setLogLevel(LogLevel level) {
    threshold().store(level);
}

void logMessage(LogLevel level, std::string_view category, std::string_view message) {
    if (!isLogEnabled(level)) {
        return;
    }
    static std::mutex mutex;
    std::lock_guard lock(mutex);
    std::fprintf(stderr, "orvelle[%.*s] %s: %.*s\n", static_cast<int>(category.size()),
                 category.data(), levelName(level), static_cast<int>(message.size()),
                 message.data());
}

} // namespace orvelle
