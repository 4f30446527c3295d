#pragma once

// The user's choices that belong to no project (recent documents, window state, selected
// devices): one JSON object in $XDG_CONFIG_HOME/Orvelle/settings.json under names such as
// "OrvelleRecentDocuments". Each set reads the file again and writes it back whole by
// atomic replace, so keys written by another part of the program are kept. A missing file
// reads as empty, an unreadable one too (logged). Not thread-safe: one owner.

#include "core/json.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace orvelle {

class UserDefaults {
public:
    static std::filesystem::path defaultURL();
    explicit UserDefaults(std::filesystem::path url = defaultURL());

    const std::filesystem::path& url() const { return url_; }

    std::optional<Json> value(std::string_view key) const;
    // The value decoded as T; absent when missing or of another shape.
    template <class T>
    std::optional<T> get(std::string_view key) const {
        const auto json = value(key);
        if (!json) {
            return std::nullopt;
        }
        try {
            return decodeJson<T>(*json, JsonDecodeContext{}.key(key));
        } catch (const Error&) {
            return std::nullopt;
        }
    }

    // Writes the file; throws FileError when it cannot.
    void set(std::string_view key, Json value);
    void remove(std::string_view key);

private:
    Json readFile() const;
    void write(Json object);

    std::filesystem::path url_;
    Json object_ = Json::object();
};

} // namespace orvelle
