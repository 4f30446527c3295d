#pragma once

// Environment variables set (a value) or removed (no value) for one scope, and put back as
// they were when it ends.

#include <cstdlib>
#include <map>
#include <optional>
#include <string>

namespace orvelle::testing {

class ScopedEnvironment {
public:
    explicit ScopedEnvironment(const std::map<std::string, std::optional<std::string>>& values) {
        for (const auto& [name, value] : values) {
            const char* old = std::getenv(name.c_str());
            saved_[name] = old != nullptr ? std::optional<std::string>(old) : std::nullopt;
            set(name, value);
        }
    }
    ScopedEnvironment(const std::string& name, const std::optional<std::string>& value)
        : ScopedEnvironment(std::map<std::string, std::optional<std::string>>{{name, value}}) {}
    ~ScopedEnvironment() {
        for (const auto& [name, value] : saved_) {
            set(name, value);
        }
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    static void set(const std::string& name, const std::optional<std::string>& value) {
        if (value) {
            ::setenv(name.c_str(), value->c_str(), 1);
        } else {
            ::unsetenv(name.c_str());
        }
    }
    std::map<std::string, std::optional<std::string>> saved_;
};

} // namespace orvelle::testing
