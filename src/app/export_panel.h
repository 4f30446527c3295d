#pragma once

// The export page of the inspector: format, quality, aspect ratio, size and where the movie
// goes; the YouTube publishing (title, description, chapters and tags, drafted by the
// local model from the edited transcript and revised on request, and the upload's
// choices); the Export button, and while it runs a progress bar with Cancel; afterwards
// what became of it ("Saved Name.mp4", "Rendered previous edit", an error's own words). The
// choices are the project's (its export settings); the run, render and upload with one
// progress bar, is the ExportController's.

#include "app/settings_sidebar_controls.h"
#include "local_ai/youtube_metadata.h"
#include "online/google_oauth_controller.h"
#include "project/editor_document.h"
#include "publish/export_controller.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <vector>

class QLabel;
class QLineEdit;
class QPlainTextEdit;
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
        ExportController* controller = nullptr;
        // The account uploads go with; absent: none can be connected here.
        GoogleOAuthController* googleAccount = nullptr;
        // The name the movie gets, without extension ("Orvelle Sample").
        std::function<std::string()> movieName;
        std::function<void(const QString&)> showStatus;
        // The document whose transcript the metadata draft reads.
        std::function<const EditorDocument&()> document;
        std::optional<std::filesystem::path> languageModelHelper;
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
    // The upload the project's choices ask for, of `file`.
    static YouTubeUploadRequest uploadRequest(const ProjectExportSettings& settings,
                                              const std::filesystem::path& file);
    QString accountText() const;
    QPushButton& connectButton() { return *connectButton_; }
    // Scrolls to the YouTube part.
    void showPublishing();

    // The YouTube title, description, chapters and tags drafted by the local model from
    // the edited transcript; with an instruction, the draft shown is revised. The result
    // goes into the project's export settings, with the exchange of a revision.
    void requestDraft(const std::string& instruction = {});
    bool isDrafting() const { return drafting_; }
    QString draftStatusText() const;
    // The chapters as the panel lists them ("0:00  Introduction").
    QStringList chapterLines() const;

private:
    void refreshRun();
    std::filesystem::path locationFolder() const;
    void buildPublishing();
    void refreshAccount();
    void draftFinished(const YouTubeMetadataDraft& draft, const std::string& instruction);

    Context context_;
    int sizeIndex_ = 1;
    QLabel* destination_ = nullptr;
    QPushButton* exportButton_ = nullptr;
    QPushButton* cancelButton_ = nullptr;
    QPushButton* revealButton_ = nullptr;
    QProgressBar* progress_ = nullptr;
    QLabel* result_ = nullptr;
    QLineEdit* youtubeTitle_ = nullptr;
    QPlainTextEdit* youtubeDescription_ = nullptr;
    QLineEdit* youtubeTags_ = nullptr;
    QLabel* chapters_ = nullptr;
    QPushButton* draftButton_ = nullptr;
    QLineEdit* revision_ = nullptr;
    QPushButton* reviseButton_ = nullptr;
    QLabel* draftStatus_ = nullptr;
    QLabel* account_ = nullptr;
    QPushButton* connectButton_ = nullptr;
    QLabel* watchLink_ = nullptr;
    std::vector<Subscription> accountSubscriptions_;
    bool drafting_ = false;
    std::jthread draftRun_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    Subscription exporting_;
    Subscription progressSubscription_;
    Subscription status_;
};

} // namespace orvelle
