#include "speech/runtime/audio_loader.h"

#include "platform/media/audio_decoder.h"
#include "speech/runtime/parakeet_error.h"

namespace orvelle::AudioLoader {

namespace {

constexpr int targetRate = 16000;
constexpr size_t blockFrames = 4096;

} // namespace

std::vector<float> loadMono16k(const std::filesystem::path& path) {
    std::vector<float> samples;
    try {
        // A file already at 16 kHz mono passes through the same converter.
        AudioDecoder decoder(path, AudioFormat{targetRate, 1});
        const double duration = decoder.duration();
        if (duration > 0) {
            samples.reserve(static_cast<size_t>(duration * targetRate) + 1024 + blockFrames);
        }
        for (;;) {
            const size_t start = samples.size();
            samples.resize(start + blockFrames);
            const size_t read = decoder.read(samples.data() + start, blockFrames);
            samples.resize(start + read);
            if (read == 0) {
                break;
            }
        }
    } catch (const MediaError& error) {
        throw ParakeetError::audioLoadFailed(path, error.what());
    }
    if (samples.empty()) {
        throw ParakeetError::audioEmpty(path);
    }
    return samples;
}

} // namespace orvelle::AudioLoader
