#include "editor/timeline_edit_gestures.h"
#include "motion/zoom_activity_planner.h"

#include <gtest/gtest.h>

#include <random>

namespace orvelle {
namespace {

using Track = AuxiliaryTimelineTrack;

std::vector<std::string> undoLabels(const EditorStore& store) {
    std::vector<std::string> result;
    for (const auto& entry : store.undoHistory().undoStack()) {
        result.push_back(entry.label);
    }
    return result;
}

using Labels = std::vector<std::string>;

// A 60 s take cut at 10 s into two clips, with zooms at [2, 3], [4, 6] and [20, 22].
class Gestures : public ::testing::Test {
protected:
    void SetUp() override {
        EditorProjectState project;
        project.timeline = fullLengthTimeline(SourceTime(60));
        TimelineEngine::splitClip(project.timeline, SourceTime(10), kMinimumTimelineClipDuration);
        for (const auto& [start, end] : {std::pair(2.0, 3.0), {4.0, 6.0}, {20.0, 22.0}}) {
            AnimationClip zoom{
                .id = Uuid::random(), .start = EditTime(start), .end = EditTime(end)};
            project.animation.zoomClips.push_back(zoom);
        }
        store_.replaceProject(EditorDocument{.project = project}, false);
    }

    const TimelineClip& clip(size_t i) const { return store_.project().timeline.clips.at(i); }
    double zoomStart(size_t i) const {
        return store_.project().animation.zoomClips.at(i).start.seconds;
    }
    const AnimationClip& zoom(size_t i) const { return store_.project().animation.zoomClips.at(i); }

