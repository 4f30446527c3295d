#include "cli/commands.h"
#include "cli/frame_input.h"
#include "cli/output.h"

#include <cmath>
#include <cstdio>
#include <iostream>
#include <set>

namespace orvelle::cli {

namespace {

double checkedTime(double time, std::string_view option, double duration) {
    if (!std::isfinite(time) || time < 0) {
        throw UsageError("The option " + std::string(option) + " takes a time of 0 s or more.");
    }
    if (time > duration) {
        char text[160];
        std::snprintf(text, sizeof text, "%s %g lies after the end of the edit (%.3f s).",
                      std::string(option).c_str(), time, duration);
        throw UsageError(text);
    }
    return time;
}

void printFrame(const FrameComposition& frame) {
    const auto& screen = frame.preview.screen;
    std::printf("%8.3f s  source %8.3f s  zoom %.3f  offset %8.1f %8.1f  blur %.3f",
                frame.editTime.seconds, frame.sourceTime.seconds, screen.zoomScale,
                screen.offset.width, screen.offset.height, screen.motionBlurRadius);
    if (frame.preview.cursor) {
        std::printf("  pointer %7.1f %7.1f", frame.preview.cursor->position.x,
                    frame.preview.cursor->position.y);
    }
    std::printf("\n");
}

int runFrames(const Arguments& arguments) {
    const Size stage = stageSizeOption(arguments);
    const int fps = frameRateOption(arguments);
    RenderFrameResolver resolver(openFrameSource(arguments.positional(0, "the document"), stage));
    const double duration = resolver.timelineDuration();
    if (!(duration > 0)) {
        throw Error("\"" + arguments.positional(0, "the document") +
                    "\" has no frames: its edit is empty.");
    }

    std::set<long> wanted;
    for (const double time : arguments.numbers("--time")) {
        wanted.insert(frameIndex(checkedTime(time, "--time", duration), fps));
    }
    const auto from = arguments.number("--from");
    const auto to = arguments.number("--to");
    if (from || to) {
        const double first = checkedTime(from.value_or(0), "--from", duration);
        const double last = checkedTime(to.value_or(duration), "--to", duration);
        if (last < first) {
            throw UsageError("The option --to must not lie before --from.");
        }
        for (long i = frameIndex(first, fps); i <= frameIndex(last, fps); ++i) {
            wanted.insert(i);
        }
    }
    if (wanted.empty()) {
        // Every frame of the edit.
        for (long i = 0; static_cast<double>(i) / fps < duration; ++i) {
            wanted.insert(i);
        }
    }

    // Motion accumulates over the frames as an export renders them, so every frame from the
    // first is resolved, and the wanted ones are kept.
    const bool json = arguments.flag("--json");
    Json frames = Json::array();
    const long lastWanted = wanted.empty() ? -1 : *wanted.rbegin();
    for (long i = 0; i <= lastWanted; ++i) {
        const FrameComposition frame = resolver.resolve(static_cast<double>(i) / fps);
        if (!wanted.contains(i)) {
            continue;
        }
        if (json) {
            frames.push_back(encodeJson(frame));
        } else {
            printFrame(frame);
        }
    }
    if (json) {
        printJson({{"frames", frames}});
    }
    return 0;
}

} // namespace

Command framesCommand() {
    return {"frames",
            "the geometry of export frames: zoom, focus, pointer, camera, mask, fade",
            "orvelle frames DOCUMENT [--size WxH] [--fps N] [--time T]... [--from A] [--to B]\n"
            "                [--json]\n\n"
            "Opens DOCUMENT (a take's movie or .take.json, a project package, a bare movie or\n"
            "a project JSON) as the export would, with the take's pointer data, and works out\n"
            "the stage of consecutive frames from the start of the edit at N frames a second\n"
            "(default 30) on a stage of WxH pixels (default 1920x1080), so that motion builds\n"
            "up as in an export. A take never edited gets its timeline and first zooms as when\n"
            "the editor first opens it. Prints the frames at the times asked for with --time\n"
            "(repeatable) and every frame from --from to --to; without either, every frame of\n"
            "the edit. Each time is rounded down to its frame. With --json prints\n"
            "{\"frames\": [...]}, each frame with editTime, sourceTime, stageSize,\n"
            "sourceNaturalSize, cameraNaturalSize, embeddedVideoSize, movieRect, background,\n"
            "cursorStyle, cursorDotColor, cursorIsHidden, cursorClickPressScale,\n"
            "hasCameraOverlay, preview (screen, cursor, camera, mask, stageFadeOpacity; an\n"
            "absent layer is null), cursorFrameMotion, cameraFrameMotion, zoomFrameMotion and\n"
            "textClips. Sizes are {width, height}, points {x, y}, rectangles\n"
            "{x, y, width, height}, in stage pixels with the origin at the top left.",
            {{"--size", true},
             {"--fps", true},
             {"--time", true},
             {"--from", true},
             {"--to", true},
             {"--json"}},
            runFrames};
}

} // namespace orvelle::cli
