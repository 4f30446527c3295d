#pragma once

// Under the preview: the playhead's time and the edit's length, the buttons of the
// transport (to start, frame back, play or pause, frame forward, to end) and the preview
// speed (1x, 2x, 4x). It only shows and forwards: the window's actions do the work.

#include "editor/published.h"

#include <QWidget>
#include <functional>

class QLabel;
class QToolButton;

namespace orvelle {

class PlaybackModel;

class TransportBar : public QWidget {
public:
    struct Actions {
        std::function<void()> toStart;
        std::function<void()> stepBackward;
        std::function<void()> playPause;
        std::function<void()> stepForward;
        std::function<void()> toEnd;
        std::function<void()> cycleRate;
    };

    TransportBar(PlaybackModel& playback, Actions actions, QWidget* parent = nullptr);

    // Called when the edit's length may have changed.
    void refreshDuration();
    QString timeText() const;
    QToolButton& playButton() { return *playButton_; }
    QToolButton& rateButton() { return *rateButton_; }

private:
    void refreshTime();
    void refreshPlaying();
    void refreshRate();

    PlaybackModel& playback_;
    Actions actions_;
    QLabel* timeLabel_ = nullptr;
    QLabel* durationLabel_ = nullptr;
    QToolButton* playButton_ = nullptr;
    QToolButton* rateButton_ = nullptr;
    Subscription playhead_;
    Subscription playing_;
    Subscription rate_;
};

// "1:02.45": minutes, seconds and hundredths of edit time.
QString formatTimecode(double seconds);

} // namespace orvelle