    EditorStore store_{EditorProjectState{}};
    EditSessionCoordinator sessions_{store_};
    TimelineEditGestures gestures_{store_, sessions_};
};

TEST_F(Gestures, ATrimRipplesTheLanesBehindItsEdgeAsOneStep) {
    const EditorProjectState before = store_.project();
    const Uuid second = clip(1).id;
    gestures_.trimClip(second, TimelineTrimEdge::start, EditTime(3), true);
    EXPECT_EQ(clip(1).start, SourceTime(13));
    EXPECT_EQ(zoomStart(0), 2);
    EXPECT_EQ(zoomStart(1), 4);
    EXPECT_EQ(zoomStart(2), 17);
    EXPECT_EQ(store_.selection(), EditorSelectionState::timelineClip(second));
    EXPECT_EQ(sessions_.pendingTimelineEditFallbackSourceTime, SourceTime(13));

    // Further in the same drag: the follower stops at the end of the last clip that stays.
    gestures_.trimClip(second, TimelineTrimEdge::start, EditTime(15), true);
    EXPECT_EQ(zoomStart(2), 6);
    EXPECT_EQ(zoom(2).end, EditTime(8));
    // Ripple turned off mid-drag puts the followers back where they began.
    gestures_.trimClip(second, TimelineTrimEdge::start, EditTime(16), false);
    EXPECT_EQ(zoomStart(2), 20);
    gestures_.trimClip(second, TimelineTrimEdge::start, EditTime(15), true);
    EXPECT_EQ(zoomStart(2), 6);
    // So does switching it off, or on again, with the edge where it is.
    gestures_.trimClip(second, TimelineTrimEdge::start, EditTime(15), false);
    EXPECT_EQ(zoomStart(2), 20);
    gestures_.trimClip(second, TimelineTrimEdge::start, EditTime(15), true);
    EXPECT_EQ(zoomStart(2), 6);
    gestures_.finishAllEditSessions();

    EXPECT_EQ(undoLabels(store_), Labels{"Trim Clip Start"});
    EXPECT_EQ(sessions_.openTransactionCount(EditSessionCoordinator::Domain::timelineRange), 0);
    gestures_.undo();
    EXPECT_EQ(store_.project(), before);
}

TEST_F(Gestures, ATrimStopsAtTheShortestClipAndAtADeletedGap) {
    const Uuid first = clip(0).id;
    gestures_.trimClip(first, TimelineTrimEdge::end, EditTime(-50), false);
    EXPECT_NEAR(clip(0).end.seconds, kMinimumTimelineClipDuration, 1e-12);
    gestures_.finishAllEditSessions();

    ASSERT_TRUE(gestures_.deleteSourceRange(SourceTime(30), SourceTime(40)));
    const Uuid middle = clip(1).id; // [10, 30]
    gestures_.trimClip(middle, TimelineTrimEdge::end, EditTime(-5), false);
    gestures_.finishAllEditSessions();
    EXPECT_EQ(clip(1).end, SourceTime(25));
    gestures_.trimClip(middle, TimelineTrimEdge::end, EditTime(20), false);
    EXPECT_EQ(clip(1).end, SourceTime(30));
    gestures_.finishAllEditSessions();
    EXPECT_EQ(undoLabels(store_),
              (Labels{"Trim Clip End", "Delete Range", "Trim Clip End", "Trim Clip End"}));
    // Back out trimmed, it stops at the gap's edge: its marker has not moved.
    EXPECT_EQ(store_.project().timeline.deletedGaps.at(0).sourceStart, SourceTime(30));
}

TEST_F(Gestures, AMoveSlidesTheClipsWindowAndIsOneStep) {
    const Uuid first = clip(0).id;
    gestures_.trimClip(first, TimelineTrimEdge::start, EditTime(4), false);
    gestures_.finishAllEditSessions();
    gestures_.moveClip(first, EditTime(-1));
    gestures_.moveClip(first, EditTime(-10));
    EXPECT_EQ(clip(0).start, SourceTime(0));
    EXPECT_EQ(clip(0).end, SourceTime(6));
    gestures_.moveClip(first, EditTime(10));
    EXPECT_EQ(clip(0).start, SourceTime(4));
    EXPECT_EQ(clip(0).end, SourceTime(10));
    gestures_.moveClip(first, EditTime(-2));
    gestures_.finishAllEditSessions();
    EXPECT_EQ(undoLabels(store_), (Labels{"Trim Clip Start", "Move Clip"}));
}

TEST_F(Gestures, ALaneClipDraggedPastANeighbourJumpsIntoTheNextFreeStretch) {
    const Uuid first = zoom(0).id; // [2, 3], next to [4, 6]
    gestures_.moveRangeClip(Track::zoom, first, EditTime(1.5));
    EXPECT_EQ(zoom(0).start, EditTime(3));
    EXPECT_EQ(zoom(0).end, EditTime(4));
    gestures_.moveRangeClip(Track::zoom, first, EditTime(5));
    // Past the centre of [4, 6]: now in the free stretch [6, 20].
    EXPECT_EQ(zoom(1).id, first);
    EXPECT_EQ(zoom(1).start, EditTime(7));
    EXPECT_EQ(store_.selection(), animationLane.selection(first));
    gestures_.finishAllEditSessions();
    EXPECT_EQ(undoLabels(store_), Labels{"Move Zoom"});
}

TEST_F(Gestures, AResizeStopsAtTheNeighbourAndTheLanesShortestClip) {
    const Uuid middle = zoom(1).id; // [4, 6]
    gestures_.resizeRangeClip(Track::zoom, middle, TimelineTrimEdge::start, EditTime(-5));
    EXPECT_EQ(zoom(1).start, EditTime(3));
    gestures_.resizeRangeClip(Track::zoom, middle, TimelineTrimEdge::start, EditTime(5));
    EXPECT_EQ(zoom(1).start, EditTime(6 - kLaneMinimumClipDuration));
    gestures_.resizeRangeClip(Track::zoom, middle, TimelineTrimEdge::end, EditTime(100));
    EXPECT_EQ(zoom(1).end, EditTime(20));
    gestures_.finishRangeClipEdit(Track::zoom);
    EXPECT_EQ(undoLabels(store_), (Labels{"Trim Zoom Start", "Trim Zoom End"}));
    // An id that is not on the lane does nothing.
    gestures_.resizeRangeClip(Track::text, middle, TimelineTrimEdge::end, EditTime(1));
    gestures_.finishAllEditSessions();
    EXPECT_EQ(undoLabels(store_).size(), 2u);
}

TEST_F(Gestures, UndoEndsTheOpenGestureAndTakesItBack) {
    const Uuid first = zoom(0).id;
    gestures_.moveRangeClip(Track::zoom, first, EditTime(0.5));
    ASSERT_TRUE(store_.activeUndoTransaction());
    ASSERT_TRUE(gestures_.undo());
    EXPECT_FALSE(store_.activeUndoTransaction());
    EXPECT_FALSE(sessions_.animationEditSession);
    EXPECT_EQ(zoomStart(0), 2);
    EXPECT_TRUE(store_.canRedo());
}

// Every invariant of a normalised project: each lane and the timeline sorted, nothing
// overlapping beyond the tolerance, every clip longer than nothing.
void expectWellFormed(const EditorProjectState& project, const std::string& where) {
    const auto& clips = project.timeline.clips;
    for (size_t i = 0; i < clips.size(); ++i) {
        ASSERT_LT(clips[i].start, clips[i].end) << where;
        if (i > 0) {
            ASSERT_LE(clips[i - 1].start, clips[i].start) << where;
            ASSERT_LE(clips[i - 1].end.seconds, clips[i].start.seconds + kTimelineBoundaryEpsilon)
                << "timeline clips overlap " << where;
        }
    }
    for (const auto track : kAuxiliaryTimelineTracks) {
        const auto lane = laneClipRanges(project, track);
        for (size_t i = 0; i < lane.size(); ++i) {
            ASSERT_LT(lane[i].start, lane[i].end) << where;
            if (i > 0) {
                ASSERT_LE(lane[i - 1].start, lane[i].start) << where;
                ASSERT_LE(lane[i - 1].end.seconds, lane[i].start.seconds + 1e-9)
                    << "lane clips overlap " << where;
            }
        }
    }
}

// Long random sequences of everything an editor does, gestures included: the project stays
// well formed after every step, undoing everything restores the first state exactly, and
// redoing everything restores the last.
TEST(EditingSequences, KeepTheProjectWellFormedAndUndoExactly) {
    std::mt19937 random(424242);
    for (int run = 0; run < 12; ++run) {
        EditorProjectState start;
        const double duration = std::uniform_real_distribution<double>(5, 300)(random);
        start.timeline = fullLengthTimeline(SourceTime(duration));
        start.animation.zoomClips =
            TimelineEngine::defaultAnimationClips(EditTime(duration), 1.5, {}, {});
        EditorStore store(start);
        EditSessionCoordinator sessions(store);
        TimelineEditGestures gestures(store, sessions);

        std::uniform_real_distribution<double> sourceTime(-1, duration + 1);
        std::uniform_real_distribution<double> delta(-duration / 3, duration / 3);
        const auto anyTrack = [&] { return kAuxiliaryTimelineTracks[random() % 5]; };
        const auto anyClip = [&]() -> std::optional<Uuid> {
            const auto& clips = store.project().timeline.clips;
            if (clips.empty()) {
                return std::nullopt;
            }
            return clips[random() % clips.size()].id;
        };
        const auto anyLaneClip = [&](Track track) -> std::optional<Uuid> {
            const auto lane = laneClipRanges(store.project(), track);
            if (lane.empty()) {
                return std::nullopt;
            }
            return lane[random() % lane.size()].id;
        };
        const auto edge = [&] {
            return random() % 2 ? TimelineTrimEdge::start : TimelineTrimEdge::end;
        };

        for (int step = 0; step < 150; ++step) {
            const double at = std::abs(sourceTime(random));
            switch (random() % 14) {
            case 0:
                store.splitTimelineClip(SourceTime(sourceTime(random)));
                break;
            case 1:
                if (auto id = anyClip(); id && random() % 3 == 0) {
                    store.deleteTimelineClip(*id);
                }
                break;
            case 2:
                gestures.deleteSourceRange(SourceTime(at),
                                           SourceTime(at + std::abs(delta(random)) / 3));
                break;
            case 3:
                store.restoreTimelineSourceRange(SourceTime(at),
                                                 SourceTime(at + std::abs(delta(random))));
                break;
            case 4:
                if (auto id = anyClip()) {
                    store.restoreTimelineCut(*id);
                }
                break;
            case 5:
                if (auto id = anyClip()) {
                    store.restoreTimelineEdgeTrim(*id, edge());
                }
                break;
            case 6:
                if (auto id = anyClip()) {
                    const auto e = edge();
                    const bool ripple = random() % 2;
                    for (int event = 0; event < 5; ++event) {
                        gestures.trimClip(*id, e, EditTime(delta(random)), ripple);
                    }
                    gestures.finishAllEditSessions();
                }
                break;
            case 7:
                if (auto id = anyClip()) {
                    for (int event = 0; event < 4; ++event) {
                        gestures.moveClip(*id, EditTime(delta(random)));
                    }
                    gestures.finishAllEditSessions();
                }
                break;
            case 8: {
                const EditTime where(std::abs(delta(random)));
                switch (anyTrack()) {
                case Track::zoom:
                    store.addAnimationClip(where, 1.8, EditTime(0.5));
                    break;
                case Track::cameraLayout:
                    store.addCameraLayoutClip(where, EditTime(0.5));
                    break;
                case Track::mask:
                    store.addMaskClip(where, EditTime(0.5));
                    break;
                case Track::music:
                    store.addEmptyMusicClip(where, EditTime(0.5));
                    break;
                case Track::text:
                    store.addTextClip(where, EditTime(0.5));
                    break;
                }
                break;
            }
            case 9: {
                const auto track = anyTrack();
                if (auto id = anyLaneClip(track)) {
                    for (int event = 0; event < 4; ++event) {
                        if (random() % 2) {
                            gestures.moveRangeClip(track, *id, EditTime(delta(random)));
                        } else {
                            gestures.resizeRangeClip(track, *id, edge(), EditTime(delta(random)));
                        }
                    }
                    gestures.finishAllEditSessions();
                }
                break;
            }
            case 10: {
                const auto track = anyTrack();
                if (auto id = anyLaneClip(track)) {
                    withClipLane(track, [&](const auto& lane) {
                        if (random() % 2) {
                            store.duplicateClip(*id, lane);
                        } else {
                            store.select(*id, lane);
                            store.deleteSelectedClip(lane);
                        }
                    });
                }
                break;
            }
            case 11:
                if (auto id = anyClip()) {
                    store.updateTimelineClip(*id, [&](TimelineClip& c) {
                        c.speed = std::uniform_real_distribution<double>(0.5, 3)(random);
                    });
                }
                break;
            case 12: {
                const auto slider = store.undoTransaction("Change Volume");
                slider(true);
                for (int event = 0; event < 10; ++event) {
                    store.edit("Change Volume", [&](EditorProjectState& p, EditorSelectionState&) {
                        p.audio.musicVolume = event / 10.0;
                    });
                }
                slider(false);
                break;
            }
            case 13:
                if (random() % 2) {
                    gestures.undo();
                } else {
                    gestures.redo();
                }
                break;
            }
            expectWellFormed(store.project(),
                             "run " + std::to_string(run) + " step " + std::to_string(step));
            if (::testing::Test::HasFatalFailure()) {
                return;
            }
        }
        ASSERT_LE(store.undoHistory().undoStack().size(), 200u);
        const EditorEditableProjectState last = EditorEditableProjectState::from(store.project());
        // Redo restores the selection of the last step's end; a selection made since is not
        // a step.
        const EditorSelectionState lastSelection =
            store.canUndo() ? store.undoHistory().undoStack().back().selectionAfter
                            : EditorSelectionState::empty();
        const size_t steps = store.undoHistory().undoStack().size();
        const size_t redoable = store.undoHistory().redoStack().size();
        ASSERT_GT(steps, 20u) << "the sequence should make real edits";
        while (store.undo()) {
        }
        // Undo of everything restores the first state, unless the first steps were undone
        // and then pushed out by new ones (not possible under 200 steps).
        EXPECT_EQ(EditorEditableProjectState::from(store.project()),
                  EditorEditableProjectState::from(start))
            << "run " << run;
        EXPECT_EQ(store.undoHistory().redoStack().size(), steps + redoable);
        for (size_t i = 0; i < steps; ++i) {
            ASSERT_TRUE(store.redo());
        }
        EXPECT_EQ(EditorEditableProjectState::from(store.project()), last) << "run " << run;
        EXPECT_EQ(store.selection(), lastSelection);
    }
}

} // namespace
} // namespace orvelle
