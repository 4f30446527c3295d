#include "export/export_snapshot.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

namespace {

constexpr int kFallbackFrameRate = 60;

int atLeastOne(double value) {
    return std::max(static_cast<int>(std::lround(value)), 1);
}

int evenAtLeastTwo(int value) {
    return std::max(value - value % 2, 2);
}

} // namespace

double exportAspectRatio(AspectRatio aspectRatio, const std::optional<VideoSize>& sourceSize,
                         int outputWidth, int outputHeight) {
    switch (aspectRatio) {
    case AspectRatio::wide:
        return 16.0 / 9.0;
    case AspectRatio::square:
        return 1.0;
    case AspectRatio::classic:
        return 4.0 / 3.0;
    case AspectRatio::vertical:
        return 9.0 / 16.0;
    case AspectRatio::tall:
        return 3.0 / 4.0;
    case AspectRatio::portrait:
        return 4.0 / 5.0;
    case AspectRatio::automatic:
        break;
    }
    if (sourceSize && sourceSize->width > 0 && sourceSize->height > 0) {
        return sourceSize->width / sourceSize->height;
    }
    return static_cast<double>(outputWidth) / static_cast<double>(outputHeight);
}

ExportOutputSize exportOutputSize(AspectRatio aspectRatio,
                                  const std::optional<VideoSize>& sourceSize, int outputWidth,
                                  int outputHeight) {
    const double ratio = exportAspectRatio(aspectRatio, sourceSize, outputWidth, outputHeight);
    if (!std::isfinite(ratio) || !(ratio > 0)) {
        return {outputWidth, outputHeight};
    }
    const double side = std::max(outputWidth, outputHeight);
    if (ratio >= 1) {
        return {static_cast<int>(side), atLeastOne(side / ratio)};
    }
    return {atLeastOne(ratio * side), static_cast<int>(side)};
}

ExportOutputSize encodableSize(ExportOutputSize size) {
    return {evenAtLeastTwo(size.width), evenAtLeastTwo(size.height)};
}

RenderExportSettings renderExportSettings(const ExportSnapshot& snapshot,
                                          const std::filesystem::path& outputURL, int outputWidth,
                                          int outputHeight, RenderExportFileType fileType,
                                          RenderExportQuality quality) {
    RenderExportSettings settings;
    settings.sourceURL = snapshot.sourceURL;
    settings.outputURL = outputURL;
    settings.fileType = fileType;
    settings.quality = quality;
    const auto size = encodableSize(exportOutputSize(
        snapshot.project.screen.aspectRatio, snapshot.sourceSize, outputWidth, outputHeight));
    settings.width = size.width;
    settings.height = size.height;
    settings.fps = MediaAssetMetadata::exportFrameRate(
        MediaAssetMetadata::nominalFrameRate(snapshot.sourceURL), kFallbackFrameRate);
    settings.project = snapshot.project;
    const auto cursors = snapshot.project.manifest.segmentsFor(MediaTrackManifest::Kind::cursor);
    if (!cursors.empty()) {
        settings.cursorURL = cursors.front().url;
    }
    settings.timelineClips = snapshot.timelineClips;
    std::stable_sort(settings.timelineClips.begin(), settings.timelineClips.end(),
                     [](const auto& a, const auto& b) { return a.start < b.start; });
    return settings;
}

} // namespace orvelle
