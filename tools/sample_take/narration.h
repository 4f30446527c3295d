#pragma once

// The sound of the sample take: the narration spoken by espeak-ng into a microphone that
// also hears the room and the keyboard, and the system's sound in the screen movie.

#include "sample_take/sample_script.h"

#include <filesystem>
#include <string>
#include <vector>

namespace orvelle::SampleTake {

inline constexpr int kAudioSampleRate = 48000;

// A sentence as it was spoken: seconds from the start of the take.
struct SpokenSentence {
    double start = 0;
    double end = 0;
    std::string text;

    friend bool operator==(const SpokenSentence&, const SpokenSentence&) = default;
};

struct MicrophoneTrack {
    std::vector<float> samples; // mono, kAudioSampleRate, the script's whole duration
    std::vector<SpokenSentence> sentences;
};

// Speaks each sentence with espeak-ng (no earlier than its time and a breath after the one
// before), over a quiet room with the keys and clicks of the script. Scratch files go to
// `scratchFolder`, which the caller removes. Throws orvelle::Error when espeak-ng is
// missing or fails.
MicrophoneTrack recordNarration(const SampleScript& script,
                                const std::filesystem::path& scratchFolder);

// The system's own sound: silence but for a chime when the tests pass. Stereo, interleaved.
std::vector<float> systemSound(const SampleScript& script);

} // namespace orvelle::SampleTake
