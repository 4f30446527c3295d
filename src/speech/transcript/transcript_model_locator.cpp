#include "speech/transcript/transcript_model_locator.h"

#include "core/files.h"
#include "speech/runtime/parakeet_model_folder.h"
#include "speech/transcript/orvelle_model_storage.h"

#include <algorithm>

namespace orvelle::TranscriptModelLocator {

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
    const ParakeetModelFolder files = ParakeetModelFolder::at(folder);
    return fileExists(files.tokenizer) &&
           std::all_of(files.models.begin(), files.models.end(),
                       [](const std::filesystem::path& model) { return fileExists(model); });
}

} // namespace orvelle::TranscriptModelLocator
