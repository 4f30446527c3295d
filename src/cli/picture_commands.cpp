// Pictures: one frame of an export as a PNG file, and the wallpapers the program comes with.

#include "cli/commands.h"
#include "cli/frame_input.h"
#include "cli/output.h"
#include "composition/frame_renderer.h"
#include "composition/frame_rendering_context.h"
#include "core/file_url.h"
#include "core/resources.h"
#include "platform/image/image.h"
#include "timeline_media/composition_video_reader.h"
#include "timeline_media/render_composition.h"
#include "timeline_media/timeline_composition.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>

namespace orvelle::cli {

namespace {

// The pictures of one video track of the take at an edit time, read the way the export
// reads them.
class TrackPicture {
public:
    TrackPicture(const EditorProjectState& project, MediaTrackManifest::Kind kind,
                 const std::vector<TimelineClip>& clips) {
        const auto segments = TimelineCompositionSource::loadVideoSegments(project.manifest, kind);
        if (segments.empty()) {
            return;
        }
        const int32_t track = composition_.addTrack(CompositionMediaType::video).trackID;
        if (TimelineComposition::insertVideoSegments(composition_, track, segments, clips) == 0) {
            return;
        }
        reader_ = std::make_unique<CompositionVideoReader>(composition_, track);
    }

    // The picture on screen at the edit time, or null where the track shows nothing. It
    // stays as it is until the next call.
    const VideoFrame* at(double editSeconds) {
        if (!reader_ || !reader_->frameAt(editSeconds, frame_)) {
            return nullptr;
        }
        return &frame_;
    }

private:
    MediaComposition composition_;
    std::unique_ptr<CompositionVideoReader> reader_;
    VideoFrame frame_;
};

int runStill(const Arguments& arguments) {
    const std::string& document = arguments.positional(0, "the document");
    const auto time = arguments.number("--time");
    if (!time) {
        throw UsageError("Say which instant to draw with --time, in seconds of the edit.");
    }
    const auto output = arguments.value("--output");
    if (!output) {
        throw UsageError("Say where to write the picture with -o FRAME.png.");
    }
    const Size stage = stageSizeOption(arguments);
    const int fps = frameRateOption(arguments);
    RenderFrameSource source = openFrameSource(document, stage);
    const EditorProjectState project = source.project;
    RenderFrameResolver resolver(std::move(source));
    const double duration = resolver.timelineDuration();
    if (!(duration > 0)) {
        throw Error("\"" + document + "\" has no frames: its edit is empty.");
    }
    if (!std::isfinite(*time) || *time < 0 || *time >= duration) {
        char text[160];
        std::snprintf(text, sizeof text,
                      "The edit runs from 0 to %.3f s; --time %g lies outside it.", duration,
                      *time);
        throw UsageError(text);
    }

    // Motion builds up over the frames as in an export, so every frame up to the one asked
    // for is resolved.
    const long last = frameIndex(*time, fps);
    FrameComposition composition;
    for (long i = 0; i <= last; ++i) {
        composition = resolver.resolve(static_cast<double>(i) / fps);
    }
    const double editSeconds = static_cast<double>(last) / fps;

    const std::vector<TimelineClip> clips = RenderComposition::normalizedTimelineClips(
        project.timeline.clips, project.timeline.sourceDuration);
    TrackPicture screen(project, MediaTrackManifest::Kind::screen, clips);
    TrackPicture camera(project, MediaTrackManifest::Kind::camera, clips);

    const auto started = std::chrono::steady_clock::now();
    FrameRenderingContext context;
    const FrameRendererInput input = FrameRenderer::rendererInput(
        composition, screen.at(editSeconds),
        composition.hasCameraOverlay ? camera.at(editSeconds) : nullptr, context);
    const Bitmap picture =
        FrameRenderer::render(input, context).render({0, 0, stage.width, stage.height});
    const double milliseconds =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started)
            .count();
    writePNG(picture, *output);

    if (arguments.flag("--json")) {
        printJson({{"output", standardizedPath(*output).string()},
                   {"editTime", editSeconds},
                   {"sourceTime", composition.sourceTime.seconds},
                   {"size", {{"width", stage.width}, {"height", stage.height}}},
                   {"zoomScale", composition.preview.screen.zoomScale},
                   {"renderMilliseconds", milliseconds}});
    } else {
        std::printf("Wrote the frame at %.3f s (source %.3f s, zoom %.2f) to %s.\n", editSeconds,
                    composition.sourceTime.seconds, composition.preview.screen.zoomScale,
                    output->c_str());
    }
    return 0;
}

int runWallpapers(const Arguments& arguments) {
    Json list = Json::array();
    int missing = 0;
    for (const WallpaperCategory category : kWallpaperCategories) {
        for (const WallpaperPreset& preset : WallpaperPreset::presets(category)) {
            const bool available = std::filesystem::exists(preset.resourceURL()) &&
                                   std::filesystem::exists(preset.thumbnailURL());
            missing += available ? 0 : 1;
            list.push_back({{"preset", preset.rawValue},
                            {"category", std::string(wallpaperFolder(category))},
                            {"file", preset.resourceURL().string()},
                            {"thumbnail", preset.thumbnailURL().string()},
                            {"available", available}});
        }
    }
    if (arguments.flag("--json")) {
        printJson({{"folder", resourcesDirectory().string()}, {"wallpapers", list}});
        return 0;
    }
    for (const auto& entry : list) {
        std::printf("%-14s %s%s\n", entry["preset"].get<std::string>().c_str(),
                    entry["file"].get<std::string>().c_str(),
                    entry["available"].get<bool>() ? "" : "  (missing)");
    }
    if (missing > 0) {
        std::cerr << missing << " wallpapers are missing from " << resourcesDirectory().string()
                  << ": build the \"wallpapers\" target or reinstall the program.\n";
    }
    return 0;
}

} // namespace

Command stillCommand() {
    return {
        "still",
        "one frame of the export as a PNG picture",
        "orvelle still DOCUMENT --time T -o FRAME.png [--size WxH] [--fps N] [--json]\n\n"
        "Draws the frame of the edit at T seconds exactly as the export would: DOCUMENT (a\n"
        "take's movie or .take.json, a project package, a bare movie or a project JSON) is\n"
        "opened as for export, the stage is worked out for every frame from the start at N\n"
        "frames a second (default 30) so that motion builds up, and the frame T falls in is\n"
        "drawn on a stage of WxH pixels (default 1920x1080) and written to FRAME.png. With\n"
        "--json prints {output, editTime, sourceTime, size, zoomScale, renderMilliseconds}.",
        {{"--time", true}, {"--output", true, "-o"}, {"--size", true}, {"--fps", true}, {"--json"}},
        runStill};
}

Command wallpapersCommand() {
    return {"wallpapers",
            "the wallpapers the program comes with, and their files",
            "orvelle wallpapers [--json]\n\n"
            "Lists every wallpaper preset by category with its picture and thumbnail files.\n"
            "With --json prints {folder, wallpapers: [{preset, category, file, thumbnail,\n"
            "available}]}.",
            {{"--json"}},
            runWallpapers};
}

} // namespace orvelle::cli
