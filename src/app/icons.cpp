#include "app/icons.h"

#include "app/theme.h"

#include <QIconEngine>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <cmath>

namespace orvelle {

namespace {

constexpr double kGrid = 24.0;
constexpr double kStroke = 1.7;

// Draws in the 24-point grid: strokes with round ends, fills where asked.
class Pen {
public:
    Pen(QPainter& painter, const QColor& color) : p_(painter), color_(color) {
        QPen pen(color, kStroke, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
        p_.setPen(pen);
        p_.setBrush(Qt::NoBrush);
    }
    void line(double x1, double y1, double x2, double y2) {
        p_.drawLine(QPointF(x1, y1), QPointF(x2, y2));
    }
    void polyline(std::initializer_list<QPointF> points) {
        p_.drawPolyline(points.begin(), static_cast<int>(points.size()));
    }
    void polygon(std::initializer_list<QPointF> points, bool filled) {
        p_.setBrush(filled ? QBrush(color_) : Qt::NoBrush);
        p_.drawPolygon(points.begin(), static_cast<int>(points.size()));
        p_.setBrush(Qt::NoBrush);
    }
    void rect(double x, double y, double w, double h, double radius, bool filled = false) {
        p_.setBrush(filled ? QBrush(color_) : Qt::NoBrush);
        p_.drawRoundedRect(QRectF(x, y, w, h), radius, radius);
        p_.setBrush(Qt::NoBrush);
    }
    void circle(double x, double y, double r, bool filled = false) {
        p_.setBrush(filled ? QBrush(color_) : Qt::NoBrush);
        p_.drawEllipse(QPointF(x, y), r, r);
        p_.setBrush(Qt::NoBrush);
    }
    void path(const QPainterPath& path, bool filled = false) {
        p_.setBrush(filled ? QBrush(color_) : Qt::NoBrush);
        p_.drawPath(path);
        p_.setBrush(Qt::NoBrush);
    }
    void arc(double cx, double cy, double r, double startDegrees, double spanDegrees) {
        p_.drawArc(QRectF(cx - r, cy - r, 2 * r, 2 * r), static_cast<int>(startDegrees * 16),
                   static_cast<int>(spanDegrees * 16));
    }

private:
    QPainter& p_;
    QColor color_;
};

void drawUndoArrow(Pen& pen) {
    QPainterPath path;
    path.moveTo(5, 9);
    path.lineTo(14, 9);
    path.cubicTo(17.6, 9, 20, 11.6, 20, 14.5);
    path.cubicTo(20, 17.4, 17.6, 20, 14.5, 20);
    path.lineTo(9, 20);
    pen.path(path);
    pen.polyline({{8.5, 5.5}, {5, 9}, {8.5, 12.5}});
}

void drawMagnifier(Pen& pen) {
    pen.circle(10.5, 10.5, 6.2);
    pen.line(15.2, 15.2, 20, 20);
}

void drawShape(QPainter& painter, IconName name, const QColor& color) {
    Pen pen(painter, color);
    switch (name) {
    case IconName::play:
        pen.polygon({{7.5, 5}, {19, 12}, {7.5, 19}}, true);
        break;
    case IconName::pause:
        pen.rect(6.5, 5, 3.5, 14, 1, true);
        pen.rect(14, 5, 3.5, 14, 1, true);
        break;
    case IconName::stepBackward:
        pen.line(6.5, 6, 6.5, 18);
        pen.polygon({{18, 6}, {18, 18}, {9.5, 12}}, true);
        break;
    case IconName::stepForward:
        pen.line(17.5, 6, 17.5, 18);
        pen.polygon({{6, 6}, {6, 18}, {14.5, 12}}, true);
        break;
    case IconName::skipToStart:
        pen.line(4.5, 6, 4.5, 18);
        pen.polygon({{13, 6}, {13, 18}, {7, 12}}, true);
        pen.polygon({{20, 6}, {20, 18}, {14, 12}}, true);
        break;
    case IconName::skipToEnd:
        pen.line(19.5, 6, 19.5, 18);
        pen.polygon({{11, 6}, {11, 18}, {17, 12}}, true);
        pen.polygon({{4, 6}, {4, 18}, {10, 12}}, true);
        break;
    case IconName::split:
        pen.circle(7, 17.5, 2.6);
        pen.circle(17, 17.5, 2.6);
        pen.line(8.8, 15.6, 16, 3.5);
        pen.line(15.2, 15.6, 8, 3.5);
        break;
    case IconName::trash:
        pen.line(4, 7, 20, 7);
        pen.polyline({{9, 7}, {9, 4.5}, {15, 4.5}, {15, 7}});
        pen.polyline({{6, 7}, {7, 20}, {17, 20}, {18, 7}});
        pen.line(10, 11, 10, 16);
        pen.line(14, 11, 14, 16);
        break;
    case IconName::undo:
        drawUndoArrow(pen);
        break;
    case IconName::redo:
        painter.save();
        painter.translate(kGrid, 0);
        painter.scale(-1, 1);
        drawUndoArrow(pen);
        painter.restore();
        break;
    case IconName::zoomIn:
        drawMagnifier(pen);
        pen.line(8, 10.5, 13, 10.5);
        pen.line(10.5, 8, 10.5, 13);
        break;
    case IconName::zoomOut:
        drawMagnifier(pen);
        pen.line(8, 10.5, 13, 10.5);
        break;
    case IconName::magnet: {
        QPainterPath path;
        path.moveTo(6, 4);
        path.lineTo(6, 12);
        path.arcTo(QRectF(6, 6, 12, 12), 180, 180);
        path.lineTo(18, 4);
        pen.path(path);
        pen.line(4.5, 8, 7.5, 8);
        pen.line(16.5, 8, 19.5, 8);
        break;
    }
    case IconName::ripple:
        pen.line(3.5, 12, 15, 12);
        pen.polyline({{11, 8}, {15, 12}, {11, 16}});
        pen.line(20, 5.5, 20, 18.5);
        break;
    case IconName::exportMovie:
        pen.polyline({{8.5, 10}, {5, 10}, {5, 20}, {19, 20}, {19, 10}, {15.5, 10}});
        pen.line(12, 3.5, 12, 14.5);
        pen.polyline({{8.5, 7}, {12, 3.5}, {15.5, 7}});
        break;
    case IconName::save:
        pen.polyline({{4.5, 14}, {4.5, 19.5}, {19.5, 19.5}, {19.5, 14}});
        pen.line(12, 4, 12, 15);
        pen.polyline({{8, 11}, {12, 15}, {16, 11}});
        break;
    case IconName::open: {
        QPainterPath path;
        path.moveTo(3.5, 6.5);
        path.lineTo(9.2, 6.5);
        path.lineTo(11.2, 9);
        path.lineTo(20.5, 9);
        path.lineTo(20.5, 18.5);
        path.lineTo(3.5, 18.5);
        path.closeSubpath();
        pen.path(path);
        break;
    }
    case IconName::film:
        pen.rect(3.5, 5, 17, 14, 2);
        pen.line(8, 5, 8, 19);
        pen.line(16, 5, 16, 19);
        pen.line(3.5, 12, 8, 12);
        pen.line(16, 12, 20.5, 12);
        break;
    case IconName::background:
        pen.rect(3.5, 5, 17, 14, 2.5);
        pen.polyline({{4, 17}, {9, 11.5}, {13, 15.5}, {15.5, 13}, {20, 17}});
        pen.circle(15.5, 9, 1.4, true);
        break;
    case IconName::pointer:
        pen.polygon({{6.5, 3.5},
                     {6.5, 18.5},
                     {10.5, 14.8},
                     {13.4, 20.6},
                     {15.8, 19.5},
                     {13, 13.8},
                     {18.5, 13.8}},
                    false);
        break;
    case IconName::zoomFrame:
        pen.polyline({{4, 9}, {4, 4}, {9, 4}});
        pen.polyline({{15, 4}, {20, 4}, {20, 9}});
        pen.polyline({{20, 15}, {20, 20}, {15, 20}});
        pen.polyline({{9, 20}, {4, 20}, {4, 15}});
        pen.rect(9, 9, 6, 6, 1.2, true);
        break;
    case IconName::camera:
        pen.rect(3, 7, 12.5, 10, 2.5);
        pen.polygon({{15.5, 10.5}, {21, 7.5}, {21, 16.5}, {15.5, 13.5}}, false);
        break;
    case IconName::mask: {
        pen.rect(3.5, 5, 17, 14, 2.5);
        QColor dim = color;
        dim.setAlphaF(color.alphaF() * 0.35);
        painter.setBrush(dim);
        painter.setPen(Qt::NoPen);
        QPainterPath outer;
        outer.addRoundedRect(QRectF(3.5, 5, 17, 14), 2.5, 2.5);
        QPainterPath inner;
        inner.addRoundedRect(QRectF(8, 9, 8, 6), 1.5, 1.5);
        painter.drawPath(outer.subtracted(inner));
        break;
    }
    case IconName::text:
        pen.line(5, 5, 19, 5);
        pen.line(12, 5, 12, 19.5);
        pen.line(9, 19.5, 15, 19.5);
        pen.line(5, 5, 5, 7.5);
        pen.line(19, 5, 19, 7.5);
        break;
    case IconName::music:
        pen.circle(7.5, 17.5, 2.5, true);
        pen.circle(17.5, 15.5, 2.5, true);
        pen.line(10, 17.5, 10, 6);
        pen.line(20, 15.5, 20, 4);
        pen.line(10, 6, 20, 4);
        break;
    case IconName::audio:
        pen.polygon({{4, 9.5}, {7.5, 9.5}, {12, 5.5}, {12, 18.5}, {7.5, 14.5}, {4, 14.5}}, false);
        pen.arc(12.5, 12, 4, -50, 100);
        pen.arc(12.5, 12, 7.5, -50, 100);
        break;
    case IconName::presets:
        pen.line(4, 7, 20, 7);
        pen.line(4, 12, 20, 12);
        pen.line(4, 17, 20, 17);
        pen.circle(9, 7, 2, true);
        pen.circle(15.5, 12, 2, true);
        pen.circle(7.5, 17, 2, true);
        break;
    case IconName::transcript:
        pen.line(4, 6, 20, 6);
        pen.line(4, 10.5, 16, 10.5);
        pen.line(4, 15, 20, 15);
        pen.line(4, 19.5, 12, 19.5);
        break;
    case IconName::plus:
        pen.line(12, 5, 12, 19);
        pen.line(5, 12, 19, 12);
        break;
    case IconName::warning:
        pen.polygon({{12, 3.5}, {21, 19.5}, {3, 19.5}}, false);
        pen.line(12, 9.5, 12, 14);
        pen.circle(12, 16.8, 0.6, true);
        break;
    case IconName::recent:
        pen.circle(12, 12, 8.5);
        pen.polyline({{12, 7}, {12, 12}, {15.5, 14}});
        break;
    case IconName::close:
        pen.line(6.5, 6.5, 17.5, 17.5);
        pen.line(17.5, 6.5, 6.5, 17.5);
        break;
    case IconName::check:
        pen.polyline({{5, 12.5}, {10, 17.5}, {19, 7}});
        break;
    case IconName::record:
        pen.circle(12, 12, 7.5, true);
        break;
    case IconName::stop:
        pen.rect(6, 6, 12, 12, 2.5, true);
        break;
    case IconName::display:
        pen.rect(3, 4.5, 18, 12, 2);
        pen.line(12, 16.5, 12, 19.5);
        pen.line(8, 19.5, 16, 19.5);
        break;
    case IconName::window:
        pen.rect(3, 4.5, 18, 15, 2.5);
        pen.line(3, 8.5, 21, 8.5);
        pen.circle(6, 6.5, 0.6, true);
        pen.circle(8.5, 6.5, 0.6, true);
        break;
    case IconName::area: {
        const double corners[4][2] = {{4, 4}, {20, 4}, {20, 20}, {4, 20}};
        for (const auto& corner : corners) {
            const double x = corner[0];
            const double y = corner[1];
            const double dx = x < 12 ? 4.5 : -4.5;
            const double dy = y < 12 ? 4.5 : -4.5;
            pen.polyline({{x + dx, y}, {x, y}, {x, y + dy}});
        }
        pen.rect(8.5, 8.5, 7, 7, 1);
        break;
    }
    case IconName::microphone:
        pen.rect(9, 3.5, 6, 11, 3);
        pen.arc(12, 11, 6, 180, 180);
        pen.line(12, 17, 12, 20.5);
        pen.line(8.5, 20.5, 15.5, 20.5);
        break;
    case IconName::settings:
        pen.circle(12, 12, 3);
        for (int i = 0; i < 8; ++i) {
            const double angle = i * 3.14159265358979 / 4;
            pen.line(12 + 6 * std::cos(angle), 12 + 6 * std::sin(angle), 12 + 8.5 * std::cos(angle),
                     12 + 8.5 * std::sin(angle));
        }
        pen.circle(12, 12, 6);
        break;
    }
}

class VectorIconEngine final : public QIconEngine {
public:
    VectorIconEngine(IconName name, QColor color) : name_(name), color_(std::move(color)) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode,
               QIcon::State state) override {
        QColor color = color_;
        if (mode == QIcon::Disabled) {
            color = Theme::tertiaryText();
        } else if (state == QIcon::On && color_ == Theme::text()) {
            color = Theme::accent().lighter(140);
        }
        paintIcon(*painter, name_, rect, color);
    }

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        return scaledPixmap(size, mode, state, 1.0);
    }

