#include "transcript_edit/editor_transcript_controller.h"

#include "core/log.h"
#include "transcript_edit/editor_transcript_store.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace orvelle {

EditorTranscriptController::EditorTranscriptController(PlaybackModel& playback, Executor& main,
                                                       EditorTranscriptProcessingOptions processing)
    : playback_(playback), main_(main), processingOptions_(std::move(processing)) {
    projectSubscription_ = playback_.editorStore().observeProject(
        [this](const EditorProjectState&) { timelineChanged(false); });
    playheadSubscription_ =
        playback_.timelinePlayheadTime().observe([this](const double&) { refreshPlayheadWord(); });
    systemAudioSubscription_ = playback_.systemAudioWaveform().observe(
        [this](const std::optional<Waveform>&) { refreshSuggestions(); });
}

EditorTranscriptController::~EditorTranscriptController() {
    alive_.reset();
    cancelPreview();
    energyStop_.request_stop();
    energyQueue_.reset(); // waits for a reading in progress
    processingTask_.reset();
}

// ---- The transcript ------------------------------------------------------------------------

void EditorTranscriptController::prepare() {
    const auto& document = playback_.document();
    if (loadedDocumentURL_ && document && *loadedDocumentURL_ == document->documentURL &&
        editing_) {
        return;
    }
    resetLoadedTranscript();
    if (!document) {
        statusText_.set(std::string(kNoRecordingText));
        return;
    }
    loadedDocumentURL_ = document->documentURL;
    loadSpliceEnergyProfileIfNeeded();
    try {
        if (auto transcript = EditorTranscriptStore::load(*document)) {
            publishTranscript(std::move(*transcript));
            return;
        }
    } catch (const Error& error) {
        errorText_.set(error.what());
        return;
    }
    statusText_.set("Transcribe the recording to edit it by its words.");
}

void EditorTranscriptController::resetLoadedTranscript() {
    ++generation_;
    cancelPreview();
    processingTask_.reset();
    energyStop_.request_stop();
    energyStop_ = std::stop_source();
    editing_.reset();
    loadedDocumentURL_.reset();
    syncedTimeline_.reset();
    pendingProfile_.reset();
    dismissedSuggestions_.clear();
    hasTranscript_.set(false);
    visibleTranscript_.set({});
    wordParagraphs_.set({});
    wordEditTimes_.set({});
    collapsedWordRanges_.set({});
    cleanupSuggestions_.set({});
    selectedWordRange_.set(std::nullopt);
    transcriptCursorWordID_.set(std::nullopt);
    playheadWordID_.set(std::nullopt);
    statusText_.set("");
    errorText_.set("");
    nonfatalErrorText_.set("");
    missingModels_.set({});
    processing_.set(std::nullopt);
    isTranscribing_.set(false);
    isAligningTimestamps_.set(false);
    isFormattingParagraphs_.set(false);
    alignmentReport_.set(nullptr);
    hasSpliceEnergyProfile_.set(false);
}

