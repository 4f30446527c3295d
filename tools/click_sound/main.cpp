// Synthesises the pointer's click sound: a mouse button's press and, a moment later, its
// softer release. Each is a burst of noise that dies away in a few milliseconds over two
// damped resonances of the button's shell. Deterministic: the same file on every build.
//
// Usage: orvelle-click-sound OUTPUT.wav

#include "platform/media/movie_writer.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <numbers>
#include <vector>

namespace {

constexpr int kSampleRate = 48000;
constexpr double kLength = 0.085; // seconds; the release ends well before this

// A small linear congruential generator: the same noise everywhere.
class Noise {
public:
    double next() {
        state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<double>(state_ >> 11) / static_cast<double>(1ULL << 53) * 2.0 - 1.0;
    }

private:
    uint64_t state_ = 0x5EED'C11C'5EED'C11CULL;
};

// One click at `start` seconds: a noise transient through a first-order high-pass, and two
// damped sines (the shell's resonances), all under fast exponential decays.
void addClick(std::vector<double>& samples, double start, double gain, double pitch, Noise& noise) {
    const auto first = static_cast<size_t>(start * kSampleRate);
    double previousInput = 0;
    double highPassed = 0;
    constexpr double kHighPass = 0.92; // about 600 Hz at 48 kHz
    for (size_t i = first; i < samples.size(); ++i) {
        const double t = static_cast<double>(i - first) / kSampleRate;
        const double input = noise.next();
        highPassed = kHighPass * (highPassed + input - previousInput);
        previousInput = input;
        const double transient = highPassed * std::exp(-t / 0.0016);
        const double body =
            0.55 * std::sin(2 * std::numbers::pi * 2100 * pitch * t) * std::exp(-t / 0.0045) +
            0.30 * std::sin(2 * std::numbers::pi * 3900 * pitch * t) * std::exp(-t / 0.0025);
        // A 0.3 ms attack keeps the onset from clicking twice in the speaker.
        const double attack = std::min(t / 0.0003, 1.0);
        samples[i] += gain * attack * (0.8 * transient + body);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "Usage: orvelle-click-sound OUTPUT.wav\n");
        return 2;
    }
    const std::filesystem::path output = argv[1];
    try {
        std::vector<double> samples(static_cast<size_t>(kLength * kSampleRate), 0.0);
        Noise noise;
        addClick(samples, 0.0, 1.0, 1.0, noise);     // press
        addClick(samples, 0.048, 0.45, 1.12, noise); // release, a little higher
        double peak = 0;
        for (const double sample : samples) {
            peak = std::max(peak, std::abs(sample));
        }
        // Peak at -2 dBFS, and the last 5 ms faded so the file ends in silence.
        const double scale = peak > 0 ? std::pow(10.0, -2.0 / 20.0) / peak : 0.0;
        const size_t fade = static_cast<size_t>(0.005 * kSampleRate);
        std::vector<float> stereo(samples.size() * 2);
        for (size_t i = 0; i < samples.size(); ++i) {
            const size_t left = samples.size() - i;
            const double fadeGain =
                left < fade ? static_cast<double>(left) / static_cast<double>(fade) : 1.0;
            const auto value = static_cast<float>(samples[i] * scale * fadeGain);
            stereo[2 * i] = value;
            stereo[2 * i + 1] = value;
        }
        std::filesystem::create_directories(output.parent_path());
        // Written under a temporary name and renamed, so a build that stops never leaves a
        // half-written resource behind.
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
    } catch (const std::exception& error) {
        std::fprintf(stderr, "orvelle-click-sound: %s\n", error.what());
        return 1;
    }
    return 0;
}
