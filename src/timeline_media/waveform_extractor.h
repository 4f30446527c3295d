#pragma once

// A coarse picture of a file's loudness: the largest absolute sample of any channel in each
// of a number of equal buckets over the file's length. Used by voice activity, cleanup
// suggestions and the timeline's waveform view. Reads the file: keep it off the main thread.

#include <filesystem>
#include <vector>

namespace orvelle {

struct Waveform {
    std::vector<float> peaks; // one per bucket, 0...1 for ordinary audio
    double duration = 0;      // seconds of audio decoded

    friend bool operator==(const Waveform&, const Waveform&) = default;
};

namespace WaveformExtractor {

// Throws MediaError when the file has no readable audio. A file with no samples gives no
// peaks and a duration of 0.
Waveform extractWaveform(const std::filesystem::path& url, int bucketCount);

} // namespace WaveformExtractor

} // namespace orvelle
