#pragma once

// What a movie or audio file holds, read from its container without decoding.

#include "platform/media/media_error.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace orvelle {

struct VideoStreamInfo {
    int streamIndex = 0;
    std::string codecName;
    int codedWidth = 0; // pixels as stored
    int codedHeight = 0;
    // The stored size with the display rotation applied, as absolute values: a movie turned
    // by 90 degrees reports its shape on screen.
    double naturalWidth = 0;
    double naturalHeight = 0;
    double rotationDegrees = 0;             // counter-clockwise, as the display matrix says
    std::optional<double> nominalFrameRate; // average frames per second, when known
    std::optional<double> minFrameDuration; // seconds, from the stream's base rate
    double duration = 0;                    // seconds; 0 when the container does not say

    friend bool operator==(const VideoStreamInfo&, const VideoStreamInfo&) = default;
};

struct AudioStreamInfo {
    int streamIndex = 0;
    std::string codecName;
    int sampleRate = 0;
    int channelCount = 0;
    double duration = 0;

    friend bool operator==(const AudioStreamInfo&, const AudioStreamInfo&) = default;
};

struct MediaProbe {
    std::string formatName;
    double duration = 0; // seconds, the longest of the streams or the container's figure
    std::vector<VideoStreamInfo> videoStreams;
    std::vector<AudioStreamInfo> audioStreams;

    const VideoStreamInfo* firstVideo() const {
        return videoStreams.empty() ? nullptr : &videoStreams.front();
    }
    const AudioStreamInfo* firstAudio() const {
        return audioStreams.empty() ? nullptr : &audioStreams.front();
    }
    // A stream's length in seconds; the file's when the stream does not say.
    template <class Stream>
    double lengthOf(const Stream& stream) const {
        return stream.duration > 0 ? stream.duration : duration;
    }
    friend bool operator==(const MediaProbe&, const MediaProbe&) = default;
};

// Throws MediaError when the file cannot be opened or holds nothing FFmpeg understands.
// Any thread.
MediaProbe probeMediaFile(const std::filesystem::path& path);

} // namespace orvelle
