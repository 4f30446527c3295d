#include "app/editor_window.h"

#include "app/export_panel.h"
#include "app/icons.h"
#include "app/preview_view.h"
#include "app/recent_documents.h"
#include "app/settings_sidebar_controls.h"
#include "app/theme.h"
#include "app/timeline_view.h"
#include "app/transcript_panel.h"
#include "app/transport_bar.h"
#include "core/log.h"
#include "core/user_defaults.h"
#include "editor/clip_lane.h"
#include "platform/media/media_probe.h"
#include "project/media_asset_metadata.h"
#include "project/orvelle_project_package.h"

#include <QAction>
#include <QCloseEvent>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QSlider>
#include <QSplitter>
#include <QTextBrowser>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>
#include <cmath>

namespace orvelle {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kWindowStateKey = "OrvelleEditorWindowState";
constexpr double kShuttleInterval = 0.05;

QString qString(const std::string& text) {
    return QString::fromStdString(text);
}

QString plainText(QString text) {
    return text.remove(QLatin1Char('&')).remove(QStringLiteral("…")).trimmed();
}

} // namespace

EditorWindow::EditorWindow(const EditorDocument& document, EditorWindowServices services)
    : document_(document), services_(std::move(services)), store_(document.project),
      savedProject_(document.project) {
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowIcon(applicationIcon());
    setAcceptDrops(false);
    playback_ = std::make_unique<PlaybackModel>(store_, mainExecutor(), services_.playback);
    ExportController::Configuration exportConfiguration;
    exportConfiguration.googleAccount = services_.googleAccount;
    exportConfiguration.upload.endpointURL = services_.endpoints.youtubeUploadURL;
    exportConfiguration.youtubeWatchURL = services_.endpoints.youtubeWatchURL;
    exporter_ = std::make_unique<ExportController>(
        mainExecutor(), [this] { return exportSnapshot(); }, exportConfiguration);
    lastEdit_ = EditorEditableProjectState::from(store_.project());
    transcript_ = std::make_unique<EditorTranscriptController>(*playback_, mainExecutor(),
                                                               services_.transcriptProcessing);
    buildInterface();
    buildMenus();
    restoreWindowState();

    projectSubscription_ = store_.observeProject([this](const EditorProjectState& project) {
        // A run under way renders the edit it started from: a change of the picture (not
        // of the export's own choices) makes its result one of an earlier edit.
        if (auto edit = EditorEditableProjectState::from(project); !(edit == lastEdit_)) {
            lastEdit_ = std::move(edit);
            exporter_->noteEditChanged();
        }
        // What loading fills in (the timeline of a take opened for the first time, once
        // the length of its media is known; sizes and speech found in the background) is
        // where the edit starts, not a change of the user's: while nothing can be undone
        // or redone, the project is as it was opened.
        // A change of the user's reaches the history after it is published: look once
        // the change is complete.
        QTimer::singleShot(0, this, [this] {
            if (!saving_ && !store_.canUndo() && !store_.canRedo() &&
                !store_.activeUndoTransaction()) {
                savedProject_ = store_.project();
            }
            refreshTitle();
        });
        refreshTitle();
        refreshUndoActions();
        transport_->refreshDuration();
    });
    undoSubscription_ = store_.observeCanUndo([this](const bool&) { refreshUndoActions(); });
    redoSubscription_ = store_.observeCanRedo([this](const bool&) { refreshUndoActions(); });
    thumbnails_.setOnChange([this] { timeline_->update(); });
    sourceSubscription_ = playback_->hasCompositionSource().observe([this](const bool& has) {
        if (has && playback_->screenCompositionSource() && thumbnails_.count() == 0) {
            thumbnails_.load(playback_->screenCompositionSource()->videoSegments,
                             playback_->screenCompositionSource()->duration);
        }
        transport_->refreshDuration();
    });

    exportStatusSubscription_ =
        exporter_->statusText().observe([this](const std::optional<std::string>& text) {
            if (text) {
                showStatus(qString(*text));
            }
        });
    playback_->load(document_);
    transcript_->prepare();
    loadSourceInformation();
    watchLoading();
    refreshTitle();
    refreshUndoActions();
}

EditorWindow::~EditorWindow() {
    // The widgets watch the playback model: they go first.
    delete takeCentralWidget();
    transcript_.reset();
    exporter_.reset();
    playback_.reset();
}

std::optional<ExportSnapshot> EditorWindow::exportSnapshot() const {
    if (!playback_->hasCompositionSource().value()) {
        return std::nullopt;
    }
    ExportSnapshot snapshot;
    snapshot.project = store_.project();
    const auto screens = snapshot.project.manifest.segmentsFor(MediaTrackManifest::Kind::screen);
    if (screens.empty()) {
        return std::nullopt;
    }
    snapshot.sourceURL = screens.front().url;
    snapshot.sourceSize = sourceSize_;
    snapshot.timelineClips = snapshot.project.timeline.clips;
    return snapshot;
}

void EditorWindow::showExportPanel() {
    inspector_->showPage(InspectorPage::exportMovie);
    exportPanel_->exportButton().setFocus();
}

