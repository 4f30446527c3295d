#include "app/recording_overlays.h"

#include "app/theme.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>
#include <cmath>

namespace orvelle {

namespace {

constexpr double kHandleSize = 10;
constexpr double kHandleHitSize = 18;
constexpr double kMinimumDrag = 4;

QRect virtualDesktop() {
    QRect all;
    for (QScreen* screen : QGuiApplication::screens()) {
        all = all.united(screen->geometry());
    }
    return all;
}

QRectF toQt(const CaptureRect& rect) {
    return {rect.x, rect.y, rect.width, rect.height};
}

CaptureRect fromQt(const QRectF& rect) {
    return {rect.x(), rect.y(), rect.width(), rect.height()};
}

constexpr AreaResizeHandle kHandles[] = {
    AreaResizeHandle::topLeft,    AreaResizeHandle::top,         AreaResizeHandle::topRight,
    AreaResizeHandle::right,      AreaResizeHandle::bottomRight, AreaResizeHandle::bottom,
    AreaResizeHandle::bottomLeft, AreaResizeHandle::left,
};

Qt::CursorShape cursorFor(AreaResizeHandle handle) {
    switch (handle) {
    case AreaResizeHandle::topLeft:
    case AreaResizeHandle::bottomRight:
        return Qt::SizeFDiagCursor;
    case AreaResizeHandle::topRight:
    case AreaResizeHandle::bottomLeft:
        return Qt::SizeBDiagCursor;
    case AreaResizeHandle::top:
    case AreaResizeHandle::bottom:
        return Qt::SizeVerCursor;
    case AreaResizeHandle::left:
    case AreaResizeHandle::right:
        break;
    }
    return Qt::SizeHorCursor;
}

void drawPill(QPainter& painter, const QRectF& rect, const QColor& fill, const QColor& textColor,
              const QString& text, int weight = 500) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(fill);
    painter.drawRoundedRect(rect, rect.height() / 2, rect.height() / 2);
    painter.setPen(textColor);
    painter.setFont(Theme::interfaceFont(10, weight));
    painter.drawText(rect, Qt::AlignCenter, text);
}

} // namespace

AreaSelectionOverlay::AreaSelectionOverlay(Actions actions) : actions_(std::move(actions)) {
    setWindowFlags(Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                   Qt::BypassWindowManagerHint);
    setWindowTitle(QStringLiteral("Select Area — Orvelle"));
    setObjectName(QStringLiteral("AreaSelectionOverlay"));
    setMouseTracking(true);
    setCursor(Qt::CrossCursor);
    setFocusPolicy(Qt::StrongFocus);
}

void AreaSelectionOverlay::present(const std::optional<QRect>& initial) {
    const QRect desktop = virtualDesktop();
    // A still of the screen behind the overlay: no desktop here needs a compositor for it.
    background_ = QImage(desktop.size(), QImage::Format_RGB32);
    background_.fill(Theme::windowBackground());
    {
        QPainter painter(&background_);
        for (QScreen* screen : QGuiApplication::screens()) {
            const QPixmap still = screen->grabWindow(0);
            if (!still.isNull()) {
                painter.drawPixmap(QRect(screen->geometry().topLeft() - desktop.topLeft(),
                                         screen->geometry().size()),
                                   still);
            }
        }
    }
    setGeometry(desktop);
    rect_.reset();
    if (initial) {
        rect_ =
            AreaSelectionGeometry::clamped(fromQt(QRectF(initial->translated(-desktop.topLeft()))),
                                           {double(desktop.width()), double(desktop.height())});
    }
    interaction_ = Interaction::none;
    QWidget::show();
    raise();
    activateWindow();
    setFocus();
    update();
}

std::optional<QRect> AreaSelectionOverlay::selection() const {
    if (!rect_ || rect_->width < 1 || rect_->height < 1) {
        return std::nullopt;
    }
    return toQt(*rect_).toAlignedRect();
}

std::optional<QRect> AreaSelectionOverlay::globalSelection() const {
    const auto local = selection();
    if (!local) {
        return std::nullopt;
    }
    return local->translated(geometry().topLeft());
}

