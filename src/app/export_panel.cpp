#include "app/export_panel.h"

#include "app/icons.h"
#include "app/theme.h"
#include "core/xdg_paths.h"

#include <QComboBox>
#include <QDesktopServices>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QStandardPaths>
#include <QUrl>
#include <array>

namespace orvelle {

namespace fs = std::filesystem;

namespace {

constexpr std::array<ExportSize, 4> kSizes{{
    {"1280 × 720", 1280, 720},
    {"1920 × 1080", 1920, 1080},
    {"2560 × 1440", 2560, 1440},
    {"3840 × 2160", 3840, 2160},
}};

const QStringList kFormats{QStringLiteral("MP4"), QStringLiteral("MOV")};
const std::array<std::string, 2> kFormatNames{"mp4", "mov"};
const QStringList kQualities{QStringLiteral("Standard"), QStringLiteral("High"),
                             QStringLiteral("Best")};
const std::array<std::string, 3> kQualityNames{"standard", "high", "best"};
const QStringList kLocations{QStringLiteral("Desktop"), QStringLiteral("Videos"),
                             QStringLiteral("Choose…")};
const std::array<std::string, 3> kLocationNames{"desktop", "movies", "choose"};

template <size_t N>
int indexOf(const std::array<std::string, N>& names, const std::string& name, int fallback) {
    for (size_t i = 0; i < N; ++i) {
        if (names[i] == name) {
            return static_cast<int>(i);
        }
    }
    return fallback;
}

ProjectExportSettings settingsOf(const EditorProjectState& project) {
    return project.exportSettings.value_or(ProjectExportSettings{});
}

QString qString(const fs::path& path) {
    return QString::fromStdString(path.string());
}

} // namespace

std::span<const ExportSize> exportSizes() {
    return kSizes;
}

ExportPanel::ExportPanel(Context context, QWidget* parent)
    : InspectorPanel(*context.store, QStringLiteral("Export"), parent),
      context_(std::move(context)) {
    const auto choice = [](auto field, const auto& names, int fallback) {
        return [field, &names, fallback](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<int>(indexOf(names, settingsOf(p).*field, fallback));
        };
    };
    const auto write = [](auto field, const auto& names) {
        return [field, &names](EditorProjectState& p, EditorSelectionState&, int index) {
            ProjectExportSettings settings = settingsOf(p);
            settings.*field = names[static_cast<size_t>(index)];
            p.exportSettings = settings;
        };
    };

    addSection(QStringLiteral("Movie"));
    addSegments(QStringLiteral("Format"), kFormats, "Change Export Format",
                choice(&ProjectExportSettings::format, kFormatNames, 0),
                write(&ProjectExportSettings::format, kFormatNames));
    addSegments(QStringLiteral("Quality"), kQualities, "Change Export Quality",
                choice(&ProjectExportSettings::quality, kQualityNames, 1),
                write(&ProjectExportSettings::quality, kQualityNames));
    addNote(QStringLiteral("MP4 is H.264 with AAC sound, for sharing; MOV is ProRes 422 Proxy, "
                           "for editing further. Quality sets the size of an MP4."));
    addChoice(
        QStringLiteral("Aspect ratio"),
        {QStringLiteral("Automatic"), QStringLiteral("Wide 16:9"), QStringLiteral("Square 1:1"),
         QStringLiteral("Classic 4:3"), QStringLiteral("Vertical 9:16"), QStringLiteral("Tall 3:4"),
         QStringLiteral("Portrait 4:5")},
        "Change Aspect Ratio",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<int>(static_cast<int>(p.screen.aspectRatio));
        },
        [](EditorProjectState& p, EditorSelectionState&, int index) {
            p.screen.aspectRatio = static_cast<AspectRatio>(index);
        });
    QStringList sizeNames;
    for (const ExportSize& size : kSizes) {
        sizeNames << QString::fromUtf8(size.name);
    }
    auto* size = new QComboBox(this);
    size->addItems(sizeNames);
    size->setCurrentIndex(sizeIndex_);
    size->setAccessibleName(QStringLiteral("Size"));
    QObject::connect(size, &QComboBox::currentIndexChanged, this,
                     [this](int index) { sizeIndex_ = index; });
    addRow(QStringLiteral("Size"), size);

