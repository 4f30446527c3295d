#include "recording/audio_placement.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

AudioPlacement placeAudio(double fileStart, int64_t framesWritten, int sampleRate,
                          double bufferTime, size_t bufferFrames) {
    if (sampleRate <= 0 || !std::isfinite(bufferTime) || !std::isfinite(fileStart)) {
        return {};
    }
    const double expected =
        fileStart + static_cast<double>(framesWritten) / static_cast<double>(sampleRate);
    const double gap = bufferTime - expected;
    if (gap > kAudioPlacementTolerance) {
        return {static_cast<size_t>(std::llround(gap * sampleRate)), 0};
    }
    if (gap < -kAudioPlacementTolerance) {
        const auto overlap = static_cast<size_t>(std::llround(-gap * sampleRate));
        return {0, std::min(overlap, bufferFrames)};
    }
    return {};
}

} // namespace orvelle