void EditorWindow::buildInterface() {
    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    // The title bar of the document: its name, what is going on, and Export.
    auto* header = new QWidget(central);
    header->setFixedHeight(48);
    auto* headerLayout = new QHBoxLayout(header);
    headerLayout->setContentsMargins(Theme::kPanelMargin, 6, Theme::kPanelMargin, 6);
    headerLayout->setSpacing(12);
    auto* badge = new QLabel(header);
    badge->setPixmap(applicationIconPixmap(22, devicePixelRatioF()));
    headerLayout->addWidget(badge);
    titleLabel_ = new QLabel(header);
    titleLabel_->setFont(Theme::interfaceFont(10.5, 600));
    headerLayout->addWidget(titleLabel_);
    statusLabel_ = new QLabel(header);
    statusLabel_->setProperty("role", "secondary");
    headerLayout->addWidget(statusLabel_);
    headerLayout->addStretch(1);
    exportButton_ =
        new QPushButton(icon(IconName::exportMovie, Qt::white), QStringLiteral("Export"), header);
    exportButton_->setProperty("primary", true);
    exportButton_->setFocusPolicy(Qt::NoFocus);
    exportButton_->setToolTip(QStringLiteral("Export the movie (Ctrl+E)"));
    connect(exportButton_, &QPushButton::clicked, this, [this] { showExportPanel(); });
    headerLayout->addWidget(exportButton_);
    layout->addWidget(header);
    auto* rule = new QWidget(central);
    rule->setFixedHeight(1);
    rule->setAutoFillBackground(true);
    QPalette rulePalette = rule->palette();
    rulePalette.setColor(QPalette::Window, Theme::separator());
    rule->setPalette(rulePalette);
    layout->addWidget(rule);

    verticalSplitter_ = new QSplitter(Qt::Vertical, central);
    verticalSplitter_->setChildrenCollapsible(false);
    verticalSplitter_->setHandleWidth(1);
    horizontalSplitter_ = new QSplitter(Qt::Horizontal, verticalSplitter_);
    horizontalSplitter_->setChildrenCollapsible(false);
    horizontalSplitter_->setHandleWidth(1);

    auto* stage = new QWidget(horizontalSplitter_);
    auto* stageLayout = new QVBoxLayout(stage);
    stageLayout->setContentsMargins(0, 0, 0, 0);
    stageLayout->setSpacing(0);
    preview_ = new PreviewView(*playback_, stage);
    stageLayout->addWidget(preview_, 1);
    transport_ =
        new TransportBar(*playback_,
                         {.toStart = [this] { seekTo(0); },
                          .stepBackward = [this] { stepFrames(-1); },
                          .playPause = [this] { togglePlayback(); },
                          .stepForward = [this] { stepFrames(1); },
                          .toEnd = [this] { seekTo(playback_->editTimeline().duration()); },
                          .cycleRate = [this] { playback_->cyclePlaybackSpeed(); }},
                         stage);
    stageLayout->addWidget(transport_);
    horizontalSplitter_->addWidget(stage);
    InspectorContext context{
        .store = &store_,
        .playback = playback_.get(),
        .lastSettings = services_.lastSettings,
        .presets = services_.presets,
        .showStatus = [this](const QString& text) { showStatus(text); },
        .addMusicFile = [this](double at) { addMusicFile(at); },
    };
    inspector_ = new Inspector(std::move(context), horizontalSplitter_);
    exportPanel_ = new ExportPanel(ExportPanel::Context{
        .store = &store_,
        .controller = exporter_.get(),
        .googleAccount = services_.googleAccount,
        .movieName = [this] { return document_.displayTitle(); },
        .showStatus = [this](const QString& text) { showStatus(text); },
        .document = [this]() -> const EditorDocument& { return document_; },
        .languageModelHelper = services_.languageModelHelper,
    });
    inspector_->setPage(InspectorPage::exportMovie, exportPanel_);
    transcriptPanel_ = new TranscriptPanel(*transcript_);
    inspector_->setPage(InspectorPage::transcript, transcriptPanel_);
    horizontalSplitter_->addWidget(inspector_);
    horizontalSplitter_->setStretchFactor(0, 1);
    horizontalSplitter_->setStretchFactor(1, 0);
    horizontalSplitter_->setSizes({1000, 400});
    verticalSplitter_->addWidget(horizontalSplitter_);
    verticalSplitter_->addWidget(buildTimelinePanel(verticalSplitter_));
    verticalSplitter_->setStretchFactor(0, 1);
    verticalSplitter_->setStretchFactor(1, 0);
    layout->addWidget(verticalSplitter_, 1);
    setCentralWidget(central);

    statusTimer_ = new QTimer(this);
    statusTimer_->setSingleShot(true);
    connect(statusTimer_, &QTimer::timeout, this, [this] { statusLabel_->clear(); });
    shuttleTimer_ = new QTimer(this);
    shuttleTimer_->setInterval(static_cast<int>(kShuttleInterval * 1000));
    connect(shuttleTimer_, &QTimer::timeout, this, [this] { reverseShuttleStep(); });
    resize(1440, 900);
    setMinimumSize(960, 640);
}

