#include "editor/editor_store.h"
#include "editor/timeline_edit_gestures.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

// A store over a 60 s take with one full-length clip and no zooms.
EditorProjectState freshProject(double duration = 60) {
    EditorProjectState project;
    project.timeline = fullLengthTimeline(SourceTime(duration));
    return project;
}

std::vector<std::string> labels(const std::vector<EditorUndoHistoryEntry>& stack) {
    std::vector<std::string> result;
    for (const auto& entry : stack) {
        result.push_back(entry.label);
    }
    return result;
}

using Labels = std::vector<std::string>;

class Store : public ::testing::Test {
protected:
    EditorStore store_{freshProject()};
    EditSessionCoordinator sessions_{store_};
    TimelineEditGestures gestures_{store_, sessions_};

    Uuid firstClip() const { return store_.project().timeline.clips.at(0).id; }
    AnimationClip zoomAt(double at) {
        return *store_.addAnimationClip(EditTime(at), 1.5, EditTime(0.5));
    }
};

TEST_F(Store, SplittingSelectsTheSecondHalfAndUndoesWithTheSelectionOfThatMoment) {
    const Uuid original = firstClip();
    store_.selectTimelineClip(original);
    const auto second = store_.splitTimelineClip(SourceTime(20));
    ASSERT_TRUE(second);
    EXPECT_EQ(store_.selection(), EditorSelectionState::timelineClip(*second));
    EXPECT_EQ(labels(store_.undoHistory().undoStack()), Labels{"Split Clip"});
    ASSERT_TRUE(store_.deleteTimelineClip(*second));
    EXPECT_EQ(store_.selection(), EditorSelectionState::empty());

    // Undo across the deletion brings the clip back and selects it again.
    ASSERT_TRUE(store_.undo());
    EXPECT_EQ(store_.selection(), EditorSelectionState::timelineClip(*second));
    // Undo of the split: the selection of that moment names a clip that exists again.
    const auto change = store_.undo();
    ASSERT_TRUE(change);
    EXPECT_EQ(change->after.timeline.clips.size(), 1u);
    EXPECT_EQ(store_.selection(), EditorSelectionState::timelineClip(original));
    EXPECT_FALSE(store_.undo());
    EXPECT_FALSE(store_.canUndo());
    EXPECT_TRUE(store_.canRedo());
}

TEST_F(Store, AnOperationThatCannotApplyPushesNothing) {
    EXPECT_FALSE(store_.splitTimelineClip(SourceTime(0.01)));
    EXPECT_FALSE(store_.deleteTimelineClip(Uuid::random()));
    EXPECT_FALSE(store_.restoreTimelineCut(firstClip()));
    EXPECT_FALSE(
        store_.updateAnimationClip(Uuid::random(), [](AnimationClip& c) { c.zoomScale = 3; }));
    store_.edit("Nothing", [](EditorProjectState&, EditorSelectionState&) {});
    store_.selectTimelineClip(firstClip());
    EXPECT_TRUE(store_.undoHistory().undoStack().empty());
    EXPECT_FALSE(store_.canUndo());
}

TEST_F(Store, ASliderDragOfManyStepsIsOneStepWithTheOpeningLabel) {
    const auto zoom = zoomAt(5);
    const auto slider = store_.undoTransaction("Change Zoom Scale");
    slider(true);
    for (int step = 1; step <= 100; ++step) {
        store_.updateAnimationClip(zoom.id,
                                   [&](AnimationClip& c) { c.zoomScale = 1.5 + step * 0.01; });
    }
    slider(false);
    EXPECT_EQ(labels(store_.undoHistory().undoStack()), (Labels{"Add Zoom", "Change Zoom Scale"}));
    store_.undo();
    EXPECT_EQ(store_.project().animation.zoomClips.at(0).zoomScale, 1.5);
}

TEST_F(Store, NestedTransactionsPushOneStepAtTheOutermostEnd) {
    store_.beginUndoTransaction("Outer");
    store_.beginUndoTransaction("Inner");
    store_.setRemovesNoise(true);
    store_.endUndoTransaction();
    EXPECT_TRUE(store_.undoHistory().undoStack().empty());
    store_.splitTimelineClip(SourceTime(10));
    store_.endUndoTransaction();
    EXPECT_EQ(labels(store_.undoHistory().undoStack()), Labels{"Outer"});
    store_.endUndoTransaction(); // none open: nothing happens
    store_.undo();
    EXPECT_FALSE(store_.project().audio.removesNoise);
    EXPECT_EQ(store_.project().timeline.clips.size(), 1u);
}

