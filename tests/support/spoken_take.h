#pragma once

// A take whose microphone speaks a passage a word at a time (espeak-ng over room tone), so
// that every word's times are known to the sample, with the transcript a perfect
// recogniser would write for it.

#include "sample_take/narration.h"
#include "speech/transcript/transcript_analysis.h"
#include "support/tiny_take.h"

#include <filesystem>
#include <string>
#include <vector>

namespace orvelle::testing {

struct SpokenTake {
    TinyTake take;
    SampleTake::SpokenPassage passage;
    TranscriptAnalysis analysis; // the passage's words at their times
};

// The words of a text separated by blanks, each after `pause` seconds of room tone, and a
// pause given in the text as "/2.5/" before the word that follows it.
std::vector<SampleTake::PassageWord> passageWords(const std::string& text, double pause = 0.25);

// Writes "Tiny Take.*" into `folder` with the passage as its microphone and a screen as
// long as the passage; with `writeTranscript` the analysis goes beside it as the
// ".transcript.json" sidecar.
SpokenTake writeSpokenTake(const std::filesystem::path& folder,
                           const std::vector<SampleTake::PassageWord>& words,
                           bool writeTranscript = true, TinyTakeOptions options = {});

} // namespace orvelle::testing
