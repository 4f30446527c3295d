#include "app/application.h"

#include "app/editor_window.h"
#include "app/start_window.h"
#include "project/editor_document.h"
#include "recording/recording_crash_recovery.h"
#include "recording/recording_scratch_store.h"

#include <QApplication>
#include <QDesktopServices>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>
#include <QUrl>

namespace orvelle {

namespace fs = std::filesystem;

namespace {

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
                if (editorWindows().empty() && !opening_) {
                    quit(false);
                }
            },
    });
    recents_.setOnChange([this] { startWindow_->setRecentDocuments(recents_.paths()); });
    startWindow_->setRecentDocuments(recents_.paths());
}

Application::~Application() {
    for (const auto& editor : editors_) {
        if (editor) {
            delete editor.data();
        }
    }
}

void Application::start(const std::optional<fs::path>& document) {
    // Takes a crash left unfinished are offered first, one at a time.
    work_.run<std::vector<RecordingCrashRecovery::AbandonedTake>>(
        [] { return RecordingCrashRecovery::scanForAbandonedTakes(); },
        [this, document](std::vector<RecordingCrashRecovery::AbandonedTake> takes) {
            offerRecovery(std::move(takes), 0, document);
        },
        [this, document](const std::string&) { offerRecovery({}, 0, document); });
}

void Application::offerRecovery(std::vector<RecordingCrashRecovery::AbandonedTake> takes,
                                size_t next, const std::optional<fs::path>& document) {
    if (next >= takes.size()) {
        if (document) {
            openDocument(*document);
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
    const auto continueWith = [this, takes, next, document] {
        offerRecovery(takes, next + 1, document);
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
        .openDocument = [this](const fs::path& path) { openDocument(path); },
        .showOpenDialog = [this] { showOpenDialog(); },
        .closed = [this] { editorClosed(); },
        .quit = [this] { quit(); },
    };
    auto* window = new EditorWindow(document, std::move(services));
    editors_.emplace_back(window);
    recents_.add(document.packageURL.value_or(opened));
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
            if (editors_.empty() && !quitting_) {
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

void Application::quit(bool prompt) {
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
    QApplication::quit();
}

} // namespace orvelle
