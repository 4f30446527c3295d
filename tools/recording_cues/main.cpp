// Synthesises the recorder's cues: "recording-start.wav", two soft bell tones rising a
// fifth, and "recording-stop.wav", the same falling. Each tone is a sine with a quieter
// octave above it under a fast attack and an exponential decay. Deterministic.
//
// Usage: orvelle-recording-cues OUTPUT_FOLDER

#include "platform/media/movie_writer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <numbers>
#include <vector>

namespace {

constexpr int kSampleRate = 48000;
constexpr double kLength = 0.36; // seconds

void addTone(std::vector<double>& samples, double start, double frequency) {
    const auto first = static_cast<size_t>(start * kSampleRate);
    for (size_t i = first; i < samples.size(); ++i) {
        const double t = static_cast<double>(i - first) / kSampleRate;
        const double attack = std::min(t / 0.004, 1.0);
        const double decay = std::exp(-t / 0.07);
        samples[i] += attack * decay *
                      (std::sin(2 * std::numbers::pi * frequency * t) +
                       0.25 * std::sin(2 * std::numbers::pi * 2 * frequency * t));
    }
}

void writeCue(const std::filesystem::path& output, double firstFrequency, double secondFrequency) {
    std::vector<double> samples(static_cast<size_t>(kLength * kSampleRate), 0.0);
    addTone(samples, 0.0, firstFrequency);
    addTone(samples, 0.11, secondFrequency);
    double peak = 0;
    for (const double sample : samples) {
        peak = std::max(peak, std::abs(sample));
    }
    // Peak at -6 dBFS, the last 10 ms faded so the file ends in silence.
    const double scale = peak > 0 ? std::pow(10.0, -6.0 / 20.0) / peak : 0.0;
    const auto fade = static_cast<size_t>(0.010 * kSampleRate);
    std::vector<float> stereo(samples.size() * 2);
    for (size_t i = 0; i < samples.size(); ++i) {
        const size_t left = samples.size() - i;
        const double gain = left < fade ? static_cast<double>(left) / static_cast<double>(fade) : 1;
        stereo[2 * i] = stereo[2 * i + 1] = static_cast<float>(samples[i] * scale * gain);
    }
    const auto temporary = std::filesystem::path(output).concat(".partial.wav");
    orvelle::MovieAudioSettings settings;
    settings.input = {kSampleRate, 2};
    settings.output = {kSampleRate, 2};
    settings.wavFormat = orvelle::WavSampleFormat::int16;
    {
        orvelle::AudioFileWriter writer(temporary, orvelle::MovieContainer::wav, settings);
        writer.append(stereo.data(), samples.size());
        writer.finish();
    }
    std::filesystem::rename(temporary, output);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "Usage: orvelle-recording-cues OUTPUT_FOLDER\n");
        return 2;
    }
    try {
        const std::filesystem::path folder = argv[1];
        std::filesystem::create_directories(folder);
        writeCue(folder / "recording-start.wav", 660, 990);
        writeCue(folder / "recording-stop.wav", 990, 660);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "orvelle-recording-cues: %s\n", error.what());
        return 1;
    }
    return 0;
}
