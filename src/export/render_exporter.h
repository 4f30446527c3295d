#pragma once

// Writes the finished movie of an edit: checks the destination, builds the composition,
// removes what was at the destination and pumps the composition into it. Whatever stops an
// export (a failure or the stop token) removes the half-written file, so a movie at the
// destination is always a whole one. A background task: it reads and writes files for as
// long as the movie takes.

#include "export/render_pipe.h"
#include "timeline_media/render_export_settings.h"

#include <filesystem>
#include <functional>
#include <stop_token>

namespace orvelle::RenderExporterV2 {

// The click sound among the program's resources and the user's cache of denoised
// microphone files.
RenderComposition::Resources defaultResources();

// The movie of the settings at `settings.outputURL`, which it returns: the destination
// checked, the composition built, any file at the destination removed, the movie written.
// `progress` (0...1, from the encode thread) stays at most 0.99 until the file is
// finished; `finalizing` comes before the file's index is written. Throws RenderExportError
// or CancellationError, with the half-written file removed.
std::filesystem::path exportMovie(const RenderExportSettings& settings,
                                  const RenderComposition::Resources& resources,
                                  std::function<void(double)> progress,
                                  std::function<void()> finalizing, const std::stop_token& stop);

// Throws RenderExportError invalidOutputURL when the destination is one of the take's own
// files (or the source movie), before anything is touched.
void validateOutputURL(const RenderExportSettings& settings);

// Replaces the file at `options.outputURL` with the movie of the composition. On failure or
// cancellation the file is removed and the error rethrown.
void writeComposition(const RenderComposition::Output& composition,
                      ExportFrameCompositor& compositor, const RenderPipe::Options& options,
                      const std::stop_token& stop);

} // namespace orvelle::RenderExporterV2
