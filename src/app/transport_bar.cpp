#include "app/transport_bar.h"

#include "app/icons.h"
#include "app/theme.h"
#include "playback/playback_model.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>
#include <cmath>

namespace orvelle {

QString formatTimecode(double seconds) {
    if (!std::isfinite(seconds) || seconds < 0) {
        seconds = 0;
    }
    const auto hundredths = static_cast<long long>(std::floor(seconds * 100 + 1e-6));
    const long long minutes = hundredths / 6000;
    const long long secs = (hundredths / 100) % 60;
    const long long rest = hundredths % 100;
    return QStringLiteral("%1:%2.%3")
        .arg(minutes)
        .arg(secs, 2, 10, QLatin1Char('0'))
        .arg(rest, 2, 10, QLatin1Char('0'));
}

namespace {

QToolButton* transportButton(QWidget* parent, IconName name, const QString& tip, int size) {
    auto* button = new QToolButton(parent);
    button->setIcon(icon(name));
    button->setIconSize(QSize(size, size));
    button->setToolTip(tip);
    button->setProperty("flat", true);
    button->setFocusPolicy(Qt::NoFocus);
    button->setAutoRaise(true);
    return button;
}

} // namespace

TransportBar::TransportBar(PlaybackModel& playback, Actions actions, QWidget* parent)
    : QWidget(parent), playback_(playback), actions_(std::move(actions)) {
    setFixedHeight(48);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(Theme::kPanelMargin, 4, Theme::kPanelMargin, 4);
    layout->setSpacing(4);

    timeLabel_ = new QLabel(this);
    timeLabel_->setFont(Theme::monospacedDigitsFont(12));
    durationLabel_ = new QLabel(this);
    durationLabel_->setFont(Theme::monospacedDigitsFont(12));
    durationLabel_->setProperty("role", "secondary");
    auto* times = new QWidget(this);
    auto* timesLayout = new QHBoxLayout(times);
    timesLayout->setContentsMargins(0, 0, 0, 0);
    timesLayout->setSpacing(6);
    timesLayout->addWidget(timeLabel_);
    timesLayout->addWidget(durationLabel_);
    timesLayout->addStretch(1);
    times->setMinimumWidth(200);
    layout->addWidget(times, 1, Qt::AlignLeft | Qt::AlignVCenter);

    auto* toStart =
        transportButton(this, IconName::skipToStart, QStringLiteral("Go to Start (Home)"), 18);
    auto* back =
        transportButton(this, IconName::stepBackward, QStringLiteral("Previous Frame (Left)"), 18);
    playButton_ = transportButton(this, IconName::play, QStringLiteral("Play (Space)"), 26);
    playButton_->setFixedSize(44, 40);
    auto* forward =
        transportButton(this, IconName::stepForward, QStringLiteral("Next Frame (Right)"), 18);
    auto* toEnd = transportButton(this, IconName::skipToEnd, QStringLiteral("Go to End (End)"), 18);
    connect(toStart, &QToolButton::clicked, this, [this] { actions_.toStart(); });
    connect(back, &QToolButton::clicked, this, [this] { actions_.stepBackward(); });
    connect(playButton_, &QToolButton::clicked, this, [this] { actions_.playPause(); });
    connect(forward, &QToolButton::clicked, this, [this] { actions_.stepForward(); });
    connect(toEnd, &QToolButton::clicked, this, [this] { actions_.toEnd(); });
    for (QToolButton* button : {toStart, back, playButton_, forward, toEnd}) {
        layout->addWidget(button, 0, Qt::AlignVCenter);
    }

    rateButton_ = new QToolButton(this);
    rateButton_->setFocusPolicy(Qt::NoFocus);
    rateButton_->setToolTip(QStringLiteral("Preview Speed: 1×, 2×, 4×"));
    rateButton_->setFont(Theme::monospacedDigitsFont(9.5));
    rateButton_->setMinimumWidth(48);
    connect(rateButton_, &QToolButton::clicked, this, [this] { actions_.cycleRate(); });
    auto* right = new QWidget(this);
    auto* rightLayout = new QHBoxLayout(right);
    rightLayout->setContentsMargins(0, 0, 0, 0);
    rightLayout->addStretch(1);
    rightLayout->addWidget(rateButton_);
    right->setMinimumWidth(200);
    layout->addWidget(right, 1, Qt::AlignRight | Qt::AlignVCenter);

    playhead_ = playback_.timelinePlayheadTime().observe([this](const double&) { refreshTime(); });
    playing_ = playback_.isPlaying().observe([this](const bool&) { refreshPlaying(); });
    rate_ = playback_.workflowRate().observe([this](const double&) { refreshRate(); });
    refreshTime();
    refreshDuration();
    refreshPlaying();
    refreshRate();
}

QString TransportBar::timeText() const {
    return timeLabel_->text();
}

void TransportBar::refreshTime() {
    timeLabel_->setText(formatTimecode(playback_.timelinePlayheadTime().value()));
}

void TransportBar::refreshDuration() {
    durationLabel_->setText(QStringLiteral("/ ") +
                            formatTimecode(playback_.editTimeline().duration()));
}

void TransportBar::refreshPlaying() {
    const bool playing = playback_.isPlaying().value();
    playButton_->setIcon(icon(playing ? IconName::pause : IconName::play));
    playButton_->setToolTip(playing ? QStringLiteral("Pause (Space)")
                                    : QStringLiteral("Play (Space)"));
}

void TransportBar::refreshRate() {
    const double rate = playback_.workflowRate().value();
    rateButton_->setText(QStringLiteral("%1×").arg(rate, 0, 'g', 3));
}

} // namespace orvelle
