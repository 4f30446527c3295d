#pragma once

// The window the application opens with when no document is named: New Recording…, the
// recent documents, Open…, and a place to drop a take, a project or a movie. Main thread only.

#include <QWidget>
#include <filesystem>
#include <functional>
#include <vector>

class QLabel;
class QListWidget;
class QMimeData;
class QPushButton;

namespace orvelle {

class StartWindow : public QWidget {
public:
    struct Actions {
        std::function<void(const std::filesystem::path&)> open;
        std::function<void()> showOpenDialog;
        std::function<void(const std::filesystem::path&)> removeRecent;
        std::function<void()> closed;       // the user closed the window
        std::function<void()> newRecording; // absent: no recorder here
    };

    explicit StartWindow(Actions actions, QWidget* parent = nullptr);

    void setRecentDocuments(const std::vector<std::filesystem::path>& paths);
    // While a document opens: the window says so and takes no second one.
    void setOpening(const std::filesystem::path* path);
    QListWidget& recentList() { return *recentList_; }
    bool isDropHighlighted() const { return dropHighlighted_; }

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void setDropHighlighted(bool highlighted);

    Actions actions_;
    QListWidget* recentList_ = nullptr;
    QLabel* emptyLabel_ = nullptr;
    QWidget* dropZone_ = nullptr;
    QLabel* dropLabel_ = nullptr;
    QPushButton* openButton_ = nullptr;
    QPushButton* recordButton_ = nullptr;
    bool dropHighlighted_ = false;
    bool opening_ = false;
};

// The local files named by a drag's data, in order.
std::vector<std::filesystem::path> droppedFiles(const QMimeData& data);

} // namespace orvelle