TEST_F(Store, DraggingAClipBackToItsPlaceLeavesNoStep) {
    const auto zoom = zoomAt(5);
    gestures_.moveRangeClip(AuxiliaryTimelineTrack::zoom, zoom.id, EditTime(4));
    gestures_.moveRangeClip(AuxiliaryTimelineTrack::zoom, zoom.id, EditTime(0));
    gestures_.finishAllEditSessions();
    EXPECT_EQ(labels(store_.undoHistory().undoStack()), Labels{"Add Zoom"});

    gestures_.trimClip(firstClip(), TimelineTrimEdge::end, EditTime(-10), false);
    gestures_.trimClip(firstClip(), TimelineTrimEdge::end, EditTime(0), false);
    gestures_.finishAllEditSessions();
    EXPECT_EQ(labels(store_.undoHistory().undoStack()), Labels{"Add Zoom"});
}

TEST_F(Store, The201stStepPushesOutTheOldestAndANewStepEmptiesRedo) {
    for (int i = 0; i < 201; ++i) {
        store_.edit("Step " + std::to_string(i), [i](EditorProjectState& p, EditorSelectionState&) {
            p.screen.zoomScale = 1 + i * 0.001;
        });
    }
    const auto& stack = store_.undoHistory().undoStack();
    ASSERT_EQ(stack.size(), 200u);
    EXPECT_EQ(stack.front().label, "Step 1");
    EXPECT_EQ(stack.back().label, "Step 200");
    store_.undo();
    store_.undo();
    EXPECT_EQ(store_.undoHistory().redoStack().size(), 2u);
    store_.setRemovesNoise(true);
    EXPECT_TRUE(store_.undoHistory().redoStack().empty());
    EXPECT_FALSE(store_.canRedo());
}

TEST_F(Store, UndoingMusicLeavesItsSegmentInTheManifest) {
    const std::string segment = store_.registerMusicSegment("/music/song.mp3", 95);
    EXPECT_EQ(segment, "music-0001");
    EXPECT_EQ(store_.registerMusicSegment("/music/other.mp3", 30), "music-0002");
    MusicClip clip{
        .id = Uuid::random(), .end = EditTime(20), .segmentID = segment, .title = "Song"};
    ASSERT_TRUE(store_.addMusicClip(clip));
    EXPECT_EQ(store_.selection(), musicLane.selection(clip.id));
    store_.undo();
    EXPECT_TRUE(store_.project().music.clips.empty());
    const auto music = store_.project().manifest.segmentsFor(MediaTrackManifest::Kind::music);
    ASSERT_EQ(music.size(), 2u);
    EXPECT_EQ(music[0].duration, 95);
    EXPECT_EQ(music[0].trackID, "music");
    EXPECT_EQ(store_.project().manifest.tracks.size(), 1u);
}

TEST_F(Store, ExportSettingsStandOutsideTheHistory) {
    store_.edit("Export", [](EditorProjectState& p, EditorSelectionState&) {
        p.exportSettings = ProjectExportSettings{};
        p.exportSettings->youtubeTitle = "Draft";
    });
    EXPECT_TRUE(store_.undoHistory().undoStack().empty());
    EXPECT_TRUE(store_.project().exportSettings);
}

TEST_F(Store, BeginningATransactionDuringUndoHasNoEffect) {
    store_.setRemovesNoise(true);
    const auto subscription = store_.observeProject(
        [&](const EditorProjectState&) { store_.beginUndoTransaction("Sneaky"); });
    store_.undo();
    EXPECT_FALSE(store_.activeUndoTransaction());
}

TEST_F(Store, PublishesEachChangeToItsObservers) {
    std::vector<bool> canUndo;
    std::vector<EditorSelectionState::Kind> selections;
    int projects = 0;
    std::vector<bool> presets;
    auto a = store_.observeCanUndo([&](const bool& value) { canUndo.push_back(value); });
    auto b = store_.observeSelection(
        [&](const EditorSelectionState& s) { selections.push_back(s.kind); });
    auto c = store_.observeProject([&](const EditorProjectState&) { ++projects; });
    auto d = store_.observeIsApplyingPreset([&](const bool& value) { presets.push_back(value); });
    zoomAt(3);
    EditorPresetPayload preset;
    preset.screen = ScreenSettings{2.0, AspectRatio::square};
    store_.applyPreset(preset);
    EXPECT_EQ(store_.project().screen.aspectRatio, AspectRatio::square);
    EXPECT_EQ(labels(store_.undoHistory().undoStack()), (Labels{"Add Zoom", "Apply Preset"}));
    store_.undo();
    store_.undo();
    EXPECT_EQ(canUndo, (std::vector<bool>{true, false}));
    EXPECT_EQ(selections,
              (std::vector<EditorSelectionState::Kind>{EditorSelectionState::Kind::animationClip,
                                                       EditorSelectionState::Kind::none}));
    EXPECT_EQ(projects, 4);
    EXPECT_EQ(presets, (std::vector<bool>{true, false}));
    c.cancel();
    zoomAt(3);
    EXPECT_EQ(projects, 4);
}