void EditorTranscriptController::startTranscription(bool force) {
    const auto& document = playback_.document();
    if (!document) {
        errorText_.set(std::string(kNoRecordingText));
        return;
    }
    std::vector<std::string> missing;
    for (const auto& model : EditorTranscriptProcessingPipeline::missingModels()) {
        const bool named =
            (model.kind == LocalModelKind::speech && processingOptions_.speechModel) ||
            (model.kind == LocalModelKind::alignment && processingOptions_.alignmentBundle) ||
            (model.kind == LocalModelKind::language && processingOptions_.paragraphSuggester);
        if (!named) {
            missing.push_back(model.id);
        }
    }
    missingModels_.set(missing);
    if (!missing.empty()) {
        errorText_.set(std::string(kModelsRequiredText));
        statusText_.set(std::string(kModelsRequiredReason));
        return;
    }
    if (processingTask_ && !force) {
        return; // one run at a time
    }
    if (!loadedDocumentURL_ || *loadedDocumentURL_ != document->documentURL) {
        prepare();
    }
    processingTask_.reset();
    errorText_.set("");
    nonfatalErrorText_.set("");
    const uint64_t generation = ++generation_;
    EditorTranscriptProcessingTask::Callbacks callbacks;
    callbacks.progress = [this, generation](const EditorTranscriptProcessingProgress& progress) {
        if (generation == generation_) {
            applyProcessingStage(progress);
        }
    };
    callbacks.finished = [this, generation](EditorTranscriptProcessingResult result) {
        if (generation != generation_) {
            return;
        }
        nonfatalErrorText_.set(result.nonfatalError.value_or(""));
        if (result.alignmentReport) {
            alignmentReport_.set(std::make_shared<const PreciseWordTimingReport>(
                std::move(*result.alignmentReport)));
        }
        publishTranscript(std::move(result.transcript));
        finishProcessing();
        statusText_.set(result.nonfatalError.value_or(""));
    };
    callbacks.failed = [this, generation](const std::string& error) {
        if (generation != generation_) {
            return;
        }
        finishProcessing();
        errorText_.set(error);
    };
    const double duration =
        std::max(takeSourceDuration(document->manifest).seconds,
                 playback_.editorStore().project().timeline.sourceDuration.seconds);
    applyProcessingStage({EditorTranscriptProcessingStage::preparingAudio, std::nullopt});
    processingTask_ = std::make_unique<EditorTranscriptProcessingTask>(
        main_, EditorTranscriptProcessingPipeline(processingOptions_), *document, force, duration,
        std::move(callbacks));
}

void EditorTranscriptController::cancelTranscription() {
    if (!processingTask_) {
        return;
    }
    ++generation_;
    processingTask_.reset();
    finishProcessing();
    statusText_.set("");
}

const EditorTranscript* EditorTranscriptController::transcript() const {
    return editing_ ? &editing_->transcript() : nullptr;
}

void EditorTranscriptController::applyProcessingStage(
    const EditorTranscriptProcessingProgress& progress) {
    using Stage = EditorTranscriptProcessingStage;
    processing_.set(progress);
    statusText_.set(std::string(stageDescription(progress.stage)));
    isTranscribing_.set(progress.stage == Stage::preparingAudio ||
                        progress.stage == Stage::transcribing);
    isAligningTimestamps_.set(progress.stage == Stage::preparingAlignment ||
                              progress.stage == Stage::aligning);
    isFormattingParagraphs_.set(progress.stage == Stage::formatting);
}

void EditorTranscriptController::finishProcessing() {
    processing_.set(std::nullopt);
    isTranscribing_.set(false);
    isAligningTimestamps_.set(false);
    isFormattingParagraphs_.set(false);
    // The task has delivered its last word; its thread ends on its own.
    if (processingTask_) {
        main_.post([this, alive = std::weak_ptr<int>(alive_), generation = generation_] {
            if (!alive.expired() && generation == generation_) {
                processingTask_.reset();
            }
        });
    }
}

void EditorTranscriptController::publishTranscript(EditorTranscript transcript) {
    editing_ = std::make_unique<TranscriptTimelineEditing>(std::move(transcript), pendingProfile_);
    hasTranscript_.set(true);
    wordParagraphs_.set(editing_->paragraphs());
    if (editing_->transcript().analysis.words.empty()) {
        statusText_.set(std::string(stageDescription(EditorTranscriptProcessingStage::noSpeech)));
    }
    timelineChanged(true);
}

// ---- Following the timeline ------------------------------------------------------------------

void EditorTranscriptController::timelineChanged(bool force) {
    if (!editing_) {
        return;
    }
    const TimelineState& timeline = playback_.editorStore().project().timeline;
    if (!force && syncedTimeline_ && *syncedTimeline_ == timeline) {
        return;
    }
    syncedTimeline_ = timeline;
    collapsedWordRanges_.set(editing_->collapsedRanges(timeline, collapsedWordRanges_.value()));
    wordEditTimes_.set(editing_->editTimes(timeline));
    visibleTranscript_.set(
        layoutTranscriptText(editing_->paragraphs(), collapsedWordRanges_.value()));
    refreshSuggestions();
    refreshPlayheadWord();
}

void EditorTranscriptController::syncCollapsedRangesToTimeline() {
    timelineChanged(true);
}

