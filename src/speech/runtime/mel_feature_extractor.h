#pragma once

// Log-mel features as the speech encoder was trained on them: pre-emphasis, zero centre
// padding, a symmetric Hann window centred in the transform, the power spectrum, Slaney
// mel filters, the log with a guard, and normalisation of each mel bin over the chunk.
// Immutable after construction. extract() keeps its scratch buffers per call (reused for
// every frame of the chunk), so several threads may call it at once.

#include "speech/runtime/mel_filter_bank.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace orvelle {

// The speech model's values; the alignment model's bundle may change the rate, the
// hop and the number of filters.
struct MelFeatureSettings {
    int sampleRate = 16000;
    int hopLength = 160;
    int winLength = 400;
    int nFFT = 512;
    int numMelFilters = 128;
    float preemphasis = 0.97f;
    float logGuard = 0x1p-24f;
    float epsilon = 1e-5f;
    friend bool operator==(const MelFeatureSettings&, const MelFeatureSettings&) = default;
};

class MelFeatureExtractor {
public:
    using Settings = MelFeatureSettings;

    // One row of numMelFilters values per frame, frames in time order.
    struct Features {
        std::vector<float> mel;             // frame-major: frameCount() * numMelFilters values
        std::vector<int32_t> attentionMask; // one 1 per frame
        int numMelFilters = 0;
        size_t frameCount() const { return attentionMask.size(); }
        std::span<const float> frame(size_t t) const {
            return std::span<const float>(mel).subspan(t * static_cast<size_t>(numMelFilters),
                                                       static_cast<size_t>(numMelFilters));
        }
        friend bool operator==(const Features&, const Features&) = default;
    };

    // Throws ParakeetError (fftSetupFailed) when no FFT plan can be made, and Error for
    // settings that make no frames (a window longer than the transform, a hop below 1).
    explicit MelFeatureExtractor(const Settings& settings = {});
    ~MelFeatureExtractor();
    MelFeatureExtractor(const MelFeatureExtractor&) = delete;
    MelFeatureExtractor& operator=(const MelFeatureExtractor&) = delete;

    // A chunk of n samples gives n / hopLength + 1 frames; an empty chunk gives none.
    Features extract(std::span<const float> samples) const;

    const Settings& settings() const { return settings_; }
    int numFreqBins() const { return numFreqBins_; }
    const std::vector<float>& hannWindow() const { return hannWindow_; }
    const std::vector<std::vector<float>>& melRows() const { return melRows_; }

private:
    struct Plan;
    Settings settings_;
    std::vector<float> hannWindow_;
    std::vector<std::vector<float>> melRows_;
    int numFreqBins_ = 0;
    // Each filter is zero outside [first, end) of the spectrum; the dot products skip the
    // zeros, which changes no sum.
    std::vector<std::pair<size_t, size_t>> melSupport_;
    std::unique_ptr<Plan> fftSetup_;
};

} // namespace orvelle
