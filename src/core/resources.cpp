#include "core/resources.h"

#include <system_error>

namespace orvelle {

std::filesystem::path resourcesDirectory() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        return std::filesystem::path("share") / "orvelle";
    }
    return program.parent_path().parent_path() / "share" / "orvelle";
}

} // namespace orvelle
