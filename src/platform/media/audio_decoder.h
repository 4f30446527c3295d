#pragma once

// Reads a file's first audio stream as interleaved 32-bit float samples at a chosen rate and
// channel count, in blocks. Resampling is high quality (a long windowed-sinc filter);
// channels are mixed down or up by FFmpeg's matrix (mono from stereo is the average).
// Seeks are sample-accurate. Not thread-safe. Failures throw MediaError.

#include "platform/media/media_error.h"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <vector>

namespace orvelle {

struct AudioFormat {
    int sampleRate = 48000;
    int channelCount = 2;
    friend bool operator==(const AudioFormat&, const AudioFormat&) = default;
};

class AudioDecoder {
public:
    AudioDecoder(const std::filesystem::path& path, AudioFormat output);
    ~AudioDecoder();
    AudioDecoder(const AudioDecoder&) = delete;
    AudioDecoder& operator=(const AudioDecoder&) = delete;

    const AudioFormat& format() const; // of the samples handed out
    int sourceSampleRate() const;      // as stored
    int sourceChannelCount() const;
    double duration() const; // seconds, 0 when the file does not say
    const std::filesystem::path& path() const;

    // Up to `frameCount` frames (one sample per channel each) into `destination`, which holds
    // frameCount * channelCount floats. Returns the frames written; fewer only at the end
    // of the stream, 0 after it.
    size_t read(float* destination, size_t frameCount);

    // The frame index (at the output rate) that the next read starts at.
    int64_t position() const;

    // The next read starts at the frame nearest to `time` seconds (at or after 0). Seeking
    // past the end makes the next read return 0.
    void seek(double time);

private:
    struct State;
    std::unique_ptr<State> state_;
};

// The whole stream, or the part from `start` lasting `length` seconds (negative: to the end).
std::vector<float> decodeAudioFile(const std::filesystem::path& path, AudioFormat output,
                                   double start = 0, double length = -1);

} // namespace orvelle
