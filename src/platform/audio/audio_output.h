#pragma once

// Sound to the user's sound server (PulseAudio's protocol, which PipeWire also speaks):
// one playback stream of interleaved 32-bit float frames, pulled from the caller as the
// server asks for them, and the stream's clock, which says how much of it has been heard.
// Nothing of the client library leaves this adapter.
//
// The output is made once and then runs any number of times: start() begins a run with a
// fresh clock, stop() ends it and drops what the server still held. The render callback
// runs on the output's own thread and must not block for long: hand it samples made
// elsewhere. Every method is thread-safe.

#include "core/error.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace orvelle {

// The sound server cannot be reached or refused the stream; the text says what to do.
class AudioOutputError : public Error {
public:
    using Error::Error;
};

struct AudioOutputOptions {
    int sampleRate = 48000;
    int channelCount = 2;
    std::string applicationName = "Orvelle";
    std::string streamName = "Preview";
    // How much sound the server holds ahead of the speaker: less answers a seek sooner,
    // more survives a busy machine.
    double bufferSeconds = 0.06;
};

class AudioOutput {
public:
    // Fills frameCount frames (frameCount * channelCount floats).
    using RenderCallback = std::function<void(float* interleaved, size_t frameCount)>;

    // Connects to the server named by PULSE_SERVER, or the user's own. Throws
    // AudioOutputError when there is none.
    explicit AudioOutput(AudioOutputOptions options = {});
    ~AudioOutput();
    AudioOutput(const AudioOutput&) = delete;
    AudioOutput& operator=(const AudioOutput&) = delete;

    const AudioOutputOptions& options() const;

    // Ends a run in progress, then begins a new one pulling from `render`. Sound starts
    // once the server's buffer is full. Throws AudioOutputError when the server refuses the
    // stream or has gone away.
    void start(RenderCallback render);
    // Ends the run: the callback is not called again once this returns.
    void stop();
    bool isRunning() const;

    // Seconds of the current run that have been heard: the server's playback position less
    // the sound still on its way to the speaker, interpolated between the server's reports.
    // 0 before the first sample sounds, and after stop().
    double playedSeconds() const;
    // Seconds between a sample handed over and its sounding, as the server last said.
    double latencySeconds() const;
    // False once the connection to the server has broken; the clock then stands still.
    bool isConnected() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace orvelle
