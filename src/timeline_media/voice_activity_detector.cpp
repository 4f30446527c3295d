#include "timeline_media/voice_activity_detector.h"

#include "core/log.h"
#include "timeline_media/waveform_extractor.h"

#include <algorithm>
#include <cmath>

namespace orvelle::VoiceActivityDetector {

float noiseFloor(const std::vector<float>& peaks, float percentile) {
    if (peaks.empty()) {
        return 0;
    }
    std::vector<float> sorted = peaks;
    std::sort(sorted.begin(), sorted.end());
    const double clamped = std::clamp(static_cast<double>(percentile), 0.0, 1.0);
    const auto index = std::min(
        static_cast<size_t>(std::llround(clamped * static_cast<double>(sorted.size() - 1))),
        sorted.size() - 1);
    return sorted[index];
}

std::vector<VoiceInterval> speechIntervals(const std::vector<float>& peaks, double duration,
                                           const Parameters& parameters) {
    if (peaks.empty() || !(duration > 0)) {
        return {};
    }
    const float threshold =
        std::max(parameters.minimumPeak, noiseFloor(peaks, parameters.noiseFloorPercentile) *
                                             parameters.thresholdMultiplier);
    const size_t n = peaks.size();
    const double length = duration / static_cast<double>(n);
    std::vector<VoiceInterval> intervals;
    size_t index = 0;
    while (index < n) {
        if (!(peaks[index] >= threshold)) {
            ++index;
            continue;
        }
        const size_t a = index;
        while (index < n && peaks[index] >= threshold) {
            ++index;
        }
        const size_t b = index;
        const double lower = std::min(static_cast<double>(a) * length, duration);
        const double upper = b == n ? static_cast<double>(n) * length
                                    : std::min(static_cast<double>(b) * length, duration);
        intervals.push_back({lower, upper});
    }
    return mergeAndApplyHangover(std::move(intervals), parameters.maximumGap, parameters.hangover,
                                 duration);
}

std::vector<VoiceInterval> mergeAndApplyHangover(std::vector<VoiceInterval> intervals,
                                                 double maximumGap, double hangover, double limit) {
    if (intervals.empty()) {
        return {};
    }
    std::stable_sort(
        intervals.begin(), intervals.end(),
        [](const VoiceInterval& a, const VoiceInterval& b) { return a.lower < b.lower; });
    std::vector<VoiceInterval> merged;
    VoiceInterval current = intervals.front();
    for (size_t i = 1; i < intervals.size(); ++i) {
        const VoiceInterval& next = intervals[i];
        if (next.lower - current.upper <= maximumGap) {
            current.upper = std::max(current.upper, next.upper);
        } else {
            merged.push_back(current);
            current = next;
        }
    }
    merged.push_back(current);
    for (auto& interval : merged) {
        const double held = interval.upper + hangover;
        interval.upper = limit > 0 && held >= limit ? limit : held;
        interval.upper = std::max(interval.upper, interval.lower);
    }
    return merged;
}

std::vector<VoiceInterval> sourceIntervals(const std::vector<TakeSegmentManifest>& segments,
                                           const Parameters& parameters) {
    std::vector<TakeSegmentManifest> ordered = segments;
    std::stable_sort(ordered.begin(), ordered.end(), [](const auto& a, const auto& b) {
        return a.programStart != b.programStart ? a.programStart < b.programStart : a.id < b.id;
    });
    std::vector<VoiceInterval> all;
    for (const auto& segment : ordered) {
        std::error_code error;
        if (!std::filesystem::exists(segment.url, error)) {
            continue;
        }
        Waveform waveform;
        try {
            waveform = WaveformExtractor::extractWaveform(segment.url, kWaveformBucketCount);
        } catch (const Error& failure) {
            logWarning("voice", "no voice activity from ", segment.url.string(), ": ",
                       failure.what());
            continue;
        }
        const double start = segment.mediaStart < 0 ? 0 : segment.mediaStart;
        double length = 0;
        if (segment.mediaDuration > 0) {
            length = segment.mediaDuration;
        } else if (segment.mediaStart < 0) {
            length = waveform.duration;
        } else {
            length = std::max(waveform.duration - start, 0.0);
        }
        const double offset = std::max(segment.programStart, 0.0);
        for (const auto& interval :
             speechIntervals(waveform.peaks, waveform.duration, parameters)) {
            const double lower = std::max(interval.lower, start);
            const double upper = std::min(interval.upper, start + length);
            if (lower < upper) {
                all.push_back({offset + (lower - start), offset + (upper - start)});
            }
        }
    }
    double limit = 0;
    for (const auto& interval : all) {
        limit = std::max(limit, interval.upper);
    }
    return mergeAndApplyHangover(std::move(all), parameters.maximumGap, 0, limit);
}

} // namespace orvelle::VoiceActivityDetector
