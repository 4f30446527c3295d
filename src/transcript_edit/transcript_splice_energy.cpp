#include "transcript_edit/transcript_splice_energy.h"

#include "core/cancellation.h"
#include "platform/media/audio_decoder.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

namespace {

constexpr double kMinimumSilenceRun = 0.015;
constexpr float kLowestSilenceThreshold = 0.0022f;
constexpr float kHighestSilenceThreshold = 0.02f;

struct BucketWindow {
    size_t first = 0;
    size_t end = 0; // one past the last
};

std::optional<BucketWindow> bucketsIn(const TranscriptSpliceEnergyProfile& profile, double lo,
                                      double hi) {
    if (!(profile.bucketDuration > 0) || !(hi >= lo)) {
        return std::nullopt;
    }
    const double count = static_cast<double>(profile.rms.size());
    const double first = std::clamp(std::trunc(lo / profile.bucketDuration), 0.0, count);
    const double end = std::clamp(std::ceil(hi / profile.bucketDuration), 0.0, count);
    if (!(end > first)) {
        return std::nullopt;
    }
    return BucketWindow{static_cast<size_t>(first), static_cast<size_t>(end)};
}

float thresholdOf(const TranscriptSpliceEnergyProfile& profile, const BucketWindow& window) {
    std::vector<float> levels(profile.rms.begin() + static_cast<long>(window.first),
                              profile.rms.begin() + static_cast<long>(window.end));
    std::sort(levels.begin(), levels.end());
    const auto index = static_cast<size_t>(static_cast<double>(levels.size() - 1) * 0.1);
    return std::clamp(2 * levels[index], kLowestSilenceThreshold, kHighestSilenceThreshold);
}

struct SilenceRun {
    size_t first = 0;
    size_t end = 0;
};

std::vector<SilenceRun> silenceRuns(const TranscriptSpliceEnergyProfile& profile,
                                    const BucketWindow& window) {
    const float threshold = thresholdOf(profile, window);
    const auto shortest =
        static_cast<size_t>(std::ceil(kMinimumSilenceRun / profile.bucketDuration - 1e-9));
    std::vector<SilenceRun> runs;
    size_t i = window.first;
    while (i < window.end) {
        if (profile.rms[i] > threshold) {
            ++i;
            continue;
        }
        size_t j = i;
        while (j < window.end && profile.rms[j] <= threshold) {
            ++j;
        }
        if (j - i >= std::max<size_t>(shortest, 1)) {
            runs.push_back({i, j});
        }
        i = j;
    }
    return runs;
}

double quietestTime(const TranscriptSpliceEnergyProfile& profile, const BucketWindow& window) {
    size_t quietest = window.first;
    for (size_t i = window.first; i < window.end; ++i) {
        if (profile.rms[i] < profile.rms[quietest]) {
            quietest = i;
        }
    }
    return (static_cast<double>(quietest) + 0.5) * profile.bucketDuration;
}

} // namespace

std::optional<float> TranscriptSpliceEnergyProfile::silenceThreshold(double lo, double hi) const {
    const auto window = bucketsIn(*this, lo, hi);
    if (!window) {
        return std::nullopt;
    }
    return thresholdOf(*this, *window);
}

std::optional<double> TranscriptSpliceEnergyProfile::deletionStart(double lo, double hi) const {
    const auto window = bucketsIn(*this, lo, hi);
    if (!window) {
        return std::nullopt;
    }
    const auto runs = silenceRuns(*this, *window);
    const double time = runs.empty() ? quietestTime(*this, *window)
                                     : static_cast<double>(runs.front().end) * bucketDuration;
    return std::clamp(time, lo, hi);
}

std::optional<double> TranscriptSpliceEnergyProfile::deletionEnd(double lo, double hi) const {
    const auto window = bucketsIn(*this, lo, hi);
    if (!window) {
        return std::nullopt;
    }
    const auto runs = silenceRuns(*this, *window);
    const double time = runs.empty() ? quietestTime(*this, *window)
                                     : static_cast<double>(runs.back().first) * bucketDuration;
    return std::clamp(time, lo, hi);
}

namespace TranscriptSpliceEnergyProfileExtractor {

TranscriptSpliceEnergyProfile extract(const std::filesystem::path& url, double bucketDuration,
                                      const std::stop_token& stop) {
    if (!(bucketDuration > 0)) {
        throw TranscriptSpliceEnergyExtractionError(
            "The loudness buckets must be longer than 0 s.");
    }
    std::unique_ptr<AudioDecoder> decoder;
    try {
        // Opened once to learn the stored rate and channels, then read in them.
        const AudioDecoder probe(url, AudioFormat{48000, 1});
        const int rate = probe.sourceSampleRate() > 0 ? probe.sourceSampleRate() : 48000;
        const int channels = std::max(1, probe.sourceChannelCount());
        decoder = std::make_unique<AudioDecoder>(url, AudioFormat{rate, channels});
    } catch (const Error& error) {
        throw TranscriptSpliceEnergyExtractionError("No loudness profile for \"" + url.string() +
                                                    "\": " + error.what());
    }
    const int rate = decoder->format().sampleRate;
    const int channels = decoder->format().channelCount;
    // Bucket b ends at the frame nearest (b + 1) * bucketDuration, so that no rounding of a
    // bucket's length adds up over a long file.
    const auto bucketEnd = [&](size_t bucket) {
        return std::max<int64_t>(
            static_cast<int64_t>(bucket) + 1,
            std::llround(static_cast<double>(bucket + 1) * bucketDuration * rate));
    };
    TranscriptSpliceEnergyProfile profile;
    profile.bucketDuration = bucketDuration;
    std::vector<float> block(8192 * static_cast<size_t>(channels));
    double sum = 0;
    size_t frames = 0;
    int64_t position = 0;
    int64_t boundary = bucketEnd(0);
    const auto close = [&] {
        if (frames > 0) {
            profile.rms.push_back(static_cast<float>(
                std::sqrt(sum / static_cast<double>(frames * static_cast<size_t>(channels)))));
        }
        sum = 0;
        frames = 0;
        boundary = bucketEnd(profile.rms.size());
    };
    try {
        while (true) {
            throwIfCancelled(stop);
            const size_t read =
                decoder->read(block.data(), block.size() / static_cast<size_t>(channels));
            if (read == 0) {
                break;
            }
            for (size_t frame = 0; frame < read; ++frame) {
                for (int c = 0; c < channels; ++c) {
                    const double sample =
                        block[frame * static_cast<size_t>(channels) + static_cast<size_t>(c)];
                    sum += sample * sample;
                }
                ++frames;
                if (++position >= boundary) {
                    close();
                }
            }
        }
    } catch (const CancellationError&) {
        throw;
    } catch (const Error& error) {
        throw TranscriptSpliceEnergyExtractionError("No loudness profile for \"" + url.string() +
                                                    "\": " + error.what());
    }
    close(); // the last bucket may be short
    return profile;
}

} // namespace TranscriptSpliceEnergyProfileExtractor

} // namespace orvelle
