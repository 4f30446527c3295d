#pragma once

// The timeline: a ruler, the video lane (the edit's clips end to end, with pictures of
// the screen and the voice's waveform) and the five lanes under it (zoom, camera layout,
// mask, music with its waveform, text), with the playhead over all. The mouse scrubs on
// the ruler and on empty space, selects clips, trims video clips (rippling the lanes
// behind when asked), slips them with Alt, drags and resizes lane clips, and adds a lane
// clip with a double click; edges snap to the playhead and to other clips' edges. Every
// change goes through the playback model, and a drag is one undo step. Ctrl+wheel zooms
// the timeline about the pointer. Main thread only.

#include "editor/editor_selection.h"
#include "editor/published.h"
#include "editor/timeline_lane_policy.h"
#include "timeline/timeline_engine.h"

#include <QWidget>
#include <functional>
#include <optional>
#include <vector>

class QScrollBar;
class QTimer;

namespace orvelle {

class PlaybackModel;
class TimelineThumbnails;

enum class TimelineRow { ruler, video, zoom, cameraLayout, mask, music, text };

// Where a point of the view lies: on which row, and on which clip's body or edge.
struct TimelineHit {
    enum class Part { none, ruler, empty, body, startEdge, endEdge };
    Part part = Part::none;
    TimelineRow row = TimelineRow::ruler;
    Uuid id;
    double time = 0; // edit seconds under the point
};

class TimelineView : public QWidget {
public:
    static constexpr double kLabelWidth = 104;
    static constexpr double kEdgeGrip = 6;     // pixels either side of an edge
    static constexpr double kSnapDistance = 8; // pixels
    static constexpr double kMaximumPixelsPerSecond = 600;

    struct Actions {
        // A lane clip was picked or created: the inspector shows its panel.
        std::function<void(AuxiliaryTimelineTrack)> showLane;
        // The music lane was double-clicked at an edit time.
        std::function<void(double)> addMusic;
    };

    TimelineView(PlaybackModel& playback, TimelineThumbnails& thumbnails, Actions actions,
                 QWidget* parent = nullptr);

    bool rippleEnabled() const { return ripple_; }
    void setRippleEnabled(bool enabled) { ripple_ = enabled; }
    bool snappingEnabled() const { return snapping_; }
    void setSnappingEnabled(bool enabled) { snapping_ = enabled; }

    double pixelsPerSecond() const { return pixelsPerSecond_; }
    // Zooms about an x position of the view (the playhead's when absent).
    void setPixelsPerSecond(double value, std::optional<double> anchorX = std::nullopt);
    void zoomBy(double factor);
    void zoomToFit();
    bool isFitted() const { return fitted_; }
    double fittedPixelsPerSecond() const;

    // Geometry, in the view's coordinates.
    double xForTime(double editSeconds) const;
    double timeForX(double x) const;
    QRectF rowRect(TimelineRow row) const;
    // The rectangle of a clip of a row, empty when it is not on the row.
    QRectF clipRect(TimelineRow row, const Uuid& id) const;
    TimelineHit hitTest(QPointF point) const;
    double scrollSeconds() const { return scrollSeconds_; }
    // The edit time the playhead is drawn at (the scrub's while scrubbing).
    double shownPlayheadTime() const;

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    struct ClipBox {
        TimelineRow row;
        Uuid id;
        double start = 0; // edit seconds
        double end = 0;
        double sourceStart = 0; // video clips
        double speed = 1;
        QString label;
        bool disabled = false;
    };

    struct Drag {
        enum class Kind { scrub, trim, slip, moveLaneClip, resizeLaneClip, pendingLaneClip };
        Kind kind = Kind::scrub;
        TimelineRow row = TimelineRow::ruler;
        Uuid id;
        TimelineTrimEdge edge = TimelineTrimEdge::end;
        double pressX = 0;
        double edgeStart = 0; // edit seconds of the dragged edge, or of the clip's start
        double clipLength = 0;
        std::vector<double> snapTargets;
        bool moved = false;
    };

    std::vector<ClipBox> clipBoxes() const;
    std::vector<ClipBox> clipBoxes(TimelineRow row) const;
    double duration() const;
    std::vector<double> snapTargets(const std::optional<Uuid>& excluding) const;
    // The time snapped to the nearest target within reach, and whether it snapped.
    double snapped(double time, const std::vector<double>& targets, bool* didSnap) const;
    void seekForScrub(double time);
    void updateScrollBar();
    void followPlayhead();
    void select(TimelineRow row, const Uuid& id);
    void paintRuler(QPainter& painter) const;
    void paintVideoRow(QPainter& painter, const std::vector<ClipBox>& clips) const;
    void paintLaneRow(QPainter& painter, TimelineRow row, const std::vector<ClipBox>& clips) const;
    void paintLabels(QPainter& painter) const;
    bool isSelected(TimelineRow row, const Uuid& id) const;

    PlaybackModel& playback_;
    TimelineThumbnails& thumbnails_;
    Actions actions_;
    QScrollBar* scrollBar_ = nullptr;
    QTimer* scrubTimer_ = nullptr;
    double pixelsPerSecond_ = 40;
    double scrollSeconds_ = 0;
    bool fitted_ = true;
    bool ripple_ = true;
    bool snapping_ = true;
    std::optional<Drag> drag_;
    std::optional<double> scrubTime_;
    std::optional<double> pendingScrub_;
    std::optional<double> snapLine_;
    std::optional<TimelineHit> hover_;

    Subscription projectSubscription_;
    Subscription selectionSubscription_;
    Subscription playheadSubscription_;
    Subscription voiceSubscription_;
    Subscription systemSubscription_;
    Subscription musicSubscription_;
};

std::optional<AuxiliaryTimelineTrack> laneTrack(TimelineRow row);
TimelineRow rowOf(AuxiliaryTimelineTrack track);

} // namespace orvelle