TEST_F(Store, ResettingTheTimelineSeedsZoomsWithoutAStep) {
    store_.resetTimeline(SourceTime(10), 1.7, {}, {});
    ASSERT_EQ(store_.project().timeline.clips.size(), 1u);
    EXPECT_EQ(store_.project().timeline.clips[0].end, SourceTime(10));
    ASSERT_EQ(store_.project().animation.zoomClips.size(), 1u);
    EXPECT_EQ(store_.project().animation.zoomClips[0].zoomScale, 1.7);
    EXPECT_TRUE(store_.undoHistory().undoStack().empty());
    // Zooms that exist stay; a take of no length gets the empty timeline.
    const auto zooms = store_.project().animation.zoomClips;
    store_.resetTimeline(SourceTime(30), 1.5, {}, {{5, 0}});
    EXPECT_EQ(store_.project().animation.zoomClips, zooms);
    store_.resetTimeline(SourceTime(-1), 1.5, {}, {});
    EXPECT_EQ(store_.project().timeline, TimelineState::defaultState());
}

// A file may hold its lanes out of order. The store orders them once when it takes the
// project, as no step; from then on a change that changes nothing records nothing, and an
// edit reorders only what it touched.
TEST(StoreNormalisation, AProjectOutOfOrderIsOrderedOnceWithoutAStep) {
    EditorProjectState project = freshProject();
    for (const double start : {20.0, 2.0, 10.0}) {
        AnimationClip zoom{
            .id = Uuid::random(), .start = EditTime(start), .end = EditTime(start + 1)};
        project.animation.zoomClips.push_back(zoom);
        TextClip text{.id = Uuid::random(), .start = EditTime(start), .end = EditTime(start + 2)};
        project.text.clips.push_back(text);
    }
    const auto startsOf = [](const auto& clips) {
        std::vector<double> starts;
        for (const auto& clip : clips) {
            starts.push_back(clip.start.seconds);
        }
        return starts;
    };
    const std::vector<double> ordered{2, 10, 20};
    for (const bool throughADocument : {false, true}) {
        SCOPED_TRACE(throughADocument ? "loaded document" : "new store");
        EditorStore store{throughADocument ? EditorProjectState{} : project};
        if (throughADocument) {
            store.replaceProject(EditorDocument{.project = project}, false);
        }
        EXPECT_EQ(startsOf(store.project().animation.zoomClips), ordered);
        EXPECT_EQ(startsOf(store.project().text.clips), ordered);
        EXPECT_FALSE(store.canUndo());
        store.setRemovesNoise(store.project().audio.removesNoise);
        store.updateTextClip(store.project().text.clips[0].id, "Change Text", [](TextClip&) {});
        EXPECT_FALSE(store.canUndo());
        store.setRemovesNoise(!store.project().audio.removesNoise);
        EXPECT_EQ(labels(store.undoHistory().undoStack()), Labels{"Toggle Noise Removal"});
        ASSERT_TRUE(store.undo());
        EXPECT_EQ(startsOf(store.project().animation.zoomClips), ordered);
    }
    // An edit sorts the lane it touched.
    EditorStore store{freshProject()};
    store.edit("Add Zooms", [&](EditorProjectState& p, EditorSelectionState&) {
        p.animation.zoomClips = project.animation.zoomClips;
    });
    EXPECT_EQ(startsOf(store.project().animation.zoomClips), ordered);
}

TEST_F(Store, ReplacingTheProjectKeepsOrDropsTheHistory) {
    store_.setRemovesNoise(true);
    EditorDocument saved{.project = store_.project(), .hasSavedProject = true};
    store_.replaceProject(saved, true);
    EXPECT_TRUE(store_.canUndo());
    store_.replaceProject(saved, false);
    EXPECT_FALSE(store_.canUndo());
    EXPECT_EQ(store_.selection(), EditorSelectionState::empty());
}

