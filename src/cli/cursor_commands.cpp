#include "cli/commands.h"
#include "cli/output.h"
#include "motion/zoom_activity_planner.h"
#include "project/cursor_recording.h"

#include <algorithm>
#include <iostream>

namespace orvelle::cli {

namespace {

// Without a take to say how long it is, the pointer data end with their last event.
double lastEventTime(const CursorRecording& recording) {
    double end = 0;
    for (const auto& sample : recording.samples) {
        end = std::max(end, sample.time);
    }
    for (const auto& click : recording.clicks) {
        end = std::max(end, click.time);
    }
    return end;
}

int runCursor(const Arguments& arguments) {
    const CursorRecording recording =
        CursorRecording::load(arguments.positional(0, "the cursor data file"));
    const double duration = arguments.number("--duration").value_or(lastEventTime(recording));
    const auto spans = ZoomActivityPlanner::spans(recording.samples, recording.clicks, duration);
    if (arguments.flag("--json")) {
        Json spanList = Json::array();
        for (const auto& span : spans) {
            spanList.push_back({{"start", span.start}, {"end", span.end}});
        }
        printJson(
            {{"recording", encodeJson(recording)},
             {"duration", duration},
             {"movementTimeCount", ZoomActivityPlanner::movementTimes(recording.samples).size()},
             {"spans", spanList}});
        return 0;
    }
    const CodableRect& frame = recording.captureFrame;
    std::cout << recording.samples.size() << " samples, " << recording.clicks.size()
              << " clicks over " << duration << " s; capture frame " << frame.width << "x"
              << frame.height << " at (" << frame.x << ", " << frame.y << ")\n";
    std::cout << spans.size() << " activity spans:\n";
    for (const auto& span : spans) {
        std::cout << "  " << span.start << " - " << span.end << " s\n";
    }
    return 0;
}

} // namespace

Command cursorCommand() {
    return {"cursor",
            "read a pointer data file and plan its activity zooms",
            "orvelle cursor PATH [--duration SECONDS] [--json]\n\n"
            "Reads the pointer data file PATH (\"<take>.cursor.json\") and prints its capture\n"
            "frame, samples and clicks with the activity spans the zoom planner finds in them\n"
            "over DURATION seconds (the time of the last event when not given). A file that\n"
            "does not decode exits with status 1 and a message naming the offending key.\n"
            "With --json prints {recording, duration, movementTimeCount, spans}.",
            {{"--duration", true}, {"--json"}},
            runCursor};
}

} // namespace orvelle::cli
