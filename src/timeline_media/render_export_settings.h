#pragma once

// What an export is asked to make, and how it can fail. The settings are a snapshot: the
// export works from them alone while the user goes on editing.

#include "core/error.h"
#include "project/editor_project_state.h"
#include "timeline/timeline_state.h"

#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace orvelle {

enum class RenderExportFileType { mov, mp4 };
enum class RenderExportQuality { standard, high, best };

std::span<const EnumName<RenderExportFileType>> jsonNames(RenderExportFileType);
std::span<const EnumName<RenderExportQuality>> jsonNames(RenderExportQuality);

struct RenderExportSettings {
    std::filesystem::path sourceURL; // the screen movie
    std::filesystem::path outputURL;
    RenderExportFileType fileType = RenderExportFileType::mp4;
    RenderExportQuality quality = RenderExportQuality::high;
    int width = 1920; // the stage, in output pixels
    int height = 1080;
    int fps = 60;
    EditorProjectState project;
    std::optional<std::filesystem::path> cursorURL;
    std::vector<TimelineClip> timelineClips; // by start

    friend bool operator==(const RenderExportSettings&, const RenderExportSettings&) = default;
};

enum class RenderExportErrorCode {
    invalidOutputURL,
    frameGenerationFailed,
    writerFailed,
    missingVideoTrack,
    emptyTimeline,
    cannotAddWriterInput,
    cannotCreateComposition,
};

class RenderExportError : public CodedError<RenderExportErrorCode> {
public:
    // The cases with a message of their own take it; the others have their fixed text.
    explicit RenderExportError(RenderExportErrorCode code, const std::string& message = {});
};

} // namespace orvelle