    QPixmap scaledPixmap(const QSize& size, QIcon::Mode mode, QIcon::State state,
                         qreal scale) override {
        QPixmap pixmap(size * scale);
        pixmap.setDevicePixelRatio(scale);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        paint(&painter, QRect(QPoint(0, 0), size), mode, state);
        return pixmap;
    }

    QIconEngine* clone() const override { return new VectorIconEngine(name_, color_); }

private:
    IconName name_;
    QColor color_;
};

} // namespace

void paintIcon(QPainter& painter, IconName name, const QRectF& rect, const QColor& color) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const double side = std::min(rect.width(), rect.height());
    painter.translate(rect.center().x() - side / 2, rect.center().y() - side / 2);
    painter.scale(side / kGrid, side / kGrid);
    drawShape(painter, name, color);
    painter.restore();
}

QIcon icon(IconName name) {
    return icon(name, Theme::text());
}

QIcon icon(IconName name, const QColor& color) {
    return QIcon(new VectorIconEngine(name, color));
}

void paintApplicationIcon(QPainter& painter, const QRectF& rect) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const double side = std::min(rect.width(), rect.height());
    painter.translate(rect.center().x() - side / 2, rect.center().y() - side / 2);
    painter.scale(side / 256.0, side / 256.0);

    // The tile.
    QLinearGradient tile(QPointF(0, 0), QPointF(256, 256));
    tile.setColorAt(0, QColor(0x9a, 0x7d, 0xff));
    tile.setColorAt(1, QColor(0x4b, 0x2c, 0xd9));
    painter.setPen(Qt::NoPen);
    painter.setBrush(tile);
    painter.drawRoundedRect(QRectF(16, 16, 224, 224), 52, 52);

    // The screen, with its stand.
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(Qt::white, 14, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.drawRoundedRect(QRectF(52, 64, 152, 106), 16, 16);
    painter.drawLine(QPointF(100, 196), QPointF(156, 196));

    // The play mark.
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::white);
    QPainterPath play;
    play.moveTo(112, 96);
    play.lineTo(148, 117);
    play.lineTo(112, 138);
    play.closeSubpath();
    painter.drawPath(play);

    // The pointer, over the screen's corner.
    QPainterPath pointer;
    pointer.moveTo(170, 138);
    pointer.lineTo(170, 204);
    pointer.lineTo(186, 189);
    pointer.lineTo(198, 214);
    pointer.lineTo(210, 209);
    pointer.lineTo(198, 184);
    pointer.lineTo(220, 184);
    pointer.closeSubpath();
    painter.setPen(QPen(QColor(0x3a, 0x22, 0xb0), 8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.setBrush(Qt::white);
    painter.drawPath(pointer);
    painter.restore();
}

QPixmap applicationIconPixmap(int size, double devicePixelRatio) {
    QPixmap pixmap(QSize(size, size) * devicePixelRatio);
    pixmap.setDevicePixelRatio(devicePixelRatio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    paintApplicationIcon(painter, QRectF(0, 0, size, size));
    return pixmap;
}

QIcon applicationIcon() {
    QIcon result;
    for (const int size : {16, 24, 32, 48, 64, 128, 256}) {
        result.addPixmap(applicationIconPixmap(size));
    }
    return result;
}

} // namespace orvelle
