#pragma once

// Finds speech in a microphone track by level alone: buckets of a coarse peak waveform that
// stand above the noise floor, merged across short pauses and held a little past their end.
// The file work runs once per take in the background; the rest are pure functions.

#include "project/take_manifest.h"

#include <vector>

namespace orvelle {

// A closed range of source seconds.
struct VoiceInterval {
    double lower = 0;
    double upper = 0;

    friend bool operator==(const VoiceInterval&, const VoiceInterval&) = default;
};

namespace VoiceActivityDetector {

struct Parameters {
    float thresholdMultiplier = 1.8f; // speech lies above the noise floor times this
    float noiseFloorPercentile = 0.4f;
    float minimumPeak = 0.04f; // the threshold is never below this
    double maximumGap = 1.0;   // seconds; closer intervals merge
    double hangover = 0.4;     // seconds speech is held past its end

    friend bool operator==(const Parameters&, const Parameters&) = default;
};

inline constexpr int kWaveformBucketCount = 2048;

float noiseFloor(const std::vector<float>& peaks, float percentile);

std::vector<VoiceInterval> speechIntervals(const std::vector<float>& peaks, double duration,
                                           const Parameters& parameters = {});

std::vector<VoiceInterval> mergeAndApplyHangover(std::vector<VoiceInterval> intervals,
                                                 double maximumGap, double hangover, double limit);

// Speech in the take's microphone segments, in source time. Missing or unreadable files
// contribute nothing. Reads files: keep it off the main thread.
std::vector<VoiceInterval> sourceIntervals(const std::vector<TakeSegmentManifest>& segments,
                                           const Parameters& parameters = {});

} // namespace VoiceActivityDetector

} // namespace orvelle
