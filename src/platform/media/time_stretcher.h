#pragma once

// Changes the tempo of audio and keeps its pitch (Rubber Band, real-time engine). Output
// frame k corresponds to input frame k * speed: the engine's start delay is absorbed here,
// so the first output frame is the first input frame. Samples are interleaved floats.
// Not thread-safe; one stretcher per stream of audio.

#include <cstddef>
#include <memory>

namespace orvelle {

class TimeStretcher {
public:
    // `speed` above 1 plays faster (shorter output); output length = input length / speed.
    TimeStretcher(int sampleRate, int channelCount, double speed);
    ~TimeStretcher();
    TimeStretcher(const TimeStretcher&) = delete;
    TimeStretcher& operator=(const TimeStretcher&) = delete;

    double speed() const;
    int channelCount() const;

    // How many input frames the engine wants before it can give more output.
    size_t inputFramesWanted() const;
    // Hands in input frames; the stretcher copies them.
    void push(const float* interleaved, size_t frameCount);
    // Output frames ready to be taken.
    size_t available() const;
    // Takes up to `frameCount` output frames; returns how many were written.
    size_t pull(float* interleaved, size_t frameCount);

    // Forgets all audio handed in, as if newly made.
    void reset();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace orvelle
