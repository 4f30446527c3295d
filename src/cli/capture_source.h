#pragma once

// The source named on a capture command line: --display ID|ask, --window ID|ask or
// --area X,Y,W,H ('orvelle sources' lists the ids).

#include "cli/arguments.h"
#include "recording/capture_backend.h"

namespace orvelle::cli {

// Throws UsageError when not exactly one source is named, or the backend's Error.
RecorderSourceSelection chooseCaptureSource(const Arguments& arguments, CaptureBackend& backend);

} // namespace orvelle::cli
