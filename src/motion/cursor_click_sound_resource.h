#pragma once

// Where the pointer's click sound lies among the application's resources. Reads folders:
// keep it off the main thread, or cache the answer.

#include <filesystem>
#include <optional>
#include <string_view>

namespace orvelle::CursorClickSoundResource {

// The click file's own name, as the build writes it into "Sounds".
inline constexpr std::string_view kFileName = "click.wav";

// The click file by its exact name in the folders "MouseClicks", "Sounds", "MouseAudio" of
// the resources; failing that, the first audio file of the resources, sorted by path, whose
// name suggests a click. Absent when there is none.
std::optional<std::filesystem::path> url(const std::filesystem::path& resourcesDirectory);

} // namespace orvelle::CursorClickSoundResource
