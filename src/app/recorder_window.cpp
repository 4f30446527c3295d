#include "app/recorder_window.h"

#include "app/icons.h"
#include "app/theme.h"
#include "core/log.h"
#include "recording/recording_scratch_store.h"
#include "recording/source_preview_frame_grabber.h"

#include <unistd.h>

#include <QButtonGroup>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QScreen>
#include <QShortcut>
#include <QStackedWidget>
#include <QTimer>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

namespace orvelle {

namespace fs = std::filesystem;

namespace {

constexpr int kSourceRole = Qt::UserRole + 1;
constexpr QSize kThumbnailSize(132, 84);
const QColor kRecordRed(0xe5, 0x48, 0x4d);

QString qString(const std::string& text) {
    return QString::fromStdString(text);
}

QString sourceKey(const RecorderSourceSelection& selection) {
    switch (selection.mode) {
    case RecorderCaptureMode::display:
        return QStringLiteral("display:%1").arg(selection.filter.displayID);
    case RecorderCaptureMode::window:
        return QStringLiteral("window:%1").arg(selection.filter.windowID);
    case RecorderCaptureMode::area:
    case RecorderCaptureMode::device:
        break;
    }
    const CaptureRect r = selection.previewFrame.value_or(CaptureRect{});
    return QStringLiteral("area:%1,%2,%3,%4").arg(r.x).arg(r.y).arg(r.width).arg(r.height);
}

QString sourceSubtitle(const RecorderSourceSelection& selection) {
    const CaptureRect r = selection.previewFrame.value_or(selection.filter.contentRect);
    return QStringLiteral("%1 × %2").arg(std::lround(r.width)).arg(std::lround(r.height));
}

QImage imageOf(const PreviewStill& still) {
    QImage image(still.width, still.height, QImage::Format_RGB32);
    for (int y = 0; y < still.height; ++y) {
        std::memcpy(image.scanLine(y), still.pixels.data() + size_t(y) * still.width * 4,
                    size_t(still.width) * 4);
    }
    return image;
}

// A thumbnail: the still (or the kind's icon on a tile) in a rounded frame.
QIcon thumbnail(const QImage& still, IconName fallback) {
    QPixmap pixmap(kThumbnailSize);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    QPainterPath frame;
    const QRectF bounds = QRectF(QPointF(0, 0), QSizeF(kThumbnailSize)).adjusted(1, 1, -1, -1);
    frame.addRoundedRect(bounds, 8, 8);
    painter.fillPath(frame, QColor(0x1d, 0x1d, 0x24));
    if (!still.isNull()) {
        painter.setClipPath(frame);
        const QSizeF fitted =
            QSizeF(still.size()).scaled(bounds.size(), Qt::KeepAspectRatioByExpanding);
        painter.drawImage(QRectF(bounds.center().x() - fitted.width() / 2,
                                 bounds.center().y() - fitted.height() / 2, fitted.width(),
                                 fitted.height()),
                          still);
        painter.setClipping(false);
    } else {
        paintIcon(painter, fallback, QRectF(bounds.center() - QPointF(16, 16), QSizeF(32, 32)),
                  Theme::tertiaryText());
    }
    painter.setPen(QPen(Theme::separator(), 1));
    painter.drawPath(frame);
    return QIcon(pixmap);
}

IconName modeIcon(RecorderCaptureMode mode) {
    switch (mode) {
    case RecorderCaptureMode::window:
        return IconName::window;
    case RecorderCaptureMode::area:
        return IconName::area;
    case RecorderCaptureMode::display:
    case RecorderCaptureMode::device:
        break;
    }
    return IconName::display;
}

QLabel* sectionHeading(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setFont(Theme::interfaceFont(8.5, 600));
    label->setProperty("role", "secondary");
    return label;
}

} // namespace

CameraPreviewView::CameraPreviewView(CameraRecorder& camera, QWidget* parent)
    : QWidget(parent), camera_(camera), timer_(new QTimer(this)) {
    setMinimumSize(160, 90);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    setFixedHeight(108);
    timer_->setInterval(66);
    connect(timer_, &QTimer::timeout, this, [this] { update(); });
}

void CameraPreviewView::showEvent(QShowEvent*) {
    timer_->start();
}

void CameraPreviewView::hideEvent(QHideEvent*) {
    timer_->stop();
}

void CameraPreviewView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    QPainterPath frame;
    const QRectF bounds = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    frame.addRoundedRect(bounds, 8, 8);
    painter.fillPath(frame, QColor(0x15, 0x15, 0x1b));
    const CapturedVideoFrameRef picture =
        camera_.isEnabled.value() ? camera_.latestPreviewFrame() : nullptr;
    hasPicture_ = picture != nullptr && picture->pixels != nullptr;
    if (hasPicture_) {
        const QImage image(picture->pixels, picture->width, picture->height, picture->stride,
                           QImage::Format_RGB32);
        painter.setClipPath(frame);
        const QSizeF fitted =
            QSizeF(image.size()).scaled(bounds.size(), Qt::KeepAspectRatioByExpanding);
        // Mirrored, as people expect to see themselves.
        painter.translate(bounds.center());
        painter.scale(-1, 1);
        painter.drawImage(
            QRectF(-fitted.width() / 2, -fitted.height() / 2, fitted.width(), fitted.height()),
            image);
        painter.resetTransform();
        painter.setClipping(false);
    } else {
        paintIcon(painter, IconName::camera,
                  QRectF(bounds.center() - QPointF(14, 20), QSizeF(28, 28)), Theme::tertiaryText());
        painter.setPen(Theme::tertiaryText());
        painter.setFont(Theme::interfaceFont(8.5));
        const QString text = !camera_.isEnabled.value() ? QStringLiteral("Camera off")
                             : camera_.detailText.value().empty()
                                 ? QStringLiteral("Starting camera…")
                                 : qString(camera_.detailText.value());
        painter.drawText(bounds.adjusted(8, 44, -8, -4), Qt::AlignCenter | Qt::TextWordWrap, text);
    }
    painter.setPen(QPen(Theme::separator(), 1));
    painter.drawPath(frame);
}