    addSection(QStringLiteral("Save to"));
    addSegments(QStringLiteral("Location"), kLocations, "Change Export Location",
                choice(&ProjectExportSettings::location, kLocationNames, 0),
                write(&ProjectExportSettings::location, kLocationNames));
    destination_ = addNote(QString());
    destination_->setWordWrap(true);
    addRefresher([this] {
        const bool choose = settingsOf(store().project()).location == "choose";
        destination_->setText(choose
                                  ? QStringLiteral("You choose the file when you export.")
                                  : QStringLiteral("Saved as %1").arg(qString(plannedOutputURL())));
    });

    buildPublishing();

    auto* buttons = new QWidget(this);
    auto* row = new QHBoxLayout(buttons);
    row->setContentsMargins(0, Theme::kSpacing, 0, 0);
    row->setSpacing(Theme::kSpacing);
    exportButton_ = new QPushButton(icon(IconName::exportMovie, Qt::white),
                                    QStringLiteral("Export Movie"), buttons);
    exportButton_->setProperty("primary", true);
    exportButton_->setDefault(true);
    exportButton_->setAutoDefault(true);
    cancelButton_ = new QPushButton(QStringLiteral("Cancel"), buttons);
    row->addWidget(exportButton_, 1);
    row->addWidget(cancelButton_);
    addWidget(buttons);
    progress_ = new QProgressBar(this);
    progress_->setRange(0, 1000);
    progress_->setTextVisible(false);
    progress_->setFixedHeight(6);
    addWidget(progress_);
    result_ = addNote(QString());
    result_->setWordWrap(true);
    revealButton_ = new QPushButton(QStringLiteral("Show in Folder"), this);
    addWidget(revealButton_);
    watchLink_ = addNote(QString());
    watchLink_->setOpenExternalLinks(true);
    watchLink_->setTextFormat(Qt::RichText);
    addStretch();

    QObject::connect(exportButton_, &QPushButton::clicked, this, [this] { startExport(); });
    QObject::connect(cancelButton_, &QPushButton::clicked, this, [this] {
        const auto answer = QMessageBox::question(
            this, QStringLiteral("Cancel the export?"),
            QStringLiteral("This will cancel the current export or upload and delete any "
                           "temporary rendered file."),
            QMessageBox::Yes | QMessageBox::No, QMessageBox::No);
        if (answer == QMessageBox::Yes) {
            context_.controller->cancel();
        }
    });
    QObject::connect(revealButton_, &QPushButton::clicked, this, [this] {
        if (const auto& url = context_.controller->renderedURL().value()) {
            QDesktopServices::openUrl(QUrl::fromLocalFile(qString(url->parent_path())));
        }
    });
    ExportController& controller = *context_.controller;
    exporting_ = controller.isExporting().observe([this](const bool&) { refreshRun(); });
    progressSubscription_ = controller.progress().observe([this](const double&) { refreshRun(); });
    status_ = controller.statusText().observe(
        [this](const std::optional<std::string>&) { refreshRun(); });
    accountSubscriptions_.push_back(controller.youTubeURL().observe(
        [this](const std::optional<std::string>&) { refreshRun(); }));
    refreshRun();
}

fs::path ExportPanel::locationFolder() const {
    const std::string location = settingsOf(context_.store->project()).location;
    const auto kind =
        location == "movies" ? QStandardPaths::MoviesLocation : QStandardPaths::DesktopLocation;
    QString folder = QStandardPaths::writableLocation(kind);
    if (folder.isEmpty()) {
        folder = QStandardPaths::writableLocation(QStandardPaths::HomeLocation);
    }
    return fs::path(folder.toStdString());
}

fs::path ExportPanel::plannedOutputURL() const {
    const ProjectExportSettings settings = settingsOf(context_.store->project());
    const std::string extension = settings.format == "mov" ? ".mov" : ".mp4";
    const std::string name = context_.movieName ? context_.movieName() : std::string("Orvelle");
    const fs::path folder = locationFolder();
    fs::path candidate = folder / (name + extension);
    std::error_code error;
    for (int number = 2; fs::exists(candidate, error) && number < 1000; ++number) {
        candidate = folder / (name + " " + std::to_string(number)).append(extension);
    }
    return candidate;
}

