#pragma once

// Any audio or movie file that FFmpeg reads, as the speech models hear it: one channel of
// 32-bit float samples at 16 kHz, resampled with a high-quality filter. The file is
// decoded in blocks, so it is never held in its source format as a whole.

#include <filesystem>
#include <vector>

namespace orvelle::AudioLoader {

// Throws ParakeetError: audioLoadFailed when the file cannot be read, audioEmpty when it
// holds no samples.
std::vector<float> loadMono16k(const std::filesystem::path& path);

} // namespace orvelle::AudioLoader