LevelMeter::LevelMeter(QWidget* parent) : QWidget(parent) {
    setFixedHeight(10);
    setMinimumWidth(120);
    setAccessibleName(QStringLiteral("Microphone level"));
}

void LevelMeter::setLevel(float level) {
    level = std::clamp(level, 0.0f, 1.0f);
    if (level != level_) {
        level_ = level;
        update();
    }
}

void LevelMeter::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    constexpr int kSegments = 24;
    const double gap = 2;
    const double w = (width() - gap * (kSegments - 1)) / kSegments;
    const int lit = static_cast<int>(std::round(level_ * kSegments));
    for (int i = 0; i < kSegments; ++i) {
        QColor color = i < kSegments * 0.7   ? QColor(0x4c, 0xc3, 0x8a)
                       : i < kSegments * 0.9 ? QColor(0xe6, 0xb4, 0x3c)
                                             : kRecordRed;
        if (i >= lit) {
            color = Theme::raisedBackground();
        }
        painter.setPen(Qt::NoPen);
        painter.setBrush(color);
        painter.drawRoundedRect(QRectF(i * (w + gap), 0, w, height()), 2, 2);
    }
}

RecorderWindow::RecorderWindow(RecorderSession& session, Actions actions, QWidget* parent)
    : QWidget(parent), session_(session), actions_(std::move(actions)) {
    // The title and role by which the recorder leaves its own windows out of a recording.
    setWindowTitle(QString::fromLatin1(WindowRecorderGeometry::kRecorderWindowTitle));
    setWindowRole(QString::fromLatin1(WindowRecorderGeometry::kRecorderWindowIdentifier));
    setObjectName(QStringLiteral("RecorderWindow"));
    setWindowIcon(applicationIcon());

    areaOverlay_ = std::make_unique<AreaSelectionOverlay>(AreaSelectionOverlay::Actions{
        .chosen =
            [this](const QRect& area) {
                show();
                raise();
                chooseArea(area);
            },
        .cancelled =
            [this] {
                show();
                raise();
                launcherStatus_->setText(qString(
                    recorderCaptureModeLabel(RecorderCaptureMode::area) + " selection canceled."));
            },
    });
    boundaryOverlay_ = std::make_unique<RecordingAreaBoundaryOverlay>();
    startupOverlay_ = std::make_unique<RecordingStartupOverlay>();

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    pages_ = new QStackedWidget(this);
    pages_->addWidget(buildLauncher());
    pages_->addWidget(buildRecordingControls());
    layout->addWidget(pages_);

    WindowRecorder& recorder = session_.recorder();
    const auto refresh = [this](const auto&) { refreshState(); };
    subscriptions_.push_back(recorder.statusText.observe(refresh));
    subscriptions_.push_back(recorder.detailText.observe(refresh));
    subscriptions_.push_back(recorder.isRecording.observe(refresh));
    subscriptions_.push_back(recorder.isPaused.observe(refresh));
    subscriptions_.push_back(recorder.elapsedText.observe(
        [this](const std::string& text) { elapsedLabel_->setText(qString(text)); }));
    subscriptions_.push_back(recorder.activeCaptureFrame.observe(
        [this](const std::optional<CaptureRect>&) { refreshState(); }));
    subscriptions_.push_back(
        recorder.startupOverlayTitle.observe([this](const std::optional<std::string>& title) {
            const auto frame = session_.recorder().activeCaptureFrame.value();
            if (title && lastArea_ && frame) {
                startupOverlay_->show(*lastArea_, qString(*title));
            } else {
                startupOverlay_->dismiss();
            }
        }));
    subscriptions_.push_back(recorder.lastFailure.observe([this](const auto& failure) {
        if (failure) {
            // The recorder finishes its own words first.
            QTimer::singleShot(0, this, [this] { afterFailure(); });
        }
    }));
    subscriptions_.push_back(session_.microphone().inputLevel.observe([this](float level) {
        levelMeter_->setLevel(level);
        recordingLevel_->setLevel(level);
    }));
    subscriptions_.push_back(
        session_.camera().devices.observe([this](const auto&) { refreshDevices(); }));
    subscriptions_.push_back(
        session_.microphone().devices.observe([this](const auto&) { refreshDevices(); }));
    subscriptions_.push_back(
        session_.camera().isEnabled.observe([this](bool) { refreshDevices(); }));
    subscriptions_.push_back(
        session_.microphone().isEnabled.observe([this](bool) { refreshDevices(); }));

    // Ctrl+R starts and stops, Ctrl+P pauses and resumes, as the buttons do.
    auto* record = new QShortcut(QKeySequence(QStringLiteral("Ctrl+R")), this);
    connect(record, &QShortcut::activated, this, [this] {
        if (session_.isActive()) {
            stopRecording();
        } else {
            startRecording();
        }
    });
    auto* pause = new QShortcut(QKeySequence(QStringLiteral("Ctrl+P")), this);
    connect(pause, &QShortcut::activated, this, [this] { togglePause(); });

    setCaptureMode(session_.lastCaptureMode());
    if (const auto area = session_.lastArea(); area && mode_ == RecorderCaptureMode::area) {
        chooseArea(QRect(int(area->x), int(area->y), int(area->width), int(area->height)));
    }
    refreshDevices();
    showPage(1, QSize(380, 168));
    showLauncherPage();
    refreshState();
}

