#pragma once

#include <filesystem>

namespace orvelle::testing {

// A fresh folder under the system's temporary folder, removed with everything in it when
// the object goes away.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::filesystem::path& name) const {
        return path_ / name;
    }

private:
    std::filesystem::path path_;
};

// The source tree (for tests/data) and the build tree (for generated tools), from the
// environment CTest sets.
std::filesystem::path sourceDirectory();
std::filesystem::path binaryDirectory();

// Writes text to a file, creating its folder.
void writeTextFile(const std::filesystem::path& path, std::string_view text);

} // namespace orvelle::testing
