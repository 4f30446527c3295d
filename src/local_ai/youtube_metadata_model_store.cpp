#include "local_ai/youtube_metadata_model_store.h"

#include "speech/transcript/orvelle_model_storage.h"

#include <algorithm>
#include <vector>

namespace orvelle {

YouTubeMetadataModelStore YouTubeMetadataModelStore::standard() {
    return {OrvelleModelStorage::youtubeMetadataModelDirectory(), std::nullopt};
}

std::optional<std::filesystem::path> YouTubeMetadataModelStore::installedModel() const {
    std::error_code error;
    if (modelFile) {
        if (std::filesystem::is_regular_file(*modelFile, error)) {
            return modelFile;
        }
        return std::nullopt;
    }
    std::vector<std::filesystem::path> models;
    for (const auto& entry : std::filesystem::directory_iterator(modelDirectory, error)) {
        std::error_code typeError;
        if (entry.path().extension() == ".gguf" && entry.is_regular_file(typeError)) {
            models.push_back(entry.path());
        }
    }
    if (models.empty()) {
        return std::nullopt;
    }
    return *std::min_element(models.begin(), models.end());
}

} // namespace orvelle
