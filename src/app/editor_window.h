#pragma once

// The editor of one document: the preview with its transport, the timeline under it and
// the inspector beside it, with the menus and shortcuts of a video editor. It owns the
// document's EditorStore and PlaybackModel; every change goes through them. Saving runs
// off the main thread and keeps the undo history; closing with unsaved changes asks
// first. The window's size and layout are remembered in the user's settings.
// Main thread only.

#include "app/background_work.h"
#include "app/settings_sidebar.h"
#include "app/timeline_thumbnails.h"
#include "editor/editor_preset_store.h"
#include "editor/editor_store.h"
#include "online/online_endpoints.h"
#include "playback/playback_model.h"
#include "project/editor_document.h"
#include "project/last_editor_settings_store.h"
#include "project/media_asset_metadata.h"
#include "publish/export_controller.h"
#include "transcript_edit/editor_transcript_controller.h"

#include <QMainWindow>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

class QAction;
class QLabel;
class QMenu;
class QPushButton;
class QSplitter;
class QTimer;
class QToolButton;

namespace orvelle {

class ExportPanel;
class PreviewView;
class RecentDocuments;
class TimelineView;
class TranscriptPanel;
class TransportBar;
class UserDefaults;

struct EditorWindowServices {
    UserDefaults* defaults = nullptr;
    RecentDocuments* recents = nullptr;
    LastEditorSettingsStore lastSettings;
    EditorPresetStore presets;
    PlaybackModelOptions playback;
    // Where the speech models are (absent: the installed ones).
    EditorTranscriptProcessingOptions transcriptProcessing;
    std::optional<std::filesystem::path> languageModelHelper; // absent: the usual search
    // The Google account of the uploads; absent: uploads stop before they begin.
    GoogleOAuthController* googleAccount = nullptr;
    // Where uploads go and are watched.
    OnlineServiceEndpoints endpoints;
    std::function<void(const std::filesystem::path&)> openDocument;
    std::function<void()> showOpenDialog;
    // After the window has closed; it is deleted later.
    std::function<void()> closed;
    std::function<void()> quit;
};

class EditorWindow : public QMainWindow {
public:
    EditorWindow(const EditorDocument& document, EditorWindowServices services);
    ~EditorWindow() override;

    EditorStore& store() { return store_; }
    PlaybackModel& playback() { return *playback_; }
    const EditorDocument& document() const { return document_; }
    PreviewView& preview() { return *preview_; }
    TransportBar& transport() { return *transport_; }
    TimelineView& timeline() { return *timeline_; }
    Inspector& inspector() { return *inspector_; }
    TimelineThumbnails& thumbnails() { return thumbnails_; }
    ExportController& exporter() { return *exporter_; }
    ExportPanel& exportPanel() { return *exportPanel_; }
    EditorTranscriptController& transcript() { return *transcript_; }
    TranscriptPanel& transcriptPanel() { return *transcriptPanel_; }
    // The export page shown, its Export button ready for Return.
    void showExportPanel();

    // Changes since the last save (or since opening), export settings included.
    bool hasUnsavedChanges() const;
    // Saves to the document's package, or asks where when it has none. `done` runs with
    // whether it was saved.
    void save(std::function<void(bool)> done = nullptr);
    void saveAs(std::function<void(bool)> done = nullptr);
    // Saves to this package without asking (the tests' and the dialog's way in).
    void saveTo(const std::filesystem::path& url, std::function<void(bool)> done = nullptr);
    bool isSaving() const { return saving_; }
    // Closes without asking (a polite kill, or the application quitting after asking).
    void closeWithoutPrompt();

    // The actions of the menus, by their text without mnemonics ("Split at Playhead").
    QAction* action(const QString& text) const;
    // Shown in the title bar's status place for a few seconds.
    void showStatus(const QString& text);
    QString statusText() const;

    // Playback controls as the shortcuts drive them.
    void togglePlayback();
    void stepFrames(int count);
    void seekBy(double seconds);
    void seekTo(double editSeconds);
    void shuttleForward();
    void shuttleBackward();
    void stopShuttle();

    // Editing at the playhead and on the selection, as the Edit menu does it.
    void splitAtPlayhead();
    void deleteSelection();
    // Asks for a music file (or takes the one given) and lays it on the music lane.
    void addMusicFile(double editSeconds, std::optional<std::filesystem::path> file = std::nullopt);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void buildInterface();
    std::optional<ExportSnapshot> exportSnapshot() const;
    QWidget* buildTimelinePanel(QWidget* parent);
    void buildMenus();
    void loadSourceInformation();
    void refreshTitle();
    void refreshUndoActions();
    void watchLoading();
    void rememberWindowState();
    void restoreWindowState();
    void rememberLook();
    void finishedSaving(const EditorDocument& saved, const EditorProjectState& snapshot);
    bool confirmClose();
    void reverseShuttleStep();

    EditorDocument document_;
    EditorWindowServices services_;
    EditorStore store_;
    std::unique_ptr<PlaybackModel> playback_;
    std::unique_ptr<ExportController> exporter_;
    EditorEditableProjectState lastEdit_; // what the picture depends on, for a run's staleness
    std::unique_ptr<EditorTranscriptController> transcript_;
    TimelineThumbnails thumbnails_;
    BackgroundWork work_{"com.orvelle.editor.files"};

    EditorProjectState savedProject_;
    bool saving_ = false;
    bool closingAfterSave_ = false;
    bool closeConfirmed_ = false;
    std::optional<VideoSize> sourceSize_;

    PreviewView* preview_ = nullptr;
    TransportBar* transport_ = nullptr;
    TimelineView* timeline_ = nullptr;
    Inspector* inspector_ = nullptr;
    ExportPanel* exportPanel_ = nullptr;
    TranscriptPanel* transcriptPanel_ = nullptr;
    QSplitter* verticalSplitter_ = nullptr;
    QSplitter* horizontalSplitter_ = nullptr;
    QLabel* titleLabel_ = nullptr;
    QLabel* statusLabel_ = nullptr;
    QPushButton* exportButton_ = nullptr;
    QTimer* statusTimer_ = nullptr;
    QTimer* loadingTimer_ = nullptr;
    QTimer* shuttleTimer_ = nullptr;
    double reverseShuttleSpeed_ = 0;
    double reverseShuttleTarget_ = 0;
    QToolButton* snappingButton_ = nullptr;
    QAction* undoAction_ = nullptr;
    QAction* redoAction_ = nullptr;
    QMenu* recentMenu_ = nullptr;

    Subscription projectSubscription_;
    Subscription undoSubscription_;
    Subscription redoSubscription_;
    Subscription sourceSubscription_;
    Subscription exportStatusSubscription_;
};

} // namespace orvelle
