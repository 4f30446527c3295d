// The playback model over a real player: sound into a private sound server, pictures drawn
// by the export's renderer, the main thread a run loop.

#include "playback/playback_test_support.h"
#include "support/test_media.h"

#include <gtest/gtest.h>

#include <cmath>
#include <mutex>

namespace orvelle::testing {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class PlaybackModelTest : public ::testing::Test {
protected:
    void SetUp() override { edited = writeEditedTake(folder / "take"); }

    std::unique_ptr<ModelHarness> loaded(PlaybackModelOptions options = ModelHarness::defaults()) {
        auto harness = std::make_unique<ModelHarness>(edited.document, std::move(options));
        EXPECT_TRUE(harness->runUntil([&] { return harness->isSettled(); }));
        return harness;
    }

    TemporaryDirectory folder;
    EditedTake edited;
};

struct ShownFrame {
    double wall = 0;
    double editTime = 0;
    double sourceTime = 0;
    double clock = 0;
};

// Every frame the player shows, with the wall time it went on screen.
class FrameLog {
public:
    explicit FrameLog(CompositionPlayer& player)
        : subscription_(player.addFrameObserver([this](const auto& frame) {
              const std::lock_guard guard(lock_);
              frames_.push_back({std::chrono::duration<double>(Clock::now() - start_).count(),
                                 frame->editTime, frame->sourceTime, frame->presentedClockTime});
          })) {}

