#pragma once

// A movie's real picture size and frame rate, which manifests do not record (size as
// displayed, rate not at all).

#include "platform/media/media_probe.h"

#include <filesystem>
#include <optional>

namespace orvelle {

struct VideoSize {
    double width = 0;
    double height = 0;

    friend bool operator==(const VideoSize&, const VideoSize&) = default;
};

namespace MediaAssetMetadata {

// The stored size turned by the movie's display rotation, as absolute values: a movie
// rotated by 90 degrees reports its displayed shape.
VideoSize naturalVideoSize(const VideoStreamInfo& track);
// The first video track's size; absent when the file has none or cannot be read.
std::optional<VideoSize> naturalVideoSize(const std::filesystem::path& url);

// The nominal rate when it is a positive number, otherwise 1 / the minimum frame
// duration when that is; absent when neither is.
std::optional<double> nominalFrameRate(const VideoStreamInfo& track);
std::optional<double> nominalFrameRate(const std::filesystem::path& url);

// The rate to export at: a usable rate rounded to a whole number and held to 24...60;
// without one, the fallback exactly as given.
int exportFrameRate(std::optional<double> rate, int fallback);

} // namespace MediaAssetMetadata

} // namespace orvelle
