#pragma once

// Where the language model of the metadata drafts and the paragraph pass is installed: a
// GGUF file in its folder under the application's models.

#include <filesystem>
#include <optional>

namespace orvelle {

struct YouTubeMetadataModelStore {
    std::filesystem::path modelDirectory;
    // A model file chosen by hand, used instead of the folder's.
    std::optional<std::filesystem::path> modelFile;

    // The store of the installed model ("Models/qwen-youtube-metadata").
    static YouTubeMetadataModelStore standard();

    // The chosen file when it exists; otherwise the GGUF file in the folder (the first by
    // name when there are several). Absent when there is none.
    std::optional<std::filesystem::path> installedModel() const;
};

} // namespace orvelle
