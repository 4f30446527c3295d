#include "timeline_media/noise_reduction_cache.h"

#include "core/files.h"
#include "core/log.h"
#include "core/xdg_paths.h"
#include "platform/media/audio_filter.h"
#include "platform/media/media_probe.h"
#include "platform/media/movie_writer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace orvelle {

namespace {

// The steady noise of a take (a fan, a room's hiss) is what lies under its quietest
// stretches: the level of the 10th percentile of 50 ms windows. Rumble below 70 Hz goes
// first; then a spectral gate takes 12 dB off everything at or below that floor.
std::string denoiseFilters(double noiseFloorDecibels) {
    // The gate accepts floors from -80 to -20 dB.
    const double floor = std::clamp(noiseFloorDecibels, -80.0, -20.0);
    return "highpass=f=70,afftdn=nr=12:nf=" + std::to_string(floor);
}

// FFmpeg's afftdn works in windows of three hops of 1/80 s and gives each sample back two
// hops after it took it in. The high-pass before it delays nothing as a whole.
int64_t denoiseLatencyFrames(int sampleRate) {
    return 2 * static_cast<int64_t>(sampleRate / 80);
}

double noiseFloorDecibels(AudioDecoder& decoder) {
    const AudioFormat format = decoder.format();
    const auto channels = static_cast<size_t>(format.channelCount);
    const auto window = static_cast<size_t>(format.sampleRate / 20);
    std::vector<float> samples(window * channels);
    std::vector<double> levels;
    while (true) {
        const size_t got = decoder.read(samples.data(), window);
        if (got < window / 2) {
            break;
        }
        double energy = 0;
        for (size_t i = 0; i < got * channels; ++i) {
            energy += static_cast<double>(samples[i]) * samples[i];
        }
        levels.push_back(energy / static_cast<double>(got * channels));
    }
    if (levels.empty()) {
        return -80;
    }
    const auto tenth = levels.begin() + static_cast<ptrdiff_t>(levels.size() / 10);
    std::nth_element(levels.begin(), tenth, levels.end());
    return 10 * std::log10(std::max(*tenth, 1e-12));
}

uint64_t fnv1a(std::string_view text) {
    uint64_t hash = 14695981039346656037ull;
    for (const char c : text) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 1099511628211ull;
    }
    return hash;
}

} // namespace

NoiseReductionCache::NoiseReductionCache() : directory_(cachesDirectory() / "Denoised") {}

NoiseReductionCache::NoiseReductionCache(std::filesystem::path directory)
    : directory_(std::move(directory)) {}

std::optional<std::filesystem::path>
NoiseReductionCache::cachedURL(const std::filesystem::path& source) const {
    std::error_code error;
    const auto absolute = std::filesystem::absolute(source, error).lexically_normal();
    const auto size = std::filesystem::file_size(absolute, error);
    if (error) {
        return std::nullopt;
    }
    const auto modified = std::filesystem::last_write_time(absolute, error);
    if (error) {
        return std::nullopt;
    }
    const auto ticks = modified.time_since_epoch().count();
    const std::string key =
        absolute.string() + "\n" + std::to_string(size) + "\n" + std::to_string(ticks);
    char hex[17];
    std::snprintf(hex, sizeof hex, "%016llx", static_cast<unsigned long long>(fnv1a(key)));
    return directory_ / (absolute.stem().string() + "-" + hex + ".m4a");
}

std::optional<std::filesystem::path>
NoiseReductionCache::denoisedURL(const std::filesystem::path& source) const {
    auto target = cachedURL(source);
    if (!target) {
        logWarning("denoise", "cannot read ", source.string());
        return std::nullopt;
    }
    if (fileExists(*target)) {
        return target;
    }
    std::error_code error;
    std::filesystem::create_directories(directory_, error);
    try {
        PartialFile copy(*target);
        writeDenoisedAudio(source, copy.path());
        copy.commit();
        return target;
    } catch (const std::exception& failure) {
        logWarning("denoise", "no denoised copy of ", source.string(), ": ", failure.what());
        return std::nullopt;
    }
}

void writeDenoisedAudio(const std::filesystem::path& source,
                        const std::filesystem::path& destination) {
    const MediaProbe probe = probeMediaFile(source);
    const AudioStreamInfo* stream = probe.firstAudio();
    if (stream == nullptr) {
        throw MediaError("\"" + source.string() + "\" holds no audio.");
    }
    const AudioFormat format{stream->sampleRate > 0 ? stream->sampleRate : 48000,
                             std::clamp(stream->channelCount, 1, 2)};
    AudioDecoder decoder(source, format);
    AudioFilterChain filters(format, denoiseFilters(noiseFloorDecibels(decoder)));
    decoder.seek(0);
    MovieAudioSettings settings;
    settings.input = format;
    settings.output = format;
    AudioFileWriter writer(destination, MovieContainer::m4a, settings);
    const auto channels = static_cast<size_t>(format.channelCount);
    // The gate hands each sample back a fixed time after it took it in: that much of the
    // output's head is dropped and as much silence follows the input, so the copy lines up
    // with its source to the sample and has its length.
    auto toSkip = static_cast<size_t>(denoiseLatencyFrames(format.sampleRate));
    const size_t latency = toSkip;
    size_t sourceFrames = 0;
    size_t written = 0;
    std::vector<float> output;
    const auto keep = [&] {
        const size_t frames = output.size() / channels;
        const size_t skipped = std::min(toSkip, frames);
        toSkip -= skipped;
        const size_t kept = std::min(frames - skipped, sourceFrames - written);
        writer.append(output.data() + skipped * channels, kept);
        written += kept;
        output.clear();
    };
    constexpr size_t block = 8192;
    std::vector<float> input(block * channels);
    while (true) {
        const size_t got = decoder.read(input.data(), block);
        if (got == 0) {
            break;
        }
        sourceFrames += got;
        filters.process(input.data(), got, output);
        keep();
    }
    const std::vector<float> silence(std::max<size_t>(latency, 1) * channels, 0.0f);
    filters.process(silence.data(), latency, output);
    keep();
    filters.finish(output);
    keep();
    if (written < sourceFrames) {
        output.assign((sourceFrames - written) * channels, 0.0f);
        keep();
    }
    writer.finish();
}

} // namespace orvelle
