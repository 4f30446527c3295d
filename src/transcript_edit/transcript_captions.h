#pragma once

// Captions from the edited transcript: the words as the finished movie plays them (cut
// words absent, times carried through the timeline, speed changes included), grouped into
// cues of at most two lines of 42 characters lasting 1 to 7 seconds, split at sentence
// ends and pauses. Written as SRT or WebVTT, or burned into the picture as text clips.

#include "project/editor_document.h"
#include "project/editor_project_state.h"
#include "project/text_overlay_settings.h"
#include "speech/transcript/editor_transcript.h"

#include <filesystem>
#include <string>
#include <vector>

namespace orvelle {

struct ExportTranscriptWord;

struct CaptionCue {
    double start = 0; // edit seconds
    double end = 0;
    std::vector<std::string> lines;

    friend bool operator==(const CaptionCue&, const CaptionCue&) = default;
};

struct CaptionLayout {
    int maximumLineLength = 42; // characters
    int maximumLines = 2;
    double minimumDuration = 1.0;
    double maximumDuration = 7.0;
    double pauseBreak = 0.5; // a silence this long starts a new cue
};

enum class CaptionFormat { srt, webVTT };

namespace TranscriptCaptions {

// Cues over words in edit-time order; `editDuration` bounds the last one.
std::vector<CaptionCue> cues(const std::vector<ExportTranscriptWord>& words, double editDuration,
                             const CaptionLayout& layout = {});
// The cues of a transcript under a project's edit.
std::vector<CaptionCue> cues(const EditorTranscript& transcript, const EditorProjectState& project,
                             const CaptionLayout& layout = {});

// The words broken into at most `maximumLines` lines as even as can be; empty when they do
// not fit.
std::vector<std::string> lines(const std::vector<std::string>& words, const CaptionLayout& layout);

std::string srt(const std::vector<CaptionCue>& cues);
std::string webVTT(const std::vector<CaptionCue>& cues);
// By the extension: .srt or .vtt; throws orvelle::Error for any other.
CaptionFormat formatFor(const std::filesystem::path& url);
// Written by atomic replace.
void write(const std::vector<CaptionCue>& cues, const std::filesystem::path& url);

// The cues as text clips, centred low over the picture, for burning into an export.
std::vector<TextClip> burnedInTextClips(const std::vector<CaptionCue>& cues);

} // namespace TranscriptCaptions

template <>
struct JsonCoder<CaptionCue> {
    static Json encode(const CaptionCue& cue);
};

} // namespace orvelle