AreaSelectionGeometry::CanvasSize AreaSelectionOverlay::canvas() const {
    return {double(width()), double(height())};
}

QRectF AreaSelectionOverlay::handleRect(AreaResizeHandle handle) const {
    const QRectF r = toQt(*rect_);
    QPointF centre;
    switch (handle) {
    case AreaResizeHandle::topLeft:
        centre = r.topLeft();
        break;
    case AreaResizeHandle::top:
        centre = {r.center().x(), r.top()};
        break;
    case AreaResizeHandle::topRight:
        centre = r.topRight();
        break;
    case AreaResizeHandle::right:
        centre = {r.right(), r.center().y()};
        break;
    case AreaResizeHandle::bottomRight:
        centre = r.bottomRight();
        break;
    case AreaResizeHandle::bottom:
        centre = {r.center().x(), r.bottom()};
        break;
    case AreaResizeHandle::bottomLeft:
        centre = r.bottomLeft();
        break;
    case AreaResizeHandle::left:
        centre = {r.left(), r.center().y()};
        break;
    }
    return {centre.x() - kHandleSize / 2, centre.y() - kHandleSize / 2, kHandleSize, kHandleSize};
}

std::optional<AreaResizeHandle> AreaSelectionOverlay::handleAt(const QPointF& point) const {
    if (!rect_) {
        return std::nullopt;
    }
    for (const AreaResizeHandle handle : kHandles) {
        const QRectF hit = handleRect(handle).adjusted(
            -(kHandleHitSize - kHandleSize) / 2, -(kHandleHitSize - kHandleSize) / 2,
            (kHandleHitSize - kHandleSize) / 2, (kHandleHitSize - kHandleSize) / 2);
        if (hit.contains(point)) {
            return handle;
        }
    }
    return std::nullopt;
}

// The two buttons sit under the selection, or over it when there is no room below.
QRectF AreaSelectionOverlay::confirmButtonRect() const {
    const QRectF r = toQt(*rect_);
    const double w = 150;
    const double h = 32;
    double y = r.bottom() + 14;
    if (y + h > height() - 8) {
        y = std::max(8.0, r.top() - 14 - h);
    }
    if (y < r.bottom() && y + h > r.top()) {
        y = r.bottom() - h - 12; // no room outside: inside, at the bottom
    }
    const double x = std::clamp(r.center().x() + 6, 8.0, std::max(8.0, width() - w - 8));
    return {x, y, w, h};
}

QRectF AreaSelectionOverlay::cancelButtonRect() const {
    const QRectF confirm = confirmButtonRect();
    return {confirm.left() - 12 - 90, confirm.top(), 90, confirm.height()};
}

