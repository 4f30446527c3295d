#pragma once

// Settings: the recording devices the recorder remembers, the keys that start, stop and
// pause a take from anywhere (where the desktop offers them), the three local models with
// their state and an install from a file, a folder or a web address (the same install as
// `orvelle models install`), and where the program keeps its data. Main thread only.

#include "app/background_work.h"
#include "app/recorder_session.h"
#include "app/recording_shortcuts.h"
#include "editor/published.h"

#include <QWidget>
#include <vector>

class QCheckBox;
class QComboBox;
class QKeySequenceEdit;
class QLabel;
class QPushButton;

namespace orvelle {

class SettingsWindow : public QWidget {
public:
    // Without `shortcuts`, no keys are offered.
    explicit SettingsWindow(RecorderSession& session, RecordingShortcuts* shortcuts = nullptr,
                            QWidget* parent = nullptr);
    ~SettingsWindow() override;

    // Reads the devices and the models' state again.
    void refresh();
    // Installs a model from a file, folder or URL in the background; the row says how it
    // goes and how it ended.
    void installModel(const std::string& id, const std::string& source);
    // The text of a model's row ("Installed (1.2 GB)", "Not installed", "Installing…").
    QString modelStatusText(const std::string& id) const;
    bool isInstalling() const { return installing_; }
    // The key field of an action, and what the window says about the keys.
    QKeySequenceEdit& shortcutField(RecordingShortcut action);
    QString shortcutNote() const;

private:
    struct ModelRow {
        std::string id;
        QLabel* status = nullptr;
        QPushButton* install = nullptr;
    };

    void refreshDevices();
    void refreshModels();
    void refreshShortcuts();
    void chooseSource(const std::string& id);

    RecorderSession& session_;
    QComboBox* camera_ = nullptr;
    QComboBox* microphone_ = nullptr;
    QCheckBox* systemAudio_ = nullptr;
    RecordingShortcuts* shortcuts_ = nullptr;
    QKeySequenceEdit* startStopKeys_ = nullptr;
    QKeySequenceEdit* pauseResumeKeys_ = nullptr;
    QLabel* shortcutNote_ = nullptr;
    std::vector<ModelRow> models_;
    bool populating_ = false;
    bool installing_ = false;
    std::vector<Subscription> subscriptions_;
    BackgroundWork work_{"com.orvelle.app.models"};
};

} // namespace orvelle
