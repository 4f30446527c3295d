#pragma once

// The level of a live input for the launcher's meter: 0 to 1 from the RMS of each
// delivery (-55 dB reads 0, -8 dB reads 1), rising fast and falling slowly, at most once
// per interval. Silence reads exactly 0.

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>

namespace orvelle {

class LiveAudioLevelMeter {
public:
    explicit LiveAudioLevelMeter(double minimumEmissionInterval)
        : minimumEmissionInterval_(minimumEmissionInterval) {}

    // Interleaved samples heard at `now` (monotonic seconds). Absent when the last level is
    // too recent or there is nothing to measure.
    std::optional<float> process(const float* samples, size_t count, double now);
    std::optional<float> process(const int16_t* samples, size_t count, double now);

    float smoothedLevel() const { return smoothedLevel_; }

private:
    template <class Sample>
    std::optional<float> measure(const Sample* samples, size_t count, double now);

    double minimumEmissionInterval_;
    float smoothedLevel_ = 0;
    double lastEmissionTime_ = -std::numeric_limits<double>::infinity();
};

} // namespace orvelle