TEST_F(Store, LaneOperationsUseTheirLanesLabelsAndPlaceClipsApart) {
    const auto text = *store_.addTextClip(EditTime(2), EditTime(0.5));
    EXPECT_EQ(text.end, EditTime(2 + kNewRangeClipDuration));
    const auto copy = store_.duplicateClip(text.id, textLane);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->start, text.end);
    EXPECT_EQ(copy->text, text.text);
    EXPECT_NE(copy->id, text.id);
    EXPECT_EQ(store_.selectedTextClip(), copy);
    EXPECT_TRUE(store_.updateSelectedTextClip([](TextClip& c) { c.text = "Hi"; }));
    EXPECT_FALSE(store_.updateSelectedMaskClip([](MaskClip& c) { c.opacity = 0; }));
    EXPECT_TRUE(
        store_.updateTextClip(text.id, "Move Text", [](TextClip& c) { c.position.x = 0.2; }));
    EXPECT_EQ(store_.deleteSelectedClip(textLane)->text, "Hi");
    const auto mask = store_.addMaskClip(EditTime(1), EditTime(0.5), MaskRect{0.9, 0, 0.5, 0.5});
    ASSERT_TRUE(mask);
    EXPECT_EQ(mask->referenceTime, EditTime(1));
    EXPECT_EQ(mask->rect.x, 0.5);
    EXPECT_EQ(store_.addEmptyMusicClip(EditTime(0), EditTime(0.5))->title, "Music");
    EXPECT_TRUE(store_.addCameraLayoutClip(EditTime(50), EditTime(0.5)));
    EXPECT_EQ(labels(store_.undoHistory().undoStack()),
              (Labels{"Add Text", "Duplicate Text", "Change Text", "Move Text", "Delete Text",
                      "Add Mask", "Add Music", "Add Camera Layout"}));
}

// Two clips that touch leave no room between them: a copy of either, or music added at
// their seam, goes to the free stretch after them.
TEST_F(Store, DuplicatesAndMusicGoPastTouchingClipsIntoTheNextRoom) {
    const auto first = *store_.addTextClip(EditTime(0), EditTime(0.5));
    const auto second = *store_.addTextClip(EditTime(3), EditTime(0.5));
    ASSERT_EQ(second.start, first.end);
    for (const auto& original : {first, second}) {
        const auto copy = store_.duplicateClip(original.id, textLane);
        EXPECT_TRUE(copy) << "copy of the clip at " << original.start.seconds;
        if (!copy) {
            continue;
        }
        EXPECT_GE(copy->start, second.end);
        EXPECT_EQ(copy->end.seconds - copy->start.seconds, 3);
        store_.deleteSelectedClip(textLane);
    }
    store_.addEmptyMusicClip(EditTime(0), EditTime(0.5));
    store_.addEmptyMusicClip(EditTime(3), EditTime(0.5));
    MusicClip music{.id = Uuid::random(), .start = EditTime(1.5), .end = EditTime(4.5)};
    const auto added = store_.addMusicClip(music);
    ASSERT_TRUE(added);
    EXPECT_EQ(added->start, EditTime(6));
}

TEST_F(Store, RestoringAnEdgeTrimIsOneStep) {
    gestures_.trimClip(firstClip(), TimelineTrimEdge::end, EditTime(-20), false);
    gestures_.finishAllEditSessions();
    EXPECT_EQ(store_.project().timeline.clips[0].end, SourceTime(40));
    EXPECT_TRUE(store_.restoreTimelineEdgeTrim(firstClip(), TimelineTrimEdge::end));
    EXPECT_EQ(store_.project().timeline.clips[0].end, SourceTime(60));
    EXPECT_EQ(labels(store_.undoHistory().undoStack()), (Labels{"Trim Clip End", "Restore Trim"}));
}

TEST_F(Store, ACutRecordsItsGapAndRestoresAsOneClip) {
    const auto gap = gestures_.deleteSourceRange(SourceTime(4), SourceTime(9.95));
    ASSERT_TRUE(gap);
    EXPECT_EQ(store_.project().timeline.deletedGaps, std::vector<DeletedTimelineGap>{*gap});
    EXPECT_EQ(store_.timelineDuration(), EditTime(60 - 5.95));
    ASSERT_TRUE(store_.restoreTimelineSourceRange(gap->sourceStart, gap->sourceEnd));
    EXPECT_EQ(store_.project().timeline.clips.size(), 1u);
    EXPECT_TRUE(store_.project().timeline.deletedGaps.empty());
    EXPECT_EQ(labels(store_.undoHistory().undoStack()), (Labels{"Delete Range", "Restore Clip"}));
}

} // namespace
} // namespace orvelle