QWidget* EditorWindow::buildTimelinePanel(QWidget* parent) {
    auto* panel = new QWidget(parent);
    panel->setAutoFillBackground(true);
    QPalette palette = panel->palette();
    palette.setColor(QPalette::Window, Theme::panelBackground());
    panel->setPalette(palette);
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 4);
    layout->setSpacing(0);

    auto* toolbar = new QWidget(panel);
    toolbar->setFixedHeight(40);
    auto* bar = new QHBoxLayout(toolbar);
    bar->setContentsMargins(10, 4, 12, 4);
    bar->setSpacing(2);
    const auto tool = [toolbar, bar](IconName name, const QString& tip, std::function<void()> act,
                                     const QColor& color = Theme::text()) {
        auto* button = new QToolButton(toolbar);
        button->setIcon(icon(name, color));
        button->setIconSize(QSize(18, 18));
        button->setToolTip(tip);
        button->setProperty("flat", true);
        button->setFocusPolicy(Qt::NoFocus);
        button->setFixedSize(32, 30);
        QObject::connect(button, &QToolButton::clicked, toolbar, [act = std::move(act)] { act(); });
        bar->addWidget(button);
        return button;
    };
    const auto gap = [bar] { bar->addSpacing(14); };
    tool(IconName::split, QStringLiteral("Split at Playhead (S)"), [this] { splitAtPlayhead(); });
    tool(IconName::trash, QStringLiteral("Delete (Backspace)"), [this] { deleteSelection(); });
    gap();
    tool(
        IconName::zoomFrame, QStringLiteral("Add Zoom at Playhead"),
        [this] {
            store_.addAnimationClip(EditTime(playback_->timelinePlayheadTime().value()),
                                    store_.project().screen.zoomScale,
                                    playback_->gestures().laneMinimumClipDuration());
        },
        Theme::laneColor(AuxiliaryTimelineTrack::zoom).lighter(120));
    tool(
        IconName::camera, QStringLiteral("Add Camera Layout at Playhead"),
        [this] {
            store_.addCameraLayoutClip(EditTime(playback_->timelinePlayheadTime().value()),
                                       playback_->gestures().laneMinimumClipDuration());
        },
        Theme::laneColor(AuxiliaryTimelineTrack::cameraLayout).lighter(120));
    tool(
        IconName::mask, QStringLiteral("Add Mask at Playhead"),
        [this] {
            store_.addMaskClip(EditTime(playback_->timelinePlayheadTime().value()),
                               playback_->gestures().laneMinimumClipDuration());
        },
        Theme::laneColor(AuxiliaryTimelineTrack::mask).lighter(120));
    tool(
        IconName::text, QStringLiteral("Add Text at Playhead"),
        [this] {
            store_.addTextClip(EditTime(playback_->timelinePlayheadTime().value()),
                               playback_->gestures().laneMinimumClipDuration());
        },
        Theme::laneColor(AuxiliaryTimelineTrack::text).lighter(120));
    tool(
        IconName::music, QStringLiteral("Add Music File at Playhead…"),
        [this] { addMusicFile(playback_->timelinePlayheadTime().value()); },
        Theme::laneColor(AuxiliaryTimelineTrack::music).lighter(120));
    bar->addStretch(1);
    auto* snapping = tool(IconName::magnet, QStringLiteral("Snapping (N)"), [] {});
    snapping->setCheckable(true);
    snapping->setChecked(true);
    auto* ripple = tool(IconName::ripple, QStringLiteral("Ripple: lane clips follow trims"), [] {});
    ripple->setCheckable(true);
    ripple->setChecked(true);
    gap();
    tool(IconName::zoomOut, QStringLiteral("Zoom Out (Ctrl+-)"),
         [this] { timeline_->zoomBy(1 / 1.5); });
    auto* zoom = new QSlider(Qt::Horizontal, toolbar);
    zoom->setRange(0, 1000);
    zoom->setFixedWidth(120);
    zoom->setFocusPolicy(Qt::NoFocus);
    zoom->setToolTip(QStringLiteral("Timeline zoom"));
    bar->addWidget(zoom);
    tool(IconName::zoomIn, QStringLiteral("Zoom In (Ctrl+=)"), [this] { timeline_->zoomBy(1.5); });
    layout->addWidget(toolbar);

    timeline_ = new TimelineView(*playback_, thumbnails_,
                                 {.showLane =
                                      [this](AuxiliaryTimelineTrack track) {
                                          switch (track) {
                                          case AuxiliaryTimelineTrack::zoom:
                                              inspector_->showPage(InspectorPage::zoom);
                                              break;
                                          case AuxiliaryTimelineTrack::cameraLayout:
                                              inspector_->showPage(InspectorPage::camera);
                                              break;
                                          case AuxiliaryTimelineTrack::mask:
                                              inspector_->showPage(InspectorPage::mask);
                                              break;
                                          case AuxiliaryTimelineTrack::music:
                                              inspector_->showPage(InspectorPage::music);
                                              break;
                                          case AuxiliaryTimelineTrack::text:
                                              inspector_->showPage(InspectorPage::text);
                                              break;
                                          }
                                      },
                                  .addMusic = [this](double at) { addMusicFile(at); }},
                                 panel);
    layout->addWidget(timeline_, 1);

    connect(snapping, &QToolButton::toggled, this,
            [this](bool on) { timeline_->setSnappingEnabled(on); });
    connect(ripple, &QToolButton::toggled, this,
            [this](bool on) { timeline_->setRippleEnabled(on); });
    // The zoom slider runs from the fitted scale to the closest, on a logarithmic scale.
    const auto sliderToScale = [this](int position) {
        const double low = std::log(timeline_->fittedPixelsPerSecond());
        const double high = std::log(TimelineView::kMaximumPixelsPerSecond);
        return std::exp(low + (high - low) * position / 1000.0);
    };
    connect(zoom, &QSlider::valueChanged, this, [this, sliderToScale](int position) {
        timeline_->setPixelsPerSecond(sliderToScale(position));
    });
    auto* zoomSync = new QTimer(panel);
    zoomSync->setInterval(150);
    connect(zoomSync, &QTimer::timeout, this, [this, zoom] {
        if (zoom->isSliderDown()) {
            return;
        }
        const double low = std::log(timeline_->fittedPixelsPerSecond());
        const double high = std::log(TimelineView::kMaximumPixelsPerSecond);
        const double position =
            high > low ? (std::log(timeline_->pixelsPerSecond()) - low) / (high - low) * 1000 : 0;
        const QSignalBlocker blocker(zoom);
        zoom->setValue(static_cast<int>(std::lround(std::clamp(position, 0.0, 1000.0))));
    });
    zoomSync->start();
    snappingButton_ = snapping;
    return panel;
}