void AreaSelectionOverlay::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.drawImage(0, 0, background_);
    QPainterPath dim;
    dim.addRect(QRectF(rect()));
    if (const auto chosen = selection()) {
        QPainterPath hole;
        hole.addRect(QRectF(*chosen));
        dim = dim.subtracted(hole);
    }
    painter.fillPath(dim, QColor(0, 0, 0, 140));

    if (!rect_ || !selection()) {
        const QString hint = QStringLiteral("Drag to select an area, then click Record This Area.");
        QFont font = Theme::interfaceFont(12, 500);
        const double w = QFontMetricsF(font).horizontalAdvance(hint) + 40;
        const QRectF pill((width() - w) / 2, height() / 2.0 - 20, w, 40);
        drawPill(painter, pill, QColor(20, 20, 26, 230), Theme::text(), hint);
        return;
    }
    const QRectF r = toQt(*rect_);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(Theme::accent(), 2));
    painter.drawRect(r);
    painter.setPen(QPen(QColor(255, 255, 255, 70), 1, Qt::DashLine));
    for (int i = 1; i < 3; ++i) {
        painter.drawLine(QPointF(r.left() + r.width() * i / 3, r.top()),
                         QPointF(r.left() + r.width() * i / 3, r.bottom()));
        painter.drawLine(QPointF(r.left(), r.top() + r.height() * i / 3),
                         QPointF(r.right(), r.top() + r.height() * i / 3));
    }
    painter.setPen(QPen(Theme::accent(), 1.5));
    painter.setBrush(Qt::white);
    for (const AreaResizeHandle handle : kHandles) {
        painter.drawRoundedRect(handleRect(handle), 2.5, 2.5);
    }

    // The size in pixels over the top left corner.
    const QString size = QStringLiteral("%1 × %2")
                             .arg(std::lround(r.width() * devicePixelRatioF()))
                             .arg(std::lround(r.height() * devicePixelRatioF()));
    QFont sizeFont = Theme::monospacedDigitsFont(9.5);
    const double sw = QFontMetricsF(sizeFont).horizontalAdvance(size) + 18;
    QRectF sizePill(r.left(), r.top() - 30, sw, 22);
    if (sizePill.top() < 4) {
        sizePill.moveTop(r.top() + 8);
        sizePill.moveLeft(r.left() + 8);
    }
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(20, 20, 26, 230));
    painter.drawRoundedRect(sizePill, 6, 6);
    painter.setPen(Theme::text());
    painter.setFont(sizeFont);
    painter.drawText(sizePill, Qt::AlignCenter, size);

    if (interaction_ == Interaction::none) {
        drawPill(painter, cancelButtonRect(), QColor(40, 40, 48, 240), Theme::text(),
                 QStringLiteral("Cancel"));
        drawPill(painter, confirmButtonRect(), Theme::accent(), Theme::accentText(),
                 QStringLiteral("Record This Area"), 600);
    }
}

void AreaSelectionOverlay::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::RightButton) {
        cancel();
        return;
    }
    if (event->button() != Qt::LeftButton) {
        return;
    }
    const QPointF point = event->position();
    if (selection() && interaction_ == Interaction::none) {
        if (confirmButtonRect().contains(point)) {
            confirm();
            return;
        }
        if (cancelButtonRect().contains(point)) {
            cancel();
            return;
        }
    }
    pressPoint_ = point;
    if (const auto handle = handleAt(point)) {
        interaction_ = Interaction::resizing;
        handle_ = *handle;
        pressRect_ = *rect_;
    } else if (rect_ && toQt(*rect_).contains(point)) {
        interaction_ = Interaction::moving;
        pressRect_ = *rect_;
    } else {
        interaction_ = Interaction::creating;
        rect_ = CaptureRect{point.x(), point.y(), 0, 0};
    }
    update();
}

void AreaSelectionOverlay::mouseMoveEvent(QMouseEvent* event) {
    const QPointF point = event->position();
    const double dx = point.x() - pressPoint_.x();
    const double dy = point.y() - pressPoint_.y();
    switch (interaction_) {
    case Interaction::creating:
        rect_ =
            AreaSelectionGeometry::clamped({pressPoint_.x(), pressPoint_.y(), dx, dy}, canvas());
        break;
    case Interaction::moving: {
        CaptureRect moved = pressRect_;
        moved.x = std::clamp(pressRect_.x + dx, 0.0, std::max(0.0, width() - pressRect_.width));
        moved.y = std::clamp(pressRect_.y + dy, 0.0, std::max(0.0, height() - pressRect_.height));
        rect_ = moved;
        break;
    }
    case Interaction::resizing:
        rect_ = AreaSelectionGeometry::resized(pressRect_, handle_, {dx, dy}, canvas());
        break;
    case Interaction::none:
        if (const auto handle = handleAt(point)) {
            setCursor(cursorFor(*handle));
        } else if (rect_ && toQt(*rect_).contains(point)) {
            setCursor(Qt::SizeAllCursor);
        } else {
            setCursor(Qt::CrossCursor);
        }
        return;
    }
    update();
}

