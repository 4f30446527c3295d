#pragma once

// Where the language model of the metadata drafts and the paragraph pass is installed: a
// GGUF file in its folder under the application's models.

#include <filesystem>
#include <optional>

namespace orvelle {

struct YouTubeMetadataModelStore {
    std::filesystem::path modelDirectory;

    // The store of the installed model ("Models/qwen-youtube-metadata").
    static YouTubeMetadataModelStore standard();

    // The GGUF file in the folder (the first by name when there are several); absent when
    // the folder holds none.
    std::optional<std::filesystem::path> installedModel() const;
};

} // namespace orvelle
