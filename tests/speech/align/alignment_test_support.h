#pragma once

// Audio and model bundles for the alignment tests: bursts of noise standing for spoken
// words between silent pauses, and the CTC test bundles of tools/make_test_models.py.

#include "speech/align/alignment_types.h"
#include "support/temporary_directory.h"
#include "support/test_media.h"

#include <filesystem>
#include <random>
#include <vector>

namespace orvelle::testing {

struct Burst {
    double start;
    double end;
};

inline std::filesystem::path ctcBundle(const std::string& name) {
    return binaryDirectory() / "test-models" / name;
}

// Mono 16 kHz float wav: noise at 0.3 inside the bursts, digital silence elsewhere.
inline void writeBursts(const std::filesystem::path& path, double duration,
                        const std::vector<Burst>& bursts) {
    constexpr int kRate = 16000;
    std::vector<float> samples(static_cast<size_t>(duration * kRate), 0.0f);
    std::mt19937 random(5);
    std::uniform_real_distribution<float> noise(-0.3f, 0.3f);
    for (const Burst& burst : bursts) {
        for (auto i = static_cast<size_t>(burst.start * kRate);
             i < static_cast<size_t>(burst.end * kRate) && i < samples.size(); ++i) {
            samples[i] = noise(random);
        }
    }
    writeAudioFile(path, samples, AudioFormat{kRate, 1});
}

// One word per burst, its rough times the burst's moved by `shift` seconds.
inline std::vector<AlignmentInputWord> wordsOnBursts(const std::vector<std::string>& texts,
                                                     const std::vector<Burst>& bursts, double shift,
                                                     int firstID = 0) {
    std::vector<AlignmentInputWord> words;
    for (size_t i = 0; i < texts.size(); ++i) {
        words.push_back({std::to_string(firstID + static_cast<int>(i)), texts[i],
                         bursts[i].start + shift, bursts[i].end + shift});
    }
    return words;
}

} // namespace orvelle::testing
