#include "transcript_edit/transcript_processing.h"

#include "core/cancellation.h"
#include "core/log.h"
#include "speech/transcript/recording_transcription_service.h"
#include "speech/transcript/transcript_model_locator.h"
#include "speech/transcript/unicode_text.h"
#include "transcript_edit/editor_transcript_store.h"

#include <algorithm>
#include <array>
#include <mutex>

namespace orvelle {

namespace {

using Stage = EditorTranscriptProcessingStage;

constexpr std::array kStageNames{
    EnumName<Stage>{Stage::preparingAudio, "preparingAudio"},
    EnumName<Stage>{Stage::transcribing, "transcribing"},
    EnumName<Stage>{Stage::preparingAlignment, "preparingAlignment"},
    EnumName<Stage>{Stage::aligning, "aligning"},
    EnumName<Stage>{Stage::noSpeech, "noSpeech"},
    EnumName<Stage>{Stage::formatting, "formatting"},
};

void report(const EditorTranscriptProcessingPipeline::Status& status, Stage stage,
            std::optional<double> fraction = std::nullopt) {
    if (status) {
        status({stage, fraction});
    }
}

bool isDone(const EditorTranscript& transcript) {
    return transcript.alignmentBaselineWords.has_value() && transcript.paragraphBreaksSuggested;
}

} // namespace

std::span<const EnumName<EditorTranscriptProcessingStage>>
jsonNames(EditorTranscriptProcessingStage) {
    return kStageNames;
}

std::string_view stageDescription(EditorTranscriptProcessingStage stage) {
    switch (stage) {
    case Stage::preparingAudio:
        return "Preparing microphone audio";
    case Stage::transcribing:
        return "Transcribing audio";
    case Stage::preparingAlignment:
        return "Preparing alignment audio";
    case Stage::aligning:
        return "Aligning word timing";
    case Stage::noSpeech:
        return "No speech detected";
    case Stage::formatting:
        break;
    }
    return "Formatting transcript";
}

EditorTranscriptServiceError::EditorTranscriptServiceError(EditorTranscriptServiceErrorCode code)
    : CodedError(code, "The take has no microphone recording to transcribe.") {}

EditorTranscriptAlignmentError::EditorTranscriptAlignmentError(
    EditorTranscriptAlignmentErrorCode code)
    : CodedError(code, "The take has no microphone recording to time the words against.") {}

namespace EditorTranscriptService {

EditorTranscript transcribe(const EditorDocument& document,
                            const std::optional<TranscriptModelSource>& model) {
    std::optional<TranscriptModelSource> source = model;
    if (!source) {
        source = TranscriptModelLocator::defaultModelSource(document.documentURL.has_parent_path()
                                                                ? document.documentURL.parent_path()
                                                                : std::filesystem::path("."));
        if (!source) {
            throw RecordingTranscriptionError(RecordingTranscriptionErrorCode::modelNotInstalled);
        }
    }
    const auto request = RecordingTranscriptionService::makeRequest(document, *source);
    if (!request) {
        throw EditorTranscriptServiceError(EditorTranscriptServiceErrorCode::missingAudio);
    }
    return EditorTranscript(RecordingTranscriptionService::transcribe(*request).analysis);
}

} // namespace EditorTranscriptService

namespace TranscriptParagraphFormatter {

std::string displayText(const EditorTranscript& transcript) {
    const auto& words = transcript.analysis.words;
    const auto& breaks = transcript.paragraphBreakAfterWordIndices;
    std::string text;
    bool paragraphOpen = false;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string word = trimmingWhitespace(words[i].text);
        if (word.empty()) {
            continue;
        }
        if (!text.empty()) {
            text += paragraphOpen ? " " : "\n\n";
        }
        text += word;
        paragraphOpen = true;
        if (std::binary_search(breaks.begin(), breaks.end(), static_cast<int>(i))) {
            paragraphOpen = false;
        }
    }
    return text;
}

} // namespace TranscriptParagraphFormatter

EditorTranscriptProcessingPipeline::EditorTranscriptProcessingPipeline(
    EditorTranscriptProcessingOptions options)
    : options_(std::move(options)) {}

std::vector<LocalModelKind> EditorTranscriptProcessingPipeline::requiredModels() {
    return {LocalModelKind::speech, LocalModelKind::language, LocalModelKind::alignment};
}

std::vector<LocalModelDescription> EditorTranscriptProcessingPipeline::missingModels() {
    std::vector<LocalModelDescription> missing;
    for (const auto& model : LocalModelCatalog::all()) {
        const auto required = requiredModels();
        if (std::find(required.begin(), required.end(), model.kind) != required.end() &&
            !LocalModelCatalog::status(model).installed) {
            missing.push_back(model);
        }
    }
    return missing;
}

