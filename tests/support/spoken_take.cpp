#include "support/spoken_take.h"

#include "speech/transcript/transcript_output_writer.h"

#include <cmath>

namespace orvelle::testing {

std::vector<SampleTake::PassageWord> passageWords(const std::string& text, double pause) {
    std::vector<SampleTake::PassageWord> words;
    double next = pause;
    size_t start = 0;
    while (start < text.size()) {
        const size_t end = std::min(text.find(' ', start), text.size());
        const std::string piece = text.substr(start, end - start);
        if (piece.size() > 2 && piece.front() == '/' && piece.back() == '/') {
            next = std::stod(piece.substr(1, piece.size() - 2));
        } else if (!piece.empty()) {
            words.push_back({piece, next});
            next = pause;
        }
        start = end + 1;
    }
    return words;
}

SpokenTake writeSpokenTake(const std::filesystem::path& folder,
                           const std::vector<SampleTake::PassageWord>& words, bool writeTranscript,
                           TinyTakeOptions options) {
    const auto scratch = folder / "spoken-words";
    std::filesystem::create_directories(scratch);
    SpokenTake spoken;
    spoken.passage = SampleTake::speakPassage(words, scratch);
    std::filesystem::remove_all(scratch);

    options.seconds = std::ceil(spoken.passage.duration * options.frameRate) / options.frameRate;
    options.microphoneSamples = spoken.passage.samples;
    options.microphoneSamples.resize(
        static_cast<size_t>(std::llround(options.seconds * SampleTake::kAudioSampleRate)), 0.0f);
    spoken.take = writeTinyTake(folder, options);

    TranscriptAnalysis& analysis = spoken.analysis;
    for (const auto& word : spoken.passage.words) {
        analysis.text += (analysis.text.empty() ? "" : " ") + word.text;
        analysis.words.push_back(
            {word.text, word.start, word.end, 0.9, std::nullopt, std::nullopt});
    }
    analysis.source.analyzer = "espeak-ng passage";
    analysis.source.audioURL = *spoken.take.microphoneURL;
    analysis.source.modelDescription = "the words as spoken";
    analysis.source.computeUnits = "cpu";
    analysis.source.audioDurationSeconds = options.seconds;
    if (writeTranscript) {
        TranscriptOutputWriter::writeJSON(
            analysis, TranscriptOutputWriter::defaultJSONOutputURL(spoken.take.screenURL));
    }
    return spoken;
}

} // namespace orvelle::testing
