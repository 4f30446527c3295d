#include "recording/live_audio_level_meter.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

template <class Sample>
std::optional<float> LiveAudioLevelMeter::measure(const Sample* samples, size_t count, double now) {
    if (now - lastEmissionTime_ < minimumEmissionInterval_ || samples == nullptr || count == 0) {
        return std::nullopt;
    }
    double sum = 0;
    for (size_t i = 0; i < count; ++i) {
        double value = 0;
        if constexpr (std::is_same_v<Sample, float>) {
            value = samples[i];
        } else {
            value = samples[i] / 32767.0;
        }
        value = std::clamp(value, -1.0, 1.0);
        sum += value * value;
    }
    const double rms = std::sqrt(sum / static_cast<double>(count));
    const auto level =
        static_cast<float>(std::clamp((20 * std::log10(std::max(rms, 1e-5)) + 55) / 47, 0.0, 1.0));
    const float factor = level > smoothedLevel_ ? 0.36f : 0.18f;
    smoothedLevel_ += (level - smoothedLevel_) * factor;
    if (smoothedLevel_ < 0.015f) {
        smoothedLevel_ = 0;
    }
    lastEmissionTime_ = now;
    return smoothedLevel_;
}

std::optional<float> LiveAudioLevelMeter::process(const float* samples, size_t count, double now) {
    return measure(samples, count, now);
}

std::optional<float> LiveAudioLevelMeter::process(const int16_t* samples, size_t count,
                                                  double now) {
    return measure(samples, count, now);
}

} // namespace orvelle