void EditorWindow::buildMenus() {
    const auto add = [this](QMenu* menu, const QString& text, const QList<QKeySequence>& keys,
                            std::function<void()> handler) {
        auto* action = menu->addAction(text);
        action->setShortcuts(keys);
        action->setShortcutContext(Qt::WindowShortcut);
        connect(action, &QAction::triggered, this, [handler = std::move(handler)] { handler(); });
        addAction(action);
        return action;
    };

    QMenu* file = menuBar()->addMenu(QStringLiteral("&File"));
    add(file, QStringLiteral("&Open…"), {QKeySequence::Open}, [this] {
        if (services_.showOpenDialog) {
            services_.showOpenDialog();
        }
    });
    recentMenu_ = file->addMenu(QStringLiteral("Open &Recent"));
    connect(recentMenu_, &QMenu::aboutToShow, this, [this] {
        recentMenu_->clear();
        if (services_.recents == nullptr || services_.recents->paths().empty()) {
            recentMenu_->addAction(QStringLiteral("No Recent Documents"))->setEnabled(false);
            return;
        }
        for (const auto& path : services_.recents->paths()) {
            recentMenu_->addAction(qString(path.filename().string()), this, [this, path] {
                if (services_.openDocument) {
                    services_.openDocument(path);
                }
            });
        }
        recentMenu_->addSeparator();
        recentMenu_->addAction(QStringLiteral("Clear Menu"), this,
                               [this] { services_.recents->clear(); });
    });
    file->addSeparator();
    add(file, QStringLiteral("&Save"), {QKeySequence::Save}, [this] { save(); });
    add(file, QStringLiteral("Save &As…"), {QKeySequence(QStringLiteral("Ctrl+Shift+S"))},
        [this] { saveAs(); });
    file->addSeparator();
    add(file, QStringLiteral("&Export Movie…"), {QKeySequence(QStringLiteral("Ctrl+E"))},
        [this] { showExportPanel(); });
    add(file, QStringLiteral("Export and &Upload to YouTube"),
        {QKeySequence(QStringLiteral("Ctrl+Shift+U"))}, [this] {
            if (!exporter_->isExporting().value()) {
                store_.edit("Change YouTube Upload",
                            [](EditorProjectState& p, EditorSelectionState&) {
                                ProjectExportSettings settings =
                                    p.exportSettings.value_or(ProjectExportSettings{});
                                settings.uploadToYouTube = true;
                                p.exportSettings = settings;
                            });
            }
            showExportPanel();
            exportPanel_->startExport();
        });
    file->addSeparator();
    add(file, QStringLiteral("&Close Window"), {QKeySequence(QStringLiteral("Ctrl+W"))},
        [this] { close(); });
    add(file, QStringLiteral("&Quit"), {QKeySequence(QStringLiteral("Ctrl+Q"))}, [this] {
        if (services_.quit) {
            services_.quit();
        }
    });

    QMenu* edit = menuBar()->addMenu(QStringLiteral("&Edit"));
    undoAction_ =
        add(edit, QStringLiteral("Undo"), {QKeySequence::Undo}, [this] { playback_->undo(); });
    redoAction_ =
        add(edit, QStringLiteral("Redo"),
            {QKeySequence(QStringLiteral("Ctrl+Shift+Z")), QKeySequence(QStringLiteral("Ctrl+Y"))},
            [this] { playback_->redo(); });
    edit->addSeparator();
    add(edit, QStringLiteral("Split at Playhead"), {QKeySequence(Qt::Key_S)},
        [this] { splitAtPlayhead(); });
    add(edit, QStringLiteral("Delete"),
        {QKeySequence(Qt::Key_Backspace), QKeySequence(Qt::Key_Delete)},
        [this] { deleteSelection(); });
    add(edit, QStringLiteral("Select None"), {QKeySequence(Qt::Key_Escape)}, [this] {
        store_.edit("Select", [](EditorProjectState&, EditorSelectionState& selection) {
            selection = EditorSelectionState::empty();
        });
    });
    edit->addSeparator();
    QMenu* insert = edit->addMenu(QStringLiteral("Add at Playhead"));
    const auto at = [this] { return EditTime(playback_->timelinePlayheadTime().value()); };
    add(insert, QStringLiteral("Zoom"), {QKeySequence(QStringLiteral("Shift+Z"))}, [this, at] {
        store_.addAnimationClip(at(), store_.project().screen.zoomScale,
                                playback_->gestures().laneMinimumClipDuration());
    });
    add(insert, QStringLiteral("Camera Layout"), {}, [this, at] {
        store_.addCameraLayoutClip(at(), playback_->gestures().laneMinimumClipDuration());
    });
    add(insert, QStringLiteral("Mask"), {QKeySequence(QStringLiteral("Shift+M"))},
        [this, at] { store_.addMaskClip(at(), playback_->gestures().laneMinimumClipDuration()); });
    add(insert, QStringLiteral("Text"), {QKeySequence(QStringLiteral("Shift+T"))},
        [this, at] { store_.addTextClip(at(), playback_->gestures().laneMinimumClipDuration()); });
    add(insert, QStringLiteral("Music File…"), {},
        [this] { addMusicFile(playback_->timelinePlayheadTime().value()); });

    QMenu* view = menuBar()->addMenu(QStringLiteral("&View"));
    add(view, QStringLiteral("Zoom In"),
        {QKeySequence(QStringLiteral("Ctrl+=")), QKeySequence(QStringLiteral("Ctrl++"))},
        [this] { timeline_->zoomBy(1.5); });
    add(view, QStringLiteral("Zoom Out"), {QKeySequence(QStringLiteral("Ctrl+-"))},
        [this] { timeline_->zoomBy(1 / 1.5); });
    add(view, QStringLiteral("Zoom to Fit"), {QKeySequence(QStringLiteral("Ctrl+0"))},
        [this] { timeline_->zoomToFit(); });
    add(view, QStringLiteral("Snapping"), {QKeySequence(Qt::Key_N)},
        [this] { snappingButton_->toggle(); });
    view->addSeparator();
    int number = 1;
    for (const auto& [page, title] : std::initializer_list<std::pair<InspectorPage, const char*>>{
             {InspectorPage::look, "Look"},
             {InspectorPage::pointer, "Pointer"},
             {InspectorPage::clip, "Clip"},
             {InspectorPage::zoom, "Zoom"},
             {InspectorPage::camera, "Camera"},
             {InspectorPage::mask, "Mask"},
             {InspectorPage::text, "Text"},
             {InspectorPage::music, "Music"},
             {InspectorPage::audio, "Sound"}}) {
        const InspectorPage shown = page;
        add(view, QStringLiteral("Show %1").arg(QLatin1String(title)),
            {QKeySequence(QStringLiteral("Ctrl+%1").arg(number++))},
            [this, shown] { inspector_->showPage(shown); });
    }
    add(view, QStringLiteral("Show Transcript"), {QKeySequence(QStringLiteral("Ctrl+T"))}, [this] {
        inspector_->showPage(InspectorPage::transcript);
        transcriptPanel_->textView().setFocus(Qt::ShortcutFocusReason);
    });

    QMenu* playbackMenu = menuBar()->addMenu(QStringLiteral("&Playback"));
    add(playbackMenu, QStringLiteral("Play/Pause"), {QKeySequence(Qt::Key_Space)},
        [this] { togglePlayback(); });
    add(playbackMenu, QStringLiteral("Play Forward"), {QKeySequence(Qt::Key_L)},
        [this] { shuttleForward(); });
    add(playbackMenu, QStringLiteral("Stop"), {QKeySequence(Qt::Key_K)}, [this] {
        stopShuttle();
        playback_->pause();
    });
    add(playbackMenu, QStringLiteral("Play Backward"), {QKeySequence(Qt::Key_J)},
        [this] { shuttleBackward(); });
    playbackMenu->addSeparator();
    add(playbackMenu, QStringLiteral("Previous Frame"), {QKeySequence(Qt::Key_Left)},
        [this] { stepFrames(-1); });
    add(playbackMenu, QStringLiteral("Next Frame"), {QKeySequence(Qt::Key_Right)},
        [this] { stepFrames(1); });
    add(playbackMenu, QStringLiteral("Back One Second"),
        {QKeySequence(QStringLiteral("Shift+Left"))}, [this] { seekBy(-1); });
    add(playbackMenu, QStringLiteral("Forward One Second"),
        {QKeySequence(QStringLiteral("Shift+Right"))}, [this] { seekBy(1); });
    add(playbackMenu, QStringLiteral("Go to Start"), {QKeySequence(Qt::Key_Home)},
        [this] { seekTo(0); });
    add(playbackMenu, QStringLiteral("Go to End"), {QKeySequence(Qt::Key_End)},
        [this] { seekTo(playback_->editTimeline().duration()); });
    playbackMenu->addSeparator();
    add(playbackMenu, QStringLiteral("Cycle Preview Speed"),
        {QKeySequence(QStringLiteral("Ctrl+R"))}, [this] { playback_->cyclePlaybackSpeed(); });
}