RecorderWindow::~RecorderWindow() {
    subscriptions_.clear();
}

QWidget* RecorderWindow::buildLauncher() {
    auto* page = new QWidget(this);
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(Theme::kPanelMargin + 4, Theme::kPanelMargin,
                               Theme::kPanelMargin + 4, Theme::kPanelMargin + 4);
    layout->setSpacing(10);

    auto* header = new QHBoxLayout;
    auto* title = new QLabel(QStringLiteral("New Recording"), page);
    title->setFont(Theme::interfaceFont(15, 650));
    header->addWidget(title);
    header->addStretch();
    auto* settings = new QToolButton(page);
    settings->setIcon(icon(IconName::settings));
    settings->setIconSize(QSize(18, 18));
    settings->setToolTip(QStringLiteral("Settings"));
    settings->setAutoRaise(true);
    connect(settings, &QToolButton::clicked, this, [this] {
        if (actions_.showSettings) {
            actions_.showSettings();
        }
    });
    header->addWidget(settings);
    layout->addLayout(header);

    // What to record: three modes as one segmented control.
    auto* modes = new QHBoxLayout;
    modes->setSpacing(6);
    modeButtons_ = new QButtonGroup(page);
    modeButtons_->setExclusive(true);
    const std::pair<RecorderCaptureMode, const char*> kModes[] = {
        {RecorderCaptureMode::display, "Display"},
        {RecorderCaptureMode::window, "Window"},
        {RecorderCaptureMode::area, "Area"},
    };
    int shortcut = 1;
    for (const auto& [mode, text] : kModes) {
        auto* button = new QToolButton(page);
        button->setText(QString::fromLatin1(text));
        button->setIcon(icon(modeIcon(mode)));
        button->setIconSize(QSize(20, 20));
        button->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
        button->setCheckable(true);
        button->setProperty("choice", true);
        button->setMinimumSize(96, 64);
        button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        button->setShortcut(QKeySequence(QStringLiteral("Ctrl+%1").arg(shortcut++)));
        button->setToolTip(QStringLiteral("Record a %1 (%2)")
                               .arg(QString::fromLatin1(text).toLower(),
                                    button->shortcut().toString(QKeySequence::NativeText)));
        modeButtons_->addButton(button, static_cast<int>(mode));
        modes->addWidget(button);
    }
    connect(modeButtons_, &QButtonGroup::idClicked, this, [this](int id) {
        setCaptureMode(static_cast<RecorderCaptureMode>(id));
        if (mode_ == RecorderCaptureMode::area) {
            selectArea();
        }
    });
    layout->addLayout(modes);

    sourceHint_ = new QLabel(page);
    sourceHint_->setProperty("role", "secondary");
    sourceHint_->setWordWrap(true);
    layout->addWidget(sourceHint_);

    // The chosen source's still, large, with its name under it.
    sourcePreview_ = new QLabel(page);
    sourcePreview_->setObjectName(QStringLiteral("SourcePreview"));
    sourcePreview_->setAlignment(Qt::AlignCenter);
    sourcePreview_->setFixedHeight(220);
    sourcePreview_->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    layout->addWidget(sourcePreview_);
    sourceTitle_ = new QLabel(page);
    sourceTitle_->setAlignment(Qt::AlignCenter);
    sourceTitle_->setFont(Theme::interfaceFont(10, 600));
    layout->addWidget(sourceTitle_);

    sourceList_ = new QListWidget(page);
    sourceList_->setViewMode(QListView::IconMode);
    sourceList_->setIconSize(kThumbnailSize);
    sourceList_->setGridSize(QSize(kThumbnailSize.width() + 18, kThumbnailSize.height() + 44));
    sourceList_->setMovement(QListView::Static);
    sourceList_->setResizeMode(QListView::Adjust);
    sourceList_->setWordWrap(true);
    sourceList_->setUniformItemSizes(true);
    sourceList_->setSpacing(2);
    sourceList_->setFixedHeight(kThumbnailSize.height() + 52);
    sourceList_->setFlow(QListView::LeftToRight);
    sourceList_->setWrapping(false);
    sourceList_->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    connect(sourceList_, &QListWidget::itemSelectionChanged, this, [this] { sourceClicked(); });
    layout->addWidget(sourceList_);

    selectAreaButton_ = new QPushButton(icon(IconName::area), QStringLiteral("Select Area…"), page);
    selectAreaButton_->setToolTip(QStringLiteral("Drag out the part of the screen to record"));
    connect(selectAreaButton_, &QPushButton::clicked, this, [this] { selectArea(); });
    layout->addWidget(selectAreaButton_);

    // Camera and microphone.
    layout->addWidget(sectionHeading(QStringLiteral("CAMERA"), page));
    auto* cameraRow = new QHBoxLayout;
    cameraToggle_ = new QCheckBox(QStringLiteral("Record the camera"), page);
    cameraRow->addWidget(cameraToggle_);
    cameraChoice_ = new QComboBox(page);
    cameraChoice_->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    cameraRow->addWidget(cameraChoice_, 1);
    layout->addLayout(cameraRow);
    cameraPreview_ = new CameraPreviewView(session_.camera(), page);
    layout->addWidget(cameraPreview_);
    connect(cameraToggle_, &QCheckBox::toggled, this, [this](bool on) {
        if (!populatingDevices_) {
            session_.setCameraEnabled(on);
        }
    });
    connect(cameraChoice_, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (!populatingDevices_ && index >= 0) {
            session_.selectCamera(cameraChoice_->itemData(index).toString().toStdString());
        }
    });

    layout->addWidget(sectionHeading(QStringLiteral("MICROPHONE"), page));
    auto* microphoneRow = new QHBoxLayout;
    microphoneToggle_ = new QCheckBox(QStringLiteral("Record the microphone"), page);
    microphoneRow->addWidget(microphoneToggle_);
    microphoneChoice_ = new QComboBox(page);
    microphoneChoice_->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    microphoneRow->addWidget(microphoneChoice_, 1);
    layout->addLayout(microphoneRow);
    levelMeter_ = new LevelMeter(page);
    layout->addWidget(levelMeter_);
    connect(microphoneToggle_, &QCheckBox::toggled, this, [this](bool on) {
        if (!populatingDevices_) {
            session_.setMicrophoneEnabled(on);
        }
    });
    connect(microphoneChoice_, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (!populatingDevices_ && index >= 0) {
            session_.selectMicrophone(microphoneChoice_->itemData(index).toString().toStdString());
        }
    });

    systemAudioToggle_ = new QCheckBox(QStringLiteral("Record what the computer plays"), page);
    systemAudioToggle_->setChecked(session_.recorder().systemAudioEnabled.value());
    connect(systemAudioToggle_, &QCheckBox::toggled, this,
            [this](bool on) { session_.setSystemAudioEnabled(on); });
    layout->addWidget(systemAudioToggle_);

    launcherStatus_ = new QLabel(page);
    launcherStatus_->setProperty("role", "secondary");
    launcherStatus_->setWordWrap(true);
    layout->addWidget(launcherStatus_);

    startButton_ = new QPushButton(icon(IconName::record, kRecordRed),
                                   QStringLiteral("Start Recording"), page);
    startButton_->setProperty("primary", true);
    startButton_->setMinimumHeight(40);
    startButton_->setToolTip(QStringLiteral("Start recording (Ctrl+R)"));
    connect(startButton_, &QPushButton::clicked, this, [this] { startRecording(); });
    layout->addWidget(startButton_);
    return page;
}

