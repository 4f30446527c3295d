#pragma once

// The edited transcript: the words of a take's transcript as they are heard in the
// finished movie. A word whose middle falls in a kept clip stays, its times clamped to that
// clip and carried into edit time by the resolved timeline; a deleted word is absent.

#include "local_ai/youtube_metadata.h"
#include "project/editor_project_state.h"
#include "speech/transcript/transcript_analysis.h"
#include "timeline/resolved_edit_timeline.h"

#include <optional>
#include <utility>
#include <vector>

namespace orvelle {

// Where a word of source times [sourceStart, sourceEnd] plays in the finished movie:
// (start, end) in edit seconds, clamped to the clip that holds its middle. Absent when no
// clip holds its middle: the word was cut.
std::optional<std::pair<double, double>> editedWordSpan(double sourceStart, double sourceEnd,
                                                        const ResolvedEditTimeline& timeline);

// The words in edit-time order. Words without times or text are left out.
std::vector<ExportTranscriptWord> editedTranscriptWords(const TranscriptAnalysis& analysis,
                                                        const ResolvedEditTimeline& timeline);

// The same over a project: its timeline (seeded over the whole take when never built).
std::vector<ExportTranscriptWord> editedTranscriptWords(const TranscriptAnalysis& analysis,
                                                        const EditorProjectState& project);

namespace ExportTranscriptContextBuilder {

// How words are grouped into chunks: a chunk ends after a sentence once it is at least
// `sentenceSeconds` long, at a pause of `pauseSeconds` once it is at least
// `minimumSeconds` long, and always by `maximumSeconds`.
struct Grouping {
    double minimumSeconds = 8.0;
    double sentenceSeconds = 20.0;
    double pauseSeconds = 1.2;
    double maximumSeconds = 45.0;
};

ExportTranscriptContext make(std::vector<ExportTranscriptWord> words, double duration,
                             const Grouping& grouping = {});

// The context of a project's edit: its edited words and the edited video's length.
ExportTranscriptContext make(const TranscriptAnalysis& analysis, const EditorProjectState& project);

} // namespace ExportTranscriptContextBuilder

} // namespace orvelle