void AreaSelectionOverlay::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) {
        return;
    }
    if (interaction_ == Interaction::creating && rect_ &&
        (rect_->width < kMinimumDrag || rect_->height < kMinimumDrag)) {
        rect_.reset(); // a click, not a drag
    } else if (interaction_ == Interaction::creating && rect_) {
        // A new rectangle is at least the size a handle can shrink it to.
        CaptureRect grown = *rect_;
        grown.width = std::max(grown.width, AreaSelectionGeometry::kMinimumWidth);
        grown.height = std::max(grown.height, AreaSelectionGeometry::kMinimumHeight);
        grown.x = std::min(grown.x, std::max(0.0, width() - grown.width));
        grown.y = std::min(grown.y, std::max(0.0, height() - grown.height));
        rect_ = AreaSelectionGeometry::clamped(grown, canvas());
    }
    interaction_ = Interaction::none;
    update();
}

void AreaSelectionOverlay::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        cancel();
    } else if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        confirm();
    } else {
        QWidget::keyPressEvent(event);
    }
}

void AreaSelectionOverlay::confirm() {
    if (selection()) {
        finish(true);
    }
}

void AreaSelectionOverlay::cancel() {
    finish(false);
}

void AreaSelectionOverlay::finish(bool take) {
    const auto chosen = globalSelection();
    hide();
    background_ = QImage();
    if (take && chosen) {
        if (actions_.chosen) {
            actions_.chosen(*chosen);
        }
    } else if (actions_.cancelled) {
        actions_.cancelled();
    }
}

RecordingAreaBoundaryOverlay::RecordingAreaBoundaryOverlay() {
    setWindowFlags(Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                   Qt::BypassWindowManagerHint | Qt::WindowTransparentForInput |
                   Qt::WindowDoesNotAcceptFocus);
    setWindowTitle(QStringLiteral("Orvelle"));
    setObjectName(QStringLiteral("RecordingAreaBoundary"));
    setAttribute(Qt::WA_ShowWithoutActivating);
}

void RecordingAreaBoundaryOverlay::show(const QRect& area) {
    const QRect outer = area.adjusted(-kRingWidth, -kRingWidth, kRingWidth, kRingWidth);
    setGeometry(outer);
    // Only the ring is the window: the area itself stays the screen's, and so the movie's.
    setMask(QRegion(QRect(QPoint(0, 0), outer.size()))
                .subtracted(QRegion(QRect(QPoint(kRingWidth, kRingWidth), area.size()))));
    QWidget::show();
    raise();
    update();
}

void RecordingAreaBoundaryOverlay::dismiss() {
    hide();
}

void RecordingAreaBoundaryOverlay::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), QColor(0xe5, 0x48, 0x4d));
    // Dashes along the ring, so it reads as a boundary rather than a frame.
    painter.setPen(QPen(QColor(255, 255, 255, 150), 1, Qt::DashLine));
    painter.drawRect(QRectF(rect()).adjusted(1.5, 1.5, -1.5, -1.5));
}

RecordingStartupOverlay::RecordingStartupOverlay() {
    setWindowFlags(Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                   Qt::BypassWindowManagerHint | Qt::WindowTransparentForInput |
                   Qt::WindowDoesNotAcceptFocus);
    setWindowTitle(QStringLiteral("Orvelle"));
    setObjectName(QStringLiteral("RecordingStartupOverlay"));
    setAttribute(Qt::WA_ShowWithoutActivating);
}

void RecordingStartupOverlay::show(const QRect& area, const QString& title) {
    title_ = title;
    const QSize size(240, 56);
    setGeometry(QRect(area.center() - QPoint(size.width() / 2, size.height() / 2), size));
    QWidget::show();
    raise();
    update();
}

void RecordingStartupOverlay::dismiss() {
    hide();
}

void RecordingStartupOverlay::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), QColor(20, 20, 26));
    painter.setPen(QPen(Theme::separator(), 1));
    painter.drawRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5));
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0xe5, 0x48, 0x4d));
    painter.drawEllipse(QPointF(26, height() / 2.0), 6, 6);
    painter.setPen(Theme::text());
    painter.setFont(Theme::interfaceFont(11, 600));
    painter.drawText(QRectF(44, 0, width() - 52, height()), Qt::AlignVCenter | Qt::AlignLeft,
                     title_);
}

} // namespace orvelle