QWidget* RecorderWindow::buildRecordingControls() {
    auto* page = new QWidget(this);
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(Theme::kPanelMargin, 12, Theme::kPanelMargin, 12);
    layout->setSpacing(6);

    auto* top = new QHBoxLayout;
    stateDot_ = new QLabel(page);
    stateDot_->setFixedSize(12, 12);
    top->addWidget(stateDot_);
    stateLabel_ = new QLabel(page);
    stateLabel_->setFont(Theme::interfaceFont(11, 600));
    top->addWidget(stateLabel_);
    top->addStretch();
    elapsedLabel_ = new QLabel(QStringLiteral("00:00"), page);
    elapsedLabel_->setFont(Theme::monospacedDigitsFont(20));
    top->addWidget(elapsedLabel_);
    layout->addLayout(top);

    detailLabel_ = new QLabel(page);
    detailLabel_->setProperty("role", "secondary");
    detailLabel_->setWordWrap(true);
    layout->addWidget(detailLabel_);
    recordingLevel_ = new LevelMeter(page);
    recordingLevel_->setFixedHeight(6);
    layout->addWidget(recordingLevel_);

    auto* buttons = new QHBoxLayout;
    buttons->setSpacing(Theme::kSpacing);
    pauseButton_ = new QPushButton(icon(IconName::pause), QStringLiteral("Pause"), page);
    pauseButton_->setToolTip(QStringLiteral("Pause or resume (Ctrl+P)"));
    connect(pauseButton_, &QPushButton::clicked, this, [this] { togglePause(); });
    buttons->addWidget(pauseButton_, 1);
    stopButton_ = new QPushButton(icon(IconName::stop, Qt::white), QStringLiteral("Stop"), page);
    stopButton_->setProperty("primary", true);
    stopButton_->setToolTip(QStringLiteral("Stop and open the take in the editor (Ctrl+R)"));
    connect(stopButton_, &QPushButton::clicked, this, [this] { stopRecording(); });
    buttons->addWidget(stopButton_, 1);
    discardButton_ = new QToolButton(page);
    discardButton_->setIcon(icon(IconName::trash));
    discardButton_->setToolTip(QStringLiteral("Discard this recording"));
    discardButton_->setMinimumSize(34, 30);
    connect(discardButton_, &QToolButton::clicked, this, [this] { discardRecording(); });
    buttons->addWidget(discardButton_);
    layout->addLayout(buttons);
    return page;
}

