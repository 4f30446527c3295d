#include "cli/commands.h"
#include "cli/output.h"
#include "core/file_url.h"
#include "sample_take/sample_take.h"

#include <chrono>
#include <iostream>

namespace orvelle::cli {

namespace {

Json sampleJson(const SampleTake::Result& result, double frameRate, double seconds) {
    Json narration = Json::array();
    for (const auto& sentence : result.narration) {
        narration.push_back(
            {{"start", sentence.start}, {"end", sentence.end}, {"text", sentence.text}});
    }
    return {{"screenURL", fileURLString(result.screenURL)},
            {"microphoneURL", fileURLString(result.microphoneURL)},
            {"cursorURL", fileURLString(result.cursorURL)},
            {"manifestURL", fileURLString(result.manifestURL)},
            {"width", result.width},
            {"height", result.height},
            {"frameRate", frameRate},
            {"frameCount", result.frameCount},
            {"duration", result.manifest.duration()},
            {"clickCount", result.clickCount},
            {"narration", narration},
            {"secondsToMake", seconds}};
}

int runSampleTake(const Arguments& arguments) {
    SampleTake::Options options;
    options.width = arguments.integer("--width").value_or(options.width);
    options.frameRate = arguments.number("--fps").value_or(options.frameRate);
    options.duration = arguments.number("--duration").value_or(options.duration);
    if (options.width < 64 || options.width > 3840) {
        throw UsageError("The width must lie between 64 and 3840 pixels.");
    }
    if (options.frameRate < 1 || options.frameRate > 120) {
        throw UsageError("The frame rate must lie between 1 and 120.");
    }
    if (const auto codec = arguments.value("--codec")) {
        if (*codec == "prores") {
            options.codec = SampleTake::ScreenCodec::proRes;
        } else if (*codec != "h264") {
            throw UsageError("The codec is h264 or prores, not \"" + *codec + "\".");
        }
    }
    ProgressReporter progress("Making the sample take");
    options.progress = [&progress](double fraction) { progress.update(fraction); };
    const auto start = std::chrono::steady_clock::now();
    const auto result =
        SampleTake::make(arguments.positional(0, "the folder to make it in"), options);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    progress.finish();
    if (arguments.flag("--json")) {
        printJson(sampleJson(result, options.frameRate, seconds));
        return 0;
    }
    std::cout << "Made a " << result.manifest.duration() << " s take of " << result.width << "x"
              << result.height << " at " << options.frameRate << " fps in " << seconds << " s:\n  "
              << result.screenURL.string() << "\n  " << result.microphoneURL.string() << "\n  "
              << result.cursorURL.string() << "\n  " << result.manifestURL.string() << "\n";
    return 0;
}

} // namespace

Command sampleTakeCommand() {
    return {
        "sample-take",
        "make a short, realistic sample take to try things on",
        "orvelle sample-take DIR [--width PIXELS] [--fps RATE] [--duration SECONDS]\n"
        "                        [--codec h264|prores] [--json]\n\n"
        "Makes a take in DIR as a recording leaves one: a screen movie of a desktop\n"
        "where someone adds a function in a code editor, reads the documentation and\n"
        "runs the tests (1920x1080 at 30 fps by default, H.264 or ProRes 422 Proxy,\n"
        "with the system's sound); the pointer file of their hand (the movie holds no\n"
        "pointer); a microphone track with their narration, spoken by espeak-ng; and\n"
        "the .take.json. The story lasts 20 seconds. --json prints the files, the\n"
        "narration's sentences with their times, and how long it took.",
        {{"--width", true}, {"--fps", true}, {"--duration", true}, {"--codec", true}, {"--json"}},
        runSampleTake};
}

} // namespace orvelle::cli
