#include "project/media_asset_metadata.h"

#include <algorithm>
#include <cmath>

namespace orvelle::MediaAssetMetadata {

namespace {

std::optional<VideoStreamInfo> firstVideoTrack(const std::filesystem::path& url) {
    try {
        const MediaProbe probe = probeMediaFile(url);
        if (const VideoStreamInfo* video = probe.firstVideo()) {
            return *video;
        }
    } catch (const MediaError&) {
        // An unreadable movie has no size and no rate.
    }
    return std::nullopt;
}

} // namespace

VideoSize naturalVideoSize(const VideoStreamInfo& track) {
    return {std::fabs(track.naturalWidth), std::fabs(track.naturalHeight)};
}

std::optional<VideoSize> naturalVideoSize(const std::filesystem::path& url) {
    if (auto track = firstVideoTrack(url)) {
        return naturalVideoSize(*track);
    }
    return std::nullopt;
}

std::optional<double> nominalFrameRate(const VideoStreamInfo& track) {
    if (track.nominalFrameRate && std::isfinite(*track.nominalFrameRate) &&
        *track.nominalFrameRate > 0) {
        return track.nominalFrameRate;
    }
    if (track.minFrameDuration && std::isfinite(*track.minFrameDuration) &&
        *track.minFrameDuration > 0) {
        return 1.0 / *track.minFrameDuration;
    }
    return std::nullopt;
}

std::optional<double> nominalFrameRate(const std::filesystem::path& url) {
    if (auto track = firstVideoTrack(url)) {
        return nominalFrameRate(*track);
    }
    return std::nullopt;
}

int exportFrameRate(std::optional<double> rate, int fallback) {
    if (!rate || !std::isfinite(*rate) || *rate <= 0) {
        return fallback;
    }
    return static_cast<int>(std::clamp(std::round(*rate), 24.0, 60.0));
}

} // namespace orvelle::MediaAssetMetadata
