#include "app/settings_window.h"

#include "app/icons.h"
#include "app/theme.h"
#include "core/xdg_paths.h"
#include "local_ai/local_models.h"
#include "recording/recording_scratch_store.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QGridLayout>
#include <QInputDialog>
#include <QKeySequenceEdit>
#include <QLabel>
#include <QMenu>
#include <QPointer>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

namespace orvelle {

namespace fs = std::filesystem;

namespace {

QString qString(const std::string& text) {
    return QString::fromStdString(text);
}

QString byteSize(std::uint64_t bytes) {
    const double mb = double(bytes) / (1024.0 * 1024.0);
    if (mb >= 1024) {
        return QStringLiteral("%1 GB").arg(mb / 1024.0, 0, 'f', 1);
    }
    return QStringLiteral("%1 MB").arg(mb, 0, 'f', mb < 10 ? 1 : 0);
}

QLabel* heading(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setFont(Theme::interfaceFont(8.5, 600));
    label->setProperty("role", "secondary");
    return label;
}

QString homeRelative(const fs::path& path) {
    return QString::fromStdString(path.string()).replace(QDir::homePath(), QStringLiteral("~"));
}

} // namespace

SettingsWindow::SettingsWindow(RecorderSession& session, RecordingShortcuts* shortcuts,
                               QWidget* parent)
    : QWidget(parent, Qt::Window), session_(session), shortcuts_(shortcuts) {
    setWindowTitle(QStringLiteral("Settings — Orvelle"));
    setObjectName(QStringLiteral("SettingsWindow"));
    setWindowIcon(applicationIcon());
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 20, 24, 24);
    layout->setSpacing(10);

    auto* title = new QLabel(QStringLiteral("Settings"), this);
    title->setFont(Theme::interfaceFont(15, 650));
    layout->addWidget(title);

