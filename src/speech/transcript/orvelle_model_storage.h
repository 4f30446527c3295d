#pragma once

// Where downloaded models live: one folder each under the application's data folder
// ("Models/<name>"). Nothing is created here; installers create what they fill.

#include <filesystem>

namespace orvelle::OrvelleModelStorage {

std::filesystem::path applicationSupportDirectory();
std::filesystem::path cachesDirectory();
std::filesystem::path modelsDirectory();
std::filesystem::path parakeetModelDirectory();
std::filesystem::path youtubeMetadataModelDirectory();
std::filesystem::path preciseWordTimingModelDirectory();

} // namespace orvelle::OrvelleModelStorage