QAction* EditorWindow::action(const QString& text) const {
    for (QAction* candidate : actions()) {
        if (plainText(candidate->text()) == text) {
            return candidate;
        }
    }
    // Undo and Redo carry the label of their step ("Undo Trim Clip").
    if (text == QStringLiteral("Undo")) {
        return undoAction_;
    }
    if (text == QStringLiteral("Redo")) {
        return redoAction_;
    }
    return nullptr;
}

void EditorWindow::loadSourceInformation() {
    const fs::path screen = document_.screenURL;
    work_.run<std::optional<VideoSize>>(
        [screen] { return MediaAssetMetadata::naturalVideoSize(screen); },
        [this](std::optional<VideoSize> size) {
            sourceSize_ = size;
            preview_->setSourceSize(size);
        });
}

void EditorWindow::watchLoading() {
    loadingTimer_ = new QTimer(this);
    loadingTimer_->setInterval(100);
    connect(loadingTimer_, &QTimer::timeout, this, [this] {
        if (playback_->isLoading()) {
            return;
        }
        loadingTimer_->stop();
        if (!playback_->hasCompositionSource().value()) {
            preview_->setProblem(
                QStringLiteral("“%1” can't be played: its screen recording can't be read. "
                               "Open another copy of the take, or a movie file.")
                    .arg(qString(document_.displayTitle())));
        }
    });
    loadingTimer_->start();
}

