#pragma once

// Writes the finished movie of an edit: checks the destination, builds the composition and
// pumps it into a hidden file beside the destination, which replaces whatever was there
// only once the movie is finished. Whatever stops an export (a failure, the stop token, a
// killed process) leaves the destination as it was, so a movie there is always a whole
// one. A background task: it reads and writes files for as long as the movie takes.

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
// checked, the composition built, the movie written and moved into place.
// `progress` (0...1, from the encode thread) stays at most 0.99 until the file is
// finished; `finalizing` comes before the file's index is written. Throws RenderExportError
// or CancellationError, with the half-written file removed and the destination untouched.
std::filesystem::path exportMovie(const RenderExportSettings& settings,
                                  const RenderComposition::Resources& resources,
                                  std::function<void(double)> progress,
                                  std::function<void()> finalizing, const std::stop_token& stop);

// Throws RenderExportError invalidOutputURL when the destination is one of the take's own
// files (or the source movie), before anything is touched.
void validateOutputURL(const RenderExportSettings& settings);

// Replaces the file at `options.outputURL` with the movie of the composition, written under
// a hidden name beside it (see PartialFile) and moved into place when finished. On failure
// or cancellation the partial file is removed, the destination left as it was and the error
// rethrown.
void writeComposition(const RenderComposition::Output& composition,
                      ExportFrameCompositor& compositor, const RenderPipe::Options& options,
                      const std::stop_token& stop);

} // namespace orvelle::RenderExporterV2