void RecorderWindow::present() {
    session_.refreshDevices();
    reloadSources();
    refreshState();
    showLauncherPage();
    show();
    raise();
    activateWindow();
}

void RecorderWindow::setCaptureMode(RecorderCaptureMode mode) {
    if (mode == RecorderCaptureMode::device) {
        mode = RecorderCaptureMode::display;
    }
    mode_ = mode;
    if (QAbstractButton* button = modeButtons_->button(static_cast<int>(mode))) {
        button->setChecked(true);
    }
    if (selected_ && selected_->mode != mode) {
        selected_.reset();
    }
    reloadSources();
}

void RecorderWindow::reloadSources() {
    const bool area = mode_ == RecorderCaptureMode::area;
    selectAreaButton_->setVisible(area);
    sources_.clear();
    const ShareableContent content = session_.shareableContent();
    if (!session_.backend()) {
        sourceHint_->setText(qString(session_.backendProblem()));
    } else if (area) {
        sourceHint_->setText(
            QStringLiteral("Drag out the part of the screen to record. The recorder keeps its "
                           "window beside it."));
        if (selected_ && selected_->mode == RecorderCaptureMode::area) {
            sources_.push_back(*selected_);
        }
    } else if (mode_ == RecorderCaptureMode::display) {
        sourceHint_->setText(content.displays.empty()
                                 ? QStringLiteral("The desktop asks which display to record when "
                                                  "the recording starts.")
                                 : QStringLiteral("Choose the display to record."));
        for (const auto& display : content.displays) {
            sources_.push_back(displaySelection(content, display.id));
        }
    } else {
        sourceHint_->setText(content.windows.empty() && content.displays.empty()
                                 ? QStringLiteral("The desktop asks which window to record when "
                                                  "the recording starts.")
                                 : QStringLiteral("Choose the window to record."));
        const int32_t self = static_cast<int32_t>(::getpid());
        for (const auto& window : content.windows) {
            if (window.processID == self || window.frame.width < 32 || window.frame.height < 32) {
                continue;
            }
            try {
                sources_.push_back(windowSelection(content, window.id));
            } catch (const std::exception&) {
                // Gone since it was listed.
            }
        }
    }
    // Keep the choice when it is still on offer; otherwise the first source.
    if (selected_ && std::none_of(sources_.begin(), sources_.end(), [this](const auto& source) {
            return sourceKey(source) == sourceKey(*selected_);
        })) {
        selected_.reset();
    }
    if (!selected_ && !sources_.empty() && !area) {
        selected_ = sources_.front();
    }

    const QSignalBlocker blocker(sourceList_);
    sourceList_->clear();
    for (const auto& source : sources_) {
        const QString key = sourceKey(source);
        const auto still = stills_.find(key);
        auto* item = new QListWidgetItem(
            thumbnail(still != stills_.end() ? still->second : QImage(), modeIcon(source.mode)),
            qString(source.title) + QStringLiteral("\n") + sourceSubtitle(source));
        item->setData(kSourceRole, key);
        item->setToolTip(qString(source.title));
        sourceList_->addItem(item);
        if (selected_ && sourceKey(*selected_) == key) {
            item->setSelected(true);
            sourceList_->setCurrentItem(item);
        }
        if (still == stills_.end()) {
            requestPreview(source, key);
        }
    }
    sourceList_->setVisible(!sources_.empty());
    refreshSourcePreview();
    refreshStartButton();
}

void RecorderWindow::refreshSourcePreview() {
    const QSize box(std::max(200, sourcePreview_->width()), sourcePreview_->height());
    QPixmap pixmap(box * devicePixelRatioF());
    pixmap.setDevicePixelRatio(devicePixelRatioF());
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const QRectF bounds = QRectF(QPointF(0, 0), QSizeF(box)).adjusted(1, 1, -1, -1);
    QPainterPath frame;
    frame.addRoundedRect(bounds, 10, 10);
    painter.fillPath(frame, QColor(0x15, 0x15, 0x1b));
    QString title;
    if (selected_) {
        const auto still = stills_.find(sourceKey(*selected_));
        title = qString(selected_->title) + QStringLiteral("  ·  ") + sourceSubtitle(*selected_);
        if (still != stills_.end()) {
            painter.setClipPath(frame);
            // The still is a centred square: shown whole.
            const QSizeF fitted =
                QSizeF(still->second.size()).scaled(bounds.size(), Qt::KeepAspectRatio);
            painter.drawImage(QRectF(bounds.center().x() - fitted.width() / 2,
                                     bounds.center().y() - fitted.height() / 2, fitted.width(),
                                     fitted.height()),
                              still->second);
            painter.setClipping(false);
        } else {
            paintIcon(painter, modeIcon(selected_->mode),
                      QRectF(bounds.center() - QPointF(24, 24), QSizeF(48, 48)),
                      Theme::tertiaryText());
        }
    } else {
        paintIcon(painter, modeIcon(mode_),
                  QRectF(bounds.center() - QPointF(24, 34), QSizeF(48, 48)), Theme::tertiaryText());
        painter.setPen(Theme::secondaryText());
        painter.setFont(Theme::interfaceFont(10));
        painter.drawText(bounds.adjusted(12, 70, -12, -8), Qt::AlignCenter | Qt::TextWordWrap,
                         mode_ == RecorderCaptureMode::area
                             ? QStringLiteral("Select Area… to drag out what to record")
                             : QStringLiteral("Nothing to record here yet"));
    }
    painter.setClipping(false);
    painter.setPen(QPen(Theme::separator(), 1));
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(frame);
    painter.end();
    sourcePreview_->setPixmap(pixmap);
    sourceTitle_->setText(title);
}