    std::vector<ShownFrame> frames() const {
        const std::lock_guard guard(lock_);
        return frames_;
    }

private:
    mutable std::mutex lock_;
    Clock::time_point start_ = Clock::now();
    std::vector<ShownFrame> frames_;
    Subscription subscription_;
};

TEST_F(PlaybackModelTest, PlaysTheEditInRealTimeWithTheVideoOnTheSoundsClock) {
    auto harness = loaded();
    PlaybackModel& model = *harness->model;
    ASSERT_TRUE(model.player().hasSound()) << model.player().soundProblem();
    ASSERT_NEAR(model.editTimeline().duration(), 10.0, 1e-9);

    FrameLog log(model.player());
    soundServer().startRecording();
    model.play();
    ASSERT_TRUE(harness->runUntil([&] { return model.isPlaying().value(); }));
    // The end pauses and goes back to the start.
    ASSERT_TRUE(harness->runUntil([&] { return !model.isPlaying().value(); }, 40s));
    const std::vector<float> heard = soundServer().stopRecording();
    EXPECT_TRUE(harness->runUntil([&] { return !model.pendingSeekGeneration(); }));
    EXPECT_NEAR(model.timelinePlayheadTime().value(), 0, 1e-9);

    std::vector<ShownFrame> played;
    for (const ShownFrame& frame : log.frames()) {
        if (frame.clock > 0) { // the frames of the run, not the still one it began from
            played.push_back(frame);
        }
    }
    ASSERT_GT(played.size(), 150u);
    // Ten seconds of edit in ten seconds of wall time, to within a frame.
    const double wall = played.back().wall - played.front().wall;
    const double edit = played.back().editTime - played.front().editTime;
    EXPECT_GT(edit, 9.5);
    const PlaybackStatistics statistics = model.player().statistics();
    EXPECT_NEAR(wall, edit, 1.0 / 30)
        << statistics.audioUnderrunFrames << " frames of sound were late, "
        << statistics.droppedFrames << " pictures dropped";
    // Each frame on screen while the sound of its instant plays.
    for (const ShownFrame& frame : played) {
        EXPECT_LT(std::abs(frame.clock - frame.editTime), 0.020) << "frame at " << frame.editTime;
    }
    // Through the cuts and the fast clip: the source runs 0-4, 5-9 twice as fast, 10-14.
    const auto at = [&](double editTime) {
        for (const ShownFrame& frame : played) {
            if (frame.editTime >= editTime - 1e-9) {
                return frame.sourceTime;
            }
        }
        return -1.0;
    };
    EXPECT_NEAR(at(3.0), 3.0, 1e-6);
    EXPECT_NEAR(at(5.0), 7.0, 1e-6);
    EXPECT_NEAR(at(8.0), 12.0, 1e-6);
    // The microphone's tone went out to the sound server.
    ASSERT_GT(heard.size(), 48000u * 2 * 5);
    EXPECT_GT(rootMeanSquare(heard), 0.05);
    EXPECT_NEAR(estimateFrequency(heard, 48000, 2), 440, 5);
}

TEST_F(PlaybackModelTest, WorkflowRatesStepAndHoldAndSpeedTheClock) {
    auto harness = loaded();
    PlaybackModel& model = *harness->model;
    std::vector<double> cycled;
    for (int i = 0; i < 4; ++i) {
        model.cyclePlaybackSpeed();
        cycled.push_back(model.workflowRate().value());
    }
    EXPECT_EQ(cycled, (std::vector<double>{2, 4, 1, 2}));
    model.applyWorkflowRate(16);
    EXPECT_EQ(model.workflowRate().value(), 8);
    model.applyWorkflowRate(0.1);
    EXPECT_EQ(model.workflowRate().value(), 0.25);

    model.applyWorkflowRate(2);
    model.play();
    ASSERT_TRUE(harness->runUntil([&] { return model.isPlaying().value(); }));
    const double from = model.player().currentTime();
    const auto started = Clock::now();
    harness->runUntil([&] { return model.player().currentTime() > from + 0.1; });
    const double edit0 = model.player().currentTime();
    const auto wall0 = Clock::now();
    harness->runFor(1500ms);
    const double edit = model.player().currentTime() - edit0;
    const double wall = std::chrono::duration<double>(Clock::now() - wall0).count();
    EXPECT_NEAR(edit / wall, 2.0, 0.05)
        << model.player().statistics().audioUnderrunFrames << " frames of sound were late, "
        << std::chrono::duration<double>(wall0 - started).count() << " s after starting";
    model.pause();
}

TEST_F(PlaybackModelTest, SeeksSettleAfterCutsAndNeverSoundTheClicksTheyPass) {
    auto harness = loaded();
    PlaybackModel& model = *harness->model;
    const int triggers = model.cursorClickTrigger().value();

    // Edit time 4.0 is the cut from source 4 to source 5: a time on it shows the frame
    // after it.
    harness->seek(4.0);
    EXPECT_NEAR(model.timelinePlayheadTime().value(), 4.0, 1e-9);
    EXPECT_NEAR(model.currentCursorTime().value(), 5.0, 1e-9);
    EXPECT_NEAR(model.currentPreviewFrame()->sourceTime, 5.0, 1e-9);
    // Backwards and forwards across the clicks at 1 and 6 s.
    harness->seek(0.2);
    harness->seek(8.0, true);
    EXPECT_NEAR(model.currentCursorTime().value(), 12.0, 1e-9);
    EXPECT_EQ(model.cursorClickTrigger().value(), triggers);
    EXPECT_EQ(model.clickSoundPlayer().activePlayerCount(), 0u);

    // While a seek is in flight the ticks change nothing.
    model.seekPlayer(EditTime(2.0), false, false);
    ASSERT_TRUE(model.pendingSeekGeneration().has_value());
    model.handleEditTimeTick(7.0);
    EXPECT_NEAR(model.timelinePlayheadTime().value(), 2.0, 1e-9);
    EXPECT_NEAR(model.currentCursorTime().value(), 12.0, 1e-9);
    ASSERT_TRUE(harness->runUntil([&] { return !model.pendingSeekGeneration(); }));
    EXPECT_NEAR(model.currentCursorTime().value(), 2.0, 1e-9);

    // A seek overtaken by another completes unfinished; the later one lands.
    std::vector<bool> completions;
    model.player().seek(1.0, [&](bool finished) { completions.push_back(finished); });
    model.player().seek(6.0, [&](bool finished) { completions.push_back(finished); });
    ASSERT_TRUE(harness->runUntil([&] { return completions.size() == 2; }));
    EXPECT_EQ(completions, (std::vector<bool>{false, true}));
    EXPECT_NEAR(model.currentPreviewFrame()->editTime, 6.0, 1e-9);
}

TEST_F(PlaybackModelTest, ClicksPressAndSoundOnlyInsideClipsAndNotAtVolumeZero) {
    auto harness = loaded();
    PlaybackModel& model = *harness->model;
    model.applyWorkflowRate(4);
    const auto playAcross = [&](double from, double to) {
        harness->seek(from);
        model.play();
        EXPECT_TRUE(harness->runUntil([&] { return model.timelinePlayheadTime().value() >= to; }));
        model.pause();
    };
    // The click at 1 s plays; the one at 4.5 s lies in the cut [4, 5].
    const int before = model.cursorClickTrigger().value();
    playAcross(0.5, 4.3);
    EXPECT_EQ(model.cursorClickTrigger().value(), before + 1);
    EXPECT_EQ(model.clickSoundPlayer().activePlayerCount(), 1u);

    model.editorStore().edit("Click Volume", [](EditorProjectState& project, auto&) {
        project.cursor.clickSoundVolume = 0;
    });
    ASSERT_TRUE(harness->runUntil([&] { return harness->isSettled(); }));
    const size_t players = model.clickSoundPlayer().activePlayerCount();
    playAcross(0.5, 1.5);
    EXPECT_EQ(model.cursorClickTrigger().value(), before + 2); // still pressed
    EXPECT_LE(model.clickSoundPlayer().activePlayerCount(), players);
}

TEST_F(PlaybackModelTest, TicksGlideAcrossForwardCutsAndFollowTheClipSpeed) {
    auto harness = loaded();
    PlaybackModel& model = *harness->model;
    model.play();
    ASSERT_TRUE(harness->runUntil([&] { return model.isPlaying().value(); }));
    // Direct ticks, as the player's observer makes them; the loop does not run between.
    // Within the clip at twice the speed the source moves 0.2 s in 0.1 s: no jump.
    model.handleEditTimeTick(5.0);
    model.handleEditTimeTick(5.1);
    EXPECT_FALSE(model.visualTransition().has_value());
    // Across the cut at edit 4: the source jumps by 1.03 s in 0.03 s.
    model.handleEditTimeTick(3.97);
    model.handleEditTimeTick(4.0);
    ASSERT_TRUE(model.visualTransition().has_value());
    EXPECT_NEAR(model.visualTransition()->duration, 0.14, 1e-9);
    EXPECT_NEAR(model.visualTransition()->startEditTime, 4.0, 1e-9);
    // On the cut the pointer is still where it was before it, gliding from there.
    const auto glidingFrom = model.visualTransition()->startCursorPoint;
    ASSERT_TRUE(glidingFrom && model.visualState().value().cursorPoint);
    EXPECT_EQ(model.visualState().value().cursorPoint->x, glidingFrom->x);
    model.handleEditTimeTick(4.07);
    ASSERT_TRUE(model.visualState().value().cursorPoint);
    EXPECT_NEAR(model.currentCursorTime().value(), 5.14, 1e-9);
    const double halfway = model.visualState().value().cursorPoint->x;
    const double target = model.motion().cursorPoint(5.14)->x;
    EXPECT_GT(std::abs(halfway - target), 1e-4);
    EXPECT_GT(std::abs(halfway - glidingFrom->x), 1e-4);
    // Over after its duration: the shown values are the targets.
    model.handleEditTimeTick(4.2);
    EXPECT_FALSE(model.visualTransition().has_value());
    EXPECT_EQ(model.visualState().value().cursorPoint->x, model.motion().cursorPoint(5.4)->x);
    model.pause();
    EXPECT_EQ(model.frameMotion().value(), PlaybackMotionEngine::FrameMotion{});
}

TEST_F(PlaybackModelTest, TimelineChangesWhilePlayingKeepThePlayheadOnItsMaterial) {
    auto harness = loaded();
    PlaybackModel& model = *harness->model;
    model.play();
    ASSERT_TRUE(harness->runUntil([&] { return model.currentCursorTime().value() > 0.8; }));

    // A cut ahead of the playhead: it plays on from where it was, having moved on only by
    // the time the rebuild took.
    const double before = model.player().currentTime();
    const auto cutAt = Clock::now();
    ASSERT_TRUE(model.deleteSourceRange(SourceTime(2.5), SourceTime(3.5)));
    const uint64_t rebuilds = model.rebuildGeneration();
    ASSERT_TRUE(harness->runUntil([&] {
        return model.rebuildGeneration() > rebuilds - 1 && !model.isReplacingScreenItem() &&
               !model.pendingSeekGeneration() && model.isPlaying().value();
    }));
    const double after = model.currentCursorTime().value();
    const double took = std::chrono::duration<double>(Clock::now() - cutAt).count();
    EXPECT_GE(after, before - 1.0 / 30);
    EXPECT_LE(after, before + took + 1.0 / 30);
    EXPECT_NEAR(model.editTimeline().duration(), 9.0, 1e-9);
    EXPECT_NEAR(model.player().duration(), 9.0, 1e-9);

    // A cut over the playhead: it goes on at the first time that still plays.
    ASSERT_TRUE(harness->runUntil([&] { return model.currentCursorTime().value() > 1.5; }));
    const double at = model.player().currentTime(); // source and edit agree before 2.5
    const auto overAt = Clock::now();
    ASSERT_TRUE(model.deleteSourceRange(SourceTime(at - 0.3), SourceTime(at + 0.4)));
    ASSERT_TRUE(harness->runUntil([&] {
        return !model.isReplacingScreenItem() && !model.pendingSeekGeneration() &&
               model.currentCursorTime().value() > at;
    }));
    const double overTook = std::chrono::duration<double>(Clock::now() - overAt).count();
    EXPECT_GE(model.currentCursorTime().value(), at + 0.4 - 1e-6);
    EXPECT_LE(model.currentCursorTime().value(), at + 0.4 + overTook + 1.0 / 30);
    EXPECT_TRUE(model.isPlaying().value());
    model.pause();

    // Undo puts the material back and the playhead stays on its source time.
    const double paused = model.currentCursorTime().value();
    ASSERT_TRUE(model.undo());
    ASSERT_TRUE(harness->runUntil([&] { return harness->isSettled(); }));
    EXPECT_NEAR(model.currentCursorTime().value(), paused, 1.0 / 30);
    EXPECT_NEAR(model.editTimeline().duration(), 9.0, 1e-9); // only the second cut undone
}

TEST_F(PlaybackModelTest, TrimmingPutsThePlayheadOnTheTrimmedEdge) {
    auto harness = loaded();
    PlaybackModel& model = *harness->model;
    harness->seek(1.0);
    const Uuid first = model.editorStore().project().timeline.clips.front().id;
    model.trimClip(first, TimelineTrimEdge::end, EditTime(-0.5), false);
    model.trimClip(first, TimelineTrimEdge::end, EditTime(-1.0), false);
    model.finishTimelineEdit();
    ASSERT_TRUE(harness->runUntil([&] { return harness->isSettled(); }));
    // Source 3 is the clip's new end: the playhead is on the cut it made, at edit 3.
    EXPECT_NEAR(model.timelinePlayheadTime().value(), 3.0, 1e-9);
    EXPECT_NEAR(model.editTimeline().duration(), 9.0, 1e-9);
    EXPECT_EQ(model.editorStore().undoHistory().undoStack().size(), 1u); // one gesture
}

TEST_F(PlaybackModelTest, PlayFromTheEndStartsOverAndTheEndPausesAtTheStart) {
    auto harness = loaded();
    PlaybackModel& model = *harness->model;
    harness->seek(9.98);
    model.play();
    ASSERT_TRUE(harness->runUntil([&] { return model.isPlaying().value(); }));
    EXPECT_LT(model.timelinePlayheadTime().value(), 0.5);
    model.pause();

    harness->seek(9.6);
    model.play();
    ASSERT_TRUE(harness->runUntil([&] { return model.isPlaying().value(); }));
    ASSERT_TRUE(harness->runUntil([&] { return !model.isPlaying().value(); }, 10s));
    ASSERT_TRUE(harness->runUntil([&] { return harness->isSettled(); }));
    EXPECT_EQ(model.timelinePlayheadTime().value(), 0);
    EXPECT_NEAR(model.currentPreviewFrame()->editTime, 0, 1e-9);
}

TEST_F(PlaybackModelTest, PausedFramesAreStillAndScrubbingBackOverThemAnswersFromTheCache) {
    auto harness = loaded();
    PlaybackModel& model = *harness->model;
    // A zoom over the first seconds, so that playing through it blurs.
    model.editorStore().edit("Zoom", [](EditorProjectState& project, auto&) {
        AnimationClip zoom{
            .id = Uuid::random(), .start = EditTime(0.5), .end = EditTime(2.5), .zoomScale = 2.5};
        project.animation.zoomClips = {zoom};
    });
    ASSERT_TRUE(harness->runUntil([&] { return harness->isSettled(); }));
    harness->seek(0.4);
    model.play();
    ASSERT_TRUE(harness->runUntil([&] { return model.timelinePlayheadTime().value() > 0.8; }));
    model.pause();
    EXPECT_EQ(model.frameMotion().value(), PlaybackMotionEngine::FrameMotion{});
    ASSERT_TRUE(harness->runUntil([&] {
        const auto frame = model.currentPreviewFrame();
        return frame && frame->presentedClockTime == model.player().currentTime();
    }));
    const auto paused = model.currentPreviewFrame();

    const PreviewFrameCacheStatistics before = model.player().frameCache().statistics();
    harness->seek(3.0);
    harness->seek(paused->editTime);
    const PreviewFrameCacheStatistics after = model.player().frameCache().statistics();
    EXPECT_EQ(after.hits, before.hits + 1);
    const auto again = model.currentPreviewFrame();
    ASSERT_EQ(again->picture.width(), 320);
    // The same still picture: the paused frame shows no blur.
    for (int y = 0; y < again->picture.height(); y += 7) {
        for (int x = 0; x < again->picture.width(); x += 5) {
            ASSERT_EQ(again->picture.pixel(x, y), paused->picture.pixel(x, y)) << x << "," << y;
        }
    }
}

// A look changed while the picture after a seek is being drawn is drawn too: the picture
// left on screen is the new look's, the same that a later seek to that time draws.
TEST_F(PlaybackModelTest, ALookChangedWhileASeekDrawsItsPictureEndsOnScreen) {
    auto harness = loaded();
    PlaybackModel& model = *harness->model;
    for (int attempt = 0; attempt < 12; ++attempt) {
        const double time = 0.5 + 0.25 * attempt;
        model.seekPlayer(EditTime(time), false, false);
        model.editorStore().edit("Padding", [&](EditorProjectState& project, auto&) {
            project.background.paddingAmount = 0.05 * (attempt % 5);
        });
        ASSERT_TRUE(harness->runUntil([&] { return harness->isSettled(); }));
        harness->runFor(std::chrono::milliseconds(100));
        const auto shown = model.currentPreviewFrame();
        harness->seek(time + 3);
        harness->seek(time);
        const auto drawn = model.currentPreviewFrame();
        ASSERT_EQ(shown->picture.width(), drawn->picture.width());
        int differing = 0;
        for (int y = 0; y < drawn->picture.height(); y += 3) {
            for (int x = 0; x < drawn->picture.width(); x += 3) {
                differing += shown->picture.pixel(x, y) != drawn->picture.pixel(x, y);
            }
        }
        ASSERT_EQ(differing, 0) << "a stale look stayed on screen after the seek to " << time;
    }
}

TEST_F(PlaybackModelTest, ReloadingDropsTheResultsOfTheEarlierLoad) {
    TinyTakeOptions shortOptions;
    shortOptions.seconds = 2;
    const TinyTake shortTake = writeTinyTake(folder / "short", shortOptions);
    ModelHarness harness(edited.document);
    harness.model->load(EditorDocument::load(shortTake.screenURL));
    ASSERT_TRUE(harness.runUntil([&] { return harness.isSettled(); }));
    const PlaybackModel& model = *harness.model;
    EXPECT_EQ(model.loadGeneration(), 2u);
    EXPECT_NEAR(model.screenCompositionSource()->duration, 2.0, 1e-3);
    EXPECT_NEAR(harness.model->editTimeline().duration(), 2.0, 1e-3);
    ASSERT_TRUE(model.voiceWaveform().value().has_value());
    EXPECT_NEAR(model.voiceWaveform().value()->duration, 2.0, 1e-3);
    EXPECT_FALSE(model.cameraNaturalSize().value().has_value());
}

TEST_F(PlaybackModelTest, MusicAddedWhileOpenIsHeardAndDrawnAndAnUnreadableFileIsNot) {
    auto harness = loaded();
    PlaybackModel& model = *harness->model;
    EXPECT_FALSE(model.screenAudioLayout()->musicTrackID);
    const auto song = folder / "Song.wav";
    writeAudioFile(song, sineTone(660, 3, 48000, 2), {48000, 2});
    const auto broken = folder / "Broken.wav";
    writeTextFile(broken, "not sound");

    EditorStore& store = harness->store;
    const std::string songID = store.registerMusicSegment(song, 3);
    const std::string brokenID = store.registerMusicSegment(broken, 3);
    MusicClip clip{.id = Uuid::random(),
                   .start = EditTime(1),
                   .end = EditTime(6),
                   .segmentID = songID,
                   .title = "Song"};
    ASSERT_TRUE(store.addMusicClip(clip));
    ASSERT_TRUE(harness->runUntil([&] {
        return model.musicWaveforms().value().contains(songID) && harness->isSettled() &&
               model.screenAudioLayout() && model.screenAudioLayout()->musicTrackID;
    }));
    EXPECT_NEAR(model.musicWaveforms().value().at(songID).duration, 3.0, 0.05);
    EXPECT_TRUE(model.screenCompositionSource()->musicSources.contains(songID));
    EXPECT_FALSE(model.screenCompositionSource()->musicSources.contains(brokenID));
    EXPECT_FALSE(model.musicWaveforms().value().contains(brokenID));
}

TEST_F(PlaybackModelTest, AnUnplayableScreenLeavesTheDocumentOpenWithoutPlaying) {
    const auto broken = folder / "broken" / "Broken.mp4";
    writeTextFile(broken, "not a movie");
    ModelHarness harness(EditorDocument::load(broken));
    ASSERT_TRUE(harness.runUntil([&] { return !harness.model->isLoading(); }));
    EXPECT_TRUE(harness.model->document().has_value());
    EXPECT_FALSE(harness.model->hasCompositionSource().value());
    harness.model->play();
    harness.runFor(200ms);
    EXPECT_FALSE(harness.model->isPlaying().value());
    EXPECT_EQ(harness.model->currentPreviewFrame(), nullptr);
}

} // namespace
} // namespace orvelle::testing
