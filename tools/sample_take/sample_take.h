#pragma once

// A short, realistic take made by our own code, for the demo, benchmarks and tests: a
// screen movie of a desktop where someone adds a function in a code editor, reads the
// documentation and runs the tests; the pointer file of their hand (the movie holds no
// pointer, as a take's never does); a microphone track with their narration; and the
// manifest that ties them together, all named as a recording names them.

#include "project/take_manifest.h"
#include "sample_take/narration.h"

#include <filesystem>
#include <functional>

namespace orvelle::SampleTake {

enum class ScreenCodec { h264, proRes };

struct Options {
    int width = 1920; // the height follows at 16:9, rounded to an even number
    double frameRate = 30;
    double duration = 20; // seconds of the story, which is written for 20
    ScreenCodec codec = ScreenCodec::h264;
    // Called with the fraction done, from the calling thread.
    std::function<void(double)> progress;
};

struct Result {
    std::filesystem::path screenURL;     // "<folder>/Orvelle Sample.mov"
    std::filesystem::path microphoneURL; // "<folder>/Orvelle Sample-microphone-001.m4a"
    std::filesystem::path cursorURL;     // "<folder>/Orvelle Sample.cursor.json"
    std::filesystem::path manifestURL;   // "<folder>/Orvelle Sample.take.json"
    TakeManifest manifest;
    std::vector<SpokenSentence> narration;
    int width = 0;
    int height = 0;
    int frameCount = 0;
    int clickCount = 0;
};

// Makes the take in `folder` (created if needed; files of an earlier sample are
// replaced). Throws orvelle::Error (MediaError, FileError) naming what failed.
Result make(const std::filesystem::path& folder, const Options& options = {});

} // namespace orvelle::SampleTake
