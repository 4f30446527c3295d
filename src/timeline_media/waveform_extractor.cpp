#include "timeline_media/waveform_extractor.h"

#include "platform/media/audio_decoder.h"
#include "platform/media/media_probe.h"

#include <algorithm>
#include <cmath>

namespace orvelle::WaveformExtractor {

namespace {

// Peaks are first kept per block of this many frames; buckets are made from the blocks once
// the real length is known (a container's stated duration is not trusted).
constexpr size_t blockFrames = 128;

} // namespace

Waveform extractWaveform(const std::filesystem::path& url, int bucketCount) {
    const MediaProbe probe = probeMediaFile(url);
    const AudioStreamInfo* stream = probe.firstAudio();
    if (stream == nullptr) {
        throw MediaError("\"" + url.string() + "\" holds no audio.");
    }
    const AudioFormat format{stream->sampleRate > 0 ? stream->sampleRate : 48000,
                             std::clamp(stream->channelCount, 1, 8)};
    AudioDecoder decoder(url, format);
    const auto channels = static_cast<size_t>(format.channelCount);
    std::vector<float> buffer(blockFrames * 64 * channels);
    std::vector<float> blockPeaks;
    std::vector<size_t> blockSizes;
    size_t total = 0;
    while (true) {
        const size_t got = decoder.read(buffer.data(), blockFrames * 64);
        for (size_t start = 0; start < got; start += blockFrames) {
            const size_t end = std::min(start + blockFrames, got);
            float peak = 0;
            for (size_t i = start * channels; i < end * channels; ++i) {
                peak = std::max(peak, std::fabs(buffer[i]));
            }
            blockPeaks.push_back(peak);
            blockSizes.push_back(end - start);
        }
        total += got;
        if (got == 0) {
            break;
        }
    }
    Waveform waveform;
    waveform.duration = static_cast<double>(total) / format.sampleRate;
    if (total == 0 || bucketCount <= 0) {
        return waveform;
    }
    const auto buckets = static_cast<size_t>(bucketCount);
    waveform.peaks.assign(buckets, 0.0f);
    // A block goes to the bucket of its first frame; with fewer blocks than buckets, each
    // bucket takes the block its middle falls in.
    if (blockPeaks.size() >= buckets) {
        size_t frame = 0;
        for (size_t b = 0; b < blockPeaks.size(); ++b) {
            const size_t bucket = std::min(frame * buckets / total, buckets - 1);
            waveform.peaks[bucket] = std::max(waveform.peaks[bucket], blockPeaks[b]);
            frame += blockSizes[b];
        }
    } else {
        for (size_t bucket = 0; bucket < buckets; ++bucket) {
            const size_t middle = (2 * bucket + 1) * total / (2 * buckets);
            waveform.peaks[bucket] =
                blockPeaks[std::min(middle / blockFrames, blockPeaks.size() - 1)];
        }
    }
    return waveform;
}

} // namespace orvelle::WaveformExtractor
