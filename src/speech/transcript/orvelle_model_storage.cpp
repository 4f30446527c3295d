#include "speech/transcript/orvelle_model_storage.h"

#include "core/xdg_paths.h"

namespace orvelle::OrvelleModelStorage {

std::filesystem::path applicationSupportDirectory() {
    return orvelle::applicationSupportDirectory();
}

std::filesystem::path cachesDirectory() {
    return orvelle::cachesDirectory();
}

std::filesystem::path modelsDirectory() {
    return applicationSupportDirectory() / "Models";
}

std::filesystem::path parakeetModelDirectory() {
    return modelsDirectory() / "parakeet-tdt-0.6b-v3-coreml";
}

std::filesystem::path youtubeMetadataModelDirectory() {
    return modelsDirectory() / "qwen-youtube-metadata";
}

std::filesystem::path preciseWordTimingModelDirectory() {
    return modelsDirectory() / "precise-word-timing-wav2vec2-base-960h";
}

} // namespace orvelle::OrvelleModelStorage
