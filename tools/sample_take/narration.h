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

// A word of a passage spoken one word at a time, with the silence before it.
struct PassageWord {
    std::string text;          // as a transcript writes it ("Hello," "um")
    double pauseBefore = 0.25; // seconds of room tone before the word
};

// A spoken word where it landed: seconds from the start, first and last sample above the
// room's level.
struct SpokenWord {
    std::string text;
    double start = 0;
    double end = 0;

    friend bool operator==(const SpokenWord&, const SpokenWord&) = default;
};

struct SpokenPassage {
    std::vector<float> samples; // mono, kAudioSampleRate, `tail` of room tone after the last word
    std::vector<SpokenWord> words;
    double duration = 0;
};

// Speaks each word by itself with espeak-ng and lays the words end to end with the pauses
// asked for, over the same room as the narration; so every word's times are known to the
// sample. For tests of cutting by words. Throws orvelle::Error when espeak-ng fails.
SpokenPassage speakPassage(const std::vector<PassageWord>& words,
                           const std::filesystem::path& scratchFolder, double tail = 0.6,
                           std::uint32_t seed = 1);

// The system's own sound: silence but for a chime when the tests pass. Stereo, interleaved.
std::vector<float> systemSound(const SampleScript& script);

} // namespace orvelle::SampleTake