    // Devices.
    layout->addWidget(heading(QStringLiteral("RECORDING DEVICES"), this));
    auto* devices = new QGridLayout;
    devices->setHorizontalSpacing(12);
    devices->setVerticalSpacing(8);
    devices->addWidget(new QLabel(QStringLiteral("Camera"), this), 0, 0);
    camera_ = new QComboBox(this);
    devices->addWidget(camera_, 0, 1);
    devices->addWidget(new QLabel(QStringLiteral("Microphone"), this), 1, 0);
    microphone_ = new QComboBox(this);
    devices->addWidget(microphone_, 1, 1);
    devices->setColumnStretch(1, 1);
    layout->addLayout(devices);
    systemAudio_ = new QCheckBox(QStringLiteral("Record what the computer plays"), this);
    layout->addWidget(systemAudio_);
    connect(camera_, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (!populating_ && index >= 0 && camera_->itemData(index).isValid()) {
            session_.selectCamera(camera_->itemData(index).toString().toStdString());
        }
    });
    connect(microphone_, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (!populating_ && index >= 0 && microphone_->itemData(index).isValid()) {
            session_.selectMicrophone(microphone_->itemData(index).toString().toStdString());
        }
    });
    connect(systemAudio_, &QCheckBox::toggled, this, [this](bool on) {
        if (!populating_) {
            session_.setSystemAudioEnabled(on);
        }
    });
    subscriptions_.push_back(
        session_.camera().devices.observe([this](const auto&) { refreshDevices(); }));
    subscriptions_.push_back(
        session_.microphone().devices.observe([this](const auto&) { refreshDevices(); }));

    // Keys for the whole desktop.
    if (shortcuts_ != nullptr) {
        layout->addSpacing(8);
        layout->addWidget(heading(QStringLiteral("SHORTCUTS"), this));
        auto* keys = new QGridLayout;
        keys->setHorizontalSpacing(12);
        keys->setVerticalSpacing(8);
        const auto keyField = [this, keys](int at, const QString& label, RecordingShortcut action) {
            keys->addWidget(new QLabel(label, this), at, 0);
            auto* field = new QKeySequenceEdit(this);
            field->setClearButtonEnabled(true);
            keys->addWidget(field, at, 1);
            connect(field, &QKeySequenceEdit::editingFinished, this, [this, field, action] {
                if (populating_) {
                    return;
                }
                // One chord: a sequence of several would need the keyboard between them.
                const QKeySequence typed = field->keySequence();
                shortcuts_->setKeys(action, typed.isEmpty() ? QString()
                                                            : QKeySequence(typed[0]).toString(
                                                                  QKeySequence::PortableText));
                refreshShortcuts();
            });
            connect(field, &QKeySequenceEdit::keySequenceChanged, this,
                    [this, action](const QKeySequence& typed) {
                        // The clear button: no keys for this action.
                        if (!populating_ && typed.isEmpty() &&
                            !shortcuts_->keys(action).isEmpty()) {
                            shortcuts_->setKeys(action, {});
                            refreshShortcuts();
                        }
                    });
            return field;
        };
        startStopKeys_ =
            keyField(0, QStringLiteral("Start and stop recording"), RecordingShortcut::startStop);
        pauseResumeKeys_ =
            keyField(1, QStringLiteral("Pause and resume"), RecordingShortcut::pauseResume);
        keys->setColumnStretch(1, 1);
        layout->addLayout(keys);
        shortcutNote_ = new QLabel(this);
        shortcutNote_->setProperty("role", "secondary");
        shortcutNote_->setWordWrap(true);
        layout->addWidget(shortcutNote_);
    }

    // Models.
    layout->addSpacing(8);
    layout->addWidget(heading(QStringLiteral("LOCAL MODELS"), this));
    auto* modelGrid = new QGridLayout;
    modelGrid->setHorizontalSpacing(12);
    modelGrid->setVerticalSpacing(10);
    int row = 0;
    for (const auto& model : LocalModelCatalog::all()) {
        auto* name = new QLabel(qString(model.name), this);
        name->setFont(Theme::interfaceFont(10, 600));
        name->setToolTip(qString(model.contents));
        modelGrid->addWidget(name, row, 0);
        auto* status = new QLabel(this);
        status->setProperty("role", "secondary");
        status->setWordWrap(true);
        modelGrid->addWidget(status, row, 1);
        auto* install = new QPushButton(QStringLiteral("Install…"), this);
        const std::string id = model.id;
        connect(install, &QPushButton::clicked, this, [this, id] { chooseSource(id); });
        modelGrid->addWidget(install, row, 2);
        models_.push_back({model.id, status, install});
        ++row;
    }
    modelGrid->setColumnStretch(1, 1);
    layout->addLayout(modelGrid);

    // Folders.
    layout->addSpacing(8);
    layout->addWidget(heading(QStringLiteral("DATA FOLDERS"), this));
    auto* folders = new QGridLayout;
    folders->setHorizontalSpacing(12);
    folders->setVerticalSpacing(8);
    const std::pair<QString, fs::path> kFolders[] = {
        {QStringLiteral("Recordings"), applicationSupportDirectory() / "Captures"},
        {QStringLiteral("Models"), LocalModelCatalog::all().front().folder.parent_path()},
        {QStringLiteral("Settings"), session_.settingsURL().parent_path()},
    };
    row = 0;
    for (const auto& [label, folder] : kFolders) {
        folders->addWidget(new QLabel(label, this), row, 0);
        auto* path = new QLabel(homeRelative(folder), this);
        path->setProperty("role", "secondary");
        path->setTextInteractionFlags(Qt::TextSelectableByMouse);
        folders->addWidget(path, row, 1);
        auto* open = new QPushButton(QStringLiteral("Open"), this);
        const fs::path target = folder;
        connect(open, &QPushButton::clicked, this, [target] {
            std::error_code error;
            fs::create_directories(target, error);
            QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(target.string())));
        });
        folders->addWidget(open, row, 2);
        ++row;
    }
    folders->setColumnStretch(1, 1);
    layout->addLayout(folders);
    layout->addStretch();

    refresh();
    resize(640, 520);
}

SettingsWindow::~SettingsWindow() {
    subscriptions_.clear();
}

void SettingsWindow::refresh() {
    refreshDevices();
    refreshShortcuts();
    refreshModels();
}

void SettingsWindow::refreshShortcuts() {
    if (shortcuts_ == nullptr) {
        return;
    }
    populating_ = true;
    const bool offered = shortcuts_->unavailableReason().isEmpty();
    QStringList problems;
    for (const auto& [field, action] :
         {std::pair{startStopKeys_, RecordingShortcut::startStop},
          std::pair{pauseResumeKeys_, RecordingShortcut::pauseResume}}) {
        field->setKeySequence(
            QKeySequence::fromString(shortcuts_->keys(action), QKeySequence::PortableText));
        field->setEnabled(offered);
        if (!shortcuts_->problem(action).isEmpty()) {
            problems.append(shortcuts_->problem(action));
        }
    }
    shortcutNote_->setText(!offered             ? shortcuts_->unavailableReason()
                           : problems.isEmpty() ? QStringLiteral("These keys work whichever "
                                                                 "program has the focus.")
                                                : problems.join(QLatin1Char('\n')));
    populating_ = false;
}

