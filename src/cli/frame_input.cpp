#include "cli/frame_input.h"

#include "cli/arguments.h"
#include "cli/project_input.h"
#include "core/file_url.h"
#include "editor/editor_store.h"
#include "project/media_asset_metadata.h"

#include <charconv>
#include <cmath>

namespace orvelle::cli {

namespace {

namespace fs = std::filesystem;

constexpr Size kDefaultStageSize{1920, 1080};
constexpr int kDefaultFrameRate = 30;

// The first file of a track, if the take has one.
std::optional<TakeSegmentManifest> firstSegment(const TakeManifest& manifest,
                                                MediaTrackManifest::Kind kind) {
    const auto segments = manifest.segmentsFor(kind);
    if (segments.empty()) {
        return std::nullopt;
    }
    return segments.front();
}

// The picture size a movie shows, or what the manifest recorded of it.
std::optional<Size> movieSize(const fs::path& url,
                              const std::optional<TakeSegmentManifest>& segment) {
    if (const auto size = MediaAssetMetadata::naturalVideoSize(url)) {
        return Size{size->width, size->height};
    }
    if (segment && segment->width && segment->height && *segment->width > 0 &&
        *segment->height > 0) {
        return Size{static_cast<double>(*segment->width), static_cast<double>(*segment->height)};
    }
    return std::nullopt;
}

// "1920x1080" as a size; a UsageError naming the option otherwise.
Size parseStageSize(const std::string& text, std::string_view option) {
    const auto separator = text.find('x');
    int width = 0;
    int height = 0;
    const auto parse = [](std::string_view part, int& value) {
        const auto result = std::from_chars(part.data(), part.data() + part.size(), value);
        return result.ec == std::errc() && result.ptr == part.data() + part.size() && value > 0;
    };
    if (separator == std::string::npos ||
        !parse(std::string_view(text).substr(0, separator), width) ||
        !parse(std::string_view(text).substr(separator + 1), height)) {
        throw UsageError("The option " + std::string(option) +
                         " takes a size such as 1920x1080, not \"" + text + "\".");
    }
    return {static_cast<double>(width), static_cast<double>(height)};
}

} // namespace

RenderFrameSource openFrameSource(const std::string& argument, Size stageSize) {
    const fs::path path = standardizedPath(argument);
    if (!fs::exists(path)) {
        throw Error("\"" + argument + "\" does not exist.");
    }
    RenderFrameSource source;
    fs::path screenURL;
    if (isProjectJsonPath(path)) {
        source.project = readProjectJson(path);
    } else {
        const EditorDocument document = openDocument(argument);
        source.project = document.project;
        screenURL = document.screenURL;
    }
    EditorProjectState& project = source.project;
    const auto screen = firstSegment(project.manifest, MediaTrackManifest::Kind::screen);
    if (screen) {
        screenURL = screen->url;
    }
    if (screenURL.empty()) {
        throw Error("\"" + argument +
                    "\" names no screen recording: its take has no screen track.");
    }

    const auto cursor = firstSegment(project.manifest, MediaTrackManifest::Kind::cursor);
    source.cursorRecording = RenderComposition::cursorRecording(
        cursor ? std::optional<fs::path>(cursor->url) : std::nullopt, screenURL);

    if (project.timeline.clips.empty()) {
        // Never built: as when the editor first opens the take.
        EditorStore store(project);
        store.resetTimeline(takeSourceDuration(project.manifest), project.screen.zoomScale,
                            source.cursorRecording.samples, source.cursorRecording.clicks);
        project = store.project();
    }

    // A screen movie that cannot be read still has frames to describe: they fill the stage.
    source.sourceNaturalSize = movieSize(screenURL, screen).value_or(stageSize);
    if (const auto camera = firstSegment(project.manifest, MediaTrackManifest::Kind::camera)) {
        source.cameraNaturalSize = movieSize(camera->url, camera);
    }
    source.stageSize = stageSize;
    return source;
}

Size stageSizeOption(const Arguments& arguments) {
    return stageSizeOption(arguments, kDefaultStageSize);
}

Size stageSizeOption(const Arguments& arguments, Size fallback) {
    const auto text = arguments.value("--size");
    return text ? parseStageSize(*text, "--size") : fallback;
}

int frameRateOption(const Arguments& arguments) {
    const int fps = arguments.integer("--fps").value_or(kDefaultFrameRate);
    if (fps <= 0 || fps > 1000) {
        throw UsageError("The option --fps takes a whole number of frames a second, 1 to 1000.");
    }
    return fps;
}

long frameIndex(double time, int fps) {
    return static_cast<long>(std::floor(time * fps + 1e-6));
}

} // namespace orvelle::cli
