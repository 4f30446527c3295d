#pragma once

// Runs interleaved float audio through a chain of FFmpeg's audio filters, named in FFmpeg's
// filter syntax ("highpass=f=70,afftdn=nr=12"). The format stays the same from input to
// output. Not thread-safe. Failures throw MediaError with FFmpeg's reason.

#include "platform/media/audio_decoder.h"

#include <memory>
#include <string>
#include <vector>

namespace orvelle {

class AudioFilterChain {
public:
    AudioFilterChain(AudioFormat format, const std::string& filters);
    ~AudioFilterChain();
    AudioFilterChain(const AudioFilterChain&) = delete;
    AudioFilterChain& operator=(const AudioFilterChain&) = delete;

    // Hands in frames and appends whatever the filters give back to `output`.
    void process(const float* interleaved, size_t frameCount, std::vector<float>& output);
    // Ends the input and appends what the filters still hold.
    void finish(std::vector<float>& output);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace orvelle
