#pragma once

// Writes the finished movie of an edit: checks the destination, builds the composition,
// removes what was at the destination and pumps the composition into it. Whatever stops an
// export (a failure or the stop token) removes the half-written file, so a movie at the
// destination is always a whole one. A background task: it reads and writes files for as
// long as the movie takes.

#include "export/render_pipe.h"
#include "timeline_media/render_export_settings.h"

#include <filesystem>
#include <stop_token>

namespace orvelle::RenderExporterV2 {

// Throws RenderExportError invalidOutputURL when the destination is one of the take's own
// files (or the source movie), before anything is touched.
void validateOutputURL(const RenderExportSettings& settings);

// Replaces the file at `options.outputURL` with the movie of the composition. On failure or
// cancellation the file is removed and the error rethrown.
void writeComposition(const RenderComposition::Output& composition,
                      ExportFrameCompositor& compositor, const RenderPipe::Options& options,
                      std::stop_token stop);

} // namespace orvelle::RenderExporterV2
