#pragma once

// The audio of a take as the timing model hears it: one channel of 32-bit floats at the
// model's rate, decoded afresh for each call.

#include "speech/align/alignment_types.h"

#include <filesystem>

namespace orvelle::AlignmentAudioPreprocessor {

// Throws AlignmentError audioDecodeFailed with the decoder's reason.
AlignmentAudioBuffer decodeMonoFloat32(const std::filesystem::path& from, int targetSampleRate);

} // namespace orvelle::AlignmentAudioPreprocessor
