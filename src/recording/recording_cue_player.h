#pragma once

// The short sounds that mark a recording's start and stop, played through the sound
// server. A missing sound file or server only means no cue.

#include <memory>
#include <vector>

namespace orvelle {

class AudioOutput;

class RecordingCuePlayer {
public:
    enum class Cue { start, stop };

    // The cues are read from the program's resources ("Sounds/recording-*.wav").
    RecordingCuePlayer();
    ~RecordingCuePlayer();
    RecordingCuePlayer(const RecordingCuePlayer&) = delete;
    RecordingCuePlayer& operator=(const RecordingCuePlayer&) = delete;

    // Starts the cue; false when it cannot sound (then there is nothing to wait for).
    bool begin(Cue cue);
    // True until the cue has been heard and 80 ms more have passed, so that the sound has
    // left the output before anything is recorded.
    bool isPlaying();
    void stop();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace orvelle