QKeySequenceEdit& SettingsWindow::shortcutField(RecordingShortcut action) {
    return action == RecordingShortcut::startStop ? *startStopKeys_ : *pauseResumeKeys_;
}

QString SettingsWindow::shortcutNote() const {
    return shortcutNote_ != nullptr ? shortcutNote_->text() : QString();
}

void SettingsWindow::refreshDevices() {
    populating_ = true;
    const auto fill = [](QComboBox* box, const std::vector<TrackDevice>& devices,
                         const std::optional<std::string>& selected, const QString& none) {
        box->clear();
        for (const auto& device : devices) {
            box->addItem(qString(device.name), qString(device.id));
            if (selected == device.id) {
                box->setCurrentIndex(box->count() - 1);
            }
        }
        if (devices.empty()) {
            box->addItem(none);
        }
        box->setEnabled(!devices.empty());
    };
    fill(camera_, session_.camera().devices.value(), session_.camera().selectedDeviceID.value(),
         QStringLiteral("No camera found"));
    fill(microphone_, session_.microphone().devices.value(),
         session_.microphone().selectedDeviceID.value(), QStringLiteral("No microphone found"));
    systemAudio_->setChecked(session_.recorder().systemAudioEnabled.value());
    populating_ = false;
}

void SettingsWindow::refreshModels() {
    for (ModelRow& row : models_) {
        if (installing_ && row.status->property("installing").toBool()) {
            continue;
        }
        const LocalModelDescription model = LocalModelCatalog::find(row.id);
        const LocalModelStatus status = LocalModelCatalog::status(model);
        row.status->setText(status.installed
                                ? QStringLiteral("Installed (%1)").arg(byteSize(status.size))
                                : qString(status.problem));
        row.install->setText(status.installed ? QStringLiteral("Replace…")
                                              : QStringLiteral("Install…"));
        row.install->setEnabled(!installing_);
    }
}

QString SettingsWindow::modelStatusText(const std::string& id) const {
    for (const ModelRow& row : models_) {
        if (row.id == id) {
            return row.status->text();
        }
    }
    return {};
}

void SettingsWindow::chooseSource(const std::string& id) {
    QMenu menu(this);
    QAction* file = menu.addAction(QStringLiteral("From a File…"));
    QAction* folder = menu.addAction(QStringLiteral("From a Folder…"));
    QAction* web = menu.addAction(QStringLiteral("From a Web Address…"));
    QAction* chosen = menu.exec(QCursor::pos());
    QString source;
    if (chosen == file) {
        source = QFileDialog::getOpenFileName(
            this, QStringLiteral("Install a Model"), QString(),
            QStringLiteral("Models (*.gguf *.tar *.tar.gz *.tgz *.tar.xz);;All files (*)"));
    } else if (chosen == folder) {
        source = QFileDialog::getExistingDirectory(this, QStringLiteral("Install a Model"));
    } else if (chosen == web) {
        source = QInputDialog::getText(this, QStringLiteral("Install a Model"),
                                       QStringLiteral("Address of the model file:"));
    }
    if (!source.isEmpty()) {
        installModel(id, source.toStdString());
    }
}

void SettingsWindow::installModel(const std::string& id, const std::string& source) {
    if (installing_) {
        return;
    }
    ModelRow* row = nullptr;
    for (ModelRow& candidate : models_) {
        if (candidate.id == id) {
            row = &candidate;
        }
    }
    if (row == nullptr) {
        return;
    }
    installing_ = true;
    row->status->setProperty("installing", true);
    row->status->setText(QStringLiteral("Installing…"));
    refreshModels();
    QLabel* status = row->status;
    QPointer<QLabel> guarded(status);
    const LocalModelDescription model = LocalModelCatalog::find(id);
    work_.run<LocalModelInstaller::Result>(
        [model, source, guarded] {
            LocalModelInstaller::Options options;
            options.stage = [guarded](const std::string& stage) {
                mainExecutor().post([guarded, stage] {
                    if (guarded) {
                        guarded->setText(QString::fromStdString(stage) + QStringLiteral("…"));
                    }
                });
            };
            return LocalModelInstaller::install(model, source, options);
        },
        [this, status](const LocalModelInstaller::Result&) {
            installing_ = false;
            status->setProperty("installing", false);
            refreshModels();
        },
        [this, status](const std::string& problem) {
            installing_ = false;
            status->setProperty("installing", false);
            refreshModels();
            status->setText(qString(problem));
        });
}

} // namespace orvelle
