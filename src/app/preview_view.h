#pragma once

// The preview: the player's picture of the stage, drawn at the widget's size in device
// pixels (the player renders at exactly that size, so painting is a copy), centred with
// the stage's aspect ratio. Until the first picture, or when the screen movie cannot be
// read, it says so. Main thread only.

#include "editor/published.h"
#include "project/media_asset_metadata.h"

#include <QWidget>
#include <memory>
#include <optional>

namespace orvelle {

class PlaybackModel;
struct PreviewFrame;

class PreviewView : public QWidget {
public:
    PreviewView(PlaybackModel& playback, QWidget* parent = nullptr);

    // The screen movie's size, which the automatic aspect ratio follows.
    void setSourceSize(std::optional<VideoSize> size);
    // Shown in place of a picture when the screen cannot be played.
    void setProblem(const QString& text);
    // The stage's rectangle inside the widget, in widget coordinates.
    QRectF stageRect() const;
    std::shared_ptr<const PreviewFrame> shownFrame() const { return frame_; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    double stageAspectRatio() const;
    void updatePreviewSize();

    PlaybackModel& playback_;
    std::optional<VideoSize> sourceSize_;
    QString problem_;
    std::shared_ptr<const PreviewFrame> frame_;
    Subscription frameSubscription_;
    Subscription projectSubscription_;
    double lastAspect_ = 0;
};

} // namespace orvelle
