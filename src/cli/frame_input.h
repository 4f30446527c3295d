#pragma once

// What the commands that draw or describe export frames start from: a document or project
// opened as the export sees it, with the pointer data of its take and the sizes of its
// screen and camera movies.

#include "composition/render_frame_resolver.h"

#include <string>

namespace orvelle::cli {

// Opens a document (or a project JSON) for export at a stage size. A take whose timeline
// was never built gets it seeded over the whole take, with its first zooms worked out from
// the pointer, as when the editor first opens it.
RenderFrameSource openFrameSource(const std::string& argument, Size stageSize);

// "1920x1080" as a size; a UsageError naming the option otherwise.
Size parseStageSize(const std::string& text, std::string_view option);

} // namespace orvelle::cli