bool EditorWindow::hasUnsavedChanges() const {
    return store_.project() != savedProject_;
}

void EditorWindow::refreshTitle() {
    const QString title = qString(document_.displayTitle());
    setWindowTitle(title + QStringLiteral("[*] — Orvelle"));
    setWindowModified(hasUnsavedChanges());
    titleLabel_->setText(hasUnsavedChanges() ? title + QStringLiteral(" — Edited") : title);
}

void EditorWindow::refreshUndoActions() {
    const auto& history = store_.undoHistory();
    const bool canUndo = !history.undoStack().empty();
    const bool canRedo = !history.redoStack().empty();
    undoAction_->setEnabled(canUndo);
    undoAction_->setText(canUndo
                             ? QStringLiteral("Undo ") + qString(history.undoStack().back().label)
                             : QStringLiteral("Undo"));
    redoAction_->setEnabled(canRedo);
    redoAction_->setText(canRedo
                             ? QStringLiteral("Redo ") + qString(history.redoStack().back().label)
                             : QStringLiteral("Redo"));
}

void EditorWindow::showStatus(const QString& text) {
    statusLabel_->setText(text);
    statusTimer_->start(4000);
}

QString EditorWindow::statusText() const {
    return statusLabel_->text();
}

// ---- Playing ------------------------------------------------------------------------

void EditorWindow::togglePlayback() {
    stopShuttle();
    if (playback_->isPlaying().value()) {
        playback_->pause();
    } else {
        playback_->play();
    }
}

void EditorWindow::seekTo(double editSeconds) {
    const double duration = playback_->editTimeline().duration();
    const double time = std::clamp(editSeconds, 0.0, std::max(0.0, duration));
    playback_->seekPlayer(EditTime(time), false);
}

void EditorWindow::seekBy(double seconds) {
    seekTo(playback_->timelinePlayheadTime().value() + seconds);
}

void EditorWindow::stepFrames(int count) {
    stopShuttle();
    if (playback_->isPlaying().value()) {
        playback_->pause();
    }
    const double rate = playback_->player().frameRate();
    const double frame = std::round(playback_->timelinePlayheadTime().value() * rate);
    seekTo((frame + count) / rate);
}

void EditorWindow::shuttleForward() {
    if (reverseShuttleSpeed_ > 0) {
        stopShuttle();
        playback_->applyWorkflowRate(1);
        playback_->play();
        return;
    }
    if (!playback_->isPlaying().value()) {
        playback_->applyWorkflowRate(1);
        playback_->play();
    } else {
        playback_->cyclePlaybackSpeed();
    }
}

void EditorWindow::shuttleBackward() {
    // The player plays forwards only: backwards is a run of seeks, each a frame from the
    // cache or drawn anew, at 1, 2 or 4 times the speed.
    if (playback_->isPlaying().value()) {
        playback_->pause();
    }
    reverseShuttleSpeed_ =
        reverseShuttleSpeed_ >= 4 ? 1 : (reverseShuttleSpeed_ > 0 ? reverseShuttleSpeed_ * 2 : 1);
    reverseShuttleTarget_ = playback_->timelinePlayheadTime().value();
    shuttleTimer_->start();
}