EditorTranscript EditorTranscriptProcessingPipeline::smoothingRoughWordTimings(
    EditorTranscript transcript, double sourceDuration, double minimumDuration) {
    const double total = std::max(sourceDuration, 0.0);
    double previousEnd = 0;
    for (TranscriptWord& word : transcript.analysis.words) {
        if (!word.startTime || !word.endTime) {
            continue;
        }
        double start = std::clamp(*word.startTime, 0.0, total);
        double end = std::clamp(*word.endTime, 0.0, total);
        start = std::max(start, previousEnd);
        if (end - start < minimumDuration) {
            end = std::min(start + minimumDuration, total);
        }
        word.startTime = start;
        word.endTime = end;
        previousEnd = end;
    }
    return transcript;
}

EditorTranscriptProcessingResult
EditorTranscriptProcessingPipeline::process(const EditorDocument& document, bool force,
                                            double sourceDuration, const Status& status,
                                            const std::stop_token& stop) const {
    EditorTranscriptProcessingResult result;
    std::optional<EditorTranscript> loaded;
    if (!force) {
        loaded = EditorTranscriptStore::load(document);
    }
    if (loaded && isDone(*loaded)) {
        result.transcript = std::move(*loaded);
        result.displayText = TranscriptParagraphFormatter::displayText(result.transcript);
        return result;
    }
    const auto save = [&] { EditorTranscriptStore::save(result.transcript, document.screenURL); };

    // Pass 1: what was said. Its failure is the run's.
    if (!loaded) {
        report(status, Stage::preparingAudio);
        throwIfCancelled(stop);
        report(status, Stage::transcribing);
        result.transcript = EditorTranscriptService::transcribe(document, options_.speechModel);
        result.passesRun.emplace_back("transcription");
        save();
    } else {
        result.transcript = std::move(*loaded);
    }
    if (result.transcript.analysis.words.empty()) {
        report(status, Stage::noSpeech);
        return result;
    }
    throwIfCancelled(stop);

    // Pass 2: precise word timing, or the rough times made safe.
    if (!result.transcript.alignmentBaselineWords) {
        try {
            report(status, Stage::preparingAlignment);
            const auto audio = RecordingTranscriptionService::prepareAudio(document);
            if (!audio) {
                throw EditorTranscriptAlignmentError(
                    EditorTranscriptAlignmentErrorCode::missingAudio);
            }
            throwIfCancelled(stop);
            report(status, Stage::aligning, 0.0);
            PreciseWordTimingAlignmentService service(options_.alignmentBundle);
            auto aligned = service.alignTranscript(
                result.transcript, *audio, sourceDuration,
                [&](double fraction) { report(status, Stage::aligning, fraction); });
            result.transcript = std::move(aligned.transcript);
            result.alignmentReport = std::move(aligned.report);
            result.passesRun.emplace_back("alignment");
        } catch (const CancellationError&) {
            throw;
        } catch (const Error& error) {
            logInfo("transcript", "precise word timing failed: ", error.what());
            result.transcript = smoothingRoughWordTimings(
                std::move(result.transcript), sourceDuration, kRoughTimingMinimumDuration);
            result.nonfatalError = std::string(kAlignmentFailedMessage);
        }
        save();
    }
    throwIfCancelled(stop);

    // Pass 3: paragraphs from the local language model, or none.
    if (!result.transcript.paragraphBreaksSuggested) {
        report(status, Stage::formatting);
        try {
            std::shared_ptr<TranscriptParagraphSuggester> suggester = options_.paragraphSuggester;
            if (!suggester) {
                suggester = std::make_shared<QwenTranscriptParagraphSuggester>();
            }
            auto breaks = suggester->suggestBreaks(result.transcript.analysis, stop);
            result.transcript.paragraphBreakAfterWordIndices =
                EditorTranscript::normalizedBreaks(std::move(breaks));
            result.passesRun.emplace_back("paragraphs");
        } catch (const CancellationError&) {
            throw;
        } catch (const Error& error) {
            logInfo("transcript", "paragraph pass failed: ", error.what());
            result.transcript.paragraphBreakAfterWordIndices.clear();
            if (!result.nonfatalError) {
                result.nonfatalError = std::string(kParagraphsFailedMessage);
            }
        }
        result.transcript.paragraphBreaksSuggested = true;
        save();
    }
    result.displayText = TranscriptParagraphFormatter::displayText(result.transcript);
    return result;
}

