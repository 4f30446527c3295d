#include "app/timeline_view.h"

#include "app/icons.h"
#include "app/theme.h"
#include "app/timeline_thumbnails.h"
#include "editor/clip_lane.h"
#include "playback/playback_model.h"

#include <QContextMenuEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QScrollBar>
#include <QTimer>
#include <QWheelEvent>
#include <algorithm>
#include <array>
#include <cmath>

namespace orvelle {

namespace {

constexpr double kRowGap = 4;
constexpr double kScrollBarHeight = 12;
constexpr double kWaveformBand = 20;
constexpr std::array<TimelineRow, 7> kRows{
    TimelineRow::ruler, TimelineRow::video, TimelineRow::zoom, TimelineRow::cameraLayout,
    TimelineRow::mask,  TimelineRow::music, TimelineRow::text};

double rowHeight(TimelineRow row) {
    switch (row) {
    case TimelineRow::ruler:
        return 28;
    case TimelineRow::video:
        return 72;
    case TimelineRow::music:
        return 34;
    default:
        return 26;
    }
}

QString rowName(TimelineRow row) {
    switch (row) {
    case TimelineRow::ruler:
        return {};
    case TimelineRow::video:
        return QStringLiteral("Video");
    case TimelineRow::zoom:
        return QStringLiteral("Zoom");
    case TimelineRow::cameraLayout:
        return QStringLiteral("Camera");
    case TimelineRow::mask:
        return QStringLiteral("Mask");
    case TimelineRow::music:
        return QStringLiteral("Music");
    case TimelineRow::text:
        return QStringLiteral("Text");
    }
    return {};
}

IconName rowIcon(TimelineRow row) {
    switch (row) {
    case TimelineRow::video:
        return IconName::film;
    case TimelineRow::zoom:
        return IconName::zoomFrame;
    case TimelineRow::cameraLayout:
        return IconName::camera;
    case TimelineRow::mask:
        return IconName::mask;
    case TimelineRow::music:
        return IconName::music;
    default:
        return IconName::text;
    }
}

QColor rowColor(TimelineRow row) {
    if (const auto track = laneTrack(row)) {
        return Theme::laneColor(*track);
    }
    return Theme::videoClip();
}

QString zoomLabel(const AnimationClip& clip) {
    return QStringLiteral("%1 %2×")
        .arg(clip.zoomMode == AnimationZoomMode::manual ? QStringLiteral("Manual")
                                                        : QStringLiteral("Zoom"))
        .arg(clip.zoomScale, 0, 'g', 3);
}

QString cameraLabel(const CameraLayoutClip& clip) {
    switch (clip.mode) {
    case CameraLayoutMode::fullscreen:
        return QStringLiteral("Fullscreen");
    case CameraLayoutMode::defaultOverlay:
        return QStringLiteral("Overlay");
    case CameraLayoutMode::hidden:
        return QStringLiteral("Hidden");
    }
    return {};
}

// Ruler steps: the first whose spacing leaves room for a label.
double majorStep(double pixelsPerSecond) {
    static constexpr std::array<double, 14> steps{0.1, 0.2, 0.5, 1,   2,   5,   10,
                                                  15,  30,  60,  120, 300, 600, 1200};
    for (const double step : steps) {
        if (step * pixelsPerSecond >= 72) {
            return step;
        }
    }
    return steps.back();
}

QString rulerLabel(double seconds, double step) {
    const auto whole = static_cast<long long>(std::floor(seconds + 1e-6));
    QString text = QStringLiteral("%1:%2").arg(whole / 60).arg(whole % 60, 2, 10, QLatin1Char('0'));
    if (step < 1) {
        const auto tenths = static_cast<long long>(std::llround((seconds - whole) * 10)) % 10;
        text += QStringLiteral(".%1").arg(tenths);
    }
    return text;
}

} // namespace

std::optional<AuxiliaryTimelineTrack> laneTrack(TimelineRow row) {
    switch (row) {
    case TimelineRow::zoom:
        return AuxiliaryTimelineTrack::zoom;
    case TimelineRow::cameraLayout:
        return AuxiliaryTimelineTrack::cameraLayout;
    case TimelineRow::mask:
        return AuxiliaryTimelineTrack::mask;
    case TimelineRow::music:
        return AuxiliaryTimelineTrack::music;
    case TimelineRow::text:
        return AuxiliaryTimelineTrack::text;
    default:
        return std::nullopt;
    }
}

TimelineRow rowOf(AuxiliaryTimelineTrack track) {
    switch (track) {
    case AuxiliaryTimelineTrack::zoom:
        return TimelineRow::zoom;
    case AuxiliaryTimelineTrack::cameraLayout:
        return TimelineRow::cameraLayout;
    case AuxiliaryTimelineTrack::mask:
        return TimelineRow::mask;
    case AuxiliaryTimelineTrack::music:
        return TimelineRow::music;
    case AuxiliaryTimelineTrack::text:
        return TimelineRow::text;
    }
    return TimelineRow::zoom;
}

TimelineView::TimelineView(PlaybackModel& playback, TimelineThumbnails& thumbnails, Actions actions,
                           QWidget* parent)
    : QWidget(parent), playback_(playback), thumbnails_(thumbnails), actions_(std::move(actions)) {
    setMouseTracking(true);
    setFocusPolicy(Qt::ClickFocus);
    setAttribute(Qt::WA_OpaquePaintEvent);
    double height = 0;
    for (const TimelineRow row : kRows) {
        height += rowHeight(row) + kRowGap;
    }
    setMinimumHeight(static_cast<int>(height + kScrollBarHeight + 6));
    setMinimumWidth(400);

    scrollBar_ = new QScrollBar(Qt::Horizontal, this);
    scrollBar_->setFocusPolicy(Qt::NoFocus);
    connect(scrollBar_, &QScrollBar::valueChanged, this, [this](int value) {
        scrollSeconds_ = value / 1000.0;
        update();
    });
    scrubTimer_ = new QTimer(this);
    scrubTimer_->setInterval(16);
    connect(scrubTimer_, &QTimer::timeout, this, [this] {
        if (pendingScrub_ && !playback_.pendingSeekGeneration()) {
            playback_.seekPlayer(EditTime(*pendingScrub_), false);
            pendingScrub_.reset();
        }
        if (!pendingScrub_ && !drag_) {
            scrubTimer_->stop();
        }
    });

    const auto repaint = [this](const auto&) {
        if (fitted_) {
            pixelsPerSecond_ = fittedPixelsPerSecond();
        }
        updateScrollBar();
        update();
    };
    projectSubscription_ = playback_.editorStore().observeProject(repaint);
    selectionSubscription_ =
        playback_.editorStore().observeSelection([this](const auto&) { update(); });
    playheadSubscription_ = playback_.timelinePlayheadTime().observe([this](const double&) {
        followPlayhead();
        update();
    });
    voiceSubscription_ = playback_.voiceWaveform().observe([this](const auto&) { update(); });
    systemSubscription_ =
        playback_.systemAudioWaveform().observe([this](const auto&) { update(); });
    musicSubscription_ = playback_.musicWaveforms().observe([this](const auto&) { update(); });
}

// ---- Geometry -----------------------------------------------------------------------------

double TimelineView::duration() const {
    return playback_.editTimeline().duration();
}

double TimelineView::fittedPixelsPerSecond() const {
    const double available = std::max(100.0, width() - kLabelWidth - 24);
    const double length = duration();
    return length > 0 ? std::min(kMaximumPixelsPerSecond, available / length) : 40;
}

double TimelineView::xForTime(double editSeconds) const {
    return kLabelWidth + 8 + (editSeconds - scrollSeconds_) * pixelsPerSecond_;
}

double TimelineView::timeForX(double x) const {
    return scrollSeconds_ + (x - kLabelWidth - 8) / pixelsPerSecond_;
}

QRectF TimelineView::rowRect(TimelineRow row) const {
    double top = 0;
    for (const TimelineRow candidate : kRows) {
        if (candidate == row) {
            return {kLabelWidth, top, width() - kLabelWidth, rowHeight(row)};
        }
        top += rowHeight(candidate) + kRowGap;
    }
    return {};
}

std::vector<TimelineView::ClipBox> TimelineView::clipBoxes(TimelineRow row) const {
    std::vector<ClipBox> boxes;
    const EditorProjectState& project = playback_.editorStore().project();
    switch (row) {
    case TimelineRow::ruler:
        break;
    case TimelineRow::video:
        for (const auto& layout : playback_.editTimeline().clipLayouts()) {
            boxes.push_back({row,
                             layout.id,
                             layout.timelineStart.seconds,
                             layout.timelineEnd.seconds,
                             layout.sourceStart.seconds,
                             sanitisedClipSpeed(layout.speed),
                             {},
                             false});
        }
        break;
    case TimelineRow::zoom:
        for (const auto& clip : project.animation.zoomClips) {
            boxes.push_back({row, clip.id, clip.start.seconds, clip.end.seconds, 0, 1,
                             zoomLabel(clip), clip.isDisabled});
        }
        break;
    case TimelineRow::cameraLayout:
        for (const auto& clip : project.camera.dynamicLayoutClips) {
            boxes.push_back({row, clip.id, clip.start.seconds, clip.end.seconds, 0, 1,
                             cameraLabel(clip), clip.isDisabled});
        }
        break;
    case TimelineRow::mask:
        for (const auto& clip : project.mask.clips) {
            boxes.push_back({row, clip.id, clip.start.seconds, clip.end.seconds, 0, 1,
                             clip.isInverted ? QStringLiteral("Spotlight") : QStringLiteral("Mask"),
                             clip.isDisabled});
        }
        break;
    case TimelineRow::music:
        for (const auto& clip : project.music.clips) {
            boxes.push_back({row, clip.id, clip.start.seconds, clip.end.seconds, clip.mediaOffset,
                             1, QString::fromStdString(clip.title), false});
        }
        break;
    case TimelineRow::text:
        for (const auto& clip : project.text.clips) {
            boxes.push_back({row, clip.id, clip.start.seconds, clip.end.seconds, 0, 1,
                             QString::fromStdString(clip.text).simplified(), false});
        }
        break;
    }
    return boxes;
}

std::vector<TimelineView::ClipBox> TimelineView::clipBoxes() const {
    std::vector<ClipBox> boxes;
    for (const TimelineRow row : kRows) {
        auto some = clipBoxes(row);
        boxes.insert(boxes.end(), some.begin(), some.end());
    }
    return boxes;
}

QRectF TimelineView::clipRect(TimelineRow row, const Uuid& id) const {
    const QRectF band = rowRect(row);
    for (const auto& box : clipBoxes(row)) {
        if (box.id == id) {
            const double left = xForTime(box.start);
            const double right = xForTime(box.end);
            return {left, band.top() + 1, std::max(1.0, right - left), band.height() - 2};
        }
    }
    return {};
}

TimelineHit TimelineView::hitTest(QPointF point) const {
    TimelineHit hit;
    hit.time = std::clamp(timeForX(point.x()), 0.0, std::max(0.0, duration()));
    if (point.x() < kLabelWidth) {
        return hit;
    }
    for (const TimelineRow row : kRows) {
        const QRectF band = rowRect(row);
        if (point.y() < band.top() || point.y() >= band.bottom() + kRowGap) {
            continue;
        }
        hit.row = row;
        if (row == TimelineRow::ruler) {
            hit.part = TimelineHit::Part::ruler;
            return hit;
        }
        hit.part = TimelineHit::Part::empty;
        // Edges first, so that a short clip can still be trimmed.
        for (const auto& box : clipBoxes(row)) {
            const double left = xForTime(box.start);
            const double right = xForTime(box.end);
            const double grip = std::min(kEdgeGrip, std::max(2.0, (right - left) / 3));
            if (std::abs(point.x() - left) <= grip) {
                return {TimelineHit::Part::startEdge, row, box.id, hit.time};
            }
            if (std::abs(point.x() - right) <= grip) {
                return {TimelineHit::Part::endEdge, row, box.id, hit.time};
            }
        }
        for (const auto& box : clipBoxes(row)) {
            if (point.x() > xForTime(box.start) && point.x() < xForTime(box.end)) {
                return {TimelineHit::Part::body, row, box.id, hit.time};
            }
        }
        return hit;
    }
    return hit;
}

void TimelineView::setPixelsPerSecond(double value, std::optional<double> anchorX) {
    const double fitted = fittedPixelsPerSecond();
    value = std::clamp(value, std::min(fitted, kMaximumPixelsPerSecond), kMaximumPixelsPerSecond);
    const double anchor = anchorX.value_or(xForTime(shownPlayheadTime()));
    const double anchorTime = timeForX(anchor);
    pixelsPerSecond_ = value;
    fitted_ = std::abs(value - fitted) < 1e-6;
    scrollSeconds_ = anchorTime - (anchor - kLabelWidth - 8) / pixelsPerSecond_;
    updateScrollBar();
    update();
}

void TimelineView::zoomBy(double factor) {
    setPixelsPerSecond(pixelsPerSecond_ * factor);
}

void TimelineView::zoomToFit() {
    fitted_ = true;
    pixelsPerSecond_ = fittedPixelsPerSecond();
    scrollSeconds_ = 0;
    updateScrollBar();
    update();
}

void TimelineView::updateScrollBar() {
    const double visible = (width() - kLabelWidth - 24) / pixelsPerSecond_;
    const double maximum = std::max(0.0, duration() - visible);
    if (fitted_) {
        scrollSeconds_ = 0;
    }
    scrollSeconds_ = std::clamp(scrollSeconds_, 0.0, maximum);
    const QSignalBlocker blocker(scrollBar_);
    scrollBar_->setRange(0, static_cast<int>(maximum * 1000));
    scrollBar_->setPageStep(static_cast<int>(visible * 1000));
    scrollBar_->setSingleStep(static_cast<int>(std::max(1.0, 40 / pixelsPerSecond_ * 1000)));
    scrollBar_->setValue(static_cast<int>(scrollSeconds_ * 1000));
    scrollBar_->setVisible(maximum > 0);
}

void TimelineView::followPlayhead() {
    if (drag_ || !playback_.isPlaying().value()) {
        return;
    }
    const double x = xForTime(playback_.timelinePlayheadTime().value());
    if (x > width() - 24 || x < kLabelWidth) {
        scrollSeconds_ = playback_.timelinePlayheadTime().value() - 8 / pixelsPerSecond_;
        updateScrollBar();
    }
}

void TimelineView::resizeEvent(QResizeEvent*) {
    scrollBar_->setGeometry(
        static_cast<int>(kLabelWidth), height() - static_cast<int>(kScrollBarHeight),
        width() - static_cast<int>(kLabelWidth), static_cast<int>(kScrollBarHeight));
    if (fitted_) {
        pixelsPerSecond_ = fittedPixelsPerSecond();
    }
    updateScrollBar();
}

double TimelineView::shownPlayheadTime() const {
    return scrubTime_.value_or(playback_.timelinePlayheadTime().value());
}

bool TimelineView::isSelected(TimelineRow row, const Uuid& id) const {
    const EditorSelectionState& selection = playback_.editorStore().selection();
    if (selection.id != id) {
        return false;
    }
    switch (row) {
    case TimelineRow::video:
        return selection.kind == EditorSelectionState::Kind::timelineClip;
    case TimelineRow::zoom:
        return selection.kind == EditorSelectionState::Kind::animationClip;
    case TimelineRow::cameraLayout:
        return selection.kind == EditorSelectionState::Kind::cameraLayoutClip;
    case TimelineRow::mask:
        return selection.kind == EditorSelectionState::Kind::maskClip;
    case TimelineRow::music:
        return selection.kind == EditorSelectionState::Kind::musicClip;
    case TimelineRow::text:
        return selection.kind == EditorSelectionState::Kind::textClip;
    default:
        return false;
    }
}

// ---- Snapping -----------------------------------------------------------------------------

std::vector<double> TimelineView::snapTargets(const std::optional<Uuid>& excluding) const {
    std::vector<double> targets{0, duration(), playback_.timelinePlayheadTime().value()};
    for (const auto& box : clipBoxes()) {
        if (excluding && box.id == *excluding) {
            continue;
        }
        targets.push_back(box.start);
        targets.push_back(box.end);
    }
    return targets;
}

double TimelineView::snapped(double time, const std::vector<double>& targets, bool* didSnap) const {
    *didSnap = false;
    if (!snapping_) {
        return time;
    }
    double best = time;
    double bestDistance = kSnapDistance / pixelsPerSecond_;
    for (const double target : targets) {
        const double distance = std::abs(target - time);
        if (distance <= bestDistance) {
            bestDistance = distance;
            best = target;
            *didSnap = true;
        }
    }
    return best;
}

// ---- Mouse --------------------------------------------------------------------------------

void TimelineView::select(TimelineRow row, const Uuid& id) {
    EditorStore& store = playback_.editorStore();
    switch (row) {
    case TimelineRow::video:
        store.selectTimelineClip(id);
        break;
    case TimelineRow::zoom:
        store.select(id, animationLane);
        break;
    case TimelineRow::cameraLayout:
        store.select(id, cameraLayoutLane);
        break;
    case TimelineRow::mask:
        store.select(id, maskLane);
        break;
    case TimelineRow::music:
        store.select(id, musicLane);
        break;
    case TimelineRow::text:
        store.select(id, textLane);
        break;
    default:
        break;
    }
    if (const auto track = laneTrack(row); track && actions_.showLane) {
        actions_.showLane(*track);
    }
}

void TimelineView::seekForScrub(double time) {
    time = std::clamp(time, 0.0, std::max(0.0, duration()));
    scrubTime_ = time;
    if (playback_.pendingSeekGeneration()) {
        pendingScrub_ = time;
        scrubTimer_->start();
    } else {
        playback_.seekPlayer(EditTime(time), false);
    }
    update();
}

void TimelineView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) {
        return;
    }
    const TimelineHit hit = hitTest(event->position());
    const double x = event->position().x();
    Drag drag;
    drag.pressX = x;
    drag.row = hit.row;
    drag.id = hit.id;
    switch (hit.part) {
    case TimelineHit::Part::none:
        return;
    case TimelineHit::Part::ruler:
    case TimelineHit::Part::empty:
        if (hit.part == TimelineHit::Part::empty) {
            playback_.editorStore().edit("", [](EditorProjectState&, EditorSelectionState& s) {
                s = EditorSelectionState::empty();
            });
        }
        drag.kind = Drag::Kind::scrub;
        drag_ = drag;
        if (playback_.isPlaying().value()) {
            playback_.pause();
        }
        seekForScrub(hit.time);
        return;
    case TimelineHit::Part::startEdge:
    case TimelineHit::Part::endEdge: {
        select(hit.row, hit.id);
        drag.edge = hit.part == TimelineHit::Part::startEdge ? TimelineTrimEdge::start
                                                             : TimelineTrimEdge::end;
        for (const auto& box : clipBoxes(hit.row)) {
            if (box.id == hit.id) {
                drag.edgeStart = drag.edge == TimelineTrimEdge::start ? box.start : box.end;
            }
        }
        drag.kind = hit.row == TimelineRow::video ? Drag::Kind::trim : Drag::Kind::resizeLaneClip;
        drag.snapTargets = snapTargets(hit.id);
        if (drag.kind == Drag::Kind::trim) {
            // Clips after the trimmed one move with it: their edges are no targets.
            std::erase_if(drag.snapTargets, [&](double t) {
                return t > drag.edgeStart + 1e-6 && t != playback_.timelinePlayheadTime().value();
            });
        }
        if (playback_.isPlaying().value()) {
            playback_.pause();
        }
        drag_ = drag;
        return;
    }
    case TimelineHit::Part::body:
        select(hit.row, hit.id);
        if (hit.row == TimelineRow::video) {
            if (event->modifiers() & Qt::AltModifier) {
                drag.kind = Drag::Kind::slip;
            } else {
                drag.kind = Drag::Kind::scrub;
                if (playback_.isPlaying().value()) {
                    playback_.pause();
                }
                seekForScrub(hit.time);
            }
        } else {
            for (const auto& box : clipBoxes(hit.row)) {
                if (box.id == hit.id) {
                    drag.edgeStart = box.start;
                    drag.clipLength = box.end - box.start;
                }
            }
            drag.kind = Drag::Kind::pendingLaneClip;
            drag.snapTargets = snapTargets(hit.id);
        }
        drag_ = drag;
        return;
    }
}

