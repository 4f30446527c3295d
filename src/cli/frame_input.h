#pragma once

// What the commands that draw or describe export frames start from: a document or project
// opened as the export sees it, with the pointer data of its take and the sizes of its
// screen and camera movies.

#include "composition/render_frame_resolver.h"

#include <string>

namespace orvelle::cli {

class Arguments;

// Opens a document (or a project JSON) for export at a stage size. A take whose timeline
// was never built gets it seeded over the whole take, with its first zooms worked out from
// the pointer, as when the editor first opens it.
RenderFrameSource openFrameSource(const std::string& argument, Size stageSize);

// The stage of --size, 1920x1080 (what the export panel offers first) when it is not given.
Size stageSizeOption(const Arguments& arguments);
Size stageSizeOption(const Arguments& arguments, Size fallback);

// The --fps at which the frame commands step through an edit: 30 unless given, 1 to 1000.
int frameRateOption(const Arguments& arguments);

// The frame a time falls in; a time a hair below a frame boundary in binary (2.3 s at
// 30 fps is 68.99999...) still counts as that frame.
long frameIndex(double time, int fps);

} // namespace orvelle::cli
