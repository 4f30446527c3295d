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

// A folder that holds a complete model in one of the two layouts the recogniser loads:
// "tokenizer.json" with "encoder.onnx", "decoder.onnx" and "joint.onnx", or
// "vocab.txt" with "encoder-model.onnx" and "decoder_joint-model.onnx".
bool isParakeetTDTModelRoot(const std::filesystem::path& folder);

} // namespace orvelle::TranscriptModelLocator