void TimelineView::mouseMoveEvent(QMouseEvent* event) {
    const double x = event->position().x();
    if (!drag_) {
        const TimelineHit hit = hitTest(event->position());
        hover_ = hit;
        const bool onEdge =
            hit.part == TimelineHit::Part::startEdge || hit.part == TimelineHit::Part::endEdge;
        setCursor(onEdge ? Qt::SizeHorCursor : Qt::ArrowCursor);
        update();
        return;
    }
    Drag& drag = *drag_;
    const double delta = (x - drag.pressX) / pixelsPerSecond_;
    if (std::abs(x - drag.pressX) >= 3) {
        drag.moved = true;
    }
    bool didSnap = false;
    switch (drag.kind) {
    case Drag::Kind::scrub:
        seekForScrub(timeForX(x));
        return;
    case Drag::Kind::trim: {
        const double edge = snapped(drag.edgeStart + delta, drag.snapTargets, &didSnap);
        snapLine_ = didSnap ? std::optional<double>(edge) : std::nullopt;
        playback_.trimClip(drag.id, drag.edge, EditTime(edge - drag.edgeStart), ripple_);
        break;
    }
    case Drag::Kind::slip:
        if (drag.moved) {
            playback_.moveClip(drag.id, EditTime(-delta));
        }
        break;
    case Drag::Kind::resizeLaneClip: {
        const double edge = snapped(drag.edgeStart + delta, drag.snapTargets, &didSnap);
        snapLine_ = didSnap ? std::optional<double>(edge) : std::nullopt;
        playback_.resizeRangeClip(*laneTrack(drag.row), drag.id, drag.edge,
                                  EditTime(edge - drag.edgeStart));
        break;
    }
    case Drag::Kind::pendingLaneClip:
        if (!drag.moved) {
            return;
        }
        drag.kind = Drag::Kind::moveLaneClip;
        [[fallthrough]];
    case Drag::Kind::moveLaneClip: {
        // Whichever edge comes nearer a target snaps.
        bool startSnapped = false;
        bool endSnapped = false;
        const double start = snapped(drag.edgeStart + delta, drag.snapTargets, &startSnapped);
        const double end =
            snapped(drag.edgeStart + drag.clipLength + delta, drag.snapTargets, &endSnapped);
        double moved = delta;
        snapLine_.reset();
        const double startShift = start - (drag.edgeStart + delta);
        const double endShift = end - (drag.edgeStart + drag.clipLength + delta);
        if (startSnapped && (!endSnapped || std::abs(startShift) <= std::abs(endShift))) {
            moved = start - drag.edgeStart;
            snapLine_ = start;
        } else if (endSnapped) {
            moved = end - drag.clipLength - drag.edgeStart;
            snapLine_ = end;
        }
        playback_.moveRangeClip(*laneTrack(drag.row), drag.id, EditTime(moved));
        break;
    }
    }
    update();
}

