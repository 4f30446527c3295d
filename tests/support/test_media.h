#pragma once

// Small media files made at test time with the project's own writer.

#include "platform/media/movie_writer.h"

#include <filesystem>
#include <vector>

namespace orvelle::testing {

// A picture that carries its frame number in eight vertical bars (bit 7 on the left; white
// is 1), over a colour that changes with the number, so that a decoded frame can be told
// apart and compared.
void paintNumberedFrame(VideoFrame& frame, int number, int width, int height);
// The number read back from the bars of a decoded BGRA frame.
int readFrameNumber(const VideoFrame& frame);

struct TestMovieOptions {
    MovieContainer container = MovieContainer::mp4;
    VideoCodec codec = VideoCodec::h264High;
    int width = 160;
    int height = 96;
    double frameRate = 30;
    int frameCount = 30;
    int keyframeInterval = 10;
    bool withAudio = false; // a 440 Hz tone, 48 kHz stereo
    bool fragmented = false;
};

// Writes frames numbered 0... at i / frameRate.
void writeNumberedMovie(const std::filesystem::path& path, const TestMovieOptions& options);

// A sine tone, interleaved, identical on all channels.
std::vector<float> sineTone(double frequency, double seconds, int sampleRate, int channels,
                            float amplitude = 0.5f, double phase = 0);

// Writes interleaved samples to an audio file of the container the extension names.
void writeAudioFile(const std::filesystem::path& path, const std::vector<float>& samples,
                    AudioFormat format, WavSampleFormat wavFormat = WavSampleFormat::float32);

// The root mean square of interleaved samples: all of them, or the frames from `from` to `to`
// seconds at `sampleRate`.
double rootMeanSquare(const std::vector<float>& samples);
double rootMeanSquare(const std::vector<float>& samples, int channels, int sampleRate, double from,
                      double to);

// The frequency of a tone from its zero crossings (mono or the first channel).
double estimateFrequency(const std::vector<float>& samples, int sampleRate, int channels);

} // namespace orvelle::testing