void EditorTranscriptController::refreshSuggestions() {
    if (!editing_) {
        return;
    }
    std::optional<TranscriptCleanupAudioActivity> activity;
    if (const auto& waveform = playback_.systemAudioWaveform().value()) {
        activity =
            TranscriptCleanupAudioActivity::fromWaveform(waveform->peaks, waveform->duration);
    }
    auto suggestions =
        editing_->cleanupSuggestions(playback_.editorStore().project().timeline, activity);
    std::erase_if(suggestions, [&](const auto& suggestion) {
        return dismissedSuggestions_.contains(suggestion.id);
    });
    cleanupSuggestions_.set(std::move(suggestions));
}

void EditorTranscriptController::refreshPlayheadWord() {
    if (!editing_) {
        return;
    }
    const auto source =
        playback_.editTimeline().sourceTime(EditTime(playback_.timelinePlayheadTime().value()));
    playheadWordID_.set(source ? editing_->wordIDAt(source->seconds) : std::nullopt);
}

void EditorTranscriptController::loadSpliceEnergyProfileIfNeeded() {
    const auto& document = playback_.document();
    if (!document || pendingProfile_) {
        return;
    }
    if (!energyQueue_) {
        energyQueue_ = std::make_unique<SerialQueue>("com.orvelle.transcript.energy");
    }
    energyQueue_->post([this, document = *document, stop = energyStop_.get_token(),
                        alive = std::weak_ptr<int>(alive_)] {
        std::optional<TranscriptSpliceEnergyProfile> profile;
        try {
            profile = loadSpliceEnergyProfile(document, stop);
        } catch (const CancellationError&) {
            return;
        }
        if (!profile || stop.stop_requested()) {
            return;
        }
        auto boxed = std::make_shared<TranscriptSpliceEnergyProfile>(std::move(*profile));
        main_.post([this, alive, url = document.documentURL, boxed] {
            if (alive.expired() || loadedDocumentURL_ != url) {
                return; // another document opened meanwhile
            }
            pendingProfile_ = *boxed;
            if (editing_) {
                editing_->setSpliceEnergyProfile(*boxed);
            }
            hasSpliceEnergyProfile_.set(true);
        });
    });
}

// ---- Text editing ------------------------------------------------------------------------------

void EditorTranscriptController::updateWordSelection(std::optional<TranscriptTokenIDRange> range) {
    selectedWordRange_.set(range);
}

void EditorTranscriptController::updateSelectionFromCharacters(int begin, int end) {
    updateWordSelection(visibleTranscript_.value().tokenIDs(begin, end));
}

void EditorTranscriptController::placeCursor(int wordID) {
    cancelPreview();
    transcriptCursorWordID_.set(wordID);
    if (!editing_) {
        return;
    }
    for (const auto& token : editing_->tokens()) {
        if (token.id == wordID && token.startTime) {
            playback_.seekPlayer(playback_.editTimeline().editTime(SourceTime(*token.startTime)),
                                 false);
            return;
        }
    }
}

void EditorTranscriptController::cancelPreview() {
    previewPlayingSubscription_.cancel();
    if (previewTask_.joinable()) {
        previewTask_.request_stop();
        previewTask_.join();
    }
    if (isPreviewingSelection_.value()) {
        isPreviewingSelection_.set(false);
        playback_.pause();
    }
}