void TimelineView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !drag_) {
        return;
    }
    const Drag drag = *drag_;
    drag_.reset();
    snapLine_.reset();
    switch (drag.kind) {
    case Drag::Kind::scrub:
        if (pendingScrub_) {
            playback_.seekPlayer(EditTime(*pendingScrub_), false);
            pendingScrub_.reset();
        }
        scrubTime_.reset();
        break;
    case Drag::Kind::trim:
    case Drag::Kind::slip:
        playback_.finishTimelineEdit();
        break;
    case Drag::Kind::resizeLaneClip:
    case Drag::Kind::moveLaneClip:
        playback_.finishRangeClipEdit(*laneTrack(drag.row));
        break;
    case Drag::Kind::pendingLaneClip:
        break;
    }
    update();
}

void TimelineView::mouseDoubleClickEvent(QMouseEvent* event) {
    const TimelineHit hit = hitTest(event->position());
    if (hit.part != TimelineHit::Part::empty) {
        return;
    }
    EditorStore& store = playback_.editorStore();
    const EditTime at(hit.time);
    const EditTime minimum = playback_.gestures().laneMinimumClipDuration();
    switch (hit.row) {
    case TimelineRow::zoom:
        store.addAnimationClip(at, store.project().screen.zoomScale, minimum);
        break;
    case TimelineRow::cameraLayout:
        store.addCameraLayoutClip(at, minimum);
        break;
    case TimelineRow::mask:
        store.addMaskClip(at, minimum);
        break;
    case TimelineRow::text:
        store.addTextClip(at, minimum);
        break;
    case TimelineRow::music:
        if (actions_.addMusic) {
            actions_.addMusic(hit.time);
        }
        return;
    default:
        return;
    }
    if (const auto track = laneTrack(hit.row); track && actions_.showLane) {
        actions_.showLane(*track);
    }
}