// ---- Running in the background ------------------------------------------------------------

struct EditorTranscriptProcessingTask::Shared {
    Executor& main;
    Callbacks callbacks;
    std::mutex mutex; // guards cancelled
    bool cancelled = false;

    explicit Shared(Executor& executor, Callbacks c) : main(executor), callbacks(std::move(c)) {}

    // Runs `deliver` on the main executor unless the task was cancelled by then.
    void post(std::function<void(Shared&)> deliver, const std::shared_ptr<Shared>& self) {
        main.post([self, deliver = std::move(deliver)] {
            {
                const std::lock_guard lock(self->mutex);
                if (self->cancelled) {
                    return;
                }
            }
            deliver(*self);
        });
    }
};

EditorTranscriptProcessingTask::EditorTranscriptProcessingTask(
    Executor& main, EditorTranscriptProcessingPipeline pipeline, EditorDocument document,
    bool force, double sourceDuration, Callbacks callbacks)
    : shared_(std::make_shared<Shared>(main, std::move(callbacks))) {
    thread_ = std::jthread([shared = shared_, pipeline = std::move(pipeline),
                            document = std::move(document), force,
                            sourceDuration](const std::stop_token& stop) {
        try {
            auto result = pipeline.process(
                document, force, sourceDuration,
                [&](const EditorTranscriptProcessingProgress& progress) {
                    shared->post(
                        [progress](Shared& s) {
                            if (s.callbacks.progress) {
                                s.callbacks.progress(progress);
                            }
                        },
                        shared);
                },
                stop);
            auto boxed = std::make_shared<EditorTranscriptProcessingResult>(std::move(result));
            shared->post(
                [boxed](Shared& s) {
                    if (s.callbacks.finished) {
                        s.callbacks.finished(std::move(*boxed));
                    }
                },
                shared);
        } catch (const CancellationError&) {
            // Cancelled: nothing to deliver.
        } catch (const std::exception& error) {
            shared->post(
                [text = std::string(error.what())](Shared& s) {
                    if (s.callbacks.failed) {
                        s.callbacks.failed(text);
                    }
                },
                shared);
        }
    });
}

EditorTranscriptProcessingTask::~EditorTranscriptProcessingTask() {
    cancel();
    thread_.request_stop();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void EditorTranscriptProcessingTask::cancel() {
    const std::lock_guard lock(shared_->mutex);
    shared_->cancelled = true;
}

EditorTranscriptBackgroundProcessor::EditorTranscriptBackgroundProcessor(
    Executor& main, EditorTranscriptProcessingOptions options)
    : main_(main), options_(std::move(options)) {}

EditorTranscriptBackgroundProcessor::~EditorTranscriptBackgroundProcessor() = default;

bool EditorTranscriptBackgroundProcessor::enqueue(const EditorDocument& document,
                                                  Completion completion) {
    if (document.manifest.segmentsFor(MediaTrackManifest::Kind::microphone).empty()) {
        return false;
    }
    if (!options_.speechModel &&
        !TranscriptModelLocator::defaultModelSource(document.documentURL.parent_path())) {
        return false;
    }
    pending_.emplace_back(document, std::move(completion));
    if (!task_) {
        startNext();
    }
    return true;
}

void EditorTranscriptBackgroundProcessor::startNext() {
    if (pending_.empty()) {
        return;
    }
    EditorDocument document = std::move(pending_.front().first);
    Completion completion = std::move(pending_.front().second);
    pending_.erase(pending_.begin());
    const double duration = takeSourceDuration(document.manifest).seconds;
    auto shared = std::make_shared<Completion>(std::move(completion));
    // The end of a run is handled on a later turn, once its task has returned.
    const auto finish = [this, alive = std::weak_ptr<int>(alive_), document,
                         shared](std::optional<EditorTranscriptProcessingResult> result,
                                 std::optional<std::string> error) {
        if (alive.expired()) {
            return;
        }
        (*shared)(document, std::move(result), std::move(error));
        main_.post([this, alive] {
            if (!alive.expired()) {
                task_.reset();
                startNext();
            }
        });
    };
    EditorTranscriptProcessingTask::Callbacks callbacks;
    callbacks.finished = [finish](EditorTranscriptProcessingResult result) {
        finish(std::move(result), std::nullopt);
    };
    callbacks.failed = [finish](const std::string& error) { finish(std::nullopt, error); };
    task_ = std::make_unique<EditorTranscriptProcessingTask>(
        main_, EditorTranscriptProcessingPipeline(options_), document, false, duration,
        std::move(callbacks));
}

} // namespace orvelle
