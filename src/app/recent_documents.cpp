#include "app/recent_documents.h"

#include "core/log.h"

#include <algorithm>

namespace orvelle {

namespace {
constexpr std::string_view kKey = "OrvelleRecentDocuments";
}

RecentDocuments::RecentDocuments(UserDefaults& defaults) : defaults_(defaults) {
    for (const auto& text :
         defaults_.get<std::vector<std::string>>(kKey).value_or(std::vector<std::string>{})) {
        const std::filesystem::path path(text);
        if (path.is_absolute() && std::find(paths_.begin(), paths_.end(), path) == paths_.end() &&
            paths_.size() < kLimit) {
            paths_.push_back(path);
        }
    }
}

void RecentDocuments::add(const std::filesystem::path& path) {
    std::erase(paths_, path);
    paths_.insert(paths_.begin(), path);
    if (paths_.size() > kLimit) {
        paths_.resize(kLimit);
    }
    store();
}

void RecentDocuments::remove(const std::filesystem::path& path) {
    std::erase(paths_, path);
    store();
}

void RecentDocuments::clear() {
    paths_.clear();
    store();
}

void RecentDocuments::store() {
    Json list = Json::array();
    for (const auto& path : paths_) {
        list.push_back(path.string());
    }
    try {
        defaults_.set(kKey, std::move(list));
    } catch (const Error& error) {
        logWarning("app", "the recent documents were not saved: ", error.what());
    }
    if (onChange_) {
        onChange_();
    }
}

} // namespace orvelle