void TimelineView::wheelEvent(QWheelEvent* event) {
    const QPoint delta = event->angleDelta();
    if (event->modifiers() & Qt::ControlModifier) {
        const double factor = std::pow(1.0015, delta.y());
        setPixelsPerSecond(pixelsPerSecond_ * factor, event->position().x());
    } else {
        const int amount = delta.x() != 0 ? delta.x() : delta.y();
        scrollSeconds_ -= amount / 120.0 * 60 / pixelsPerSecond_;
        updateScrollBar();
        update();
    }
    event->accept();
}

void TimelineView::contextMenuEvent(QContextMenuEvent* event) {
    const TimelineHit hit = hitTest(event->pos());
    if (hit.part != TimelineHit::Part::body && hit.part != TimelineHit::Part::startEdge &&
        hit.part != TimelineHit::Part::endEdge) {
        return;
    }
    select(hit.row, hit.id);
    EditorStore& store = playback_.editorStore();
    QMenu menu(this);
    if (hit.row == TimelineRow::video) {
        const Uuid id = hit.id;
        menu.addAction(icon(IconName::split), QStringLiteral("Split at Playhead"), this, [this] {
            const auto source = playback_.editTimeline().sourceTime(
                EditTime(playback_.timelinePlayheadTime().value()));
            if (source) {
                playback_.editorStore().splitTimelineClip(*source);
            }
        });
        menu.addAction(icon(IconName::trash), QStringLiteral("Delete Clip"), this,
                       [&store, id] { store.deleteTimelineClip(id); });
        menu.addSeparator();
        menu.addAction(QStringLiteral("Restore Trimmed Start"), this, [&store, id] {
            store.restoreTimelineEdgeTrim(id, TimelineTrimEdge::start);
        });
        menu.addAction(QStringLiteral("Restore Trimmed End"), this,
                       [&store, id] { store.restoreTimelineEdgeTrim(id, TimelineTrimEdge::end); });
        menu.addAction(QStringLiteral("Restore Cut Before"), this,
                       [&store, id] { store.restoreTimelineCut(id); });
    } else {
        const auto track = *laneTrack(hit.row);
        const Uuid id = hit.id;
        const auto withLane = [&](auto&& body) {
            switch (track) {
            case AuxiliaryTimelineTrack::zoom:
                body(animationLane);
                break;
            case AuxiliaryTimelineTrack::cameraLayout:
                body(cameraLayoutLane);
                break;
            case AuxiliaryTimelineTrack::mask:
                body(maskLane);
                break;
            case AuxiliaryTimelineTrack::music:
                body(musicLane);
                break;
            case AuxiliaryTimelineTrack::text:
                body(textLane);
                break;
            }
        };
        withLane([&](const auto& lane) {
            menu.addAction(QString::fromUtf8(lane.duplicateLabel.data(),
                                             static_cast<int>(lane.duplicateLabel.size())),
                           this, [&store, id, lane] { store.duplicateClip(id, lane); });
            menu.addAction(icon(IconName::trash),
                           QString::fromUtf8(lane.deleteLabel.data(),
                                             static_cast<int>(lane.deleteLabel.size())),
                           this, [&store, id, lane] {
                               store.select(id, lane);
                               store.deleteSelectedClip(lane);
                           });
        });
    }
    menu.exec(event->globalPos());
}