void EditorTranscriptController::previewSelection() {
    if (isPreviewingSelection_.value()) {
        cancelPreview(); // the same control stops it
        return;
    }
    cancelPreview();
    const auto selection = selectedWordRange_.value();
    if (!editing_ || !selection) {
        return;
    }
    const auto range =
        editing_->deletionRange(*selection, playback_.editorStore().project().timeline);
    if (!range) {
        return;
    }
    const auto edit = playback_.editTimeRange(SourceTime(range->start), SourceTime(range->end));
    if (!edit) {
        return;
    }
    const EditTime from = edit->lower;
    const double length = std::max(edit->upper.seconds - edit->lower.seconds, kShortestPreview);
    playback_.pause();
    isPreviewingSelection_.set(true);
    // The clock starts when the sound does, after the seek has settled; a pause by anyone
    // else ends the preview where it is.
    previewPlayingSubscription_ =
        playback_.isPlaying().observe([this, from, length](const bool& playing) {
            if (!isPreviewingSelection_.value()) {
                return;
            }
            if (!playing) {
                if (previewTask_.joinable()) {
                    main_.post([this, alive = std::weak_ptr<int>(alive_)] {
                        if (!alive.expired()) {
                            cancelPreview();
                        }
                    });
                }
                return;
            }
            if (previewTask_.joinable()) {
                return;
            }
            previewTask_ = std::jthread([this, from, length, alive = std::weak_ptr<int>(alive_),
                                         generation = generation_](const std::stop_token& stop) {
                std::mutex mutex;
                std::condition_variable_any wake;
                std::unique_lock lock(mutex);
                const bool stopped = wake.wait_for(
                    lock, stop, std::chrono::duration<double>(length), [] { return false; });
                if (stopped || stop.stop_requested()) {
                    return;
                }
                main_.post([this, from, alive, generation] {
                    if (alive.expired() || generation != generation_ ||
                        !isPreviewingSelection_.value()) {
                        return;
                    }
                    previewPlayingSubscription_.cancel();
                    isPreviewingSelection_.set(false);
                    playback_.pause();
                    playback_.seekPlayer(from, false, false);
                });
            });
        });
    playback_.seekPlayer(from, false, true);
}

void EditorTranscriptController::cutWordRange(const TranscriptTokenIDRange& range) {
    cancelPreview();
    if (!editing_) {
        return;
    }
    const auto cut = editing_->deletionRange(range, playback_.editorStore().project().timeline);
    if (!cut) {
        return;
    }
    const auto gap = playback_.deleteSourceRange(SourceTime(cut->start), SourceTime(cut->end));
    if (!gap) {
        syncCollapsedRangesToTimeline(); // the timeline may have changed in part
        return;
    }
    // The store's observer has folded the words into their marker already.
    selectedWordRange_.set(std::nullopt);
    transcriptCursorWordID_.set(std::nullopt);
}

void EditorTranscriptController::cutSelection() {
    if (const auto selection = selectedWordRange_.value()) {
        cutWordRange(*selection);
    }
}

void EditorTranscriptController::restoreCollapsedRange(const Uuid& id) {
    const auto& ranges = collapsedWordRanges_.value();
    const auto found = std::find_if(ranges.begin(), ranges.end(),
                                    [&](const auto& range) { return range.id == id; });
    if (found == ranges.end()) {
        return;
    }
    const EditorTranscriptCollapsedRange marker = *found;
    cancelPreview();
    playback_.finishTimelineEditTransactionIfNeeded();
    const auto clip = playback_.editorStore().restoreTimelineSourceRange(
        SourceTime(marker.sourceStart), SourceTime(marker.sourceEnd),
        TranscriptTimelineEditing::kMinimumCutDuration);
    if (clip) {
        playback_.rebuildScreenComposition(clip->start);
    }
    syncCollapsedRangesToTimeline();
}

bool EditorTranscriptController::activateLink(std::string_view link) {
    const auto action = parseTranscriptActionLink(link);
    if (!action) {
        return false;
    }
    if (action->cut) {
        cutWordRange(*action->cut);
    } else if (action->restore) {
        restoreCollapsedRange(*action->restore);
    }
    return true;
}

bool EditorTranscriptController::applyCleanupSuggestion(const std::string& id) {
    const auto& suggestions = cleanupSuggestions_.value();
    const auto found = std::find_if(suggestions.begin(), suggestions.end(),
                                    [&](const auto& suggestion) { return suggestion.id == id; });
    if (found == suggestions.end() || !editing_) {
        return false;
    }
    cancelPreview();
    const auto range =
        editing_->suggestionRange(*found, playback_.editorStore().project().timeline);
    if (!range) {
        return false;
    }
    return playback_.deleteSourceRange(SourceTime(range->start), SourceTime(range->end))
        .has_value();
}

void EditorTranscriptController::dismissCleanupSuggestion(const std::string& id) {
    dismissedSuggestions_.insert(id);
    refreshSuggestions();
}

} // namespace orvelle