void RecorderWindow::requestPreview(const RecorderSourceSelection& selection, const QString& key) {
    CaptureBackend* backend = session_.backend();
    if (backend == nullptr) {
        return;
    }
    ++pendingPreviews_;
    previews_.run<std::optional<PreviewStill>>(
        [backend, selection] { return captureSourcePreview(*backend, selection); },
        [this, key](std::optional<PreviewStill> still) {
            --pendingPreviews_;
            if (!still) {
                return; // a missing still is no failure: the title stands alone
            }
            stills_[key] = imageOf(*still);
            for (int row = 0; row < sourceList_->count(); ++row) {
                QListWidgetItem* item = sourceList_->item(row);
                if (item->data(kSourceRole).toString() == key) {
                    item->setIcon(thumbnail(stills_[key], modeIcon(mode_)));
                }
            }
            refreshSourcePreview();
        },
        [this](const std::string& problem) {
            --pendingPreviews_;
            logWarning("Recording", "no still of a source: ", problem);
        });
}

void RecorderWindow::chooseArea(const QRect& area) {
    const CaptureRect rect{double(area.x()), double(area.y()), double(area.width()),
                           double(area.height())};
    try {
        selectSource(areaSelection(session_.shareableContent(), rect));
        lastArea_ = area;
        session_.rememberArea(rect);
    } catch (const std::exception& error) {
        launcherStatus_->setText(qString(error.what()));
    }
}

void RecorderWindow::selectSource(const RecorderSourceSelection& selection) {
    if (selection.mode != mode_) {
        setCaptureMode(selection.mode);
    }
    selected_ = selection;
    if (selection.mode == RecorderCaptureMode::area) {
        stills_.erase(sourceKey(selection));
    }
    reloadSources();
}

void RecorderWindow::sourceClicked() {
    const auto items = sourceList_->selectedItems();
    if (items.isEmpty()) {
        return;
    }
    const QString key = items.front()->data(kSourceRole).toString();
    for (const auto& source : sources_) {
        if (sourceKey(source) == key) {
            selected_ = source;
        }
    }
    refreshSourcePreview();
    refreshStartButton();
}

void RecorderWindow::refreshDevices() {
    populatingDevices_ = true;
    CameraRecorder& camera = session_.camera();
    cameraChoice_->clear();
    for (const auto& device : camera.devices.value()) {
        cameraChoice_->addItem(qString(device.name), qString(device.id));
        if (camera.selectedDeviceID.value() == device.id) {
            cameraChoice_->setCurrentIndex(cameraChoice_->count() - 1);
        }
    }
    const bool hasCamera = cameraChoice_->count() > 0;
    if (!hasCamera) {
        cameraChoice_->addItem(QStringLiteral("No camera found"));
    }
    cameraChoice_->setEnabled(hasCamera);
    cameraToggle_->setEnabled(hasCamera);
    cameraToggle_->setChecked(camera.isEnabled.value());
    cameraPreview_->setVisible(camera.isEnabled.value());

    MicrophoneRecorder& microphone = session_.microphone();
    microphoneChoice_->clear();
    for (const auto& device : microphone.devices.value()) {
        microphoneChoice_->addItem(qString(device.name), qString(device.id));
        if (microphone.selectedDeviceID.value() == device.id) {
            microphoneChoice_->setCurrentIndex(microphoneChoice_->count() - 1);
        }
    }
    const bool hasMicrophone = microphoneChoice_->count() > 0;
    if (!hasMicrophone) {
        microphoneChoice_->addItem(QStringLiteral("No microphone found"));
    }
    microphoneChoice_->setEnabled(hasMicrophone);
    microphoneToggle_->setEnabled(hasMicrophone);
    microphoneToggle_->setChecked(microphone.isEnabled.value());
    levelMeter_->setVisible(microphone.isEnabled.value());
    populatingDevices_ = false;
}

void RecorderWindow::refreshStartButton() {
    const bool needsArea = mode_ == RecorderCaptureMode::area && !selected_;
    startButton_->setEnabled(session_.backend() != nullptr && !needsArea &&
                             session_.recorder().state() == WindowRecorder::State::idle);
}

bool RecorderWindow::isShowingRecordingControls() const {
    return pages_->currentIndex() == 1;
}

