#pragma once

// The export page of the inspector: format, quality, aspect ratio, size and where the movie
// goes, the Export button, and while it runs a progress bar with Cancel; afterwards what
// became of it ("Saved Name.mp4", "Rendered previous edit", an error's own words). The
// choices are the project's (its export settings); the run is the WindowExportController's.

#include "app/inspector_controls.h"
#include "app/window_export.h"

#include <filesystem>
#include <functional>
#include <span>
#include <string>

class QLabel;
class QProgressBar;
class QPushButton;

namespace orvelle {

struct ExportSize {
    const char* name;
    int width;
    int height;
};

// The sizes offered, by the long side of a wide picture.
std::span<const ExportSize> exportSizes();

class ExportPanel : public InspectorPanel {
public:
    struct Context {
        EditorStore* store = nullptr;
        WindowExportController* controller = nullptr;
        // The name the movie gets, without extension ("Orvelle Sample").
        std::function<std::string()> movieName;
        std::function<void(const QString&)> showStatus;
    };

    explicit ExportPanel(Context context, QWidget* parent = nullptr);

    // Starts the export with the choices shown (asking where first when the location is
    // "Choose…"). False when nothing started.
    bool startExport();
    // The file the next export writes, for the locations other than "Choose…": the folder's
    // name, the movie's name and the format's extension, numbered when taken.
    std::filesystem::path plannedOutputURL() const;
    QPushButton& exportButton() { return *exportButton_; }
    QPushButton& cancelButton() { return *cancelButton_; }
    QProgressBar& progressBar() { return *progress_; }
    QString resultText() const;

private:
    void refreshRun();
    std::filesystem::path locationFolder() const;

    Context context_;
    int sizeIndex_ = 1;
    QLabel* destination_ = nullptr;
    QPushButton* exportButton_ = nullptr;
    QPushButton* cancelButton_ = nullptr;
    QPushButton* revealButton_ = nullptr;
    QProgressBar* progress_ = nullptr;
    QLabel* result_ = nullptr;
    Subscription exporting_;
    Subscription progressSubscription_;
    Subscription status_;
};

} // namespace orvelle
