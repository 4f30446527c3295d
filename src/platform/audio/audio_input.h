#pragma once

// Sound from the user's sound server (PulseAudio's protocol, which PipeWire also speaks):
// one record stream of interleaved 32-bit float frames from a source, each block handed to
// the caller with the monotonic time of its first frame. The source is a microphone, or the
// monitor of a sink: what the sink plays, which is how system audio is recorded. Nothing of
// the client library leaves this adapter.
//
// The input is made once and then runs any number of times: start() begins a run, stop()
// ends it. The callbacks run on the input's own thread and must not block for long. Every
// method is thread-safe.

#include "core/error.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace orvelle {

// The sound server cannot be reached, or it has no such source; the text says what to do.
class AudioInputError : public Error {
public:
    using Error::Error;
};

// The source of system audio: the monitor of the default sink (what the speakers play).
inline constexpr const char* kSystemAudioSource = "@DEFAULT_MONITOR@";

struct AudioInputOptions {
    std::string sourceName; // empty: the default source (the user's microphone)
    int sampleRate = 48000;
    int channelCount = 2;
    std::string applicationName = "Orvelle";
    std::string streamName = "Recording";
    // How much sound the server gathers before it hands a block over.
    double blockSeconds = 0.02;
};

class AudioInput {
public:
    // `frameCount` frames (frameCount * channelCount floats) whose first was captured at
    // `presentationTime`, seconds on the monotonic clock (steady_clock). Times follow the
    // sample count, so consecutive blocks abut; they start afresh after the server dropped
    // sound.
    using CaptureCallback =
        std::function<void(const float* interleaved, size_t frameCount, double presentationTime)>;
    // The run ended on its own (the source went away, the server quit); called once, and
    // not after stop().
    using EndCallback = std::function<void(const std::string& errorMessage)>;

    // Connects to the server named by PULSE_SERVER, or the user's own. Throws
    // AudioInputError when there is none.
    explicit AudioInput(AudioInputOptions options = {});
    ~AudioInput();
    AudioInput(const AudioInput&) = delete;
    AudioInput& operator=(const AudioInput&) = delete;

    const AudioInputOptions& options() const;

    // Ends a run in progress, then records from the source into `onSamples` until stop().
    // Throws AudioInputError when the source is unknown or the server refuses the stream.
    void start(CaptureCallback onSamples, EndCallback onEnd = {});
    // Ends the run: no callback is called once this returns.
    void stop();
    bool isRunning() const;
    // Frames handed over in the current run.
    int64_t framesCaptured() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace orvelle
