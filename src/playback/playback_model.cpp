#include "playback/playback_model.h"

#include "composition/render_frame_resolver.h"
#include "core/json.h"
#include "core/log.h"
#include "core/resources.h"
#include "project/media_asset_metadata.h"
#include "timeline/timeline_engine.h"
#include "timeline_media/project_composition.h"
#include "timeline_media/voice_activity_detector.h"

#include <algorithm>
#include <cmath>
#include <functional>

namespace orvelle {

namespace {

std::filesystem::path resourcesOr(const std::filesystem::path& given) {
    return given.empty() ? resourcesDirectory() : given;
}

std::optional<std::filesystem::path> firstURL(const TakeManifest& manifest,
                                              MediaTrackManifest::Kind kind) {
    const auto segments = manifest.segmentsFor(kind);
    if (segments.empty()) {
        return std::nullopt;
    }
    return segments.front().url;
}

// The media a document plays, read off the main thread.
struct LoadedSource {
    TimelineCompositionSource source;
    std::vector<TimelineCompositionVideoSegment> cameraSegments;
    std::optional<Size> cameraNaturalSize;
};

} // namespace

PlaybackModel::PlaybackModel(EditorStore& store, Executor& mainExecutor,
                             PlaybackModelOptions options)
    : store_(store), main_(mainExecutor), options_(std::move(options)), sessions_(store),
      gestures_(store, sessions_),
      player_(std::make_unique<CompositionPlayer>(mainExecutor, options_.player)),
      session_(*player_),
      clickSoundPlayer_(player_->audio(), resourcesOr(options_.resourcesDirectory)),
      defaultCameraZoomScale_(options_.defaultCameraZoomScale),
      loadQueue_(std::make_unique<SerialQueue>("com.orvelle.playback.load")) {
    player_->setPeriodicTimeObserver(1.0 / player_->frameRate(),
                                     [this](double time) { handleEditTimeTick(time); });
    player_->setEndObserver([this] { playerReachedEnd(); });
    // Shown frames arrive on the player's thread; the number is published on the main one,
    // once for any run of frames shown before it gets there. The observer touches nothing
    // of the model but what it owns, since it may run while the model goes away.
    std::weak_ptr<int> alive = alive_;
    frameSubscription_ =
        player_->addFrameObserver([this, alive, queued = frameNumberQueued_, &main = main_](
                                      const std::shared_ptr<const PreviewFrame>& frame) {
            if (queued->exchange(true)) {
                return;
            }
            main.post([this, alive, queued, number = frame->number] {
                if (!alive.lock()) {
                    return;
                }
                queued->store(false);
                const auto current = player_->currentFrame();
                previewFrameNumber_.set(current ? current->number : number);
            });
        });
    projectSubscription_ = store_.observeProject(
        [this](const EditorProjectState& project) { projectChanged(project); });
}

PlaybackModel::~PlaybackModel() {
    stop_.request_stop();
    alive_.reset();
    projectSubscription_.cancel();
    loadQueue_.reset();
    frameSubscription_.cancel();
}

// ---- Background work ------------------------------------------------------------------------

template <class Result>
void PlaybackModel::runInBackground(std::function<Result(const std::stop_token&)> work,
                                    std::function<void(Result)> deliver) {
    ++pendingLoadTasks_;
    std::weak_ptr<int> alive = alive_;
    loadQueue_->post([this, work = std::move(work), deliver = std::move(deliver), alive,
                      token = stop_.get_token()]() mutable {
        if (token.stop_requested()) {
            return;
        }
        Result result{};
        try {
            result = work(token);
        } catch (const std::exception& error) {
            logWarning("playback", "a part of the document could not be loaded: ", error.what());
        }
        main_.post(
            [this, alive, deliver = std::move(deliver), result = std::move(result)]() mutable {
                if (!alive.lock()) {
                    return;
                }
                --pendingLoadTasks_;
                deliver(std::move(result));
            });
    });
}

// ---- The document ------------------------------------------------------------------------------

void PlaybackModel::load(const EditorDocument& document) {
    const uint64_t generation = ++loadGeneration_;
    pause();
    screenCompositionSource_.reset();
    cameraSegments_.clear();
    screenAudioLayout_.reset();
    builtInputs_.reset();
    motionInputs_.reset();
    publishedSnapshot_.reset();
    rebuildScheduled_ = false;
    scheduledFallback_.reset();
    visualTransition_.reset();
    previousTickEditTime_.reset();
    previousTickSourceTime_.reset();
    player_->replaceCurrentItem(nullptr);

    document_ = document;
    currentURL_ = document.documentURL;
    shouldResetTimelineOnLoad_ = !document.hasSavedProject;
    defaultCameraZoomScale_ = document.project.screen.zoomScale;

    const auto cursorURL = firstURL(document.manifest, MediaTrackManifest::Kind::cursor);
    cursorRecording_ = RenderComposition::cursorRecording(cursorURL, document.screenURL);
    motion_ = PlaybackMotionEngine();
    motion_.setRecording(cursorRecording_);
    currentCursorTime_.set(0);
    timelinePlayheadTime_.set(0);

    ++seekGeneration_;
    pendingSeekGeneration_.reset();
    isReplacingScreenItem_ = false;
    sessions_.resetAll();
    voiceIntervals_.set({});
    systemAudioWaveform_.set(std::nullopt);
    voiceWaveform_.set(std::nullopt);
    musicWaveforms_.set({});
    musicSegmentsSeen_.clear();
    cameraNaturalSize_.set(std::nullopt);
    hasCompositionSource_.set(false);

    store_.replaceProject(document, false);
    if (shouldResetTimelineOnLoad_) {
        store_.resetTimeline(SourceTime(0), defaultCameraZoomScale_, cursorRecording_.samples,
                             cursorRecording_.clicks);
    }
    refreshMotionTracks(store_.project(), true);

    const TakeManifest manifest = document.project.manifest;
    const AudioSettings audio = store_.project().audio;
    const NoiseReductionCache cache = options_.noiseReductionCache;
    runInBackground<std::optional<LoadedSource>>(
        [manifest, audio, cache](const std::stop_token&) -> std::optional<LoadedSource> {
            auto source = TimelineCompositionSource::load(
                manifest, denoisedMicrophoneURLs(manifest, audio, cache));
            if (!source) {
                return std::nullopt;
            }
            LoadedSource loaded{std::move(*source),
                                TimelineCompositionSource::loadVideoSegments(
                                    manifest, MediaTrackManifest::Kind::camera),
                                std::nullopt};
            if (const auto camera = firstURL(manifest, MediaTrackManifest::Kind::camera)) {
                if (const auto size = MediaAssetMetadata::naturalVideoSize(*camera)) {
                    loaded.cameraNaturalSize = Size{size->width, size->height};
                }
            }
            return loaded;
        },
        [this, generation](std::optional<LoadedSource> loaded) {
            if (generation != loadGeneration_) {
                return;
            }
            if (!loaded) {
                logWarning("playback", "the screen recording of the document cannot be played");
                return;
            }
            screenCompositionSource_ = std::move(loaded->source);
            cameraSegments_ = std::move(loaded->cameraSegments);
            cameraNaturalSize_.set(loaded->cameraNaturalSize);
            session_.hasCameraOverlay = loaded->cameraNaturalSize.has_value();
            session_.hasMicrophoneAudio =
                !screenCompositionSource_->audioSourcesFor(TimelineCompositionAudioRole::microphone)
                     .empty();
            hasCompositionSource_.set(true);
            if (shouldResetTimelineOnLoad_) {
                shouldResetTimelineOnLoad_ = false;
                resetTimeline();
            }
            projectChanged(store_.project());
        });

    const auto microphone = manifest.segmentsFor(MediaTrackManifest::Kind::microphone);
    runInBackground<std::vector<VoiceInterval>>(
        [microphone](const std::stop_token&) {
            return VoiceActivityDetector::sourceIntervals(microphone);
        },
        [this, generation](std::vector<VoiceInterval> intervals) {
            if (generation != loadGeneration_) {
                return;
            }
            voiceIntervals_.set(std::move(intervals));
            projectChanged(store_.project()); // the music ducks under the speech
        });

    const auto waveformOf = [](std::optional<std::filesystem::path> url) {
        return [url = std::move(url)](const std::stop_token&) -> std::optional<Waveform> {
            if (!url) {
                return std::nullopt;
            }
            try {
                return WaveformExtractor::extractWaveform(
                    *url, VoiceActivityDetector::kWaveformBucketCount);
            } catch (const Error& error) { // a track without sound draws no waveform
                logInfo("playback", "no waveform for ", url->string(), ": ", error.what());
                return std::nullopt;
            }
        };
    };
    runInBackground<std::optional<Waveform>>(
        waveformOf(firstURL(manifest, MediaTrackManifest::Kind::systemAudio)),
        [this, generation](std::optional<Waveform> waveform) {
            if (generation == loadGeneration_) {
                systemAudioWaveform_.set(std::move(waveform));
            }
        });
    runInBackground<std::optional<Waveform>>(
        waveformOf(firstURL(manifest, MediaTrackManifest::Kind::microphone)),
        [this, generation](std::optional<Waveform> waveform) {
            if (generation == loadGeneration_) {
                voiceWaveform_.set(std::move(waveform));
            }
        });
    const auto music = manifest.segmentsFor(MediaTrackManifest::Kind::music);
    runInBackground<std::map<std::string, Waveform>>(
        [music](const std::stop_token& stop) {
            std::map<std::string, Waveform> waveforms;
            for (const auto& segment : music) {
                if (stop.stop_requested()) {
                    break;
                }
                try {
                    waveforms[segment.id] = WaveformExtractor::extractWaveform(
                        segment.url, VoiceActivityDetector::kWaveformBucketCount);
                } catch (const Error& error) {
                    logInfo("playback", "no waveform for ", segment.url.string(), ": ",
                            error.what());
                }
            }
            return waveforms;
        },
        [this, generation](std::map<std::string, Waveform> waveforms) {
            if (generation == loadGeneration_) {
                musicWaveforms_.set(std::move(waveforms));
            }
        });
}

void PlaybackModel::resetTimeline() {
    if (!screenCompositionSource_) {
        return;
    }
    motion_.frameMotion = {};
    motion_.lastCursorTime.reset();
    visualTransition_.reset();
    sessions_.resetAll();
    store_.resetTimeline(SourceTime(screenCompositionSource_->duration), defaultCameraZoomScale_,
                         cursorRecording_.samples, cursorRecording_.clicks);
}

// ---- Following the store ----------------------------------------------------------------------

void PlaybackModel::projectChanged(const EditorProjectState& project) {
    if (!document_) {
        return;
    }
    const bool styleChanged =
        !motionInputs_ || motionInputs_->animation.screenStyle != project.animation.screenStyle;
    refreshMotionTracks(project, styleChanged);
    if (!screenCompositionSource_) {
        return;
    }
    loadNewMusicSegments(project.manifest);
    if (!builtInputs_ || *builtInputs_ != compositionInputs(project) || rebuildScheduled_) {
        // A trim puts the playhead on the edge it moves.
        if (sessions_.pendingTimelineEditFallbackSourceTime) {
            scheduledFallback_ = sessions_.pendingTimelineEditFallbackSourceTime;
        }
        scheduleRebuild();
        return;
    }
    publishGeometry();
}

void PlaybackModel::loadNewMusicSegments(const TakeManifest& manifest) {
    for (const auto& segment : manifest.segmentsFor(MediaTrackManifest::Kind::music)) {
        if (screenCompositionSource_->musicSources.contains(segment.id) ||
            !musicSegmentsSeen_.insert(segment.id).second) {
            continue;
        }
        using Loaded =
            std::optional<std::pair<TimelineCompositionMusicSource, std::optional<Waveform>>>;
        const uint64_t generation = loadGeneration_;
        const std::filesystem::path url = segment.url;
        runInBackground<Loaded>(
            [url](const std::stop_token&) -> Loaded {
                auto source = TimelineCompositionSource::loadMusicSource(url);
                if (!source) {
                    logInfo("playback", "no sound in the music file ", url.string());
                    return std::nullopt;
                }
                std::optional<Waveform> waveform;
                try {
                    waveform = WaveformExtractor::extractWaveform(
                        url, VoiceActivityDetector::kWaveformBucketCount);
                } catch (const Error& error) {
                    logInfo("playback", "no waveform for ", url.string(), ": ", error.what());
                }
                return std::pair{std::move(*source), std::move(waveform)};
            },
            [this, generation, id = segment.id](Loaded loaded) {
                if (generation != loadGeneration_ || !screenCompositionSource_ || !loaded) {
                    return;
                }
                screenCompositionSource_->musicSources[id] = std::move(loaded->first);
                if (loaded->second) {
                    auto waveforms = musicWaveforms_.value();
                    waveforms[id] = std::move(*loaded->second);
                    musicWaveforms_.set(std::move(waveforms));
                }
                scheduleRebuild();
            });
    }
}

PlaybackModel::CompositionInputs
PlaybackModel::compositionInputs(const EditorProjectState& project) const {
    // Speech only shapes the music's ducking.
    return {project.timeline, project.audio, project.music.clips,
            project.music.clips.empty() ? std::vector<VoiceInterval>{} : voiceIntervals_.value()};
}

void PlaybackModel::scheduleRebuild() {
    // Until it runs, ticks would map the old composition's time through the new timeline.
    isReplacingScreenItem_ = true;
    if (rebuildScheduled_) {
        return;
    }
    rebuildScheduled_ = true;
    std::weak_ptr<int> alive = alive_;
    const uint64_t generation = loadGeneration_;
    main_.post([this, alive, generation] {
        if (!alive.lock() || generation != loadGeneration_ || !rebuildScheduled_) {
            return;
        }
        const auto fallback = scheduledFallback_;
        scheduledFallback_.reset();
        if (!sessions_.trimSession) {
            sessions_.pendingTimelineEditFallbackSourceTime.reset();
        }
        rebuildScreenComposition(fallback);
    });
}

void PlaybackModel::refreshMotionTracks(const EditorProjectState& project, bool styleChanged) {
    const bool planChanged =
        !motionInputs_ || motionInputs_->animation != project.animation ||
        motionInputs_->timeline != project.timeline ||
        motionInputs_->background.paddingAmount != project.background.paddingAmount ||
        motionInputs_->screen.zoomScale != project.screen.zoomScale;
    if (!styleChanged && !planChanged) {
        return;
    }
    motionInputs_ = project;
    refreshEditTimelineCacheIfNeeded();
    const ResolvedEditTimeline& timeline = *cachedResolvedEditTimeline_;
    const auto resolution = [&project, &timeline](double sourceTime) {
        return ZoomAnimationEnvelope::resolvedState(
            timeline.editTime(SourceTime(sourceTime)), project.animation.zoomClips,
            project.screen.zoomScale, project.animation.screenStyle);
    };
    const CameraMotionPlanner::PlanningFunction zoomScaleAt = [&](double sourceTime) {
        return ZoomFraming::cameraPlanningZoomScale(resolution(sourceTime),
                                                    project.background.paddingAmount);
    };
    const CameraMotionPlanner::PlanningFunction centerBiasAt = [&](double sourceTime) {
        return resolution(sourceTime).centerBias;
    };
    if (styleChanged) {
        motion_.configure(project.animation.screenStyle);
        motion_.rebuildPreparedSamples(zoomScaleAt, centerBiasAt);
    } else {
        motion_.rebuildCameraSamples(zoomScaleAt, centerBiasAt);
    }
}

std::shared_ptr<PreviewGeometry> PlaybackModel::makeGeometry() const {
    auto geometry = std::make_shared<PreviewGeometry>();
    RenderFrameSource& source = geometry->source;
    source.project = store_.project();
    if (!(source.project.timeline.sourceDuration.seconds > 0)) {
        source.project.timeline.sourceDuration = SourceTime(screenCompositionSource_->duration);
    }
    source.cursorRecording = cursorRecording_;
    const TimelineCompositionSource& media = *screenCompositionSource_;
    const Size previewSize = player_->previewSize();
    source.sourceNaturalSize = media.naturalWidth > 0 && media.naturalHeight > 0
                                   ? Size{media.naturalWidth, media.naturalHeight}
                                   : previewSize;
    source.cameraNaturalSize = cameraNaturalSize_.value();
    source.stageSize = previewSize;

    // Equal projects of one document draw equal frames.
    const std::string identity = JsonCoder<EditorProjectState>::encode(source.project).dump();
    uint64_t key = std::hash<std::string>{}(identity);
    const auto mix = [&key](double value) {
        key ^= std::hash<double>{}(value) + 0x9e3779b97f4a7c15ULL + (key << 6) + (key >> 2);
    };
    mix(static_cast<double>(loadGeneration_));
    mix(source.sourceNaturalSize.width);
    mix(source.sourceNaturalSize.height);
    mix(source.cameraNaturalSize ? source.cameraNaturalSize->width : -1);
    mix(source.cameraNaturalSize ? source.cameraNaturalSize->height : -1);
    geometry->snapshotKey = key;
    return geometry;
}

void PlaybackModel::publishGeometry() {
    if (!screenCompositionSource_ || !document_) {
        return;
    }
    auto geometry = makeGeometry();
    if (publishedSnapshot_ == geometry->snapshotKey) {
        return;
    }
    publishedSnapshot_ = geometry->snapshotKey;
    player_->setGeometry(std::move(geometry));
}

// ---- The timeline cache and mappings ----------------------------------------------------------

void PlaybackModel::refreshEditTimelineCacheIfNeeded() {
    const TimelineState& state = store_.project().timeline;
    if (cachedEditTimelineState_ &&
        cachedEditTimelineState_->sourceDuration == state.sourceDuration &&
        cachedEditTimelineState_->clips == state.clips &&
        cachedEditTimelineState_->deletedGaps == state.deletedGaps) {
        return;
    }
    cachedEditTimelineState_ = state;
    cachedEditTimeline_ = EditTimeline::from(state);
    cachedResolvedEditTimeline_.emplace(*cachedEditTimeline_);
}

const ResolvedEditTimeline& PlaybackModel::editTimeline() {
    refreshEditTimelineCacheIfNeeded();
    return *cachedResolvedEditTimeline_;
}

std::optional<EditTimeRange> PlaybackModel::editTimeRange(SourceTime start, SourceTime end) {
    const ResolvedEditTimeline& timeline = editTimeline();
    if (!(end.seconds > start.seconds)) {
        return std::nullopt;
    }
    std::optional<EditTimeRange> range;
    for (const TimelineClipLayout& layout : timeline.clipLayouts()) {
        const double from = std::max(start.seconds, layout.sourceStart.seconds);
        const double to = std::min(end.seconds, layout.sourceEnd.seconds);
        if (!(to > from)) {
            continue;
        }
        const EditTime a = timeline.editTime(SourceTime(from));
        const EditTime b = timeline.editTime(SourceTime(to));
        if (!range) {
            range = EditTimeRange{a, b};
        } else {
            range->lower = EditTime(std::min(range->lower.seconds, a.seconds));
            range->upper = EditTime(std::max(range->upper.seconds, b.seconds));
        }
    }
    return range;
}

double PlaybackModel::playbackRate(double sourceSeconds) {
    const ResolvedEditTimeline& timeline = editTimeline();
    const auto index = TimelineEngine::clipIndex(SourceTime(sourceSeconds), timeline.clips());
    return index ? sanitisedClipSpeed(timeline.clips()[*index].speed) : 1.0;
}

AnimationPlaybackState PlaybackModel::animationState(EditTime time) const {
    const EditorProjectState& project = store_.project();
    return ZoomAnimationEnvelope::animationState(
        time, project.animation.zoomClips, defaultCameraZoomScale_, project.animation.screenStyle);
}

double PlaybackModel::effectiveZoomScale(SourceTime time) {
    const EditTime editTime = editTimeline().editTime(time);
    const EditorProjectState& project = store_.project();
    return ZoomAnimationEnvelope::resolvedState(editTime, project.animation.zoomClips,
                                                defaultCameraZoomScale_,
                                                project.animation.screenStyle)
        .effectiveZoomScale();
}

double PlaybackModel::cameraPlanningZoomScale(SourceTime time) {
    const EditTime editTime = editTimeline().editTime(time);
    const EditorProjectState& project = store_.project();
    return ZoomFraming::cameraPlanningZoomScale(
        ZoomAnimationEnvelope::resolvedState(editTime, project.animation.zoomClips,
                                             defaultCameraZoomScale_,
                                             project.animation.screenStyle),
        project.background.paddingAmount);
}

double PlaybackModel::cameraPlanningCenterBias(SourceTime time) {
    const EditTime editTime = editTimeline().editTime(time);
    const EditorProjectState& project = store_.project();
    return ZoomAnimationEnvelope::resolvedState(editTime, project.animation.zoomClips,
                                                defaultCameraZoomScale_,
                                                project.animation.screenStyle)
        .centerBias;
}

// ---- Playing
// --------------------------------------------------------------------------------------

void PlaybackModel::play() {
    if (!document_ || !screenCompositionSource_) {
        return;
    }
    const double duration = editTimeline().duration();
    const double playhead = timelinePlayheadTime_.value();
    if (duration > 0 && playhead >= duration - kEndTolerance) {
        seekPlayer(EditTime(0), false, true);
        return;
    }
    seekPlayer(EditTime(playhead), false, true);
}

void PlaybackModel::pause() {
    const bool wasPlaying = player_->isPlaying();
    session_.pause();
    motion_.frameMotion = {};
    frameMotion_.set({});
    isPlaying_.set(false);
    if (wasPlaying) {
        timelinePlayheadTime_.set(player_->currentTime());
    }
}

void PlaybackModel::cyclePlaybackSpeed() {
    const double rate = session_.workflowRate();
    applyWorkflowRate(rate < 2 ? 2.0 : rate < 4 ? 4.0 : 1.0);
}

void PlaybackModel::applyWorkflowRate(double rate) {
    session_.applyWorkflowRate(rate);
    workflowRate_.set(session_.workflowRate());
}

void PlaybackModel::seekPlayer(EditTime time, bool triggerClicks,
                               std::optional<bool> resumePlayback) {
    const ResolvedEditTimeline& timeline = editTimeline();
    const double held =
        std::clamp(std::isfinite(time.seconds) ? time.seconds : 0.0, 0.0, timeline.duration());
    const SourceTime source = timeline.sourceTime(EditTime(held)).value_or(SourceTime(0));
    // A time on a cut settles on the frame after it.
    const EditTime settled = timeline.editTime(source);
    const bool resume = resumePlayback.value_or(player_->isPlaying() || isPlaying_.value());

    player_->cancelPendingSeeks();
    session_.pause();
    const uint64_t generation = ++seekGeneration_;
    pendingSeekGeneration_ = generation;
    timelinePlayheadTime_.set(settled.seconds);
    session_.seekScreen(
        settled, [this, generation, source, settled, triggerClicks, resume](bool /*finished*/) {
            if (generation != seekGeneration_) {
                return;
            }
            pendingSeekGeneration_.reset();
            previousTickEditTime_ = settled.seconds;
            previousTickSourceTime_ = source.seconds;
            setPlaybackState(source.seconds, triggerClicks, std::nullopt);
            if (resume) {
                session_.play(playbackRate(source.seconds), source.seconds);
                isPlaying_.set(true);
            } else {
                isPlaying_.set(false);
            }
        });
}

void PlaybackModel::handleEditTimeTick(double editTime) {
    if (isReplacingScreenItem_ || pendingSeekGeneration_) {
        return;
    }
    if (!std::isfinite(editTime)) {
        return;
    }
    const ResolvedEditTimeline& timeline = editTimeline();
    const double source = timeline.sourceTime(EditTime(editTime)).value_or(SourceTime(0)).seconds;
    const bool playing = player_->isPlaying();
    if (playing && previousTickEditTime_ && previousTickSourceTime_) {
        const double sourceDelta = source - *previousTickSourceTime_;
        const double editDelta = editTime - *previousTickEditTime_;
        if (isVisualJump(sourceDelta, editDelta, playbackRate(source))) {
            beginVisualTransition(sourceDelta, editTime);
        }
    }
    previousTickEditTime_ = editTime;
    previousTickSourceTime_ = source;
    timelinePlayheadTime_.set(editTime);
    setPlaybackState(source, true, editTime);
}

FrameVisualState PlaybackModel::targetVisualState(double sourceTime, double editTime) const {
    const AnimationPlaybackState zoom = animationState(EditTime(editTime));
    return {motion_.cursorPoint(sourceTime), motion_.cameraPoint(sourceTime), zoom.amount,
            zoom.zoomScale, zoom.manualOffset};
}

void PlaybackModel::beginVisualTransition(double sourceDelta, double editTime) {
    if (const auto transition =
            PlaybackVisualTransition::begin(sourceDelta, editTime, visualState_.value())) {
        visualTransition_ = transition;
    }
}

void PlaybackModel::setPlaybackState(double sourceTime, bool triggerClicks,
                                     std::optional<double> visualEditTime) {
    const ResolvedEditTimeline& timeline = editTimeline();
    const double source =
        std::clamp(sourceTime, 0.0, std::max(timeline.sourceDuration().seconds, 0.0));
    currentCursorTime_.set(source);
    const double editTime = visualEditTime.value_or(timeline.editTime(SourceTime(source)).seconds);

    FrameVisualState shown = targetVisualState(source, editTime);
    if (visualTransition_ && (!triggerClicks || visualEditTime)) {
        if (const auto blended = visualTransition_->apply(editTime, shown)) {
            shown = *blended;
        } else {
            visualTransition_.reset();
        }
    }
    visualState_.set(shown);

    const bool forward = triggerClicks && player_->isPlaying();
    const double effective = (shown.cameraZoomScale - 1) * shown.cameraAnimationAmount + 1;
    frameMotion_.set(motion_.updateVelocities(editTime, forward, shown.cameraPoint, effective));

    if (!triggerClicks) {
        motion_.resetClickIndex(source);
    }
    updateClicks(source);
}

void PlaybackModel::updateClicks(double sourceTime) {
    const int count =
        motion_.updateClicks(sourceTime, player_->isPlaying(), editTimeline().clips());
    const EditorProjectState& project = store_.project();
    for (int i = 0; i < count; ++i) {
        cursorClickTrigger_.set(cursorClickTrigger_.value() + 1);
        if (project.audio.isEnabled) {
            clickSoundPlayer_.playNormal(project.cursor.clickSoundVolume);
        }
    }
}

void PlaybackModel::playerReachedEnd() {
    pause();
    seekPlayer(EditTime(0), false, std::nullopt);
}

void PlaybackModel::rebuildScreenComposition(std::optional<SourceTime> fallbackSourceTime) {
    const uint64_t generation = ++rebuildGeneration_;
    rebuildScheduled_ = false;
    if (!screenCompositionSource_) {
        return;
    }
    const ResolvedEditTimeline& timeline = editTimeline();
    const EditorProjectState& project = store_.project();
    builtInputs_ = compositionInputs(project);
    const SourceTime duration = project.timeline.sourceDuration.seconds > 0
                                    ? project.timeline.sourceDuration
                                    : SourceTime(screenCompositionSource_->duration);
    const auto clips = RenderComposition::normalizedTimelineClips(project.timeline.clips, duration);
    auto made = TimelineComposition::make(clips, *screenCompositionSource_, project.audio,
                                          project.music.clips, voiceIntervals_.value());
    std::shared_ptr<PlayerItem> item;
    if (made) {
        screenAudioLayout_ = made->audioLayout;
        item = std::make_shared<PlayerItem>();
        item->composition = std::move(made->composition);
        item->audioMix = std::move(made->audioMix);
        item->screenTrackID = made->videoTrackID;
        item->cameraTrackID =
            TimelineComposition::insertCameraTrack(item->composition, cameraSegments_, clips);
        item->duration = timeline.duration();
    } else {
        screenAudioLayout_.reset();
    }

    // The playhead stays on its material, moved to the nearest time that plays.
    const SourceTime wanted = fallbackSourceTime.value_or(SourceTime(currentCursorTime_.value()));
    const std::optional<SourceTime> playable = timeline.playableTimeAtOrAfter(wanted)
                                                   ? timeline.playableTimeAtOrAfter(wanted)
                                                   : timeline.playableTimeAtOrBefore(wanted);
    const EditTime target = playable ? timeline.editTime(*playable) : EditTime(0);

    ++seekGeneration_;
    isReplacingScreenItem_ = true;
    auto geometry = makeGeometry();
    publishedSnapshot_ = geometry->snapshotKey;
    player_->replaceCurrentItem(std::move(item), std::move(geometry), [this, generation, target] {
        if (generation != rebuildGeneration_) {
            return;
        }
        isReplacingScreenItem_ = false;
        seekPlayer(target, false, std::nullopt);
    });
}

// ---- Gestures
// ------------------------------------------------------------------------------------

void PlaybackModel::trimClip(const Uuid& id, TimelineTrimEdge edge, EditTime delta,
                             bool rippleFollows) {
    gestures_.trimClip(id, edge, delta, rippleFollows);
}

void PlaybackModel::moveClip(const Uuid& id, EditTime delta) {
    gestures_.moveClip(id, delta);
}

std::optional<TimelineRipple::Session>
PlaybackModel::makeRippleSession(const Uuid& clipID, TimelineTrimEdge edge) const {
    return gestures_.makeRippleSession(clipID, edge);
}

void PlaybackModel::applyRippleFollow(const TimelineClip& trimmedClip, bool enabled) {
    gestures_.applyRippleFollow(trimmedClip, enabled);
}

void PlaybackModel::moveRangeClip(AuxiliaryTimelineTrack track, const Uuid& id, EditTime delta) {
    gestures_.moveRangeClip(track, id, delta);
}

void PlaybackModel::resizeRangeClip(AuxiliaryTimelineTrack track, const Uuid& id,
                                    TimelineTrimEdge edge, EditTime delta) {
    gestures_.resizeRangeClip(track, id, edge, delta);
}

void PlaybackModel::finishTimelineEdit() {
    gestures_.finishTimelineEdit();
}

void PlaybackModel::finishRangeClipEdit(AuxiliaryTimelineTrack track) {
    gestures_.finishRangeClipEdit(track);
}

void PlaybackModel::finishAllEditSessions() {
    gestures_.finishAllEditSessions();
}

std::optional<DeletedTimelineGap> PlaybackModel::deleteSourceRange(SourceTime start,
                                                                   SourceTime end) {
    finishAllEditSessions();
    return gestures_.deleteSourceRange(start, end);
}

std::optional<EditorProjectHistoryChange> PlaybackModel::undo() {
    finishAllEditSessions();
    auto change = gestures_.undo();
    if (change) {
        applyProjectHistoryChange(*change);
    }
    return change;
}

std::optional<EditorProjectHistoryChange> PlaybackModel::redo() {
    finishAllEditSessions();
    auto change = gestures_.redo();
    if (change) {
        applyProjectHistoryChange(*change);
    }
    return change;
}

void PlaybackModel::applyProjectHistoryChange(const EditorProjectHistoryChange& /*change*/) {
    // The store told its observers already; what is left is a gesture that was open.
    finishAllEditSessions();
    projectChanged(store_.project());
}

// ---- The picture
// ------------------------------------------------------------------------------------

void PlaybackModel::setPreviewSize(Size size) {
    player_->setPreviewSize(size);
}

std::shared_ptr<const PreviewFrame> PlaybackModel::currentPreviewFrame() const {
    return player_->currentFrame();
}

} // namespace orvelle
