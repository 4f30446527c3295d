#include "speech/transcript/transcript_model_locator.h"

#include "core/files.h"
#include "speech/transcript/orvelle_model_storage.h"

#include <initializer_list>

namespace orvelle::TranscriptModelLocator {

namespace {

bool holdsAll(const std::filesystem::path& folder, std::initializer_list<const char*> names) {
    for (const char* name : names) {
        if (!fileExists(folder / name)) {
            return false;
        }
    }
    return true;
}

} // namespace

std::optional<TranscriptModelSource>
defaultModelSource(const std::filesystem::path& workingDirectory) {
    return localDefaultModelSource(workingDirectory);
}

std::optional<TranscriptModelSource>
localDefaultModelSource(const std::filesystem::path& /*workingDirectory*/) {
    const std::filesystem::path folder = OrvelleModelStorage::parakeetModelDirectory();
    if (!isParakeetTDTModelRoot(folder)) {
        return std::nullopt;
    }
    return TranscriptModelSource{folder};
}

bool isParakeetTDTModelRoot(const std::filesystem::path& folder) {
    return holdsAll(folder, {"tokenizer.json", "encoder.onnx", "decoder.onnx", "joint.onnx"}) ||
           holdsAll(folder, {"vocab.txt", "encoder-model.onnx", "decoder_joint-model.onnx"});
}

} // namespace orvelle::TranscriptModelLocator