bool ExportPanel::startExport() {
    ExportController& controller = *context_.controller;
    if (controller.isExporting().value()) {
        return false;
    }
    const ProjectExportSettings settings = settingsOf(context_.store->project());
    const auto fileType =
        settings.format == "mov" ? RenderExportFileType::mov : RenderExportFileType::mp4;
    const auto quality = settings.quality == "standard" ? RenderExportQuality::standard
                         : settings.quality == "best"   ? RenderExportQuality::best
                                                        : RenderExportQuality::high;
    const ExportSize& size = kSizes[static_cast<size_t>(sizeIndex_)];
    const bool uploads = settings.uploadToYouTube;
    if (uploads && (context_.googleAccount == nullptr || !context_.googleAccount->isConnected())) {
        result_->setText(QStringLiteral("Connect a Google account before uploading to YouTube."));
        result_->setVisible(true);
        return false;
    }
    // An upload without a copy on this computer renders into a file of the controller's own.
    const bool temporary = uploads && !settings.saveLocalCopy;
    fs::path output;
    if (temporary) {
        std::error_code error;
        const fs::path folder = cachesDirectory() / "Exports";
        fs::create_directories(folder, error);
        output = folder / ((context_.movieName ? context_.movieName() : std::string("Orvelle")) +
                           (settings.format == "mov" ? ".mov" : ".mp4"));
    } else if (settings.location == "choose") {
        const QString chosen = QFileDialog::getSaveFileName(
            this, QStringLiteral("Export Movie"),
            qString(locationFolder() / ((context_.movieName ? context_.movieName() : "Orvelle") +
                                        (settings.format == "mov" ? ".mov" : ".mp4"))),
            settings.format == "mov" ? QStringLiteral("QuickTime movie (*.mov)")
                                     : QStringLiteral("MPEG-4 movie (*.mp4)"));
        if (chosen.isEmpty()) {
            return false;
        }
        output = fs::path(chosen.toStdString());
    } else {
        std::error_code error;
        fs::create_directories(locationFolder(), error);
        output = plannedOutputURL();
    }
    // The chosen name takes the format's extension.
    output.replace_extension(settings.format == "mov" ? ".mov" : ".mp4");
    std::optional<YouTubeUploadRequest> upload;
    if (uploads) {
        upload = uploadRequest(settings, output);
    }
    if (!controller.start(output, size.width, size.height, fileType, quality, temporary, upload)) {
        if (context_.showStatus) {
            context_.showStatus(QStringLiteral("Nothing to export until the recording has loaded"));
        }
        return false;
    }
    return true;
}

QString ExportPanel::resultText() const {
    return result_->text();
}

void ExportPanel::refreshRun() {
    const ExportController& controller = *context_.controller;
    const bool running = controller.isExporting().value();
    exportButton_->setEnabled(!running);
    cancelButton_->setVisible(running);
    progress_->setVisible(running || controller.progress().value() >= 1.0);
    progress_->setValue(static_cast<int>(controller.progress().value() * 1000));
    const auto& status = controller.statusText().value();
    result_->setText(status ? QString::fromStdString(*status) : QString());
    result_->setVisible(status.has_value());
    revealButton_->setVisible(!running && controller.renderedURL().value().has_value() &&
                              !controller.renderedFileIsTemporary().value());
    const auto& watch = controller.youTubeURL().value();
    watchLink_->setText(watch ? QStringLiteral("<a href=\"%1\">Watch on YouTube</a>")
                                    .arg(QString::fromStdString(*watch).toHtmlEscaped())
                              : QString());
    watchLink_->setVisible(watch.has_value() && !running);
    exportButton_->setText(settingsOf(context_.store->project()).uploadToYouTube
                               ? QStringLiteral("Export and Upload")
                               : QStringLiteral("Export Movie"));
    refresh();
}

} // namespace orvelle