void EditorWindow::stopShuttle() {
    reverseShuttleSpeed_ = 0;
    shuttleTimer_->stop();
}

void EditorWindow::reverseShuttleStep() {
    reverseShuttleTarget_ =
        std::max(0.0, reverseShuttleTarget_ - kShuttleInterval * reverseShuttleSpeed_);
    if (!playback_->pendingSeekGeneration()) {
        playback_->seekPlayer(EditTime(reverseShuttleTarget_), false, false);
    }
    if (reverseShuttleTarget_ <= 0) {
        stopShuttle();
    }
}

// ---- Editing ------------------------------------------------------------------------

void EditorWindow::splitAtPlayhead() {
    playback_->finishAllEditSessions();
    const auto source =
        playback_->editTimeline().sourceTime(EditTime(playback_->timelinePlayheadTime().value()));
    if (!source || !store_.splitTimelineClip(*source)) {
        showStatus(QStringLiteral("Nothing to split here: a clip can't be shorter than %1 s")
                       .arg(kMinimumTimelineClipDuration));
    }
}

void EditorWindow::deleteSelection() {
    playback_->finishAllEditSessions();
    const EditorSelectionState selection = store_.selection();
    using Kind = EditorSelectionState::Kind;
    switch (selection.kind) {
    case Kind::none:
        showStatus(QStringLiteral("Select a clip to delete"));
        return;
    case Kind::timelineClip:
        store_.deleteTimelineClip(selection.id);
        return;
    case Kind::animationClip:
        store_.deleteSelectedClip(animationLane);
        return;
    case Kind::cameraLayoutClip:
        store_.deleteSelectedClip(cameraLayoutLane);
        return;
    case Kind::maskClip:
        store_.deleteSelectedClip(maskLane);
        return;
    case Kind::musicClip:
        store_.deleteSelectedClip(musicLane);
        return;
    case Kind::textClip:
        store_.deleteSelectedClip(textLane);
        return;
    }
}

void EditorWindow::addMusicFile(double editSeconds, std::optional<fs::path> file) {
    if (!file) {
        const QString chosen = QFileDialog::getOpenFileName(
            this, QStringLiteral("Add Music"), QString(),
            QStringLiteral("Music (*.mp3 *.m4a *.aac *.wav *.flac *.ogg *.opus);;All files (*)"));
        if (chosen.isEmpty()) {
            return;
        }
        file = fs::path(chosen.toStdString());
    }
    const fs::path url = *file;
    showStatus(QStringLiteral("Reading “%1”…").arg(qString(url.filename().string())));
    work_.run<double>(
        [url] {
            const MediaProbe probe = probeMediaFile(url);
            if (probe.firstAudio() == nullptr || !(probe.duration > 0)) {
                throw Error("It holds no sound that Orvelle can play.");
            }
            return probe.duration;
        },
        [this, url, editSeconds](double duration) {
            const std::string segment = store_.registerMusicSegment(url, duration);
            const double length = std::max(0.0, store_.timelineDuration().seconds - editSeconds);
            MusicClip clip;
            clip.id = Uuid::random();
            clip.start = EditTime(editSeconds);
            clip.end = EditTime(editSeconds + std::min(duration, length > 0.5 ? length : duration));
            clip.segmentID = segment;
            clip.title = url.stem().string();
            if (store_.addMusicClip(clip)) {
                inspector_->showPage(InspectorPage::music);
                showStatus(QStringLiteral("Added “%1”").arg(qString(clip.title)));
            } else {
                showStatus(QStringLiteral("There is no room on the music lane here"));
            }
        },
        [this, url](const std::string& problem) {
            statusLabel_->clear();
            QMessageBox box(QMessageBox::Warning, QStringLiteral("Orvelle"),
                            QStringLiteral("“%1” can't be used as music.")
                                .arg(qString(url.filename().string())),
                            QMessageBox::Ok, this);
            box.setInformativeText(qString(problem) + QStringLiteral(" Choose an audio file "
                                                                     "such as MP3, M4A or WAV."));
            box.exec();
        });
}

// ---- Saving -------------------------------------------------------------------------

void EditorWindow::save(std::function<void(bool)> done) {
    if (document_.hasSavedProject && document_.packageURL) {
        saveTo(*document_.packageURL, std::move(done));
    } else {
        saveAs(std::move(done));
    }
}

void EditorWindow::saveAs(std::function<void(bool)> done) {
    const fs::path folder = document_.packageURL ? document_.packageURL->parent_path()
                                                 : document_.screenURL.parent_path();
    const QString chosen =
        QFileDialog::getSaveFileName(this, QStringLiteral("Save Project"),
                                     qString((folder / document_.suggestedSaveName()).string()),
                                     QStringLiteral("Orvelle projects (*.orvelle)"));
    if (chosen.isEmpty()) {
        if (done) {
            done(false);
        }
        return;
    }
    saveTo(OrvelleProjectPackage::packageURL(fs::path(chosen.toStdString())), std::move(done));
}

