#pragma once

// The playback of the open document: the main-thread object that joins the editor store
// to the player. It follows the edit while the movie plays (each tick of the player maps
// edit time to source time, feeds the motion engine, glides across cuts and sounds the
// clicks), seeks, rebuilds the playable composition when the edit changes with the
// playhead kept in playable time, and is where the timeline's gestures go.
//
// Main thread only: the executor given is the main thread (the Qt event loop in the app,
// a RunLoop in the command and the tests); background work runs on a queue of its own and
// comes back there. Every asynchronous result carries the generation it was started in
// and is dropped without a word when a newer one exists.
//
// What a view reads is published (`Published<T>`: value() and observe()). The preview's
// picture is drawn by the player with the export's renderer at the size the view sets:
// observe previewFrameNumber and paint currentPreviewFrame().

#include "editor/edit_session_coordinator.h"
#include "editor/editor_store.h"
#include "editor/published.h"
#include "editor/timeline_edit_gestures.h"
#include "motion/playback_motion_engine.h"
#include "motion/visual_transition.h"
#include "playback/composition_player.h"
#include "playback/cursor_click_sound_player.h"
#include "playback/media_playback_session.h"
#include "timeline_media/noise_reduction_cache.h"
#include "timeline_media/timeline_composition.h"
#include "timeline_media/waveform_extractor.h"

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

namespace orvelle {

struct PlaybackModelOptions {
    CompositionPlayerOptions player;
    std::filesystem::path resourcesDirectory; // empty: the program's own
    NoiseReductionCache noiseReductionCache;
    double defaultCameraZoomScale = 1.5;
};

class PlaybackModel {
public:
    static constexpr double kEndTolerance = 0.03;

    PlaybackModel(EditorStore& store, Executor& mainExecutor, PlaybackModelOptions options = {});
    ~PlaybackModel();
    PlaybackModel(const PlaybackModel&) = delete;
    PlaybackModel& operator=(const PlaybackModel&) = delete;

    // ---- The document -------------------------------------------------------------------

    // Opens a document: the store takes its project (a take never saved as a project gets
    // its timeline once the length of its media is known), the pointer data goes to the
    // motion engine, and the media, waveforms, speech and camera size load in the
    // background. A document whose screen cannot be played stays open without a
    // composition source, and play() does nothing.
    void load(const EditorDocument& document);
    const std::optional<EditorDocument>& document() const { return document_; }
    const std::optional<std::filesystem::path>& currentURL() const { return currentURL_; }
    const std::optional<TimelineCompositionSource>& screenCompositionSource() const {
        return screenCompositionSource_;
    }
    const std::optional<TimelineCompositionAudioLayout>& screenAudioLayout() const {
        return screenAudioLayout_;
    }
    const CursorRecording& cursorRecording() const { return cursorRecording_; }
    // Seeds the timeline over the whole source with zooms from the pointer data.
    void resetTimeline();

    // ---- Playing ----------------------------------------------------------------------------

    // From the playhead, or from the start when the playhead is within 0.03 s of the end.
    void play();
    // Pauses, and no blur is left on the frame.
    void pause();
    // The workflow rate steps 1, 2, 4 and round again.
    void cyclePlaybackSpeed();
    void applyWorkflowRate(double rate);
    // Seeks to the edit time; a time on a cut settles on the frame after it. A seek never
    // sounds the clicks it passes. Without resumePlayback the playing state is kept.
    void seekPlayer(EditTime time, bool triggerClicks,
                    std::optional<bool> resumePlayback = std::nullopt);
    // The player's periodic observer, with its clock in edit time.
    void handleEditTimeTick(double editTime);
    // The sanitised speed of the clip playing a source time, 1 outside every clip.
    double playbackRate(double sourceSeconds);
    // A new composition after the edit changed; the playhead stays on the material it was
    // on, or the fallback source time, moved to the nearest playable time.
    void rebuildScreenComposition(std::optional<SourceTime> fallbackSourceTime = std::nullopt);

    // ---- Time and zoom ---------------------------------------------------------------------

    // The timeline as resolved for the store's present timeline (rebuilt only on change).
    const ResolvedEditTimeline& editTimeline();
    // The edit-time extent (lower, upper) of a source range; absent when none of it plays.
    std::optional<EditTimeRange> editTimeRange(SourceTime start, SourceTime end);
    AnimationPlaybackState animationState(EditTime time) const;
    // At the edit time the source time maps to; 0 when it maps to none.
    double effectiveZoomScale(SourceTime time);
    double cameraPlanningZoomScale(SourceTime time);
    double cameraPlanningCenterBias(SourceTime time);
    double defaultCameraZoomScale() const { return defaultCameraZoomScale_; }

