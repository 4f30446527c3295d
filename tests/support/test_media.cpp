#include "support/test_media.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace orvelle::testing {

void paintNumberedFrame(VideoFrame& frame, int number, int width, int height) {
    frame.allocate(PixelLayout::bgra, width, height);
    const int barWidth = width / 8;
    for (int y = 0; y < height; ++y) {
        uint8_t* row = frame.row(0, y);
        for (int x = 0; x < width; ++x) {
            uint8_t* pixel = row + static_cast<ptrdiff_t>(x) * 4;
            if (y < height / 2) {
                const int bit = 7 - std::min(x / barWidth, 7);
                const uint8_t value = ((number >> bit) & 1) != 0 ? 235 : 20;
                pixel[0] = pixel[1] = pixel[2] = value;
            } else {
                pixel[0] = static_cast<uint8_t>(40 + (number * 13) % 180);
                pixel[1] = static_cast<uint8_t>(200 - (number * 7) % 150);
                pixel[2] = 120;
            }
            pixel[3] = 255;
        }
    }
}

int readFrameNumber(const VideoFrame& frame) {
    if (frame.layout != PixelLayout::bgra) {
        throw std::invalid_argument("readFrameNumber needs a BGRA frame");
    }
    const int barWidth = frame.width / 8;
    int number = 0;
    for (int bit = 0; bit < 8; ++bit) {
        const int x0 = (7 - bit) * barWidth;
        long sum = 0;
        int count = 0;
        for (int y = frame.height / 8; y < frame.height * 3 / 8; ++y) {
            const uint8_t* row = frame.row(0, y);
            for (int x = x0 + barWidth / 4; x < x0 + barWidth * 3 / 4; ++x) {
                sum += row[x * 4 + 1];
                ++count;
            }
        }
        if (sum / count > 128) {
            number |= 1 << bit;
        }
    }
    return number;
}

void writeNumberedMovie(const std::filesystem::path& path, const TestMovieOptions& options) {
    MovieWriterSettings settings;
    settings.container = options.container;
    settings.video = MovieVideoSettings{options.codec,     options.width, options.height,
                                        options.frameRate, 400000,        options.keyframeInterval};
    if (options.withAudio) {
        settings.audio = MovieAudioSettings{};
    }
    settings.fragmented = options.fragmented;
    MovieWriter writer(path, settings);
    VideoFrame frame;
    const int audioPerFrame = static_cast<int>(std::lround(48000 / options.frameRate));
    const std::vector<float> tone =
        options.withAudio ? sineTone(440, options.frameCount / options.frameRate + 0.1, 48000, 2)
                          : std::vector<float>{};
    for (int i = 0; i < options.frameCount; ++i) {
        paintNumberedFrame(frame, i, options.width, options.height);
        writer.appendVideoFrame(frame, i / options.frameRate);
        if (options.withAudio) {
            writer.appendAudio(tone.data() + static_cast<size_t>(i) * audioPerFrame * 2,
                               static_cast<size_t>(audioPerFrame));
        }
    }
    writer.finish();
}

std::vector<float> sineTone(double frequency, double seconds, int sampleRate, int channels,
                            float amplitude, double phase) {
    const auto frames = static_cast<size_t>(std::llround(seconds * sampleRate));
    std::vector<float> samples(frames * static_cast<size_t>(channels));
    for (size_t i = 0; i < frames; ++i) {
        const auto value = static_cast<float>(
            amplitude *
            std::sin(2 * M_PI * frequency * static_cast<double>(i) / sampleRate + phase));
        for (int c = 0; c < channels; ++c) {
            samples[i * static_cast<size_t>(channels) + static_cast<size_t>(c)] = value;
        }
    }
    return samples;
}

void writeAudioFile(const std::filesystem::path& path, const std::vector<float>& samples,
                    AudioFormat format, WavSampleFormat wavFormat) {
    const auto container = containerForPath(path);
    if (!container) {
        throw std::invalid_argument("no audio container for " + path.string());
    }
    MovieAudioSettings settings;
    settings.input = format;
    settings.output = format;
    settings.wavFormat = wavFormat;
    AudioFileWriter writer(path, *container, settings);
    writer.append(samples.data(), samples.size() / static_cast<size_t>(format.channelCount));
    writer.finish();
}

double rootMeanSquare(const std::vector<float>& samples) {
    return rootMeanSquare(samples, 1, 1, 0, static_cast<double>(samples.size()));
}

double rootMeanSquare(const std::vector<float>& samples, int channels, int sampleRate, double from,
                      double to) {
    const auto frame = [&](double seconds) {
        return std::min(samples.size(),
                        static_cast<size_t>(std::max(0.0, std::round(seconds * sampleRate))) *
                            static_cast<size_t>(channels));
    };
    const size_t first = frame(from);
    const size_t last = frame(to);
    double sum = 0;
    for (size_t i = first; i < last; ++i) {
        sum += static_cast<double>(samples[i]) * samples[i];
    }
    return last > first ? std::sqrt(sum / static_cast<double>(last - first)) : 0;
}

double estimateFrequency(const std::vector<float>& samples, int sampleRate, int channels) {
    // Interpolated positions of the first and last upward zero crossing; a crossing counts
    // only after the signal was clearly negative, so that quiet noise adds none.
    const size_t frames = samples.size() / static_cast<size_t>(channels);
    double first = -1;
    double last = -1;
    int crossings = 0;
    bool armed = false;
    for (size_t i = 1; i < frames; ++i) {
        const float a = samples[(i - 1) * static_cast<size_t>(channels)];
        const float b = samples[i * static_cast<size_t>(channels)];
        if (a < -0.05f) {
            armed = true;
        }
        if (armed && a < 0 && b >= 0) {
            armed = false;
            const double position = static_cast<double>(i - 1) + a / (a - b);
            if (first < 0) {
                first = position;
            }
            last = position;
            ++crossings;
        }
    }
    if (crossings < 2) {
        return 0;
    }
    return (crossings - 1) * sampleRate / (last - first);
}

} // namespace orvelle::testing
