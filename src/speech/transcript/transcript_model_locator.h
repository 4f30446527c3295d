#pragma once

// Finds the installed speech recognition model.

#include "speech/transcript/transcript_analysis.h"

#include <filesystem>
#include <optional>

namespace orvelle::TranscriptModelLocator {

// The installed model, if any. The working directory plays no part in the answer; it is
// taken so that callers need not change when a search beside the document is added.
std::optional<TranscriptModelSource>
defaultModelSource(const std::filesystem::path& workingDirectory);
std::optional<TranscriptModelSource>
localDefaultModelSource(const std::filesystem::path& workingDirectory);

// A folder that holds every model and the tokenizer file of its layout (the layouts are
// those of ParakeetModelFolder).
bool isParakeetTDTModelRoot(const std::filesystem::path& folder);

} // namespace orvelle::TranscriptModelLocator
