#pragma once

// Renders a composition's audio tracks, through its audio mix, as 48 kHz stereo float for
// any range of edit time. The preview and the export use this one mixer, so they hear the
// same thing.
//
// Pull mode: the caller asks for the samples it needs next, as many as it wants at a time;
// memory stays bounded whatever the edit's length (a few decoders and blocks per track).
// Consecutive ranges are cheapest, since decoders and stretchers go on where they stopped;
// any other range seeks, sample-accurately. Stretches played at a speed other than 1 keep
// their pitch (Rubber Band); after a seek into such a stretch the stretcher starts a little
// before the asked-for sample, so the result agrees with a continuous render up to the
// stretcher's phase. Everything else is exactly the same sample for sample however it is
// reached.
//
// A file that cannot be opened plays as silence (and is logged); a decoding failure of a
// file that opened throws MediaError. Not thread-safe: one mixer per consumer.

#include "timeline_media/media_composition.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace orvelle {

class CompositionAudioMixer {
public:
    static constexpr int kSampleRate = 48000;
    static constexpr int kChannelCount = 2;

    // Mixes every audio track of the composition, each through its parameters in `mix`
    // (a track without parameters plays at volume 1).
    CompositionAudioMixer(MediaComposition composition, AudioMix mix);
    ~CompositionAudioMixer();
    CompositionAudioMixer(const CompositionAudioMixer&) = delete;
    CompositionAudioMixer& operator=(const CompositionAudioMixer&) = delete;

    // The frames from edit 0 to the end of the last audio insertion.
    int64_t frameCount() const;

    // Writes frames [startFrame, startFrame + frameCount) of edit time, interleaved stereo,
    // into `output` (2 * frameCount floats). Frames outside every insertion are silence.
    void render(int64_t startFrame, size_t frameCount, float* output);

private:
    struct State;
    std::unique_ptr<State> state_;
};

inline int64_t mixerFrame(double editSeconds) {
    return static_cast<int64_t>(editSeconds * CompositionAudioMixer::kSampleRate + 0.5);
}

} // namespace orvelle
