#pragma once

// A coarse loudness curve of the microphone, so that a cut by words lands in real silence
// rather than at the recogniser's word times: RMS over short buckets, and the points in a
// window where the silence after a kept word ends and where the silence before the next
// kept word begins.

#include "core/error.h"

#include <filesystem>
#include <optional>
#include <stop_token>
#include <vector>

namespace orvelle {

struct TranscriptSpliceEnergyProfile {
    // The buckets the transcript editor asks for.
    static constexpr double kDefaultBucketDuration = 0.005;

    double bucketDuration = kDefaultBucketDuration;
    std::vector<float> rms; // one per bucket, over all channels

    // Where a cut may begin inside [lo, hi]: the end of the first silence in it, else the
    // middle of its quietest bucket. Absent when the window holds no bucket.
    std::optional<double> deletionStart(double lo, double hi) const;
    // Where a cut may end inside [lo, hi]: the start of the last silence in it, else the
    // middle of its quietest bucket.
    std::optional<double> deletionEnd(double lo, double hi) const;

    // Silence in a window: at most twice its tenth-percentile RMS, held to [0.0022, 0.02].
    std::optional<float> silenceThreshold(double lo, double hi) const;

    friend bool operator==(const TranscriptSpliceEnergyProfile&,
                           const TranscriptSpliceEnergyProfile&) = default;
};

class TranscriptSpliceEnergyExtractionError : public Error {
public:
    using Error::Error;
};

namespace TranscriptSpliceEnergyProfileExtractor {

// Reads the file's first audio stream at its own rate and channels. Throws
// TranscriptSpliceEnergyExtractionError when it has no audio or cannot be read,
// CancellationError once `stop` is requested.
TranscriptSpliceEnergyProfile
extract(const std::filesystem::path& url,
        double bucketDuration = TranscriptSpliceEnergyProfile::kDefaultBucketDuration,
        const std::stop_token& stop = {});

} // namespace TranscriptSpliceEnergyProfileExtractor

} // namespace orvelle