    // ---- Gestures ---------------------------------------------------------------------------

    void trimClip(const Uuid& id, TimelineTrimEdge edge, EditTime delta, bool rippleFollows);
    void moveClip(const Uuid& id, EditTime delta);
    std::optional<TimelineRipple::Session> makeRippleSession(const Uuid& clipID,
                                                             TimelineTrimEdge edge) const;
    void applyRippleFollow(const TimelineClip& trimmedClip, bool enabled);
    void moveRangeClip(AuxiliaryTimelineTrack track, const Uuid& id, EditTime delta);
    void resizeRangeClip(AuxiliaryTimelineTrack track, const Uuid& id, TimelineTrimEdge edge,
                         EditTime delta);
    // Ends the main lane's gesture. (The composition follows every change of the timeline,
    // a trim's with the playhead on the trimmed edge.)
    void finishTimelineEdit();
    void finishTimelineEditTransactionIfNeeded() { finishTimelineEdit(); }
    void finishRangeClipEdit(AuxiliaryTimelineTrack track);
    void finishAllEditSessions();
    // A transcript cut: the source range out of the timeline, as a restorable gap.
    std::optional<DeletedTimelineGap> deleteSourceRange(SourceTime start, SourceTime end);
    // Undo and redo end every gesture first, then bring the playback up to date.
    std::optional<EditorProjectHistoryChange> undo();
    std::optional<EditorProjectHistoryChange> redo();
    void applyProjectHistoryChange(const EditorProjectHistoryChange& change);

    // ---- The picture -----------------------------------------------------------------------

    void setPreviewSize(Size size);
    std::shared_ptr<const PreviewFrame> currentPreviewFrame() const;

    // ---- Published ---------------------------------------------------------------------------

    const Published<double>& timelinePlayheadTime() const { return timelinePlayheadTime_; }
    const Published<double>& currentCursorTime() const { return currentCursorTime_; }
    const Published<bool>& isPlaying() const { return isPlaying_; }
    const Published<double>& workflowRate() const { return workflowRate_; }
    // Goes up by one for each click that presses the pointer.
    const Published<int>& cursorClickTrigger() const { return cursorClickTrigger_; }
    // The pointer, the camera's focus and the zoom shown at the last tick, glides included.
    const Published<FrameVisualState>& visualState() const { return visualState_; }
    const Published<PlaybackMotionEngine::FrameMotion>& frameMotion() const { return frameMotion_; }
    const Published<uint64_t>& previewFrameNumber() const { return previewFrameNumber_; }
    const Published<bool>& hasCompositionSource() const { return hasCompositionSource_; }
    const Published<std::optional<Waveform>>& systemAudioWaveform() const {
        return systemAudioWaveform_;
    }
    const Published<std::optional<Waveform>>& voiceWaveform() const { return voiceWaveform_; }
    const Published<std::map<std::string, Waveform>>& musicWaveforms() const {
        return musicWaveforms_;
    }
    const Published<std::vector<VoiceInterval>>& voiceIntervals() const { return voiceIntervals_; }
    const Published<std::optional<Size>>& cameraNaturalSize() const { return cameraNaturalSize_; }

    // ---- Parts ---------------------------------------------------------------------------------

    EditorStore& editorStore() { return store_; }
    EditSessionCoordinator& sessions() { return sessions_; }
    TimelineEditGestures& gestures() { return gestures_; }
    PlaybackMotionEngine& motion() { return motion_; }
    MediaPlaybackSession& session() { return session_; }
    CompositionPlayer& player() { return *player_; }
    CursorClickSoundPlayer& clickSoundPlayer() { return clickSoundPlayer_; }
    const std::optional<PlaybackVisualTransition>& visualTransition() const {
        return visualTransition_;
    }

    // The generations (for tests and diagnostics).
    uint64_t loadGeneration() const { return loadGeneration_; }
    uint64_t rebuildGeneration() const { return rebuildGeneration_; }
    uint64_t seekGeneration() const { return seekGeneration_; }
    std::optional<uint64_t> pendingSeekGeneration() const { return pendingSeekGeneration_; }
    bool isReplacingScreenItem() const { return isReplacingScreenItem_; }
    // Background loads still running or waiting.
    bool isLoading() const { return pendingLoadTasks_ > 0; }

private:
    // What the composition is made from besides the timeline.
    struct CompositionInputs {
        TimelineState timeline;
        AudioSettings audio;
        std::vector<MusicClip> musicClips;
        std::vector<VoiceInterval> voiceActivity;
        friend bool operator==(const CompositionInputs&, const CompositionInputs&) = default;
    };

