#pragma once

// The windows drawn over the screen around a recording: the area overlay that chooses what
// part of the screen to record, the boundary that marks the recorded area during the take
// (drawn just outside it, so it never shows in the movie), and the short title shown over
// the area while the recorder starts or stops. Main thread only.

#include "recording/recorder_geometry.h"

#include <QImage>
#include <QRect>
#include <QWidget>
#include <functional>
#include <optional>

namespace orvelle {

// A full-screen overlay over a still of the screen: drag to make a rectangle, drag inside
// it to move it, drag its eight handles to resize it; Return (or "Record This Area") takes
// it, Escape (or "Cancel") gives up. Rectangles are in global screen points, top-left
// origin.
class AreaSelectionOverlay : public QWidget {
public:
    struct Actions {
        std::function<void(const QRect&)> chosen;
        std::function<void()> cancelled;
    };

    explicit AreaSelectionOverlay(Actions actions);

    // Covers every screen; `initial` is selected when given.
    void present(const std::optional<QRect>& initial = std::nullopt);
    // The selection in the overlay's own coordinates, absent until one is made.
    std::optional<QRect> selection() const;
    // The selection in global coordinates.
    std::optional<QRect> globalSelection() const;

    void confirm();
    void cancel();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    enum class Interaction { none, creating, moving, resizing };

    AreaSelectionGeometry::CanvasSize canvas() const;
    std::optional<AreaResizeHandle> handleAt(const QPointF& point) const;
    QRectF handleRect(AreaResizeHandle handle) const;
    QRectF confirmButtonRect() const;
    QRectF cancelButtonRect() const;
    void finish(bool take);

    Actions actions_;
    QImage background_;
    std::optional<CaptureRect> rect_; // overlay coordinates
    Interaction interaction_ = Interaction::none;
    AreaResizeHandle handle_ = AreaResizeHandle::bottomRight;
    QPointF pressPoint_;
    CaptureRect pressRect_;
};

// A ring just outside the recorded area during a take.
class RecordingAreaBoundaryOverlay : public QWidget {
public:
    static constexpr int kRingWidth = 4;

    RecordingAreaBoundaryOverlay();
    // `area` in global points, top-left origin.
    void show(const QRect& area);
    void dismiss();

protected:
    void paintEvent(QPaintEvent* event) override;
};

// "Starting recorder" / "Stopping recorder" over the recorded area.
class RecordingStartupOverlay : public QWidget {
public:
    RecordingStartupOverlay();
    void show(const QRect& area, const QString& title);
    void dismiss();

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString title_;
};

} // namespace orvelle