void EditorWindow::saveTo(const fs::path& url, std::function<void(bool)> done) {
    if (saving_) {
        if (done) {
            done(false);
        }
        return;
    }
    playback_->finishAllEditSessions();
    saving_ = true;
    showStatus(QStringLiteral("Saving…"));
    const EditorProjectState snapshot = store_.project();
    auto finished = std::make_shared<std::function<void(bool)>>(std::move(done));
    work_.run<EditorDocument>(
        [snapshot, url] {
            const fs::path written = OrvelleProjectPackage::write(snapshot, url);
            return OrvelleProjectPackage::load(written);
        },
        [this, snapshot, finished](const EditorDocument& saved) {
            saving_ = false;
            finishedSaving(saved, snapshot);
            if (*finished) {
                (*finished)(true);
            }
        },
        [this, url, finished](const std::string& problem) {
            saving_ = false;
            statusLabel_->clear();
            QMessageBox box(
                QMessageBox::Warning, QStringLiteral("Orvelle"),
                QStringLiteral("“%1” could not be saved.").arg(qString(url.filename().string())),
                QMessageBox::Ok, this);
            box.setInformativeText(qString(problem) +
                                   QStringLiteral(" Choose another place with Save As."));
            box.exec();
            if (*finished) {
                (*finished)(false);
            }
        });
}

void EditorWindow::finishedSaving(const EditorDocument& saved, const EditorProjectState& snapshot) {
    // The package's manifest now names the files inside it; edits made while the copy ran
    // stay, and count as unsaved.
    EditorDocument document = saved;
    document.project = store_.project();
    document.project.manifest = saved.project.manifest;
    document.manifest = saved.manifest;
    store_.replaceProject(document, true);
    document_ = document;
    savedProject_ = snapshot;
    savedProject_.manifest = saved.project.manifest;
    if (services_.recents != nullptr && document_.packageURL) {
        services_.recents->add(*document_.packageURL);
    }
    rememberLook();
    refreshTitle();
    showStatus(QStringLiteral("Saved"));
}

void EditorWindow::rememberLook() {
    try {
        services_.lastSettings.save(LastEditorSettings::from(store_.project()));
    } catch (const Error& error) {
        logWarning("app", "the look of this edit was not remembered: ", error.what());
    }
}

// ---- Closing ------------------------------------------------------------------------

bool EditorWindow::confirmClose() {
    if (!hasUnsavedChanges()) {
        return true;
    }
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Orvelle"),
                    QStringLiteral("Do you want to save the changes you made to “%1”?")
                        .arg(qString(document_.displayTitle())),
                    QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, this);
    box.setInformativeText(QStringLiteral("Your changes will be lost if you don't save them."));
    box.button(QMessageBox::Discard)->setText(QStringLiteral("Don't Save"));
    box.setDefaultButton(QMessageBox::Save);
    switch (box.exec()) {
    case QMessageBox::Save:
        save([this](bool saved) {
            if (saved) {
                closeConfirmed_ = true;
                close();
            }
        });
        return false;
    case QMessageBox::Discard:
        return true;
    default:
        return false;
    }
}

void EditorWindow::closeWithoutPrompt() {
    closeConfirmed_ = true;
    close();
}

void EditorWindow::closeEvent(QCloseEvent* event) {
    if (!closeConfirmed_ && !confirmClose()) {
        event->ignore();
        return;
    }
    stopShuttle();
    playback_->pause();
    rememberWindowState();
    rememberLook();
    event->accept();
    if (services_.closed) {
        services_.closed();
    }
}

void EditorWindow::rememberWindowState() {
    if (services_.defaults == nullptr) {
        return;
    }
    Json state = Json::object();
    state["geometry"] = saveGeometry().toBase64().toStdString();
    state["splitter"] = verticalSplitter_->saveState().toBase64().toStdString();
    state["stageSplitter"] = horizontalSplitter_->saveState().toBase64().toStdString();
    state["inspectorPage"] = Inspector::pageName(inspector_->currentPage()).toStdString();
    state["snapping"] = timeline_->snappingEnabled();
    state["ripple"] = timeline_->rippleEnabled();
    try {
        services_.defaults->set(kWindowStateKey, state);
    } catch (const Error& error) {
        logWarning("app", "the window's layout was not remembered: ", error.what());
    }
}

void EditorWindow::restoreWindowState() {
    if (services_.defaults == nullptr) {
        return;
    }
    const auto state = services_.defaults->value(kWindowStateKey);
    if (!state || !state->is_object()) {
        return;
    }
    const auto bytes = [&](const char* key) {
        const auto found = state->find(key);
        return found != state->end() && found->is_string()
                   ? QByteArray::fromBase64(QByteArray::fromStdString(found->get<std::string>()))
                   : QByteArray();
    };
    restoreGeometry(bytes("geometry"));
    verticalSplitter_->restoreState(bytes("splitter"));
    horizontalSplitter_->restoreState(bytes("stageSplitter"));
    if (const auto page = state->find("inspectorPage"); page != state->end() && page->is_string()) {
        if (const auto named =
                Inspector::pageNamed(QString::fromStdString(page->get<std::string>()))) {
            inspector_->showPage(*named);
        }
    }
}

} // namespace orvelle
