#include "app/preview_view.h"

#include "app/icons.h"
#include "app/theme.h"
#include "export/export_snapshot.h"
#include "playback/playback_model.h"

#include <QPainter>
#include <QResizeEvent>
#include <cmath>

namespace orvelle {

PreviewView::PreviewView(PlaybackModel& playback, QWidget* parent)
    : QWidget(parent), playback_(playback) {
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(320, 180);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    frameSubscription_ = playback_.previewFrameNumber().observe([this](const uint64_t&) {
        frame_ = playback_.currentPreviewFrame();
        update();
    });
    projectSubscription_ = playback_.editorStore().observeProject([this](const auto&) {
        if (stageAspectRatio() != lastAspect_) {
            updatePreviewSize();
            update();
        }
    });
}

void PreviewView::setSourceSize(std::optional<VideoSize> size) {
    sourceSize_ = size;
    updatePreviewSize();
    update();
}

void PreviewView::setProblem(const QString& text) {
    problem_ = text;
    update();
}

double PreviewView::stageAspectRatio() const {
    const double ratio =
        exportAspectRatio(playback_.editorStore().project().screen.aspectRatio, sourceSize_, 16, 9);
    return std::isfinite(ratio) && ratio > 0 ? ratio : 16.0 / 9.0;
}

QRectF PreviewView::stageRect() const {
    const double margin = 16;
    const QRectF area = QRectF(rect()).adjusted(margin, margin, -margin, -margin);
    if (area.width() <= 0 || area.height() <= 0) {
        return {};
    }
    const double ratio = stageAspectRatio();
    double width = area.width();
    double height = width / ratio;
    if (height > area.height()) {
        height = area.height();
        width = height * ratio;
    }
    // Whole device pixels, so that the picture is copied and not resampled.
    const double scale = devicePixelRatioF();
    width = std::floor(width * scale) / scale;
    height = std::floor(height * scale) / scale;
    const double left = std::round((area.center().x() - width / 2) * scale) / scale;
    const double top = std::round((area.center().y() - height / 2) * scale) / scale;
    return {left, top, width, height};
}

void PreviewView::updatePreviewSize() {
    lastAspect_ = stageAspectRatio();
    const QRectF stage = stageRect();
    const double scale = devicePixelRatioF();
    const double width = std::round(stage.width() * scale);
    const double height = std::round(stage.height() * scale);
    if (width >= 2 && height >= 2) {
        playback_.setPreviewSize(Size{width, height});
    }
}

void PreviewView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    updatePreviewSize();
}

void PreviewView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), Theme::windowBackground());
    const QRectF stage = stageRect();
    if (stage.isEmpty()) {
        return;
    }
    if (problem_.isEmpty() && frame_ && !frame_->picture.empty()) {
        const Bitmap& picture = frame_->picture;
        QImage image(picture.row(0), picture.width(), picture.height(),
                     static_cast<qsizetype>(picture.stride()), QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(devicePixelRatioF());
        const QSizeF shown = QSizeF(image.size()) / devicePixelRatioF();
        if (std::abs(shown.width() - stage.width()) < 1 &&
            std::abs(shown.height() - stage.height()) < 1) {
            painter.drawImage(stage.topLeft(), image);
        } else {
            // A picture of the size before a resize, until the next one comes.
            painter.setRenderHint(QPainter::SmoothPixmapTransform);
            painter.drawImage(stage, image);
        }
        return;
    }
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0x10, 0x11, 0x14));
    painter.drawRoundedRect(stage, 6, 6);
    const bool failed = !problem_.isEmpty();
    const QRectF iconRect(stage.center().x() - 18, stage.center().y() - 40, 36, 36);
    paintIcon(painter, failed ? IconName::warning : IconName::film, iconRect,
              failed ? Theme::destructive() : Theme::tertiaryText());
    painter.setFont(Theme::interfaceFont(10));
    painter.setPen(Theme::secondaryText());
    painter.drawText(QRectF(stage.left() + 24, stage.center().y() + 6, stage.width() - 48, 60),
                     Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap,
                     failed ? problem_ : QStringLiteral("Preparing the preview…"));
}

} // namespace orvelle