void TimelineView::leaveEvent(QEvent*) {
    hover_.reset();
    update();
}

// ---- Painting -----------------------------------------------------------------------------

void TimelineView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), Theme::panelBackground());

    const double end = xForTime(duration());
    // The lanes' tracks.
    for (const TimelineRow row : kRows) {
        if (row == TimelineRow::ruler) {
            continue;
        }
        const QRectF band = rowRect(row);
        const QRectF track(kLabelWidth + 4, band.top(),
                           std::max(0.0, std::min(end, width() - 4.0) - kLabelWidth - 4 + 4),
                           band.height());
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(0x26, 0x27, 0x2e));
        painter.drawRoundedRect(track, 5, 5);
    }
    painter.save();
    painter.setClipRect(QRectF(kLabelWidth, 0, width() - kLabelWidth, height()));
    paintRuler(painter);
    paintVideoRow(painter, clipBoxes(TimelineRow::video));
    for (const TimelineRow row : {TimelineRow::zoom, TimelineRow::cameraLayout, TimelineRow::mask,
                                  TimelineRow::music, TimelineRow::text}) {
        paintLaneRow(painter, row, clipBoxes(row));
    }

    // A drag's snap.
    if (snapLine_) {
        QPen pen(Theme::accent().lighter(140), 1, Qt::DashLine);
        painter.setPen(pen);
        const double x = std::round(xForTime(*snapLine_)) + 0.5;
        painter.drawLine(QPointF(x, rowRect(TimelineRow::ruler).bottom()),
                         QPointF(x, rowRect(TimelineRow::text).bottom()));
    }

    // The playhead.
    const double x = std::round(xForTime(shownPlayheadTime())) + 0.5;
    painter.setPen(QPen(Theme::playhead(), 1.5));
    painter.drawLine(QPointF(x, 14), QPointF(x, rowRect(TimelineRow::text).bottom() + 2));
    QPainterPath handle;
    handle.moveTo(x - 6, 4);
    handle.lineTo(x + 6, 4);
    handle.lineTo(x + 6, 13);
    handle.lineTo(x, 19);
    handle.lineTo(x - 6, 13);
    handle.closeSubpath();
    painter.setPen(Qt::NoPen);
    painter.setBrush(Theme::playhead());
    painter.drawPath(handle);
    painter.restore();

    paintLabels(painter);
}

