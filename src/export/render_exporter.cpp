#include "export/render_exporter.h"

#include "core/files.h"
#include "core/resources.h"
#include "export/orvelle_video_compositor.h"
#include "motion/cursor_click_sound_resource.h"

#include <system_error>

namespace orvelle::RenderExporterV2 {

namespace {

namespace fs = std::filesystem;

// The same file however it is spelt: relative, with dots, or through links.
bool sameFile(const fs::path& a, const fs::path& b) {
    std::error_code error;
    if (fs::equivalent(a, b, error) && !error) {
        return true;
    }
    const fs::path left = fs::weakly_canonical(fs::absolute(a), error);
    const fs::path right = fs::weakly_canonical(fs::absolute(b), error);
    return !error && left == right;
}

} // namespace

void validateOutputURL(const RenderExportSettings& settings) {
    std::vector<fs::path> sources{settings.sourceURL};
    for (const auto& segment : settings.project.manifest.segments) {
        sources.push_back(segment.url);
    }
    if (settings.cursorURL) {
        sources.push_back(*settings.cursorURL);
    }
    std::error_code error;
    if (fs::is_directory(settings.outputURL, error)) {
        throw RenderExportError(RenderExportErrorCode::invalidOutputURL,
                                "The export destination is a folder (" +
                                    settings.outputURL.filename().string() +
                                    "). Choose a movie file to write.");
    }
    for (const auto& source : sources) {
        if (!source.empty() && sameFile(settings.outputURL, source)) {
            throw RenderExportError(RenderExportErrorCode::invalidOutputURL,
                                    "The export destination matches source media (" +
                                        source.filename().string() +
                                        "). Choose a different output file.");
        }
    }
}

void writeComposition(const RenderComposition::Output& composition,
                      ExportFrameCompositor& compositor, const RenderPipe::Options& options,
                      const std::stop_token& stop) {
    // The movie is written beside the destination and takes its place only when it is
    // finished: whatever stops the export, the file that was there stands.
    PartialFile movie(options.outputURL);
    RenderPipe::Options writing = options;
    writing.outputURL = movie.path();
    RenderPipe::run(composition, compositor, writing, stop);
    try {
        movie.commit();
    } catch (const FileError& error) {
        throw RenderExportError(RenderExportErrorCode::writerFailed, error.what());
    }
}

RenderComposition::Resources defaultResources() {
    return {CursorClickSoundResource::url(resourcesDirectory()), NoiseReductionCache()};
}

std::filesystem::path exportMovie(const RenderExportSettings& settings,
                                  const RenderComposition::Resources& resources,
                                  std::function<void(double)> progress,
                                  std::function<void()> finalizing, const std::stop_token& stop) {
    validateOutputURL(settings);
    const auto composition = RenderComposition::build(settings, resources, stop);
    OrvelleVideoCompositor compositor(composition.resolver);
    RenderPipe::Options options;
    options.outputURL = settings.outputURL;
    options.fileType = settings.fileType;
    options.quality = settings.quality;
    options.progress = std::move(progress);
    options.finalizing = std::move(finalizing);
    writeComposition(composition, compositor, options, stop);
    return settings.outputURL;
}

} // namespace orvelle::RenderExporterV2
