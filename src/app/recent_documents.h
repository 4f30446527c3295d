#pragma once

// The documents opened lately, newest first, as the start window and the File menu list
// them: kept in the user's settings under "OrvelleRecentDocuments", at most twelve, each
// once. Main thread only.

#include "core/user_defaults.h"

#include <filesystem>
#include <functional>
#include <vector>

namespace orvelle {

class RecentDocuments {
public:
    static constexpr size_t kLimit = 12;

    explicit RecentDocuments(UserDefaults& defaults);

    const std::vector<std::filesystem::path>& paths() const { return paths_; }
    // Moves the document to the front (adding it when new). A failed write is logged.
    void add(const std::filesystem::path& path);
    void remove(const std::filesystem::path& path);
    void clear();
    // Called after each change.
    void setOnChange(std::function<void()> onChange) { onChange_ = std::move(onChange); }

private:
    void store();

    UserDefaults& defaults_;
    std::vector<std::filesystem::path> paths_;
    std::function<void()> onChange_;
};

} // namespace orvelle