void TimelineView::paintLabels(QPainter& painter) const {
    painter.fillRect(QRectF(0, 0, kLabelWidth, height()), QColor(0x1b, 0x1c, 0x21));
    painter.fillRect(QRectF(kLabelWidth - 1, 0, 1, height()), Theme::separator());
    painter.setFont(Theme::interfaceFont(8.5, 600));
    for (const TimelineRow row : kRows) {
        if (row == TimelineRow::ruler) {
            continue;
        }
        const QRectF band = rowRect(row);
        const QColor color = rowColor(row);
        const QRectF iconRect(14, band.center().y() - 8, 16, 16);
        paintIcon(painter, rowIcon(row), iconRect,
                  row == TimelineRow::video ? Theme::secondaryText() : color.lighter(120));
        painter.setPen(Theme::secondaryText());
        painter.drawText(QRectF(38, band.top(), kLabelWidth - 42, band.height()),
                         Qt::AlignLeft | Qt::AlignVCenter, rowName(row));
    }
}

void TimelineView::paintRuler(QPainter& painter) const {
    const QRectF band = rowRect(TimelineRow::ruler);
    const double step = majorStep(pixelsPerSecond_);
    const double minor = step / (step >= 10 && std::fmod(step, 15) == 0 ? 3 : 5);
    const double first = std::floor(timeForX(kLabelWidth) / minor) * minor;
    const double last = std::min(duration(), timeForX(width()));
    painter.setFont(Theme::monospacedDigitsFont(8));
    for (double t = std::max(0.0, first); t <= last + 1e-9; t += minor) {
        const double x = std::round(xForTime(t)) + 0.5;
        const bool major = std::abs(std::remainder(t, step)) < minor * 0.01;
        painter.setPen(major ? Theme::secondaryText() : Theme::tertiaryText());
        painter.drawLine(QPointF(x, band.bottom() - (major ? 10 : 5)), QPointF(x, band.bottom()));
        if (major) {
            painter.drawText(QPointF(x + 4, band.bottom() - 12), rulerLabel(t, step));
        }
    }
    painter.fillRect(QRectF(kLabelWidth, band.bottom(), width(), 1), Theme::separator());

    // The movie's chapters (edited-video seconds), as flags with their titles.
    const auto& settings = playback_.editorStore().project().exportSettings;
    if (!settings) {
        return;
    }
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor flag(0xf2, 0xb3, 0x3d);
    QFont font = Theme::interfaceFont(7.5, 600);
    painter.setFont(font);
    const auto& chapters = settings->youtubeChapters;
    for (size_t i = 0; i < chapters.size(); ++i) {
        const double x = std::round(xForTime(chapters[i].time)) + 0.5;
        if (x < kLabelWidth || x > width()) {
            continue;
        }
        const double next = i + 1 < chapters.size() ? xForTime(chapters[i + 1].time) : width();
        painter.setPen(QPen(flag, 1.5));
        painter.drawLine(QPointF(x, band.top() + 2), QPointF(x, band.bottom()));
        const QString title = QFontMetricsF(font).elidedText(
            QString::fromStdString(chapters[i].title), Qt::ElideRight,
            std::max(0.0, std::min(next - x - 10, 180.0)));
        if (title.isEmpty()) {
            continue;
        }
        const double textWidth = QFontMetricsF(font).horizontalAdvance(title) + 8;
        const QRectF tag(x, band.top() + 2, textWidth, 13);
        painter.setPen(Qt::NoPen);
        painter.setBrush(flag);
        painter.drawRoundedRect(tag, 3, 3);
        painter.setPen(QColor(0x1b, 0x1b, 0x20));
        painter.drawText(tag.adjusted(4, 0, 0, 0), Qt::AlignVCenter | Qt::AlignLeft, title);
    }
    painter.restore();
}

