#include "core/user_defaults.h"

#include "core/log.h"
#include "core/xdg_paths.h"

#include <system_error>

namespace orvelle {

namespace fs = std::filesystem;

fs::path UserDefaults::defaultURL() {
    return configDirectory() / "settings.json";
}

UserDefaults::UserDefaults(fs::path url) : url_(std::move(url)), object_(readFile()) {}

Json UserDefaults::readFile() const {
    std::error_code error;
    if (!fs::exists(url_, error)) {
        return Json::object();
    }
    try {
        Json json = readJsonFile(url_);
        if (json.is_object()) {
            return json;
        }
        logWarning("settings", url_.string(), " does not hold an object; starting afresh");
    } catch (const Error& failure) {
        logWarning("settings", failure.what());
    }
    return Json::object();
}

std::optional<Json> UserDefaults::value(std::string_view key) const {
    const auto found = object_.find(std::string(key));
    if (found == object_.end()) {
        return std::nullopt;
    }
    return *found;
}

void UserDefaults::set(std::string_view key, Json value) {
    Json object = readFile();
    object[std::string(key)] = std::move(value);
    write(std::move(object));
}

void UserDefaults::remove(std::string_view key) {
    Json object = readFile();
    object.erase(std::string(key));
    write(std::move(object));
}

void UserDefaults::write(Json object) {
    std::error_code error;
    fs::create_directories(url_.parent_path(), error);
    writeJsonAtomically(url_, object);
    object_ = std::move(object);
}

} // namespace orvelle
