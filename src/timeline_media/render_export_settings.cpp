#include "timeline_media/render_export_settings.h"

#include <array>

namespace orvelle {

std::span<const EnumName<RenderExportFileType>> jsonNames(RenderExportFileType) {
    static constexpr std::array<EnumName<RenderExportFileType>, 2> kNames = {{
        {RenderExportFileType::mov, "mov"},
        {RenderExportFileType::mp4, "mp4"},
    }};
    return kNames;
}

std::span<const EnumName<RenderExportQuality>> jsonNames(RenderExportQuality) {
    static constexpr std::array<EnumName<RenderExportQuality>, 3> kNames = {{
        {RenderExportQuality::standard, "standard"},
        {RenderExportQuality::high, "high"},
        {RenderExportQuality::best, "best"},
    }};
    return kNames;
}

namespace {

std::string renderExportErrorText(RenderExportErrorCode code, const std::string& message) {
    switch (code) {
    case RenderExportErrorCode::invalidOutputURL:
    case RenderExportErrorCode::frameGenerationFailed:
    case RenderExportErrorCode::writerFailed:
        return message;
    case RenderExportErrorCode::missingVideoTrack:
        return "The source movie does not contain a video track.";
    case RenderExportErrorCode::emptyTimeline:
        return "The timeline does not contain any visible clips.";
    case RenderExportErrorCode::cannotAddWriterInput:
        return "Could not configure the movie writer.";
    case RenderExportErrorCode::cannotCreateComposition:
        return "Could not assemble the export composition.";
    }
    return message;
}

} // namespace

RenderExportError::RenderExportError(RenderExportErrorCode code, const std::string& message)
    : CodedError(code, renderExportErrorText(code, message)) {}

} // namespace orvelle
