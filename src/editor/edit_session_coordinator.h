#pragma once

// The state of gestures that span many events: the main lane's trim and move sessions
// with their ripple, each lane's drag session, and the flags of slider edits. A gesture's
// domain may open nested store transactions; they all close at once when it ends, so one
// gesture is one undo step. Main thread only.

#include "editor/timeline_range_clip_editor.h"
#include "editor/timeline_ripple.h"

#include <functional>
#include <map>
#include <optional>
#include <string>

namespace orvelle {

class EditorStore;

class EditSessionCoordinator {
public:
    enum class Domain { timelineRange, timelineSpeed, animation, cameraLayout, mask, music, text };

    // Opens and closes store transactions through the two callbacks.
    EditSessionCoordinator(std::function<void(const std::string&)> beginStoreTransaction,
                           std::function<void()> endStoreTransaction);
    // Wired to the store's beginUndoTransaction and endUndoTransaction.
    explicit EditSessionCoordinator(EditorStore& store);

    void beginTransaction(Domain domain, const std::string& label);
    // Closes every transaction the domain opened.
    void endTransactions(Domain domain);
    // Ends the transactions of every domain and clears every session and flag.
    void resetAll();
    int openTransactionCount(Domain domain) const;

    static Domain domain(AuxiliaryTimelineTrack track);
    // The drag session of a lane.
    std::optional<RangeClipEditSession>& rangeSession(AuxiliaryTimelineTrack track);

    std::optional<TimelineClipMoveSession> moveSession;
    std::optional<TimelineTrimSession> trimSession;
    std::optional<TimelineRipple::Session> timelineRippleSession;
    // Where the playhead goes when the rebuild that ends a trim runs: the trimmed edge.
    std::optional<SourceTime> pendingTimelineEditFallbackSourceTime;
    bool isEditingTimelineClipSpeed = false;
    bool pendingTimelineClipSpeedPlaybackRefresh = false;
    std::optional<RangeClipEditSession> animationEditSession;
    bool isEditingAnimationZoomScale = false;
    bool isEditingAnimationManualPlacement = false;
    bool pendingAnimationPlaybackRefresh = false;
    std::optional<RangeClipEditSession> cameraLayoutEditSession;
    std::optional<RangeClipEditSession> maskEditSession;
    bool isEditingMaskRegion = false;
    std::optional<RangeClipEditSession> musicEditSession;
    bool pendingMusicPlaybackRefresh = false;
    std::optional<RangeClipEditSession> textEditSession;
    bool isEditingTextPosition = false;

private:
    std::function<void(const std::string&)> beginStoreTransaction_;
    std::function<void()> endStoreTransaction_;
    std::map<Domain, int> openTransactionCounts_;
};

} // namespace orvelle
