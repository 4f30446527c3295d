#include "core/resources.h"

#include <system_error>

namespace orvelle {

std::filesystem::path runningProgramDirectory() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        return {};
    }
    return program.parent_path();
}

std::filesystem::path resourcesDirectory() {
    const auto programDirectory = runningProgramDirectory();
    if (programDirectory.empty()) {
        return std::filesystem::path("share") / "orvelle";
    }
    return programDirectory.parent_path() / "share" / "orvelle";
}

} // namespace orvelle
