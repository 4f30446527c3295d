#pragma once

// The interface's icons, drawn as vector shapes on a 24-point grid at whatever size and
// pixel density they are shown, in the colour asked for (dimmed when disabled).

#include <QColor>
#include <QIcon>
#include <QPixmap>

class QPainter;
class QRectF;

namespace orvelle {

enum class IconName {
    play,
    pause,
    stepBackward,
    stepForward,
    skipToStart,
    skipToEnd,
    split,
    trash,
    undo,
    redo,
    zoomIn,
    zoomOut,
    magnet,
    ripple,
    exportMovie,
    save,
    open,
    film,
    background,
    pointer,
    zoomFrame,
    camera,
    mask,
    text,
    music,
    audio,
    presets,
    transcript,
    plus,
    warning,
    recent,
    close,
    check,
    record,
    stop,
    display,
    window,
    area,
    microphone,
    settings,
};

QIcon icon(IconName name);
QIcon icon(IconName name, const QColor& color);
void paintIcon(QPainter& painter, IconName name, const QRectF& rect, const QColor& color);

// The application's own icon: a violet tile with a screen, a play mark and a pointer.
void paintApplicationIcon(QPainter& painter, const QRectF& rect);
QIcon applicationIcon();
QPixmap applicationIconPixmap(int size, double devicePixelRatio = 1.0);

} // namespace orvelle
