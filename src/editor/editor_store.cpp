#include "editor/editor_store.h"

#include "motion/zoom_activity_planner.h"
#include "timeline/resolved_edit_timeline.h"

#include <algorithm>

namespace orvelle {

namespace {

template <class Clip>
bool holds(const std::vector<Clip>& clips, const Uuid& id) {
    return std::any_of(clips.begin(), clips.end(), [&](const Clip& c) { return c.id == id; });
}

// Both the project and its editable part hold the timeline and the five lanes under the
// same names.
template <class State>
EditorSelectionState normalized(const EditorSelectionState& selection, const State& state) {
    using Kind = EditorSelectionState::Kind;
    bool present = true;
    switch (selection.kind) {
    case Kind::none:
        return selection;
    case Kind::timelineClip:
        present = holds(state.timeline.clips, selection.id);
        break;
    case Kind::animationClip:
        present = holds(state.animation.zoomClips, selection.id);
        break;
    case Kind::cameraLayoutClip:
        present = holds(state.camera.dynamicLayoutClips, selection.id);
        break;
    case Kind::maskClip:
        present = holds(state.mask.clips, selection.id);
        break;
    case Kind::musicClip:
        present = holds(state.music.clips, selection.id);
        break;
    case Kind::textClip:
        present = holds(state.text.clips, selection.id);
        break;
    }
    return present ? selection : EditorSelectionState::empty();
}

template <class Clip>
void sortByStart(std::vector<Clip>& clips) {
    std::stable_sort(clips.begin(), clips.end(),
                     [](const Clip& a, const Clip& b) { return a.start < b.start; });
}

// The timeline and every lane in order. Only what `before` does not hold as it is gets
// sorted, so an edit reorders nothing it did not touch; with no `before`, everything.
void normalizeChanged(EditorProjectState& project, const EditorProjectState* before) {
    if (before == nullptr || project.timeline != before->timeline) {
        TimelineEngine::normalize(project.timeline);
    }
    forEachClipLane([&](const auto& lane) {
        if (before == nullptr || lane.clips(project) != lane.clipsOf(*before)) {
            sortByStart(lane.clips(project));
        }
    });
}

EditorProjectState ordered(EditorProjectState project) {
    normalizeChanged(project, nullptr);
    return project;
}

template <class Clip>
Clip* findClip(std::vector<Clip>& clips, const Uuid& id) {
    const auto it =
        std::find_if(clips.begin(), clips.end(), [&](const Clip& c) { return c.id == id; });
    return it == clips.end() ? nullptr : &*it;
}

EditTime editDuration(const TimelineState& timeline) {
    return EditTime(ResolvedEditTimeline(EditTimeline::from(timeline)).duration());
}

} // namespace

EditorSelectionState normalizedSelection(const EditorSelectionState& selection,
                                         const EditorProjectState& project) {
    return normalized(selection, project);
}

void loadDocument(EditorStore& store, const EditorDocument& document, double defaultZoomScale) {
    store.replaceProject(document, false);
    // A saved timeline stands; one never built (no clips) is seeded like a fresh take's.
    if (document.hasSavedProject && !document.project.timeline.clips.empty()) {
        return;
    }
    const auto pointer = takeCursorRecording(document.manifest);
    store.resetTimeline(takeSourceDuration(document.manifest), defaultZoomScale,
                        pointer ? pointer->samples : std::vector<CursorSample>{},
                        pointer ? pointer->clicks : std::vector<CursorClick>{});
}

EditorStore::EditorStore(EditorProjectState project) : project_(ordered(std::move(project))) {}

Subscription EditorStore::observeProject(std::function<void(const EditorProjectState&)> f) const {
    return project_.observe(std::move(f));
}
Subscription
EditorStore::observeSelection(std::function<void(const EditorSelectionState&)> f) const {
    return selection_.observe(std::move(f));
}
Subscription EditorStore::observeIsApplyingPreset(std::function<void(const bool&)> f) const {
    return isApplyingPreset_.observe(std::move(f));
}
Subscription EditorStore::observeCanUndo(std::function<void(const bool&)> f) const {
    return canUndo_.observe(std::move(f));
}
Subscription EditorStore::observeCanRedo(std::function<void(const bool&)> f) const {
    return canRedo_.observe(std::move(f));
}

EditorEditableProjectState EditorStore::editableSnapshot() const {
    return EditorEditableProjectState::from(project());
}

void EditorStore::beginUndoTransaction(std::string label) {
    if (isApplyingHistory_) {
        return;
    }
    if (transaction_) {
        ++transaction_->depth;
        return;
    }
    transaction_ = EditorUndoTransaction{std::move(label), editableSnapshot(), selection(), 1};
}

void EditorStore::endUndoTransaction() {
    if (!transaction_) {
        return;
    }
    if (--transaction_->depth > 0) {
        return;
    }
    const EditorUndoTransaction finished = std::move(*transaction_);
    transaction_.reset();
    pushUndoEntryIfChanged(finished.label, finished.before, finished.selectionBefore);
}

void EditorStore::closeActiveTransaction() {
    if (transaction_) {
        transaction_->depth = 1;
        endUndoTransaction();
    }
}

std::function<void(bool)> EditorStore::undoTransaction(std::string label) {
    return [this, label = std::move(label)](bool begins) {
        if (begins) {
            beginUndoTransaction(label);
        } else {
            endUndoTransaction();
        }
    };
}

void EditorStore::edit(std::string_view label, const Mutation& body) {
    const EditorEditableProjectState before = editableSnapshot();
    const EditorSelectionState selectionBefore = selection();
    EditorProjectState next = project();
    EditorSelectionState nextSelection = selection();
    body(next, nextSelection);
    normalizeChanged(next, &project());
    nextSelection = normalized(nextSelection, next);
    project_.set(std::move(next));
    selection_.set(nextSelection);
    if (transaction_) {
        return; // the transaction takes the change in: a gesture is one step
    }
    pushUndoEntryIfChanged(std::string(label), before, selectionBefore);
}

void EditorStore::pushUndoEntryIfChanged(const std::string& label,
                                         const EditorEditableProjectState& before,
                                         const EditorSelectionState& selectionBefore) {
    if (isApplyingHistory_) {
        return;
    }
    EditorEditableProjectState after = editableSnapshot();
    if (after == before) {
        return; // a gesture that ends where it began, or a selection change alone
    }
    EditorUndoHistoryEntry entry{label, before, std::move(after),
                                 normalized(selectionBefore, before),
                                 normalized(selection(), project())};
    history_.push(std::move(entry));
    updateHistoryFlags();
}

void EditorStore::updateHistoryFlags() {
    canUndo_.set(!history_.undoStack().empty());
    canRedo_.set(!history_.redoStack().empty());
}

void EditorStore::applyHistory(const EditorEditableProjectState& state,
                               const EditorSelectionState& selection) {
    isApplyingHistory_ = true;
    EditorProjectState next = project();
    state.applyTo(next);
    const EditorSelectionState nextSelection = normalized(selection, next);
    project_.set(std::move(next));
    selection_.set(nextSelection);
    isApplyingHistory_ = false;
    updateHistoryFlags();
}

std::optional<EditorProjectHistoryChange> EditorStore::undo() {
    closeActiveTransaction();
    const auto entry = history_.popUndo();
    if (!entry) {
        return std::nullopt;
    }
    EditorProjectHistoryChange change{editableSnapshot(), entry->before};
    applyHistory(entry->before, entry->selectionBefore);
    return change;
}

std::optional<EditorProjectHistoryChange> EditorStore::redo() {
    closeActiveTransaction();
    const auto entry = history_.popRedo();
    if (!entry) {
        return std::nullopt;
    }
    EditorProjectHistoryChange change{editableSnapshot(), entry->after};
    applyHistory(entry->after, entry->selectionAfter);
    return change;
}

void EditorStore::replaceProject(const EditorDocument& document, bool preservingUndoHistory) {
    transaction_.reset();
    // A file may hold its lanes in any order: they are ordered once here, as no edit.
    project_.set(ordered(document.project));
    if (preservingUndoHistory) {
        selection_.set(normalized(selection(), project()));
    } else {
        history_.clear();
        selection_.set(EditorSelectionState::empty());
    }
    updateHistoryFlags();
}

void EditorStore::resetTimeline(SourceTime sourceDuration, double defaultZoomScale,
                                const std::vector<CursorSample>& cursorSamples,
                                const std::vector<CursorClick>& cursorClicks) {
    EditorProjectState next = project();
    next.timeline = fullLengthTimeline(SourceTime(std::max(0.0, sourceDuration.seconds)));
    if (!next.timeline.clips.empty() && next.animation.zoomClips.empty()) {
        const EditTime duration = editDuration(next.timeline);
        if (duration.seconds > 0) {
            next.animation.zoomClips = TimelineEngine::defaultAnimationClips(
                duration, defaultZoomScale, cursorSamples, cursorClicks);
        }
    }
    project_.set(std::move(next));
    selection_.set(EditorSelectionState::empty());
}

void EditorStore::applyPreset(const EditorPresetPayload& payload) {
    isApplyingPreset_.set(true);
    edit("Apply Preset", [&](EditorProjectState& p, EditorSelectionState&) {
        if (payload.screenStyle) {
            p.animation.screenStyle = *payload.screenStyle;
        }
        if (payload.background) {
            p.background = *payload.background;
        }
        if (payload.cursor) {
            p.cursor = *payload.cursor;
        }
        if (payload.camera) {
            auto layouts = std::move(p.camera.dynamicLayoutClips);
            p.camera = *payload.camera;
            p.camera.dynamicLayoutClips = std::move(layouts);
        }
        if (payload.audio) {
            p.audio = *payload.audio;
        }
        if (payload.screen) {
            p.screen = *payload.screen;
        }
    });
    isApplyingPreset_.set(false);
}

void EditorStore::selectTimelineClip(const Uuid& id) {
    selection_.set(normalized(EditorSelectionState::timelineClip(id), project()));
}

std::optional<Uuid> EditorStore::splitTimelineClip(SourceTime containing, double minimumDuration) {
    std::optional<Uuid> second;
    edit("Split Clip", [&](EditorProjectState& p, EditorSelectionState& selection) {
        second = TimelineEngine::splitClip(p.timeline, containing, minimumDuration);
        if (second) {
            selection = EditorSelectionState::timelineClip(*second);
        }
    });
    return second;
}

std::optional<TimelineClip> EditorStore::deleteTimelineClip(const Uuid& id) {
    std::optional<TimelineClip> removed;
    edit("Delete Clip", [&](EditorProjectState& p, EditorSelectionState&) {
        removed = TimelineEngine::deleteClip(p.timeline, id);
    });
    return removed;
}

std::optional<DeletedTimelineGap> EditorStore::deleteTimelineSourceRange(SourceTime sourceStart,
                                                                         SourceTime sourceEnd,
                                                                         double minimumDuration) {
    std::optional<DeletedTimelineGap> gap;
    edit("Delete Range", [&](EditorProjectState& p, EditorSelectionState&) {
        gap =
            TimelineEngine::deleteSourceRange(p.timeline, sourceStart, sourceEnd, minimumDuration);
        if (gap) {
            p.timeline.deletedGaps.push_back(*gap);
        }
    });
    return gap;
}

std::optional<TimelineClip>
EditorStore::updateTimelineClip(const Uuid& id,
                                const std::function<void(TimelineClip&)>& mutation) {
    std::optional<TimelineClip> updated;
    edit("Change Clip", [&](EditorProjectState& p, EditorSelectionState&) {
        if (TimelineClip* clip = findClip(p.timeline.clips, id)) {
            mutation(*clip);
            clip->id = id;
            updated = *clip;
        }
    });
    return updated;
}

std::optional<TimelineClip> EditorStore::restoreTimelineSourceRange(SourceTime sourceStart,
                                                                    SourceTime sourceEnd,
                                                                    double minimumDuration) {
    std::optional<TimelineClip> restored;
    edit("Restore Clip", [&](EditorProjectState& p, EditorSelectionState&) {
        restored =
            TimelineEngine::restoreSourceRange(p.timeline, sourceStart, sourceEnd, minimumDuration);
    });
    return restored;
}

std::optional<TimelineClip> EditorStore::restoreTimelineCut(const Uuid& beforeClipID,
                                                            double minimumDuration) {
    std::optional<TimelineClip> merged;
    edit("Restore Clip", [&](EditorProjectState& p, EditorSelectionState&) {
        merged = TimelineEngine::restoreCut(p.timeline, beforeClipID, minimumDuration);
    });
    return merged;
}

std::optional<TimelineClip> EditorStore::restoreTimelineEdgeTrim(const Uuid& clipID,
                                                                 TimelineTrimEdge edge) {
    std::optional<TimelineClip> restored;
    edit("Restore Trim", [&](EditorProjectState& p, EditorSelectionState&) {
        restored = TimelineEngine::restoreEdgeTrim(p.timeline, clipID, edge);
    });
    return restored;
}

std::optional<TimelineClip> EditorStore::selectedTimelineClip() const {
    if (const auto id = selection().selectedID(EditorSelectionState::Kind::timelineClip)) {
        for (const auto& clip : project().timeline.clips) {
            if (clip.id == *id) {
                return clip;
            }
        }
    }
    return std::nullopt;
}

EditTime EditorStore::timelineDuration() const {
    return editDuration(project().timeline);
}

template <RangeEditableClip Clip>
std::optional<Clip> EditorStore::addPlacedClip(const ClipLane<Clip>& lane, Clip candidate,
                                               EditTime minimumDuration,
                                               const std::function<void(Clip&)>& placed) {
    std::optional<Clip> added;
    edit(lane.addLabel, [&](EditorProjectState& p, EditorSelectionState& selection) {
        added = TimelineLanePolicy::place(candidate, lane.clips(p), editDuration(p.timeline),
                                          minimumDuration);
        if (added) {
            if (placed) {
                placed(*added);
            }
            lane.clips(p).push_back(*added);
            selection = lane.selection(added->id);
        }
    });
    return added;
}

namespace {

template <class Clip>
Clip newClip(EditTime at) {
    Clip clip;
    clip.id = Uuid::random();
    clip.start = at;
    clip.end = EditTime(at.seconds + kNewRangeClipDuration);
    return clip;
}

} // namespace

std::optional<AnimationClip> EditorStore::addAnimationClip(EditTime at, double defaultZoomScale,
                                                           EditTime minimumDuration) {
    auto clip = newClip<AnimationClip>(at);
    clip.zoomScale = defaultZoomScale;
    return addPlacedClip(animationLane, clip, minimumDuration);
}

std::optional<CameraLayoutClip> EditorStore::addCameraLayoutClip(EditTime at,
                                                                 EditTime minimumDuration) {
    return addPlacedClip(cameraLayoutLane, newClip<CameraLayoutClip>(at), minimumDuration);
}

std::optional<MaskClip> EditorStore::addMaskClip(EditTime at, EditTime minimumDuration,
                                                 const MaskRect& rect) {
    auto clip = newClip<MaskClip>(at);
    clip.rect = rect.normalized();
    // The border's phase counts from where the clip landed.
    return addPlacedClip<MaskClip>(maskLane, clip, minimumDuration,
                                   [](MaskClip& placed) { placed.referenceTime = placed.start; });
}

std::optional<MusicClip> EditorStore::addEmptyMusicClip(EditTime at, EditTime minimumDuration) {
    auto clip = newClip<MusicClip>(at);
    clip.title = "Music";
    return addPlacedClip(musicLane, clip, minimumDuration);
}

std::optional<MusicClip> EditorStore::addMusicClip(const MusicClip& clip,
                                                   EditTime minimumDuration) {
    return addPlacedClip(musicLane, clip, minimumDuration);
}

std::optional<TextClip> EditorStore::addTextClip(EditTime at, EditTime minimumDuration) {
    return addPlacedClip(textLane, newClip<TextClip>(at), minimumDuration);
}

template <RangeEditableClip Clip>
std::optional<Clip> EditorStore::updateClip(const ClipLane<Clip>& lane, const Uuid& id,
                                            const std::function<void(Clip&)>& mutation,
                                            std::string_view label) {
    std::optional<Clip> updated;
    edit(label.empty() ? lane.changeLabel : label,
         [&](EditorProjectState& p, EditorSelectionState&) {
             if (Clip* clip = findClip(lane.clips(p), id)) {
                 mutation(*clip);
                 clip->id = id;
                 updated = *clip;
             }
         });
    return updated;
}

template <RangeEditableClip Clip>
std::optional<Clip> EditorStore::updateSelectedClip(const ClipLane<Clip>& lane,
                                                    const std::function<void(Clip&)>& mutation) {
    if (const auto id = lane.selectedID(selection())) {
        return updateClip(lane, *id, mutation);
    }
    return std::nullopt;
}

template <RangeEditableClip Clip>
std::optional<Clip> EditorStore::selectedClip(const ClipLane<Clip>& lane) const {
    if (const auto id = lane.selectedID(selection())) {
        for (const auto& clip : lane.clipsOf(project())) {
            if (clip.id == *id) {
                return clip;
            }
        }
    }
    return std::nullopt;
}

template <RangeEditableClip Clip>
std::optional<Clip> EditorStore::duplicateClip(const Uuid& id, const ClipLane<Clip>& lane,
                                               EditTime minimumDuration) {
    std::optional<Clip> copy;
    edit(lane.duplicateLabel, [&](EditorProjectState& p, EditorSelectionState& selection) {
        auto& clips = lane.clips(p);
        const Clip* original = findClip(clips, id);
        if (original == nullptr) {
            return;
        }
        Clip candidate = *original;
        candidate.id = Uuid::random();
        copy =
            TimelineLanePolicy::place(candidate, clips, editDuration(p.timeline), minimumDuration);
        if (copy) {
            clips.push_back(*copy);
            selection = lane.selection(copy->id);
        }
    });
    return copy;
}

template <RangeEditableClip Clip>
std::optional<Clip> EditorStore::deleteSelectedClip(const ClipLane<Clip>& lane) {
    std::optional<Clip> removed;
    const auto id = lane.selectedID(selection());
    if (!id) {
        return removed;
    }
    edit(lane.deleteLabel, [&](EditorProjectState& p, EditorSelectionState&) {
        auto& clips = lane.clips(p);
        if (const Clip* clip = findClip(clips, *id)) {
            removed = *clip;
            std::erase_if(clips, [&](const Clip& c) { return c.id == *id; });
        }
    });
    return removed;
}

template <RangeEditableClip Clip>
void EditorStore::select(const Uuid& id, const ClipLane<Clip>& lane) {
    selection_.set(normalized(lane.selection(id), project()));
}

bool EditorStore::repositionClip(const Uuid& id, AuxiliaryTimelineTrack track, EditTime start,
                                 EditTime end) {
    const auto ranges = laneClipRanges(project(), track);
    if (std::none_of(ranges.begin(), ranges.end(), [&](const auto& r) { return r.id == id; })) {
        return false;
    }
    repositionClips(track, {{id, start, end}});
    return true;
}

void EditorStore::repositionClips(AuxiliaryTimelineTrack track,
                                  const std::vector<ClipPosition>& positions) {
    withClipLane(track, [&](const auto& lane) {
        edit(lane.changeLabel, [&](EditorProjectState& p, EditorSelectionState&) {
            auto& clips = lane.clips(p);
            for (const auto& position : positions) {
                if (auto* clip = findClip(clips, position.id)) {
                    clip->start = position.start;
                    clip->end = position.end;
                }
            }
        });
    });
}

void EditorStore::setRemovesNoise(bool value) {
    edit("Toggle Noise Removal",
         [&](EditorProjectState& p, EditorSelectionState&) { p.audio.removesNoise = value; });
}

std::string EditorStore::registerMusicSegment(const std::filesystem::path& fileURL,
                                              double duration) {
    using Kind = MediaTrackManifest::Kind;
    EditorProjectState next = project();
    TakeManifest& manifest = next.manifest;
    const std::string trackID(MediaTrackManifest::defaultTrackID(Kind::music));
    if (std::none_of(manifest.tracks.begin(), manifest.tracks.end(),
                     [&](const auto& t) { return t.id == trackID; })) {
        TakeTrackManifest track;
        track.id = trackID;
        track.kind = Kind::music;
        track.displayName = std::string(MediaTrackManifest::defaultDisplayName(Kind::music));
        manifest.tracks.push_back(track);
    }
    const auto existing = std::count_if(manifest.segments.begin(), manifest.segments.end(),
                                        [](const auto& s) { return s.kind == Kind::music; });
    TakeSegmentManifest segment;
    segment.id = musicSegmentID(static_cast<int>(existing)); // "music-0001" for the first
    segment.trackID = trackID;
    segment.kind = Kind::music;
    segment.url = fileURL;
    segment.duration = std::max(0.0, duration);
    segment.mediaDuration = segment.duration;
    manifest.segments.push_back(segment);
    project_.set(std::move(next));
    return segment.id;
}

// The lane operations exist for the five clip types; a type cannot be parenthesised here.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define ORVELLE_INSTANTIATE_LANE_OPERATIONS(Clip)                                                  \
    template std::optional<Clip> EditorStore::updateClip(                                          \
        const ClipLane<Clip>&, const Uuid&, const std::function<void(Clip&)>&, std::string_view);  \
    template std::optional<Clip> EditorStore::updateSelectedClip(                                  \
        const ClipLane<Clip>&, const std::function<void(Clip&)>&);                                 \
    template std::optional<Clip> EditorStore::selectedClip(const ClipLane<Clip>&) const;           \
    template std::optional<Clip> EditorStore::duplicateClip(const Uuid&, const ClipLane<Clip>&,    \
                                                            EditTime);                             \
    template std::optional<Clip> EditorStore::deleteSelectedClip(const ClipLane<Clip>&);           \
    template void EditorStore::select(const Uuid&, const ClipLane<Clip>&);

ORVELLE_INSTANTIATE_LANE_OPERATIONS(AnimationClip)
ORVELLE_INSTANTIATE_LANE_OPERATIONS(CameraLayoutClip)
ORVELLE_INSTANTIATE_LANE_OPERATIONS(MaskClip)
ORVELLE_INSTANTIATE_LANE_OPERATIONS(MusicClip)
ORVELLE_INSTANTIATE_LANE_OPERATIONS(TextClip)
// NOLINTEND(bugprone-macro-parentheses)
#undef ORVELLE_INSTANTIATE_LANE_OPERATIONS

std::optional<AnimationClip>
EditorStore::updateAnimationClip(const Uuid& id,
                                 const std::function<void(AnimationClip&)>& mutation) {
    return updateClip(animationLane, id, mutation);
}

std::optional<CameraLayoutClip>
EditorStore::updateCameraLayoutClip(const Uuid& id,
                                    const std::function<void(CameraLayoutClip&)>& mutation) {
    return updateClip(cameraLayoutLane, id, mutation);
}

std::optional<MaskClip>
EditorStore::updateMaskClip(const Uuid& id, const std::function<void(MaskClip&)>& mutation) {
    return updateClip(maskLane, id, mutation);
}

std::optional<MusicClip>
EditorStore::updateMusicClip(const Uuid& id, const std::function<void(MusicClip&)>& mutation) {
    return updateClip(musicLane, id, mutation);
}

std::optional<TextClip>
EditorStore::updateTextClip(const Uuid& id, std::string_view label,
                            const std::function<void(TextClip&)>& mutation) {
    return updateClip(textLane, id, mutation, label);
}

} // namespace orvelle
