#include "cli/commands.h"
#include "cli/output.h"
#include "core/file_url.h"
#include "sample_take/sample_take.h"
#include "speech/transcript/transcript_output_writer.h"

#include <chrono>
#include <iostream>
#include <sstream>

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

// The narration as a transcript would give it: each sentence's words laid over the time
// it was spoken, each in proportion to its letters, with a short gap between words.
TranscriptAnalysis narrationTranscript(const SampleTake::Result& result) {
    TranscriptAnalysis analysis;
    for (const auto& sentence : result.narration) {
        std::vector<std::string> words;
        std::istringstream stream(sentence.text);
        for (std::string word; stream >> word;) {
            words.push_back(word);
        }
        double letters = 0;
        for (const auto& word : words) {
            letters += double(word.size()) + 1;
        }
        const double perLetter = letters > 0 ? (sentence.end - sentence.start) / letters : 0;
        double at = sentence.start;
        for (const auto& word : words) {
            const double length = (double(word.size()) + 1) * perLetter;
            analysis.words.push_back(
                {word, at, at + length * 0.85, 0.9, std::nullopt, std::nullopt});
            at += length;
        }
        analysis.text += (analysis.text.empty() ? "" : " ") + sentence.text;
    }
    analysis.source.analyzer = "sample take narration";
    analysis.source.audioURL = result.microphoneURL;
    analysis.source.modelDescription = "the narration's script";
    analysis.source.computeUnits = "cpu";
    analysis.source.audioDurationSeconds = result.manifest.duration();
    return analysis;
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
    if (arguments.flag("--transcript")) {
        TranscriptOutputWriter::writeJSON(
            narrationTranscript(result),
            TranscriptOutputWriter::defaultJSONOutputURL(result.screenURL));
    }
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
    return {"sample-take",
            "make a short, realistic sample take to try things on",
            "orvelle sample-take DIR [--width PIXELS] [--fps RATE] [--duration SECONDS]\n"
            "                        [--codec h264|prores] [--transcript] [--json]\n\n"
            "Makes a take in DIR as a recording leaves one: a screen movie of a desktop\n"
            "where someone adds a function in a code editor, reads the documentation and\n"
            "runs the tests (1920x1080 at 30 fps by default, H.264 or ProRes 422 Proxy,\n"
            "with the system's sound); the pointer file of their hand (the movie holds no\n"
            "pointer); a microphone track with their narration, spoken by espeak-ng; and\n"
            "the .take.json. The story lasts 20 seconds. --transcript also writes the\n"
            "narration as the take's transcript, as if it had been transcribed (each\n"
            "sentence's words spread over the time it was spoken). --json prints the\n"
            "files, the narration's sentences with their times, and how long it took.",
            {{"--width", true},
             {"--fps", true},
             {"--duration", true},
             {"--codec", true},
             {"--transcript"},
             {"--json"}},
            runSampleTake};
}

} // namespace orvelle::cli