void RecorderWindow::showPage(int index, QSize size) {
    if (pages_->currentIndex() == index) {
        return;
    }
    // Only the page shown counts for the window's size.
    for (int i = 0; i < pages_->count(); ++i) {
        pages_->widget(i)->setSizePolicy(i == index ? QSizePolicy::Preferred : QSizePolicy::Ignored,
                                         i == index ? QSizePolicy::Preferred
                                                    : QSizePolicy::Ignored);
    }
    pages_->setCurrentIndex(index);
    pages_->adjustSize();
    setMinimumSize(0, 0);
    resize(size);
}

void RecorderWindow::showLauncherPage() {
    showPage(0, QSize(520, 760));
}

void RecorderWindow::showRecordingPage() {
    showPage(1, QSize(380, 168));
}

void RecorderWindow::refreshState() {
    WindowRecorder& recorder = session_.recorder();
    const auto state = recorder.state();
    const bool active =
        state == WindowRecorder::State::starting || state == WindowRecorder::State::recording ||
        state == WindowRecorder::State::paused || state == WindowRecorder::State::stopping;
    stateLabel_->setText(qString(recorder.statusText.value()));
    detailLabel_->setText(qString(recorder.detailText.value()));
    launcherStatus_->setText(
        recorder.statusText.value() == "Ready"
            ? qString(recorder.detailText.value())
            : qString(recorder.statusText.value() + " — " + recorder.detailText.value()));
    const bool paused = recorder.isPaused.value();
    const QColor dot = paused                                      ? QColor(0xe6, 0xb4, 0x3c)
                       : state == WindowRecorder::State::recording ? kRecordRed
                                                                   : Theme::tertiaryText();
    QPixmap pixmap(24, 24);
    pixmap.fill(Qt::transparent);
    {
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(dot);
        painter.drawEllipse(QRectF(2, 2, 20, 20));
    }
    pixmap.setDevicePixelRatio(2);
    stateDot_->setPixmap(pixmap);
    pauseButton_->setText(paused ? QStringLiteral("Resume") : QStringLiteral("Pause"));
    pauseButton_->setIcon(icon(paused ? IconName::play : IconName::pause));
    pauseButton_->setEnabled(state == WindowRecorder::State::recording ||
                             state == WindowRecorder::State::paused);
    stopButton_->setEnabled(state == WindowRecorder::State::starting ||
                            state == WindowRecorder::State::recording ||
                            state == WindowRecorder::State::paused);
    discardButton_->setEnabled(stopButton_->isEnabled());

    const auto frame = recorder.activeCaptureFrame.value();
    if (active && frame && lastArea_ && mode_ == RecorderCaptureMode::area &&
        state != WindowRecorder::State::stopping) {
        boundaryOverlay_->show(*lastArea_);
    } else {
        boundaryOverlay_->dismiss();
    }
    if (active) {
        showRecordingPage();
    }
    refreshStartButton();
}

void RecorderWindow::selectArea() {
    if (session_.recorder().state() != WindowRecorder::State::idle) {
        return;
    }
    setCaptureMode(RecorderCaptureMode::area);
    hide();
    // Let the window leave the screen before the overlay takes its still.
    QTimer::singleShot(120, this, [this] { areaOverlay_->present(lastArea_); });
}

void RecorderWindow::keepOutOfCapture(const QRect& area) {
    const QSize size = frameGeometry().size().isEmpty() ? this->size() : frameGeometry().size();
    constexpr int kGap = 16;
    const QPoint candidates[] = {
        {area.right() + kGap, area.top()},
        {area.left() - kGap - size.width(), area.top()},
        {area.left(), area.bottom() + kGap},
        {area.left(), area.top() - kGap - size.height()},
    };
    for (QScreen* screen : QGuiApplication::screens()) {
        const QRect available = screen->availableGeometry();
        for (const QPoint& corner : candidates) {
            QRect placed(corner, size);
            // Slide along the edge it sits on to stay on the screen.
            placed.moveTop(
                std::clamp(placed.top(), available.top(),
                           std::max(available.top(), available.bottom() - size.height())));
            placed.moveLeft(
                std::clamp(placed.left(), available.left(),
                           std::max(available.left(), available.right() - size.width())));
            if (available.contains(placed) && !placed.intersects(area)) {
                move(placed.topLeft());
                return;
            }
        }
    }
    // No room anywhere: the tray holds the controls, where there is one.
    if (actions_.canHideInTray && actions_.canHideInTray()) {
        hiddenInTray_ = true;
        hide();
    } else {
        logInfo("Recording", "the recorder window is inside the recorded area");
    }
}