void TimelineView::paintVideoRow(QPainter& painter, const std::vector<ClipBox>& clips) const {
    const QRectF band = rowRect(TimelineRow::video);
    const auto& voice = playback_.voiceWaveform().value();
    const auto& system = playback_.systemAudioWaveform().value();
    const double thumbHeight = band.height() - 2 - kWaveformBand;
    const double thumbWidth = thumbHeight * thumbnails_.aspectRatio();
    const ClipBox* previous = nullptr;
    for (const auto& clip : clips) {
        const double left = xForTime(clip.start);
        const double right = xForTime(clip.end);
        if (right < kLabelWidth || left > width()) {
            previous = &clip;
            continue;
        }
        const QRectF box(left + 1, band.top() + 1, std::max(2.0, right - left - 2),
                         band.height() - 2);
        QPainterPath shape;
        shape.addRoundedRect(box, 5, 5);
        painter.save();
        painter.setClipPath(shape, Qt::IntersectClip);
        painter.fillRect(box, Theme::videoClip());
        // Pictures of the screen, each of the material under its middle.
        if (thumbWidth > 4) {
            const double firstTile =
                std::max(box.left(), static_cast<double>(kLabelWidth)) -
                std::fmod(std::max(0.0, std::max(box.left(), static_cast<double>(kLabelWidth)) -
                                            box.left()),
                          thumbWidth);
            for (double tile = firstTile;
                 tile < std::min(box.right(), static_cast<double>(width())); tile += thumbWidth) {
                const double middle = timeForX(tile + thumbWidth / 2);
                const double source = clip.sourceStart + (middle - clip.start) * clip.speed;
                if (const QImage* image = thumbnails_.thumbnail(source)) {
                    painter.drawImage(QRectF(tile, box.top(), thumbWidth, thumbHeight), *image);
                }
            }
        }
        // The sound under it: the voice over the system audio.
        const QRectF waveBand(box.left(), box.bottom() - kWaveformBand, box.width(), kWaveformBand);
        painter.fillRect(waveBand, QColor(0x1a, 0x22, 0x30, 230));
        const auto drawWave = [&](const Waveform& waveform, const QColor& color) {
            if (waveform.peaks.empty() || waveform.duration <= 0) {
                return;
            }
            painter.setPen(QPen(color, 1));
            const double bucket = waveform.duration / static_cast<double>(waveform.peaks.size());
            const double from = std::max(waveBand.left(), static_cast<double>(kLabelWidth));
            const double to = std::min(waveBand.right(), static_cast<double>(width()));
            for (double px = std::floor(from); px < to; px += 1) {
                const double a = clip.sourceStart + (timeForX(px) - clip.start) * clip.speed;
                const double b = clip.sourceStart + (timeForX(px + 1) - clip.start) * clip.speed;
                auto i = static_cast<long>(std::floor(a / bucket));
                const auto j = std::max(i, static_cast<long>(std::floor(b / bucket)));
                float peak = 0;
                for (; i <= j && i < static_cast<long>(waveform.peaks.size()); ++i) {
                    if (i >= 0) {
                        peak = std::max(peak, waveform.peaks[static_cast<size_t>(i)]);
                    }
                }
                const double h = std::min(1.0, static_cast<double>(peak)) * (kWaveformBand - 4);
                if (h >= 0.5) {
                    painter.drawLine(QPointF(px + 0.5, waveBand.center().y() - h / 2),
                                     QPointF(px + 0.5, waveBand.center().y() + h / 2));
                }
            }
        };
        if (system) {
            drawWave(*system, QColor(0x6f, 0x84, 0xa8));
        }
        if (voice) {
            drawWave(*voice, Theme::waveform());
        }
        if (std::abs(clip.speed - 1) > 1e-6) {
            const QString badge = QStringLiteral("%1×").arg(clip.speed, 0, 'g', 3);
            painter.setFont(Theme::interfaceFont(7.5, 700));
            const QRectF pill(box.left() + 6, box.top() + 5,
                              QFontMetricsF(painter.font()).horizontalAdvance(badge) + 10, 15);
            painter.setPen(Qt::NoPen);
            painter.setBrush(QColor(0, 0, 0, 170));
            painter.drawRoundedRect(pill, 7, 7);
            painter.setPen(Qt::white);
            painter.drawText(pill, Qt::AlignCenter, badge);
        }
        painter.restore();
        const bool selected = isSelected(TimelineRow::video, clip.id);
        const bool hovered = hover_ && hover_->id == clip.id && hover_->row == TimelineRow::video;
        painter.setBrush(Qt::NoBrush);
        painter.setPen(selected ? QPen(Qt::white, 2)
                                : QPen(QColor(255, 255, 255, hovered ? 90 : 40), 1));
        painter.drawRoundedRect(box.adjusted(0.5, 0.5, -0.5, -0.5), 5, 5);
        if (selected || hovered) {
            painter.setPen(QPen(Qt::white, 2, Qt::SolidLine, Qt::RoundCap));
            for (const double gx : {box.left() + 4, box.right() - 4}) {
                painter.drawLine(QPointF(gx, box.center().y() - 8),
                                 QPointF(gx, box.center().y() + 8));
            }
        }
        // A cut: material between this clip and the one before was taken out.
        if (previous != nullptr) {
            const double previousEnd =
                previous->sourceStart + (previous->end - previous->start) * previous->speed;
            if (std::abs(previousEnd - clip.sourceStart) > 1.0 / 600) {
                const double cx = std::round(left) + 0.5;
                painter.setPen(Qt::NoPen);
                painter.setBrush(Theme::playhead().darker(110));
                QPainterPath notch;
                notch.moveTo(cx - 5, band.top() - 1);
                notch.lineTo(cx + 5, band.top() - 1);
                notch.lineTo(cx, band.top() + 6);
                notch.closeSubpath();
                painter.drawPath(notch);
            }
        }
        previous = &clip;
    }
}

