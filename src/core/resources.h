#pragma once

#include <filesystem>

namespace orvelle {

// The folder of the running program (bin/ of the build tree or of an installation); empty
// when the system does not say.
std::filesystem::path runningProgramDirectory();

// The folder of the application's resources (wallpapers and their thumbnails, sounds):
// share/orvelle beside the folder of the running program. The build tree has the same
// layout as an installation (bin/ and share/orvelle/), so both find their resources.
std::filesystem::path resourcesDirectory();

} // namespace orvelle
