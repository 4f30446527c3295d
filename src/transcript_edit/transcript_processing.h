#pragma once

// From a take's audio to a finished editor transcript in three passes: speech recognition,
// precise word timing, paragraph layout. Only the first may fail the run; the other two
// fall back to a plainer transcript with a message. The transcript is saved after every
// pass, so a run that stops keeps what it had.

#include "core/executor.h"
#include "local_ai/local_models.h"
#include "local_ai/transcript_paragraph_suggester.h"
#include "project/editor_document.h"
#include "speech/align/precise_word_timing_alignment_service.h"
#include "speech/transcript/editor_transcript.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace orvelle {

enum class EditorTranscriptProcessingStage {
    preparingAudio,
    transcribing,
    preparingAlignment,
    aligning,
    noSpeech,
    formatting,
};

std::span<const EnumName<EditorTranscriptProcessingStage>>
    jsonNames(EditorTranscriptProcessingStage);

// What the user is shown: "Preparing microphone audio", "Transcribing audio", ...
std::string_view stageDescription(EditorTranscriptProcessingStage stage);

struct EditorTranscriptProcessingProgress {
    EditorTranscriptProcessingStage stage = EditorTranscriptProcessingStage::preparingAudio;
    std::optional<double> fraction; // of the stage, when it is known

    friend bool operator==(const EditorTranscriptProcessingProgress&,
                           const EditorTranscriptProcessingProgress&) = default;
};

struct EditorTranscriptProcessingResult {
    EditorTranscript transcript;
    std::string displayText;
    std::optional<std::string> nonfatalError;
    std::optional<PreciseWordTimingReport> alignmentReport; // when words were aligned now
    std::vector<std::string> passesRun; // "transcription", "alignment", "paragraphs"
};

enum class EditorTranscriptServiceErrorCode { missingAudio };

class EditorTranscriptServiceError : public CodedError<EditorTranscriptServiceErrorCode> {
public:
    explicit EditorTranscriptServiceError(EditorTranscriptServiceErrorCode code);
};

enum class EditorTranscriptAlignmentErrorCode { missingAudio };

class EditorTranscriptAlignmentError : public CodedError<EditorTranscriptAlignmentErrorCode> {
public:
    explicit EditorTranscriptAlignmentError(EditorTranscriptAlignmentErrorCode code);
};

namespace EditorTranscriptService {

// The take's microphone through the recogniser (the installed model unless one is named).
// Throws EditorTranscriptServiceError missingAudio when the take has no readable
// microphone, RecordingTranscriptionError modelNotInstalled when there is no model, else
// the recogniser's errors.
EditorTranscript transcribe(const EditorDocument& document,
                            const std::optional<TranscriptModelSource>& model = std::nullopt);

} // namespace EditorTranscriptService

namespace TranscriptParagraphFormatter {
// The words joined by blanks inside a paragraph and an empty line between paragraphs.
std::string displayText(const EditorTranscript& transcript);
} // namespace TranscriptParagraphFormatter

struct EditorTranscriptProcessingOptions {
    std::optional<TranscriptModelSource> speechModel;                 // absent: the installed one
    std::optional<std::filesystem::path> alignmentBundle;             // absent: the usual search
    std::shared_ptr<TranscriptParagraphSuggester> paragraphSuggester; // absent: the local model
};

class EditorTranscriptProcessingPipeline {
public:
    using Status = std::function<void(const EditorTranscriptProcessingProgress&)>;

    static constexpr double kRoughTimingMinimumDuration = 0.02;
    static constexpr std::string_view kAlignmentFailedMessage =
        "Precise word timing failed. Showing transcript with rough word timing.";
    static constexpr std::string_view kParagraphsFailedMessage =
        "Qwen paragraph pass failed. Showing plain transcript.";

    explicit EditorTranscriptProcessingPipeline(EditorTranscriptProcessingOptions options = {});

    // Runs what is missing (everything with `force`) and saves after every pass. Blocks:
    // run it off the main thread. Throws what fails pass 1, and CancellationError once
    // `stop` is requested between passes.
    EditorTranscriptProcessingResult process(const EditorDocument& document, bool force,
                                             double sourceDuration, const Status& status = {},
                                             const std::stop_token& stop = {}) const;

    // The speech transcription, text assistant and precise word timing models.
    static std::vector<LocalModelKind> requiredModels();
    // Those of requiredModels that are not installed.
    static std::vector<LocalModelDescription> missingModels();

    // Rough times made safe where precise timing is missing: inside [0, sourceDuration], in
    // order, each word at least `minimumDuration` long where there is room.
    static EditorTranscript smoothingRoughWordTimings(EditorTranscript transcript,
                                                      double sourceDuration,
                                                      double minimumDuration);

private:
    EditorTranscriptProcessingOptions options_;
};

// One run of the pipeline on a thread of its own. Its progress and its end are delivered
// on the main executor; nothing is delivered once it is cancelled or destroyed.
// Destroying it asks the run to stop and waits for it (a pass stops at its next check).
class EditorTranscriptProcessingTask {
public:
    struct Callbacks {
        std::function<void(const EditorTranscriptProcessingProgress&)> progress;
        std::function<void(EditorTranscriptProcessingResult)> finished;
        std::function<void(const std::string& error)> failed;
    };

    EditorTranscriptProcessingTask(Executor& main, EditorTranscriptProcessingPipeline pipeline,
                                   EditorDocument document, bool force, double sourceDuration,
                                   Callbacks callbacks);
    ~EditorTranscriptProcessingTask();
    EditorTranscriptProcessingTask(const EditorTranscriptProcessingTask&) = delete;
    EditorTranscriptProcessingTask& operator=(const EditorTranscriptProcessingTask&) = delete;

    void cancel();

private:
    struct Shared;
    std::shared_ptr<Shared> shared_;
    std::jthread thread_;
};

// Transcribes takes just recorded, with no window open: the whole pipeline for one take at
// a time, in the order they were given. A take is taken only when it can be done (it has a
// microphone and the speech model is there). Results come back on the main executor.
class EditorTranscriptBackgroundProcessor {
public:
    using Completion = std::function<void(const EditorDocument& document,
                                          std::optional<EditorTranscriptProcessingResult> result,
                                          std::optional<std::string> error)>;

    EditorTranscriptBackgroundProcessor(Executor& main,
                                        EditorTranscriptProcessingOptions options = {});
    ~EditorTranscriptBackgroundProcessor();
    EditorTranscriptBackgroundProcessor(const EditorTranscriptBackgroundProcessor&) = delete;
    EditorTranscriptBackgroundProcessor&
    operator=(const EditorTranscriptBackgroundProcessor&) = delete;

    // False, and nothing queued, when the take cannot be transcribed here.
    bool enqueue(const EditorDocument& document, Completion completion);
    bool isBusy() const { return task_ != nullptr; }
    size_t pendingCount() const { return pending_.size(); }

private:
    void startNext();

    Executor& main_;
    EditorTranscriptProcessingOptions options_;
    std::vector<std::pair<EditorDocument, Completion>> pending_;
    std::unique_ptr<EditorTranscriptProcessingTask> task_;
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);
};

} // namespace orvelle
