#pragma once

// Transcribes a take: picks its microphone audio (the one file as it is, or several
// segments rendered at their take times with silent gaps, so that transcript times are
// take times) and runs the recogniser on it on the GPU setting.

#include "project/editor_document.h"
#include "speech/transcript/transcript_analysis.h"

#include <filesystem>
#include <optional>

namespace orvelle {

struct RecordingTranscriptionRequest {
    std::filesystem::path screenURL;
    std::filesystem::path audioURL;
    std::optional<TranscriptModelSource> modelSource;
};

struct RecordingTranscriptionResult {
    TranscriptAnalysis analysis;
};

enum class RecordingTranscriptionErrorCode { modelNotInstalled, audioPreparationFailed };

class RecordingTranscriptionError : public CodedError<RecordingTranscriptionErrorCode> {
public:
    explicit RecordingTranscriptionError(RecordingTranscriptionErrorCode code);
};

namespace RecordingTranscriptionService {

// Absent when the take has no readable microphone audio, or no model is installed (the
// second form names the model to use instead of looking for the installed one). Renders
// "<document name>.transcription.m4a" beside the document when the audio is in several
// segments or does not start at 0; throws audioPreparationFailed when that fails.
std::optional<RecordingTranscriptionRequest> makeRequest(const EditorDocument& document);
std::optional<RecordingTranscriptionRequest> makeRequest(const EditorDocument& document,
                                                         const TranscriptModelSource& modelSource);

// Throws modelNotInstalled for a request without a model, else the recogniser's errors.
RecordingTranscriptionResult transcribe(const RecordingTranscriptionRequest& request);

std::filesystem::path transcriptionAudioURL(const EditorDocument& document);

// The take's microphone at take times, whatever transcribes or aligns it: the one file as
// it is, or its segments rendered afresh into transcriptionAudioURL. Absent when no
// microphone segment is readable; throws audioPreparationFailed when rendering fails.
std::optional<std::filesystem::path> prepareAudio(const EditorDocument& document);

} // namespace RecordingTranscriptionService

} // namespace orvelle
