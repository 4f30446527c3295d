#pragma once

// A tiny take as a recording leaves one, made at test time: a numbered screen movie, a
// microphone tone, pointer data with clicks, an optional camera, and the manifest.

#include "project/take_manifest.h"

#include <filesystem>
#include <optional>
#include <vector>

namespace orvelle::testing {

struct TinyTakeOptions {
    int width = 160;
    int height = 96;
    double frameRate = 30;
    double seconds = 2;
    bool withMicrophone = true; // a 440 Hz tone over the whole take
    // What the microphone heard instead of the tone: mono at 48 kHz, from the take's start.
    std::vector<float> microphoneSamples;
    bool withPointer = true; // a pointer gliding across, with the clicks below
    std::vector<double> clicks{0.5, 1.0, 1.05};
    // The camera's stretch of the take, when it has one (a numbered movie of its own).
    std::optional<std::pair<double, double>> camera;
};

struct TinyTake {
    std::filesystem::path screenURL;
    std::filesystem::path manifestURL;
    std::optional<std::filesystem::path> microphoneURL;
    std::optional<std::filesystem::path> cursorURL;
    std::optional<std::filesystem::path> cameraURL;
    TakeManifest manifest;
};

// Writes the take's files into `folder` as "Tiny Take.*".
TinyTake writeTinyTake(const std::filesystem::path& folder, const TinyTakeOptions& options = {});

} // namespace orvelle::testing
