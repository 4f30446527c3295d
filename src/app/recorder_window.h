#pragma once

// The recorder: before a take, the launcher (what to record, as a display, a window or an
// area, each shown as a still; the webcam with its live picture, the microphone with its
// level, the computer's sound); during a take, the compact recorder window with the state,
// the elapsed time, pause, stop and discard. Stop hands the finished take to the editor.
// Its windows keep out of what is recorded: the recorder window moves beside the recorded
// area, or into the tray when the area leaves no room. Main thread only.

#include "app/background_work.h"
#include "app/recorder_session.h"
#include "app/recording_overlays.h"
#include "editor/published.h"

#include <QImage>
#include <QWidget>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <vector>

class QButtonGroup;
class QCheckBox;
class QComboBox;
class QLabel;
class QListWidget;
class QPushButton;
class QStackedWidget;
class QTimer;
class QToolButton;

namespace orvelle {

class CameraPreviewView;
class LevelMeter;

class RecorderWindow : public QWidget {
public:
    struct Actions {
        // A finished take: its first screen movie.
        std::function<void(const std::filesystem::path&)> openTake;
        std::function<void()> showSettings;
        // Whether the recorder window may hide in the tray when it has no room beside the
        // recorded area.
        std::function<bool()> canHideInTray;
    };

    RecorderWindow(RecorderSession& session, Actions actions, QWidget* parent = nullptr);
    ~RecorderWindow() override;

    // Shows the launcher with fresh sources and devices.
    void present();
    void setCaptureMode(RecorderCaptureMode mode);
    RecorderCaptureMode captureMode() const { return mode_; }
    // The area overlay for a new area.
    void selectArea();
    // An area (global points from the top left) as the source.
    void chooseArea(const QRect& area);
    // Starts a take of the chosen source.
    void startRecording();
    void togglePause();
    void stopRecording();
    // Asks first unless told not to.
    void discardRecording(bool ask = true);

    // For the screenshots and the tests.
    const std::optional<RecorderSourceSelection>& selectedSource() const { return selected_; }
    void selectSource(const RecorderSourceSelection& selection);
    AreaSelectionOverlay& areaOverlay() { return *areaOverlay_; }
    QListWidget& sourceList() { return *sourceList_; }
    bool isShowingRecordingControls() const;
    // Sources whose still is still being taken.
    size_t pendingPreviews() const { return pendingPreviews_; }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    QWidget* buildLauncher();
    QWidget* buildRecordingControls();
    void reloadSources();
    void requestPreview(const RecorderSourceSelection& selection, const QString& key);
    void sourceClicked();
    void refreshDevices();
    void refreshState();
    void refreshStartButton();
    void afterFailure();
    void keepOutOfCapture(const QRect& area);
    void showLauncherPage();
    void showRecordingPage();
    void showPage(int index, QSize size);
    void refreshSourcePreview();

    RecorderSession& session_;
    Actions actions_;
    RecorderCaptureMode mode_ = RecorderCaptureMode::display;
    std::optional<RecorderSourceSelection> selected_;
    std::vector<RecorderSourceSelection> sources_;
    std::map<QString, QImage> stills_;
    size_t pendingPreviews_ = 0;
    bool populatingDevices_ = false;
    bool hiddenInTray_ = false;
    std::optional<QRect> lastArea_;

    std::unique_ptr<AreaSelectionOverlay> areaOverlay_;
    std::unique_ptr<RecordingAreaBoundaryOverlay> boundaryOverlay_;
    std::unique_ptr<RecordingStartupOverlay> startupOverlay_;

    QStackedWidget* pages_ = nullptr;
    QButtonGroup* modeButtons_ = nullptr;
    QListWidget* sourceList_ = nullptr;
    QLabel* sourceHint_ = nullptr;
    QLabel* sourcePreview_ = nullptr;
    QLabel* sourceTitle_ = nullptr;
    QPushButton* selectAreaButton_ = nullptr;
    QCheckBox* cameraToggle_ = nullptr;
    QComboBox* cameraChoice_ = nullptr;
    CameraPreviewView* cameraPreview_ = nullptr;
    QCheckBox* microphoneToggle_ = nullptr;
    QComboBox* microphoneChoice_ = nullptr;
    LevelMeter* levelMeter_ = nullptr;
    QCheckBox* systemAudioToggle_ = nullptr;
    QLabel* launcherStatus_ = nullptr;
    QPushButton* startButton_ = nullptr;

    QLabel* stateDot_ = nullptr;
    QLabel* stateLabel_ = nullptr;
    QLabel* elapsedLabel_ = nullptr;
    QLabel* detailLabel_ = nullptr;
    QPushButton* pauseButton_ = nullptr;
    QPushButton* stopButton_ = nullptr;
    QToolButton* discardButton_ = nullptr;
    LevelMeter* recordingLevel_ = nullptr;

    std::vector<Subscription> subscriptions_;
    BackgroundWork previews_{"com.orvelle.app.source-previews"};
};

// The webcam's newest picture, redrawn a few times a second while shown.
class CameraPreviewView : public QWidget {
public:
    explicit CameraPreviewView(CameraRecorder& camera, QWidget* parent = nullptr);
    bool hasPicture() const { return hasPicture_; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    CameraRecorder& camera_;
    QTimer* timer_ = nullptr;
    bool hasPicture_ = false;
};

// A microphone's level, 0 to 1, as a row of lit segments.
class LevelMeter : public QWidget {
public:
    explicit LevelMeter(QWidget* parent = nullptr);
    void setLevel(float level);
    float level() const { return level_; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    float level_ = 0;
};

} // namespace orvelle
