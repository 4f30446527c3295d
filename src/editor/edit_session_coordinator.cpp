#include "editor/edit_session_coordinator.h"

#include "editor/editor_store.h"

namespace orvelle {

EditSessionCoordinator::EditSessionCoordinator(
    std::function<void(const std::string&)> beginStoreTransaction,
    std::function<void()> endStoreTransaction)
    : beginStoreTransaction_(std::move(beginStoreTransaction)),
      endStoreTransaction_(std::move(endStoreTransaction)) {}

EditSessionCoordinator::EditSessionCoordinator(EditorStore& store)
    : EditSessionCoordinator(
          [&store](const std::string& label) { store.beginUndoTransaction(label); },
          [&store] { store.endUndoTransaction(); }) {}

void EditSessionCoordinator::beginTransaction(Domain domain, const std::string& label) {
    beginStoreTransaction_(label);
    ++openTransactionCounts_[domain];
}

void EditSessionCoordinator::endTransactions(Domain domain) {
    const auto found = openTransactionCounts_.find(domain);
    if (found == openTransactionCounts_.end()) {
        return;
    }
    const int count = found->second;
    openTransactionCounts_.erase(found);
    for (int i = 0; i < count; ++i) {
        endStoreTransaction_();
    }
}

int EditSessionCoordinator::openTransactionCount(Domain domain) const {
    const auto found = openTransactionCounts_.find(domain);
    return found == openTransactionCounts_.end() ? 0 : found->second;
}

void EditSessionCoordinator::resetAll() {
    while (!openTransactionCounts_.empty()) {
        endTransactions(openTransactionCounts_.begin()->first);
    }
    moveSession.reset();
    trimSession.reset();
    timelineRippleSession.reset();
    pendingTimelineEditFallbackSourceTime.reset();
    isEditingTimelineClipSpeed = false;
    pendingTimelineClipSpeedPlaybackRefresh = false;
    animationEditSession.reset();
    isEditingAnimationZoomScale = false;
    isEditingAnimationManualPlacement = false;
    pendingAnimationPlaybackRefresh = false;
    cameraLayoutEditSession.reset();
    maskEditSession.reset();
    isEditingMaskRegion = false;
    musicEditSession.reset();
    pendingMusicPlaybackRefresh = false;
    textEditSession.reset();
    isEditingTextPosition = false;
}

EditSessionCoordinator::Domain EditSessionCoordinator::domain(AuxiliaryTimelineTrack track) {
    switch (track) {
    case AuxiliaryTimelineTrack::zoom:
        return Domain::animation;
    case AuxiliaryTimelineTrack::cameraLayout:
        return Domain::cameraLayout;
    case AuxiliaryTimelineTrack::mask:
        return Domain::mask;
    case AuxiliaryTimelineTrack::music:
        return Domain::music;
    case AuxiliaryTimelineTrack::text:
        break;
    }
    return Domain::text;
}

std::optional<RangeClipEditSession>&
EditSessionCoordinator::rangeSession(AuxiliaryTimelineTrack track) {
    switch (track) {
    case AuxiliaryTimelineTrack::zoom:
        return animationEditSession;
    case AuxiliaryTimelineTrack::cameraLayout:
        return cameraLayoutEditSession;
    case AuxiliaryTimelineTrack::mask:
        return maskEditSession;
    case AuxiliaryTimelineTrack::music:
        return musicEditSession;
    case AuxiliaryTimelineTrack::text:
        break;
    }
    return textEditSession;
}

} // namespace orvelle