    CompositionInputs compositionInputs(const EditorProjectState& project) const;
    void refreshEditTimelineCacheIfNeeded();
    void projectChanged(const EditorProjectState& project);
    // Music files registered after the load: probed, and their waveforms read, in the
    // background; the composition then takes them in.
    void loadNewMusicSegments(const TakeManifest& manifest);
    // A rebuild on the next turn of the main loop, for any number of changes before it.
    void scheduleRebuild();
    void refreshMotionTracks(const EditorProjectState& project, bool styleChanged);
    // What the frames of the present project are drawn from.
    std::shared_ptr<PreviewGeometry> makeGeometry() const;
    void publishGeometry();
    void setPlaybackState(double sourceTime, bool triggerClicks,
                          std::optional<double> visualEditTime);
    FrameVisualState targetVisualState(double sourceTime, double editTime) const;
    void beginVisualTransition(double sourceDelta, double editTime);
    void updateClicks(double sourceTime);
    void playerReachedEnd();
    template <class Result>
    void runInBackground(std::function<Result(const std::stop_token&)> work,
                         std::function<void(Result)> deliver);

    EditorStore& store_;
    Executor& main_;
    PlaybackModelOptions options_;
    EditSessionCoordinator sessions_;
    TimelineEditGestures gestures_;
    std::unique_ptr<CompositionPlayer> player_;
    MediaPlaybackSession session_;
    CursorClickSoundPlayer clickSoundPlayer_;
    PlaybackMotionEngine motion_;

    std::optional<EditorDocument> document_;
    std::optional<std::filesystem::path> currentURL_;
    std::optional<TimelineCompositionSource> screenCompositionSource_;
    std::vector<TimelineCompositionVideoSegment> cameraSegments_;
    std::optional<TimelineCompositionAudioLayout> screenAudioLayout_;
    CursorRecording cursorRecording_;
    double defaultCameraZoomScale_;
    uint64_t loadGeneration_ = 0;
    uint64_t rebuildGeneration_ = 0;
    uint64_t seekGeneration_ = 0;
    std::optional<uint64_t> pendingSeekGeneration_;
    bool isReplacingScreenItem_ = false;
    std::optional<double> previousTickEditTime_;
    std::optional<double> previousTickSourceTime_;
    std::optional<PlaybackVisualTransition> visualTransition_;
    bool shouldResetTimelineOnLoad_ = false;
    std::optional<TimelineState> cachedEditTimelineState_;
    std::optional<EditTimeline> cachedEditTimeline_;
    std::optional<ResolvedEditTimeline> cachedResolvedEditTimeline_;

    // What the present composition and motion tracks were made from.
    std::optional<CompositionInputs> builtInputs_;
    bool rebuildScheduled_ = false;
    std::optional<SourceTime> scheduledFallback_;
    std::optional<EditorProjectState> motionInputs_;
    std::optional<uint64_t> publishedSnapshot_;

    Published<double> timelinePlayheadTime_{0.0};
    Published<double> currentCursorTime_{0.0};
    Published<bool> isPlaying_{false};
    Published<double> workflowRate_{1.0};
    Published<int> cursorClickTrigger_{0};
    Published<FrameVisualState> visualState_;
    Published<PlaybackMotionEngine::FrameMotion> frameMotion_;
    Published<uint64_t> previewFrameNumber_{0};
    Published<bool> hasCompositionSource_{false};
    Published<std::optional<Waveform>> systemAudioWaveform_;
    Published<std::optional<Waveform>> voiceWaveform_;
    Published<std::map<std::string, Waveform>> musicWaveforms_;
    Published<std::vector<VoiceInterval>> voiceIntervals_;
    Published<std::optional<Size>> cameraNaturalSize_;

    Subscription projectSubscription_;
    Subscription frameSubscription_;
    std::shared_ptr<std::atomic<bool>> frameNumberQueued_ =
        std::make_shared<std::atomic<bool>>(false);
    int pendingLoadTasks_ = 0;
    std::set<std::string> musicSegmentsSeen_;
    std::stop_source stop_;
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);
    std::unique_ptr<SerialQueue> loadQueue_; // last: its tasks finish before the rest goes
};

} // namespace orvelle
