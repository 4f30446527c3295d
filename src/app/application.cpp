#include "app/application.h"

#include "app/editor_window.h"
#include "app/icons.h"
#include "app/recorder_window.h"
#include "app/settings_window.h"
#include "app/start_window.h"
#include "core/log.h"
#include "online/google_oauth_controller.h"
#include "platform/secrets/secret_store.h"
#include "project/editor_document.h"
#include "recording/recording_crash_recovery.h"
#include "recording/recording_scratch_store.h"

#include <QApplication>
#include <QDesktopServices>
#include <QFileDialog>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QUrl>

namespace orvelle {

namespace fs = std::filesystem;

namespace {

// Where uploads go: the defaults, the settings file and the environment; a settings file
// that does not read leaves the defaults (and says so in the log).
OnlineServiceEndpoints onlineEndpoints() {
    try {
        return OnlineServiceEndpoints::load();
    } catch (const std::exception& error) {
        logWarning("Online", error.what());
        return {};
    }
}

QString qString(const fs::path& path) {
    return QString::fromStdString(path.string());
}

} // namespace

Application::Application(ApplicationOptions options)
    : options_(std::move(options)), defaults_(options_.settingsURL), recents_(defaults_) {
    QApplication::setQuitOnLastWindowClosed(false);
    startWindow_ = std::make_unique<StartWindow>(StartWindow::Actions{
        .open = [this](const fs::path& path) { openDocument(path); },
        .showOpenDialog = [this] { showOpenDialog(startWindow_.get()); },
        .removeRecent = [this](const fs::path& path) { recents_.remove(path); },
        .closed =
            [this] {
                if (editorWindows().empty() && !opening_ &&
                    !(recorderWindow_ && recorderWindow_->isVisible()) &&
                    !(recorderSession_ && recorderSession_->isActive())) {
                    quit(false);
                }
            },
        .newRecording = [this] { showRecorder(); },
    });
    recents_.setOnChange([this] { startWindow_->setRecentDocuments(recents_.paths()); });
    startWindow_->setRecentDocuments(recents_.paths());
}

Application::~Application() {
    recorderSubscriptions_.clear();
    if (recorderSession_ && recorderSession_->isActive()) {
        recorderSession_->stopForTermination();
    }
    for (const auto& editor : editors_) {
        if (editor) {
            delete editor.data();
        }
    }
}

void Application::start(const std::optional<fs::path>& document, bool record) {
    if (!shortcuts_) {
        shortcuts_ = std::make_unique<RecordingShortcuts>(defaults_, [this](RecordingShortcut key) {
            if (key == RecordingShortcut::startStop) {
                toggleRecording();
            } else {
                togglePauseRecording();
            }
        });
        shortcuts_->setOnChange([this] { refreshTrayMenu(); });
    }
    if (options_.trayIcon) {
        makeTrayIcon();
    }
    // Takes a crash left unfinished are offered first, one at a time.
    work_.run<std::vector<RecordingCrashRecovery::AbandonedTake>>(
        [] { return RecordingCrashRecovery::scanForAbandonedTakes(); },
        [this, document, record](std::vector<RecordingCrashRecovery::AbandonedTake> takes) {
            offerRecovery(std::move(takes), 0, document, record);
        },
        [this, document, record](const std::string&) { offerRecovery({}, 0, document, record); });
}

void Application::offerRecovery(std::vector<RecordingCrashRecovery::AbandonedTake> takes,
                                size_t next, const std::optional<fs::path>& document, bool record) {
    if (next >= takes.size()) {
        if (document) {
            openDocument(*document);
        } else if (record) {
            showRecorder();
        } else if (editorWindows().empty() && !opening_) {
            startWindow_->show();
        }
        return;
    }
    const fs::path screen = takes[next].screenURL;
    QMessageBox box(QMessageBox::Information,
                    QStringLiteral("Found a recording from a previous session"),
                    QStringLiteral("Orvelle closed before this recording could be finished. "
                                   "Everything captured up to the interruption was kept and can "
                                   "be recovered."));
    box.setWindowTitle(QStringLiteral("Orvelle"));
    box.setObjectName(QStringLiteral("crashRecovery"));
    QPushButton* open = box.addButton(QStringLiteral("Open in Editor"), QMessageBox::AcceptRole);
    QPushButton* show = box.addButton(QStringLiteral("Show in Folder"), QMessageBox::ActionRole);
    QPushButton* remove =
        box.addButton(QStringLiteral("Delete Recording"), QMessageBox::DestructiveRole);
    box.setDefaultButton(open);
    box.exec();
    const auto* clicked = box.clickedButton();
    const auto reveal = [](const fs::path& url) {
        QDesktopServices::openUrl(QUrl::fromLocalFile(qString(url)));
    };
    const auto continueWith = [this, takes, next, document, record] {
        offerRecovery(takes, next + 1, document, record);
    };
    if (clicked == remove) {
        RecordingScratchStore::removeRecordingSentinel(screen);
        RecordingScratchStore::deleteAbandonedTakeDirectory(screen);
        continueWith();
        return;
    }
    const bool opens = clicked == open;
    const RecordingCrashRecovery::AbandonedTake take = takes[next];
    if (!opens && clicked != show) {
        // Closed without a choice: asked again at the next launch.
        continueWith();
        return;
    }
    // Recovery probes every file: off the main thread.
    work_.run<bool>([take] { return RecordingCrashRecovery::recover(take); },
                    [this, opens, screen, reveal, continueWith](bool recovered) {
                        if (opens && recovered) {
                            openDocument(screen);
                        } else {
                            reveal(opens ? screen.parent_path() : screen);
                        }
                        continueWith();
                    });
}

GoogleOAuthController* Application::googleAccount() {
    if (!googleAccountTried_) {
        googleAccountTried_ = true;
        try {
            googleAccount_ = std::make_unique<GoogleOAuthController>(
                mainExecutor(), openDefaultSecretStore(), GoogleOAuthController::Configuration{});
        } catch (const std::exception& error) {
            logWarning("Online", "no Google account for uploads: ", error.what());
        }
    }
    return googleAccount_.get();
}

RecorderSession& Application::recorderSession() {
    if (!recorderSession_) {
        recorderSession_ = std::make_unique<RecorderSession>(defaults_, options_.cameraProvider);
        WindowRecorder& recorder = recorderSession_->recorder();
        const auto refresh = [this](const auto&) { refreshTrayMenu(); };
        recorderSubscriptions_.push_back(recorder.statusText.observe(refresh));
        recorderSubscriptions_.push_back(recorder.isPaused.observe(refresh));
        recorderSubscriptions_.push_back(recorder.elapsedText.observe(refresh));
    }
    return *recorderSession_;
}

RecorderWindow& Application::recorderWindow() {
    if (!recorderWindow_) {
        recorderWindow_ = std::make_unique<RecorderWindow>(
            recorderSession(),
            RecorderWindow::Actions{
                .openTake = [this](const fs::path& url) { openTake(url); },
                .showSettings = [this] { showSettings(); },
                .canHideInTray = [this] { return tray_ != nullptr && tray_->isVisible(); },
            });
    }
    return *recorderWindow_;
}

SettingsWindow& Application::settingsWindow() {
    if (!settingsWindow_) {
        settingsWindow_ = std::make_unique<SettingsWindow>(recorderSession(), shortcuts_.get());
    }
    return *settingsWindow_;
}

void Application::showRecorder() {
    RecorderWindow& window = recorderWindow();
    if (recorderSession().isActive()) {
        window.show();
        window.raise();
        return;
    }
    window.present();
    startWindow_->hide();
}

void Application::showSettings() {
    SettingsWindow& window = settingsWindow();
    window.refresh();
    window.show();
    window.raise();
    window.activateWindow();
}

void Application::toggleRecording() {
    if (quitting_) {
        return;
    }
    RecorderWindow& window = recorderWindow();
    if (recorderSession().isActive()) {
        window.stopRecording();
        return;
    }
    // The devices as the launcher would show them: a camera stopped by the last take is on
    // again.
    recorderSession().refreshDevices();
    window.startRecording();
    // Nothing to record yet (or no screen to record here): the recorder says so. An area
    // still to be dragged out has its overlay up instead.
    if (!recorderSession().isActive() && !window.isVisible() && !window.areaOverlay().isVisible()) {
        showRecorder();
    }
}

void Application::togglePauseRecording() {
    if (recorderSession_ && recorderSession_->isActive()) {
        recorderWindow().togglePause();
    }
}

void Application::openTake(const fs::path& screenURL) {
    if (options_.transcribeNewTakes) {
        newTakes_.push_back(editorDocumentURL(screenURL));
    }
    openDocument(screenURL);
}

void Application::makeTrayIcon() {
    if (tray_ != nullptr || !QSystemTrayIcon::isSystemTrayAvailable()) {
        return;
    }
    tray_ = new QSystemTrayIcon(applicationIcon(), startWindow_.get());
    tray_->setToolTip(QStringLiteral("Orvelle"));
    tray_->setContextMenu(new QMenu(startWindow_.get()));
    QObject::connect(tray_, &QSystemTrayIcon::activated, startWindow_.get(),
                     [this](QSystemTrayIcon::ActivationReason reason) {
                         if (reason == QSystemTrayIcon::Trigger) {
                             showRecorder();
                         }
                     });
    refreshTrayMenu();
    tray_->show();
}

// Start, pause and stop from the tray, where the desktop shows one: the way to reach the
// recorder when its window has left the screen to keep out of the recording.
void Application::refreshTrayMenu() {
    if (tray_ == nullptr) {
        return;
    }
    QMenu* menu = tray_->contextMenu();
    menu->clear();
    // An item that the keys for the whole desktop also do shows them.
    const auto withKeys = [this](const QString& text, RecordingShortcut action) {
        const QString keys = shortcuts_ ? shortcuts_->shownKeys(action) : QString();
        return keys.isEmpty() ? text : text + QLatin1Char('\t') + keys;
    };
    const bool active = recorderSession_ && recorderSession_->isActive();
    if (active) {
        WindowRecorder& recorder = recorderSession_->recorder();
        QAction* state = menu->addAction(QString::fromStdString(recorder.statusText.value() + "  " +
                                                                recorder.elapsedText.value()));
        state->setEnabled(false);
        menu->addAction(withKeys(recorder.isPaused.value() ? QStringLiteral("&Resume Recording")
                                                           : QStringLiteral("&Pause Recording"),
                                 RecordingShortcut::pauseResume),
                        [this] { togglePauseRecording(); });
        menu->addAction(withKeys(QStringLiteral("S&top Recording"), RecordingShortcut::startStop),
                        [this] { toggleRecording(); });
        menu->addAction(QStringLiteral("Show Recorder"), [this] { showRecorder(); });
    } else {
        menu->addAction(withKeys(QStringLiteral("&Start Recording"), RecordingShortcut::startStop),
                        [this] { toggleRecording(); });
        menu->addAction(QStringLiteral("New Recording…"), [this] { showRecorder(); });
        menu->addAction(QStringLiteral("Open…"), [this] { showOpenDialog(); });
    }
    menu->addSeparator();
    menu->addAction(QStringLiteral("Settings…"), [this] { showSettings(); });
    menu->addAction(QStringLiteral("Quit Orvelle"), [this] { quit(); });
    tray_->setToolTip(active ? QStringLiteral("Orvelle — recording") : QStringLiteral("Orvelle"));
}

std::vector<EditorWindow*> Application::editorWindows() const {
    std::vector<EditorWindow*> windows;
    for (const auto& editor : editors_) {
        if (editor) {
            windows.push_back(editor.data());
        }
    }
    return windows;
}

EditorWindow* Application::windowShowing(const fs::path& url) const {
    for (EditorWindow* window : editorWindows()) {
        const EditorDocument& document = window->document();
        if (document.documentURL == url || document.screenURL == url ||
            (document.packageURL && *document.packageURL == url)) {
            return window;
        }
    }
    return nullptr;
}

void Application::openDocument(const fs::path& picked) {
    if (opening_) {
        return;
    }
    const fs::path url = editorDocumentURL(picked);
    if (EditorWindow* window = windowShowing(url)) {
        window->show();
        window->raise();
        window->activateWindow();
        return;
    }
    std::error_code error;
    if (!fs::exists(url, error)) {
        recents_.remove(url);
        QMessageBox box(QMessageBox::Warning, QStringLiteral("Orvelle"),
                        QStringLiteral("“%1” could not be opened.")
                            .arg(QString::fromStdString(url.filename().string())),
                        QMessageBox::Ok, startWindow_->isVisible() ? startWindow_.get() : nullptr);
        box.setInformativeText(
            QStringLiteral("It is no longer at %1. It may have been moved or deleted.")
                .arg(qString(url.parent_path())));
        box.exec();
        if (editorWindows().empty()) {
            startWindow_->show();
        }
        return;
    }
    opening_ = url;
    startWindow_->setOpening(&*opening_);
    const LastEditorSettingsStore settings(options_.lastEditorSettingsURL);
    work_.run<EditorDocument>([url, settings] { return EditorDocument::load(url, settings); },
                              [this, url](const EditorDocument& document) {
                                  opening_.reset();
                                  startWindow_->setOpening(nullptr);
                                  showEditor(document, url);
                              },
                              [this](const std::string& problem) {
                                  opening_.reset();
                                  startWindow_->setOpening(nullptr);
                                  QMessageBox::warning(startWindow_.get(),
                                                       QStringLiteral("Orvelle"),
                                                       QString::fromStdString(problem));
                              });
}

void Application::showEditor(const EditorDocument& document, const fs::path& opened) {
    EditorWindowServices services{
        .defaults = &defaults_,
        .recents = &recents_,
        .lastSettings = LastEditorSettingsStore(options_.lastEditorSettingsURL),
        .presets = EditorPresetStore(options_.presetsURL),
        .playback = options_.playback,
        .transcriptProcessing = options_.transcriptProcessing,
        .languageModelHelper = options_.languageModelHelper,
        .googleAccount = googleAccount(),
        .endpoints = onlineEndpoints(),
        .openDocument = [this](const fs::path& path) { openDocument(path); },
        .showOpenDialog = [this] { showOpenDialog(); },
        .closed = [this] { editorClosed(); },
        .quit = [this] { quit(); },
    };
    auto* window = new EditorWindow(document, std::move(services));
    editors_.emplace_back(window);
    const auto fresh = std::find(newTakes_.begin(), newTakes_.end(), opened);
    if (fresh != newTakes_.end()) {
        // A take just recorded: its transcript is made while the user looks at it, where
        // the models are installed (the transcript page says what is missing otherwise).
        newTakes_.erase(fresh);
        EditorTranscriptController& transcript = window->transcript();
        if (transcript.missingModels().value().empty() && !transcript.hasTranscript().value()) {
            transcript.startTranscription();
        }
    } else {
        recents_.add(document.packageURL.value_or(opened));
    }
    window->show();
    startWindow_->hide();
    if (onEditorOpened_) {
        onEditorOpened_(*window);
    }
}

void Application::editorClosed() {
    // The window is still counted while its close event runs: look again afterwards (not
    // at all once the application object is gone, which takes the start window along).
    QMetaObject::invokeMethod(
        startWindow_.get(),
        [this] {
            std::erase_if(editors_, [](const QPointer<EditorWindow>& editor) {
                return editor.isNull() || !editor->isVisible();
            });
            if (editors_.empty() && !quitting_ &&
                !(recorderWindow_ && recorderWindow_->isVisible())) {
                startWindow_->show();
            }
        },
        Qt::QueuedConnection);
}

void Application::showOpenDialog(QWidget* parent) {
    const QString chosen = QFileDialog::getOpenFileName(
        parent, QStringLiteral("Open"), QString(),
        QStringLiteral("Takes, projects and movies (*.mov *.mp4 *.m4v *.mkv *.webm *.take.json "
                       "project.json);;All files (*)"));
    if (!chosen.isEmpty()) {
        openDocument(fs::path(chosen.toStdString()));
    }
}

bool Application::confirmQuitWhileRecording() {
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Orvelle"),
                    QStringLiteral("A recording is in progress"), QMessageBox::NoButton,
                    recorderWindow_.get());
    box.setObjectName(QStringLiteral("QuitWhileRecordingDialog"));
    box.setInformativeText(QStringLiteral(
        "Stop the recording and keep it before quitting, or discard everything recorded so "
        "far?"));
    QPushButton* keep = box.addButton(QStringLiteral("Stop and Quit"), QMessageBox::AcceptRole);
    QPushButton* discard =
        box.addButton(QStringLiteral("Discard and Quit"), QMessageBox::DestructiveRole);
    box.addButton(QMessageBox::Cancel);
    box.setDefaultButton(keep);
    box.exec();
    if (box.clickedButton() == keep) {
        recorderSession_->stopForTermination();
        return true;
    }
    if (box.clickedButton() == discard) {
        recorderSession_->discard();
        return true;
    }
    return false;
}

void Application::quit(bool prompt) {
    if (recorderSession_ && recorderSession_->isActive()) {
        if (!prompt) {
            recorderSession_->stopForTermination();
        } else if (!confirmQuitWhileRecording()) {
            return;
        }
    }
    quitting_ = true;
    for (EditorWindow* window : editorWindows()) {
        if (!prompt) {
            window->closeWithoutPrompt();
        } else if (!window->close()) {
            quitting_ = false;
            return;
        }
    }
    startWindow_->close();
    if (recorderWindow_) {
        recorderWindow_->close();
    }
    if (settingsWindow_) {
        settingsWindow_->close();
    }
    if (tray_ != nullptr) {
        tray_->hide();
    }
    QApplication::quit();
}

} // namespace orvelle
