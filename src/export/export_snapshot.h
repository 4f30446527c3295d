#pragma once

// From a snapshot of the edit and the user's choices to what an export renders: the output
// size by the project's aspect ratio, the frame rate of the source, the pointer data of the
// take, the clips in order. Pure functions, except that the frame rate is probed.

#include "project/media_asset_metadata.h"
#include "timeline_media/render_export_settings.h"

#include <filesystem>
#include <optional>
#include <vector>

namespace orvelle {

// The edit as it was when the export began; the user may go on editing.
struct ExportSnapshot {
    std::filesystem::path sourceURL; // the screen movie
    EditorProjectState project;
    std::optional<VideoSize> sourceSize;
    std::vector<TimelineClip> timelineClips;

    friend bool operator==(const ExportSnapshot&, const ExportSnapshot&) = default;
};

struct ExportOutputSize {
    int width = 0;
    int height = 0;

    friend bool operator==(const ExportOutputSize&, const ExportOutputSize&) = default;
};

// The ratio of an aspect choice; for `automatic` the source's when known and positive,
// otherwise the chosen size's.
double exportAspectRatio(AspectRatio aspectRatio, const std::optional<VideoSize>& sourceSize,
                         int outputWidth, int outputHeight);

// The chosen size fitted to the ratio: the longer of the two chosen sides stays the long
// side, the other follows the ratio (rounded, at least 1). A ratio that is not a positive
// number leaves the size as chosen.
ExportOutputSize exportOutputSize(AspectRatio aspectRatio,
                                  const std::optional<VideoSize>& sourceSize, int outputWidth,
                                  int outputHeight);

// The size the encoders take: each side made even by dropping its odd pixel (yuv420p and
// 4:2:2 pictures share chroma between pixel pairs), and at least 2.
ExportOutputSize encodableSize(ExportOutputSize size);

// The settings of a render: the size fitted to the project's aspect ratio and made
// encodable, the source's export frame rate (24...60; 60 when it has none), the first
// pointer data file of the take, the clips sorted by start.
RenderExportSettings renderExportSettings(const ExportSnapshot& snapshot,
                                          const std::filesystem::path& outputURL, int outputWidth,
                                          int outputHeight, RenderExportFileType fileType,
                                          RenderExportQuality quality);

} // namespace orvelle
