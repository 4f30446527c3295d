#pragma once

// The application shell: the start window, the editor windows (one a document), the
// recent documents, the open dialog and the opening of documents off the main thread,
// and quitting. A document already open is brought to the front instead of opened twice.
// Main thread only.

#include "app/background_work.h"
#include "app/recent_documents.h"
#include "app/recorder_session.h"
#include "app/recording_shortcuts.h"
#include "core/user_defaults.h"
#include "editor/editor_preset_store.h"
#include "playback/playback_model.h"
#include "project/last_editor_settings_store.h"
#include "recording/recording_crash_recovery.h"
#include "transcript_edit/transcript_processing.h"

#include <QPointer>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QSystemTrayIcon;
class QWidget;

namespace orvelle {

class EditorWindow;
class GoogleOAuthController;
class RecorderWindow;
class SettingsWindow;
class StartWindow;

struct ApplicationOptions {
    std::filesystem::path settingsURL = UserDefaults::defaultURL();
    std::filesystem::path lastEditorSettingsURL = LastEditorSettingsStore::defaultURL();
    std::filesystem::path presetsURL = EditorPresetStore::defaultURL();
    PlaybackModelOptions playback;
    EditorTranscriptProcessingOptions transcriptProcessing;
    // Where the webcam's pictures come from: Video4Linux2 unless given.
    CameraProviderFactory cameraProvider;
    // Whether the tray icon is shown where the desktop has a tray.
    bool trayIcon = true;
    // The language model's helper program for the metadata drafts; absent: the usual search
    // (beside the program, ORVELLE_LLM_HELPER, ...).
    std::optional<std::filesystem::path> languageModelHelper;
    // Whether a take that stops is transcribed as it opens, when the models are installed.
    bool transcribeNewTakes = true;
};

class Application {
public:
    explicit Application(ApplicationOptions options = {});
    ~Application();
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    // Offers each take a crash left unfinished (open, show or delete it), then opens the
    // document when one is named, the recorder when asked, the start window otherwise.
    void start(const std::optional<std::filesystem::path>& document, bool record = false);
    // The recorder's launcher (or its controls during a take).
    void showRecorder();
    void showSettings();
    // A finished take opens in the editor, and its transcript is made as it opens.
    void openTake(const std::filesystem::path& screenURL);
    // Opens what the user picked (a take's movie or manifest, a project, a movie) in a
    // window of its own, or brings its window forward.
    void openDocument(const std::filesystem::path& picked);
    void showOpenDialog(QWidget* parent = nullptr);
    // Closes every window, asking about unsaved changes unless told not to, then quits. A
    // take under way is stopped and kept; asked, the user may discard it or stay.
    void quit(bool prompt = true);

    StartWindow& startWindow() { return *startWindow_; }
    std::vector<EditorWindow*> editorWindows() const;
    RecentDocuments& recentDocuments() { return recents_; }
    UserDefaults& userDefaults() { return defaults_; }
    bool isOpening() const { return opening_.has_value(); }
    // Starts a take of the recorder's last choice, or stops the one under way (the tray
    // and the keys for the whole desktop); with nothing chosen yet, the recorder shows.
    void toggleRecording();
    // Pauses or resumes the take under way.
    void togglePauseRecording();
    // Made when first wanted.
    RecorderSession& recorderSession();
    RecorderWindow& recorderWindow();
    SettingsWindow& settingsWindow();
    // The Google account of the uploads; absent when this computer has no OAuth client file
    // or secret store (uploads then say what is missing).
    GoogleOAuthController* googleAccount();
    bool hasRecorder() const { return recorderWindow_ != nullptr; }
    // Absent until start().
    RecordingShortcuts* recordingShortcuts() { return shortcuts_.get(); }

    // Called with each editor window once it is shown.
    void setOnEditorOpened(std::function<void(EditorWindow&)> handler) {
        onEditorOpened_ = std::move(handler);
    }

private:
    void offerRecovery(std::vector<RecordingCrashRecovery::AbandonedTake> takes, size_t next,
                       const std::optional<std::filesystem::path>& document, bool record);
    EditorWindow* windowShowing(const std::filesystem::path& url) const;
    void showEditor(const EditorDocument& document, const std::filesystem::path& opened);
    void editorClosed();
    void makeTrayIcon();
    void refreshTrayMenu();
    bool confirmQuitWhileRecording();

    ApplicationOptions options_;
    UserDefaults defaults_;
    RecentDocuments recents_;
    std::unique_ptr<StartWindow> startWindow_;
    std::vector<QPointer<EditorWindow>> editors_;
    std::optional<std::filesystem::path> opening_;
    std::function<void(EditorWindow&)> onEditorOpened_;
    bool quitting_ = false;
    std::vector<std::filesystem::path> newTakes_; // to transcribe once their editor opens
    std::unique_ptr<RecorderSession> recorderSession_;
    std::unique_ptr<RecorderWindow> recorderWindow_;
    std::unique_ptr<SettingsWindow> settingsWindow_;
    std::unique_ptr<GoogleOAuthController> googleAccount_;
    bool googleAccountTried_ = false;
    QSystemTrayIcon* tray_ = nullptr;
    std::unique_ptr<RecordingShortcuts> shortcuts_;
    std::vector<Subscription> recorderSubscriptions_;
    BackgroundWork work_{"com.orvelle.app.open"};
};

} // namespace orvelle
