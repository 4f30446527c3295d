#include "speech/align/alignment_audio_preprocessor.h"

#include "platform/media/audio_decoder.h"
#include "speech/align/alignment_error.h"

namespace orvelle::AlignmentAudioPreprocessor {

AlignmentAudioBuffer decodeMonoFloat32(const std::filesystem::path& from, int targetSampleRate) {
    if (targetSampleRate < 1) {
        throw AlignmentError(AlignmentErrorCode::audioDecodeFailed,
                             "the model asks for a sample rate of " +
                                 std::to_string(targetSampleRate) + " Hz");
    }
    AlignmentAudioBuffer buffer;
    buffer.sampleRate = targetSampleRate;
    try {
        buffer.samples = decodeAudioFile(from, AudioFormat{targetSampleRate, 1});
    } catch (const MediaError& error) {
        throw AlignmentError(AlignmentErrorCode::audioDecodeFailed, error.what());
    }
    return buffer;
}

} // namespace orvelle::AlignmentAudioPreprocessor
