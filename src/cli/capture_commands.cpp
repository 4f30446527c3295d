#include "cli/capture_source.h"
#include "cli/commands.h"
#include "cli/interrupt.h"
#include "cli/output.h"
#include "core/executor.h"
#include "core/file_url.h"
#include "platform/image/bitmap.h"
#include "project/cursor_recording.h"
#include "project/recording_take_builder.h"
#include "recording/executor_repeating_timer.h"
#include "recording/recorder_geometry.h"
#include "recording/screen_capture_engine.h"
#include "recording/source_preview_frame_grabber.h"

#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <sstream>

namespace orvelle::cli {

namespace {

namespace fs = std::filesystem;

Json rectJson(const CaptureRect& rect) {
    return {{"x", rect.x}, {"y", rect.y}, {"width", rect.width}, {"height", rect.height}};
}

void writePreview(const PreviewStill& still, const fs::path& path) {
    Bitmap bitmap(still.width, still.height);
    for (int row = 0; row < still.height; ++row) {
        uint8_t* to = bitmap.row(row);
        const uint8_t* from = still.pixels.data() + static_cast<size_t>(row) * still.width * 4;
        for (int column = 0; column < still.width; ++column) {
            to[column * 4 + 0] = from[column * 4 + 0];
            to[column * 4 + 1] = from[column * 4 + 1];
            to[column * 4 + 2] = from[column * 4 + 2];
            to[column * 4 + 3] = 255; // captured pictures are opaque
        }
    }
    writePNG(bitmap, path);
}

// The still of one source into DIR/<name>.png; null when the source gave none.
Json previewOf(CaptureBackend& backend, const RecorderSourceSelection& selection,
               const fs::path& folder, const std::string& name) {
    try {
        const auto still = captureSourcePreview(backend, selection);
        if (!still) {
            return nullptr;
        }
        const fs::path path = folder / (name + ".png");
        writePreview(*still, path);
        return path.string();
    } catch (const Error& error) {
        // A source that cannot be previewed is still listed: the picker shows its title.
        std::cerr << "orvelle sources: no still of " << name << ": " << error.what() << "\n";
        return nullptr;
    }
}

int runSources(const Arguments& arguments) {
    auto backend = makeSessionCaptureBackend();
    const ShareableContent content = backend->shareableContent();
    const auto previewFolder = arguments.value("--preview");
    if (previewFolder) {
        fs::create_directories(*previewFolder);
    }
    // The program's own windows are never offered.
    const auto own = WindowRecorderGeometry::recorderWindowIDs(content, getpid());
    Json displays = Json::array();
    for (const auto& display : content.displays) {
        Json entry{{"id", display.id},
                   {"name", display.name},
                   {"frame", rectJson(display.frame)},
                   {"scale", display.scale}};
        if (previewFolder) {
            entry["preview"] = previewOf(*backend, displaySelection(content, display.id),
                                         *previewFolder, "display-" + std::to_string(display.id));
        }
        displays.push_back(entry);
    }
    Json windows = Json::array();
    for (const auto& window : content.windows) {
        if (std::find(own.begin(), own.end(), window.id) != own.end()) {
            continue;
        }
        Json entry{{"id", window.id},
                   {"title", windowTitle(window)},
                   {"application", window.application},
                   {"pid", window.processID > 0 ? Json(window.processID) : Json()},
                   {"frame", rectJson(window.frame)}};
        if (previewFolder) {
            entry["preview"] = previewOf(*backend, windowSelection(content, window.id),
                                         *previewFolder, "window-" + std::to_string(window.id));
        }
        windows.push_back(entry);
    }
    if (arguments.flag("--json")) {
        printJson({{"backend", std::string(backend->name())},
                   {"displays", displays},
                   {"windows", windows}});
        return 0;
    }
    if (backend->name() == "portal") {
        std::cout << "This Wayland desktop lists nothing to other programs; 'orvelle capture "
                     "--display ask' opens its screen-sharing dialog.\n";
        return 0;
    }
    std::cout << "Displays:\n";
    for (const auto& display : displays) {
        std::cout << "  " << display["id"].get<uint32_t>() << "  "
                  << display["name"].get<std::string>() << "  "
                  << display["frame"]["width"].get<double>() << "x"
                  << display["frame"]["height"].get<double>() << "\n";
    }
    std::cout << "Windows:\n";
    for (const auto& window : windows) {
        std::cout << "  " << window["id"].get<uint32_t>() << "  "
                  << window["title"].get<std::string>() << " ("
                  << window["application"].get<std::string>() << ")\n";
    }
    return 0;
}

uint32_t sourceID(const std::string& text, std::string_view option) {
    try {
        size_t used = 0;
        // X ids are often written in hex ("0x1a00003"), as xwininfo prints them.
        const unsigned long value = std::stoul(text, &used, 0);
        if (used == text.size() && value <= UINT32_MAX) {
            return static_cast<uint32_t>(value);
        }
    } catch (const std::exception&) {
    }
    throw UsageError("The option " + std::string(option) +
                     " takes an id from 'orvelle sources', not \"" + text + "\".");
}

CaptureRect areaOption(const std::string& text) {
    double values[4] = {};
    char tail = 0;
    if (std::sscanf(text.c_str(), "%lf,%lf,%lf,%lf%c", &values[0], &values[1], &values[2],
                    &values[3], &tail) != 4 ||
        !(values[2] > 0) || !(values[3] > 0)) {
        throw UsageError("The option --area takes X,Y,W,H in screen pixels with a positive "
                         "width and height, not \"" +
                         text + "\".");
    }
    return {values[0], values[1], values[2], values[3]};
}

RecorderSourceSelection chooseSource(const Arguments& arguments, CaptureBackend& backend) {
    const auto display = arguments.value("--display");
    const auto window = arguments.value("--window");
    const auto area = arguments.value("--area");
    if ((display ? 1 : 0) + (window ? 1 : 0) + (area ? 1 : 0) != 1) {
        throw UsageError("Name one source: --display ID, --window ID or --area X,Y,W,H "
                         "('orvelle sources' lists them).");
    }
    // Where the desktop has its own picker, it chooses.
    if ((display && *display == "ask") || (window && *window == "ask")) {
        auto picked = backend.pickWithSystemPicker(display ? RecorderCaptureMode::display
                                                           : RecorderCaptureMode::window);
        if (!picked) {
            throw UsageError("This desktop has no dialog to choose from: give an id from "
                             "'orvelle sources'.");
        }
        return *picked;
    }
    if (backend.name() == "portal") {
        throw UsageError("On Wayland the desktop's dialog chooses: use --display ask or "
                         "--window ask.");
    }
    const ShareableContent content = backend.shareableContent();
    if (display) {
        return displaySelection(content, sourceID(*display, "--display"));
    }
    if (window) {
        return windowSelection(content, sourceID(*window, "--window"));
    }
    return areaSelection(content, areaOption(*area));
}

} // namespace

RecorderSourceSelection chooseCaptureSource(const Arguments& arguments, CaptureBackend& backend) {
    return chooseSource(arguments, backend);
}

namespace {

Json segmentJson(const RecordedMediaSegment& segment) {
    return {{"url", fileURLString(segment.url)},
            {"programStart", segment.programStart},
            {"duration", segment.duration}};
}

int runCapture(const Arguments& arguments) {
    const auto outputArgument = arguments.value("--output");
    if (!outputArgument) {
        throw UsageError("Name the movie to write with -o OUT.mov.");
    }
    const fs::path output = fs::absolute(*outputArgument).lexically_normal();
    if (output.extension() != ".mov") {
        throw UsageError("The screen recording is a QuickTime movie: name it OUT.mov.");
    }
    if (!fs::is_directory(output.parent_path())) {
        throw Error("The folder \"" + output.parent_path().string() +
                    "\" does not exist; make it first or record elsewhere.");
    }
    const double fps = arguments.number("--fps").value_or(60);
    if (!(fps >= 1 && fps <= 60)) {
        throw UsageError("The option --fps takes 1 to 60 frames a second.");
    }
    const std::optional<double> seconds = arguments.number("--seconds");
    if (seconds && !(*seconds > 0)) {
        throw UsageError("The option --seconds takes a positive number of seconds.");
    }
    const bool json = arguments.flag("--json");

    auto backend = makeSessionCaptureBackend();
    const RecorderSourceSelection selection = chooseSource(arguments, *backend);

    RunLoop mainThread;
    std::mutex failureMutex;
    std::optional<std::string> failure;
    ScreenStreamOutput::Callbacks callbacks;
    callbacks.onFailure = [&](std::string message) {
        std::lock_guard lock(failureMutex);
        if (!failure) {
            failure = std::move(message);
        }
    };
    ScreenCaptureEngine engine;
    ScreenCaptureOptions options;
    options.frameRate = fps;
    options.includeAudio = arguments.flag("--system-audio");
    engine.install(
        ScreenCaptureEngine::prepare(*backend, selection, output, callbacks, mainThread, options));

    InterruptStop interrupt;
    SteadyRecorderClock clock;
    ExecutorRepeatingTimerFactory timers(mainThread);
    engine.startCapture();
    // A source slow to show its first picture is no failure: recording goes on.
    engine.waitUntilReady(std::chrono::seconds(2));
    engine.armWriting();
    const auto started = std::chrono::steady_clock::now();
    engine.startCursorRecording(clock, timers);
    std::cerr << "Recording " << selection.title << " into " << output.filename().string()
              << (seconds ? "" : "; press Ctrl-C to stop") << ".\n";

    const auto failed = [&] {
        std::lock_guard lock(failureMutex);
        return failure.has_value();
    };
    while (!interrupt.interrupted() && !failed()) {
        const double elapsed =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        if (seconds && elapsed >= *seconds) {
            break;
        }
        mainThread.runFor(std::chrono::milliseconds(20));
    }

    // Stop in a session's order: pointer sampling, stream, writer, pointer file, manifest.
    engine.stopCursorSampling();
    const double wallSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    auto active = engine.detachForTeardown();
    const auto stopError = ScreenCaptureEngine::stopCapture(active);
    // Counted once the stream has stopped, so that a frame still on its way is in the
    // figures as it is in the movie.
    const auto statistics = active.output->statistics();
    const int64_t skipped = active.stream ? active.stream->skippedFrames() : 0;
    auto result = engine.finalize(active, true);
    std::optional<fs::path> cursorURL;
    if (fs::exists(CursorRecording::fileURL(output))) {
        cursorURL = CursorRecording::fileURL(output);
    }
    std::optional<fs::path> manifestURL;
    if (!result.screenSegments.empty()) {
        TakeManifestWriter::write(output, result.screenSegments, {}, {}, cursorURL);
        manifestURL = TakeManifest::sidecarURL(output);
    }
    std::string problem;
    {
        std::lock_guard lock(failureMutex);
        problem = failure.value_or(stopError.value_or(result.tailError.value_or("")));
    }
    double duration = 0;
    for (const auto& segment : result.screenSegments) {
        duration = std::max(duration, segment.programStart + segment.duration);
    }
    const int64_t dropped = skipped + statistics.framesDroppedByWriter;
    if (json) {
        Json segments = Json::array();
        for (const auto& segment : result.screenSegments) {
            segments.push_back(segmentJson(segment));
        }
        printJson({{"backend", std::string(backend->name())},
                   {"source", selection.title},
                   {"outputURL", fileURLString(output)},
                   {"manifestURL", manifestURL ? Json(fileURLString(*manifestURL)) : Json()},
                   {"cursorURL", cursorURL ? Json(fileURLString(*cursorURL)) : Json()},
                   {"cursorError", result.cursorError ? Json(*result.cursorError) : Json()},
                   {"segments", segments},
                   {"width", engine.recordedSegments().empty()
                                 ? Json()
                                 : Json(engine.recordedSegments().front().width.value_or(0))},
                   {"height", engine.recordedSegments().empty()
                                  ? Json()
                                  : Json(engine.recordedSegments().front().height.value_or(0))},
                   {"fps", fps},
                   {"duration", duration},
                   {"secondsRecorded", wallSeconds},
                   {"framesWritten", statistics.framesWritten},
                   {"droppedFrames", dropped},
                   {"framesSkippedByCapture", skipped},
                   {"framesDroppedByWriter", statistics.framesDroppedByWriter},
                   {"writerBacklogMax", statistics.writerBacklogHighWater},
                   {"writerLagMax", statistics.maxDeliveryDelay},
                   {"interrupted", interrupt.interrupted()},
                   {"failure", problem.empty() ? Json() : Json(problem)}});
    } else {
        char lag[64];
        std::snprintf(lag, sizeof lag, "%.0f ms", statistics.maxDeliveryDelay * 1000);
        std::cout << "Wrote " << output.string() << ": " << statistics.framesWritten << " frames, "
                  << dropped << " dropped (" << skipped << " by the capture, "
                  << statistics.framesDroppedByWriter << " by the writer); writer lag at most "
                  << lag << ", " << statistics.writerBacklogHighWater
                  << " frames waiting at most.\n";
    }
    if (!problem.empty()) {
        std::cerr << "orvelle capture: " << problem
                  << (result.screenSegments.empty() ? ""
                                                    : " What was recorded until then was saved.")
                  << "\n";
        return 1;
    }
    return 0;
}

} // namespace

Command sourcesCommand() {
    return {"sources",
            "list the displays and windows that can be recorded",
            "orvelle sources [--preview DIR] [--json]\n\n"
            "Lists the displays (id, name, frame, scale) and windows (id, title, application,\n"
            "process id, frame) of this desktop that 'orvelle capture' can record; Orvelle's\n"
            "own windows are left out. Frames are in screen pixels from the top left. With\n"
            "--preview DIR each source's still (a centred square, as the source picker shows\n"
            "it) is written to DIR/display-ID.png or DIR/window-ID.png. On Wayland the\n"
            "desktop lists nothing: its own dialog chooses when a capture starts.",
            {{"--preview", true}, {"--json"}},
            runSources};
}

Command captureCommand() {
    return {"capture",
            "record a display, a window or an area of the screen into a movie",
            "orvelle capture --display ID|ask | --window ID|ask | --area X,Y,W,H -o OUT.mov\n"
            "                [--fps 60] [--seconds N] [--system-audio] [--json]\n\n"
            "Records the screen (no pointer drawn in it) into OUT.mov and the pointer's\n"
            "positions and clicks into OUT.cursor.json, with the take manifest OUT.take.json\n"
            "beside them, until --seconds have passed or Ctrl-C is pressed; either way the\n"
            "movie is finished. IDs come from 'orvelle sources'; an area is in screen pixels\n"
            "and its size is made even. On Wayland use 'ask': the desktop's dialog chooses.\n"
            "With --system-audio what the speakers play (the default output's monitor on\n"
            "the sound server) is recorded into the movie beside the pictures.\n"
            "The movie is written in fragments every 2 s, so a killed recording stays\n"
            "readable. At the end prints the frames written, the frames dropped (by the\n"
            "capture clock and by the writer) and the writer's lag; --json prints them as JSON.",
            {{"--display", true},
             {"--window", true},
             {"--area", true},
             {"--output", true, "-o"},
             {"--fps", true},
             {"--seconds", true},
             {"--system-audio"},
             {"--json"}},
            runCapture};
}

} // namespace orvelle::cli
