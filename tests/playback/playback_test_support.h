#pragma once

// What the playback tests share: one private sound server for the whole executable, an
// edited take, and a loaded playback model driven by a run loop standing for the main
// thread.

#include "core/executor.h"
#include "playback/playback_model.h"
#include "support/sound_server.h"
#include "support/temporary_directory.h"
#include "support/tiny_take.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>

namespace orvelle::testing {

// The server every test of the executable plays into.
PrivateSoundServer& soundServer();

// A 14 s take (160x96 at 30 fps, a 440 Hz microphone tone, a camera from 1 s to 13 s, the
// pointer gliding across with clicks at 1, 4.5, 6 and 11 s) edited to 10 s: source [0, 4],
// [5, 9] at twice the speed, [10, 14], the stretches between cut as restorable gaps.
struct EditedTake {
    TinyTake take;
    EditorDocument document;
};
EditedTake writeEditedTake(const std::filesystem::path& folder);

// A playback model over a store, with a preview of 320x180 at 30 frames a second unless
// said otherwise.
struct ModelHarness {
    explicit ModelHarness(const EditorDocument& document,
                          PlaybackModelOptions options = defaults());
    static PlaybackModelOptions defaults();

    // Runs the loop until the predicate holds; false after the timeout.
    bool runUntil(const std::function<bool()>& predicate,
                  std::chrono::milliseconds timeout = std::chrono::seconds(30));
    // Runs the loop for a while of wall time.
    void runFor(std::chrono::milliseconds duration);
    // Loaded, its composition made, no seek pending and a frame on screen.
    bool isSettled();
    // Seeks and waits for the seek to land.
    void seek(double editTime, bool triggerClicks = false);

    RunLoop loop;
    EditorStore store;
    std::unique_ptr<PlaybackModel> model;
};

} // namespace orvelle::testing
