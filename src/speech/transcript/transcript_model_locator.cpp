#include "speech/transcript/transcript_model_locator.h"

#include "speech/runtime/parakeet_model_folder.h"
#include "speech/transcript/orvelle_model_storage.h"

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
    return ParakeetModelFolder::at(folder).complete();
}

} // namespace orvelle::TranscriptModelLocator