void TimelineView::paintLaneRow(QPainter& painter, TimelineRow row,
                                const std::vector<ClipBox>& clips) const {
    const QRectF band = rowRect(row);
    const QColor color = rowColor(row);
    const auto& musicWaveforms = playback_.musicWaveforms().value();
    const EditorProjectState& project = playback_.editorStore().project();
    painter.setFont(Theme::interfaceFont(8, 600));
    for (const auto& clip : clips) {
        const double left = xForTime(clip.start);
        const double right = xForTime(clip.end);
        if (right < kLabelWidth || left > width()) {
            continue;
        }
        const QRectF box(left + 1, band.top() + 2, std::max(2.0, right - left - 2),
                         band.height() - 4);
        const bool selected = isSelected(row, clip.id);
        const bool hovered = hover_ && hover_->id == clip.id && hover_->row == row;
        QColor fill = color;
        fill.setAlphaF(clip.disabled ? 0.25 : (selected ? 0.95 : 0.72));
        painter.setPen(selected ? QPen(Qt::white, 2) : QPen(color.lighter(hovered ? 150 : 125), 1));
        painter.setBrush(fill);
        painter.drawRoundedRect(box.adjusted(0.5, 0.5, -0.5, -0.5), 5, 5);
        if (row == TimelineRow::music) {
            // The file's waveform where it plays, looped.
            for (const auto& music : project.music.clips) {
                if (music.id != clip.id) {
                    continue;
                }
                const auto found = musicWaveforms.find(music.segmentID);
                if (found == musicWaveforms.end() || found->second.peaks.empty() ||
                    found->second.duration <= 0) {
                    break;
                }
                const Waveform& waveform = found->second;
                painter.setPen(QPen(QColor(255, 255, 255, 110), 1));
                const double bucket =
                    waveform.duration / static_cast<double>(waveform.peaks.size());
                for (double px =
                         std::floor(std::max(box.left() + 2, static_cast<double>(kLabelWidth)));
                     px < std::min(box.right() - 2, static_cast<double>(width())); px += 2) {
                    const double media =
                        std::fmod(music.mediaOffset + timeForX(px) - clip.start, waveform.duration);
                    const auto index =
                        std::clamp<long>(static_cast<long>(media / bucket), 0,
                                         static_cast<long>(waveform.peaks.size()) - 1);
                    const double h =
                        std::min(1.0,
                                 static_cast<double>(waveform.peaks[static_cast<size_t>(index)])) *
                        (box.height() - 8);
                    painter.drawLine(QPointF(px, box.center().y() - h / 2),
                                     QPointF(px, box.center().y() + h / 2));
                }
                break;
            }
        }
        if (box.width() > 24) {
            painter.setPen(clip.disabled ? QColor(255, 255, 255, 120) : Qt::white);
            const QRectF textRect = box.adjusted(8, 0, -8, 0);
            painter.drawText(textRect, Qt::AlignLeft | Qt::AlignVCenter,
                             QFontMetricsF(painter.font())
                                 .elidedText(clip.label, Qt::ElideRight, textRect.width()));
        }
        if ((selected || hovered) && box.width() > 16) {
            painter.setPen(QPen(QColor(255, 255, 255, 200), 1.5, Qt::SolidLine, Qt::RoundCap));
            for (const double gx : {box.left() + 3.5, box.right() - 3.5}) {
                painter.drawLine(QPointF(gx, box.center().y() - 5),
                                 QPointF(gx, box.center().y() + 5));
            }
        }
    }
}

} // namespace orvelle