void RecorderWindow::startRecording() {
    if (session_.recorder().state() != WindowRecorder::State::idle) {
        return;
    }
    std::optional<RecorderSourceSelection> selection = selected_;
    if (!selection && mode_ != RecorderCaptureMode::area && session_.backend() != nullptr) {
        // A desktop that lists no sources chooses in its own dialog.
        try {
            selection = session_.backend()->pickWithSystemPicker(mode_);
        } catch (const std::exception& error) {
            launcherStatus_->setText(qString(error.what()));
            return;
        }
    }
    if (!selection) {
        if (mode_ == RecorderCaptureMode::area) {
            selectArea();
        }
        return;
    }
    if (selection->mode == RecorderCaptureMode::area && !lastArea_ && selection->previewFrame) {
        const CaptureRect r = *selection->previewFrame;
        lastArea_ = QRect(int(r.x), int(r.y), int(r.width), int(r.height));
    }
    // The recorder window steps out of the way before the stream starts.
    showRecordingPage();
    QRect area;
    if (selection->mode == RecorderCaptureMode::area && lastArea_) {
        area = *lastArea_;
    } else if (selection->previewFrame) {
        const CaptureRect r = *selection->previewFrame;
        area = QRect(int(r.x), int(r.y), int(r.width), int(r.height));
    } else {
        const CaptureRect r = selection->filter.contentRect;
        area = QRect(int(r.x), int(r.y), int(r.width), int(r.height));
    }
    hiddenInTray_ = false;
    if (!area.isEmpty()) {
        keepOutOfCapture(area);
    }
    // Started from elsewhere (the tray, the keys for the whole desktop): the controls come
    // up beside the area, leaving the focus where the user works.
    if (!isVisible() && !hiddenInTray_) {
        setAttribute(Qt::WA_ShowWithoutActivating, true);
        show();
        setAttribute(Qt::WA_ShowWithoutActivating, false);
    }
    runMainThreadUntil([] { return false; }, std::chrono::milliseconds(60));
    session_.start(*selection);
    refreshState();
}

void RecorderWindow::togglePause() {
    session_.togglePause();
    refreshState();
}

void RecorderWindow::stopRecording() {
    if (!session_.isActive()) {
        return;
    }
    const auto take = session_.stop();
    refreshState();
    if (!take) {
        showLauncherPage();
        if (hiddenInTray_) {
            show();
        }
        return;
    }
    hide();
    showLauncherPage();
    if (take->manifestURL) {
        if (actions_.openTake) {
            actions_.openTake(take->screenURL);
        }
        return;
    }
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Orvelle"),
                    QStringLiteral("Couldn't save the take's metadata"), QMessageBox::NoButton);
    box.setInformativeText(QStringLiteral(
        "The recording files were saved, but the take metadata could not be written. The "
        "editor may show only the screen recording — camera, microphone, and cursor data "
        "could be missing."));
    QPushButton* open = box.addButton(QStringLiteral("Open Anyway"), QMessageBox::AcceptRole);
    box.addButton(QStringLiteral("Show in Files"), QMessageBox::ActionRole);
    box.setDefaultButton(open);
    box.exec();
    if (box.clickedButton() == open) {
        if (actions_.openTake) {
            actions_.openTake(take->screenURL);
        }
    } else {
        QDesktopServices::openUrl(
            QUrl::fromLocalFile(QString::fromStdString(take->screenURL.parent_path().string())));
    }
}

void RecorderWindow::discardRecording(bool ask) {
    if (!session_.isActive()) {
        return;
    }
    if (ask) {
        const auto answer = QMessageBox::question(
            this, QStringLiteral("Orvelle"),
            QStringLiteral("Discard this recording? Everything recorded so far is deleted."),
            QMessageBox::Discard | QMessageBox::Cancel, QMessageBox::Cancel);
        if (answer != QMessageBox::Discard) {
            return;
        }
    }
    session_.discard();
    refreshState();
    showLauncherPage();
    show();
    raise();
}

void RecorderWindow::afterFailure() {
    WindowRecorder& recorder = session_.recorder();
    const auto failure = recorder.lastFailure.value();
    if (!failure || recorder.state() != WindowRecorder::State::idle) {
        return;
    }
    showLauncherPage();
    show();
    raise();
    const auto url = recorder.outputURL.value();
    const bool saved = recorder.statusText.value() == "Recording failed — saved";
    if (!url || recorder.screenSegments().empty()) {
        QMessageBox::warning(this, QStringLiteral("Screen recording could not start"),
                             qString(*failure));
        return;
    }
    const std::string duration =
        WindowRecorder::formattedProgramDuration(recorder.screenSegments());
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Orvelle"),
                    QStringLiteral("Recording stopped unexpectedly"), QMessageBox::NoButton, this);
    if (saved) {
        box.setInformativeText(
            qString(*failure + "\n\nEverything recorded up to " + duration + " was saved."));
        QPushButton* open =
            box.addButton(QStringLiteral("Open in Editor"), QMessageBox::AcceptRole);
        box.addButton(QStringLiteral("Not Now"), QMessageBox::RejectRole);
        box.setDefaultButton(open);
        box.exec();
        if (box.clickedButton() == open && actions_.openTake) {
            actions_.openTake(*url);
        }
    } else {
        box.setInformativeText(qString(
            *failure + "\n\nThe recorded media was kept on disk, but its take metadata could "
                       "not be written."));
        QPushButton* reveal =
            box.addButton(QStringLiteral("Show in Files"), QMessageBox::ActionRole);
        box.addButton(QMessageBox::Ok);
        box.exec();
        if (box.clickedButton() == reveal) {
            QDesktopServices::openUrl(
                QUrl::fromLocalFile(QString::fromStdString(url->parent_path().string())));
        }
    }
}

void RecorderWindow::closeEvent(QCloseEvent* event) {
    // Closing the window does not end a take: it goes on in the tray, where there is one,
    // and the window stays where there is none.
    if (session_.isActive()) {
        event->ignore();
        if (actions_.canHideInTray && actions_.canHideInTray()) {
            hiddenInTray_ = true;
            hide();
        }
        return;
    }
    QWidget::closeEvent(event);
}

} // namespace orvelle
