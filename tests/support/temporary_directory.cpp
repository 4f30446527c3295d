#include "support/temporary_directory.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>

namespace orvelle::testing {

namespace fs = std::filesystem;

TemporaryDirectory::TemporaryDirectory() {
    std::string pattern = (fs::temp_directory_path() / "orvelle-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    path_ = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code error;
    fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, error);
    fs::remove_all(path_, error);
}

static fs::path fromEnvironment(const char* name, const char* fallback) {
    const char* value = std::getenv(name);
    return value != nullptr ? fs::path(value) : fs::path(fallback);
}

fs::path sourceDirectory() {
    return fromEnvironment("ORVELLE_SOURCE_DIR", ".");
}

fs::path binaryDirectory() {
    return fromEnvironment("ORVELLE_BINARY_DIR", ".");
}

void writeTextFile(const fs::path& path, std::string_view text) {
    if (path.has_parent_path()) {
        fs::create_directories(path.parent_path());
    }
    std::ofstream out(path, std::ios::binary);
    out << text;
    if (!out) {
        throw std::runtime_error("could not write " + path.string());
    }
}

} // namespace orvelle::testing
