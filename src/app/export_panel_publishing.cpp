// The export page's YouTube part: the upload's choices and the metadata, drafted by the
// local language model in a helper process from the edited transcript.

#include "app/export_panel.h"
#include "app/main_thread_executor.h"
#include "app/theme.h"
#include "core/error.h"
#include "local_ai/export_transcript_context.h"
#include "local_ai/llama_cpp_youtube_metadata_generator.h"
#include "local_ai/youtube_metadata_draft.h"
#include "transcript_edit/editor_transcript_store.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <array>

namespace orvelle {

namespace {

const std::array<std::string, 3> kPrivacyNames{"privateVideo", "unlisted", "publicVideo"};
const std::array<std::string, 2> kAudienceNames{"notMadeForKids", "madeForKids"};
const std::array<std::string, 4> kCategoryNames{"education", "scienceAndTechnology", "howTo",
                                                "entertainment"};
const std::array<std::string, 3> kLanguageNames{"english", "spanish", "none"};
const std::array<std::string, 2> kLicenseNames{"standard", "creativeCommons"};

template <size_t N>
int nameIndex(const std::array<std::string, N>& names, const std::string& name) {
    for (size_t i = 0; i < N; ++i) {
        if (names[i] == name) {
            return static_cast<int>(i);
        }
    }
    return 0;
}

ProjectExportSettings exportSettings(const EditorProjectState& project) {
    return project.exportSettings.value_or(ProjectExportSettings{});
}

QString chapterTime(double seconds) {
    const int whole = std::max(0, static_cast<int>(seconds));
    if (whole >= 3600) {
        return QStringLiteral("%1:%2:%3")
            .arg(whole / 3600)
            .arg((whole / 60) % 60, 2, 10, QLatin1Char('0'))
            .arg(whole % 60, 2, 10, QLatin1Char('0'));
    }
    return QStringLiteral("%1:%2").arg(whole / 60).arg(whole % 60, 2, 10, QLatin1Char('0'));
}

std::vector<std::string> splitTags(const std::string& text) {
    std::vector<std::string> tags;
    std::string current;
    const auto flush = [&] {
        const auto first = current.find_first_not_of(' ');
        const auto last = current.find_last_not_of(' ');
        if (first != std::string::npos) {
            tags.push_back(current.substr(first, last - first + 1));
        }
        current.clear();
    };
    for (const char c : text) {
        if (c == ',') {
            flush();
        } else {
            current += c;
        }
    }
    flush();
    return tags;
}

} // namespace

void ExportPanel::buildPublishing() {
    addSection(QStringLiteral("YouTube"));
    // The account, then whether the export goes up.
    auto* accountRow = new QWidget(this);
    auto* accountLayout = new QHBoxLayout(accountRow);
    accountLayout->setContentsMargins(0, 0, 0, 0);
    accountLayout->setSpacing(Theme::kSpacing);
    account_ = new QLabel(accountRow);
    account_->setWordWrap(true);
    accountLayout->addWidget(account_, 1);
    connectButton_ = new QPushButton(accountRow);
    accountLayout->addWidget(connectButton_);
    addWidget(accountRow);
    QObject::connect(connectButton_, &QPushButton::clicked, this, [this] {
        GoogleOAuthController* google = context_.googleAccount;
        if (google == nullptr) {
            return;
        }
        if (google->account().value()) {
            try {
                google->disconnect();
            } catch (const std::exception& error) {
                account_->setText(QString::fromUtf8(error.what()));
            }
        } else if (!google->isConnectionRunning()) {
            google->connect();
        }
        refreshAccount();
    });
    if (GoogleOAuthController* google = context_.googleAccount) {
        google->loadStoredCredentialIfNeeded();
        const auto refreshAccountLater = [this](const auto&) { refreshAccount(); };
        accountSubscriptions_.push_back(google->account().observe(refreshAccountLater));
        accountSubscriptions_.push_back(google->isConnecting().observe(refreshAccountLater));
        accountSubscriptions_.push_back(google->errorMessage().observe(refreshAccountLater));
    }
    refreshAccount();
    addToggle(
        QStringLiteral("Upload to YouTube"), "Change YouTube Upload",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<bool>(exportSettings(p).uploadToYouTube);
        },
        [](EditorProjectState& p, EditorSelectionState&, bool on) {
            ProjectExportSettings settings = exportSettings(p);
            settings.uploadToYouTube = on;
            p.exportSettings = settings;
        });
    addToggle(
        QStringLiteral("Keep a copy here"), "Change Local Copy",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<bool>(exportSettings(p).saveLocalCopy);
        },
        [](EditorProjectState& p, EditorSelectionState&, bool on) {
            ProjectExportSettings settings = exportSettings(p);
            settings.saveLocalCopy = on;
            p.exportSettings = settings;
        });
    const auto choice = [](auto field, const auto& names) {
        return [field, &names](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<int>(nameIndex(names, exportSettings(p).*field));
        };
    };
    const auto write = [](auto field, const auto& names) {
        return [field, &names](EditorProjectState& p, EditorSelectionState&, int index) {
            ProjectExportSettings settings = exportSettings(p);
            settings.*field = names[static_cast<size_t>(index)];
            p.exportSettings = settings;
        };
    };

    // The metadata: typed, or drafted from what the edit keeps of the transcript.
    youtubeTitle_ = new QLineEdit(this);
    youtubeTitle_->setAccessibleName(QStringLiteral("YouTube title"));
    youtubeTitle_->setMaxLength(100);
    addRow(QStringLiteral("Title"), youtubeTitle_);
    youtubeDescription_ = new QPlainTextEdit(this);
    youtubeDescription_->setAccessibleName(QStringLiteral("YouTube description"));
    youtubeDescription_->setFixedHeight(96);
    addRow(QStringLiteral("Description"), youtubeDescription_);
    youtubeTags_ = new QLineEdit(this);
    youtubeTags_->setAccessibleName(QStringLiteral("YouTube tags"));
    youtubeTags_->setPlaceholderText(QStringLiteral("tutorial, screencast"));
    addRow(QStringLiteral("Tags"), youtubeTags_);
    chapters_ = addNote(QString());
    chapters_->setWordWrap(true);
    chapters_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    const auto writeText = [this](const char* undo, auto field, const std::string& value) {
        if (exportSettings(store().project()).*field == value) {
            return;
        }
        store().edit(undo, [field, value](EditorProjectState& p, EditorSelectionState&) {
            ProjectExportSettings settings = exportSettings(p);
            settings.*field = value;
            p.exportSettings = settings;
        });
    };
    QObject::connect(youtubeTitle_, &QLineEdit::editingFinished, this, [this, writeText] {
        writeText("Change YouTube Title", &ProjectExportSettings::youtubeTitle,
                  youtubeTitle_->text().toStdString());
    });
    QObject::connect(youtubeTags_, &QLineEdit::editingFinished, this, [this, writeText] {
        writeText("Change YouTube Tags", &ProjectExportSettings::tags,
                  youtubeTags_->text().toStdString());
    });
    QObject::connect(youtubeDescription_, &QPlainTextEdit::textChanged, this, [this, writeText] {
        if (!youtubeDescription_->hasFocus()) {
            return; // set by a refresh, not typed
        }
        writeText("Change YouTube Description", &ProjectExportSettings::youtubeDescription,
                  youtubeDescription_->toPlainText().toStdString());
    });

    auto* draftRow = new QWidget(this);
    auto* draftLayout = new QHBoxLayout(draftRow);
    draftLayout->setContentsMargins(0, 0, 0, 0);
    draftLayout->setSpacing(Theme::kSpacing);
    draftButton_ = new QPushButton(QStringLiteral("Draft from Transcript"), draftRow);
    draftButton_->setToolTip(QStringLiteral(
        "The local language model writes a title, description, chapters and tags from what "
        "the edit keeps of the transcript"));
    draftLayout->addWidget(draftButton_);
    draftLayout->addStretch();
    addWidget(draftRow);
    auto* reviseRow = new QWidget(this);
    auto* reviseLayout = new QHBoxLayout(reviseRow);
    reviseLayout->setContentsMargins(0, 0, 0, 0);
    reviseLayout->setSpacing(Theme::kSpacing);
    revision_ = new QLineEdit(reviseRow);
    revision_->setPlaceholderText(QStringLiteral("Ask for a change: “shorter title”"));
    revision_->setAccessibleName(QStringLiteral("Revision request"));
    reviseLayout->addWidget(revision_, 1);
    reviseButton_ = new QPushButton(QStringLiteral("Revise"), reviseRow);
    reviseLayout->addWidget(reviseButton_);
    addWidget(reviseRow);
    draftStatus_ = addNote(QString());
    draftStatus_->setWordWrap(true);
    QObject::connect(draftButton_, &QPushButton::clicked, this, [this] { requestDraft(); });
    const auto revise = [this] {
        const std::string instruction = revision_->text().trimmed().toStdString();
        if (!instruction.empty()) {
            requestDraft(instruction);
        }
    };
    QObject::connect(reviseButton_, &QPushButton::clicked, this, revise);
    QObject::connect(revision_, &QLineEdit::returnPressed, this, revise);

    addChoice(QStringLiteral("Privacy"),
              {QStringLiteral("Private"), QStringLiteral("Unlisted"), QStringLiteral("Public")},
              "Change YouTube Privacy", choice(&ProjectExportSettings::privacy, kPrivacyNames),
              write(&ProjectExportSettings::privacy, kPrivacyNames));
    addChoice(QStringLiteral("Audience"),
              {QStringLiteral("Not made for kids"), QStringLiteral("Made for kids")},
              "Change YouTube Audience", choice(&ProjectExportSettings::audience, kAudienceNames),
              write(&ProjectExportSettings::audience, kAudienceNames));
    addChoice(QStringLiteral("Category"),
              {QStringLiteral("Education"), QStringLiteral("Science & Technology"),
               QStringLiteral("Howto & Style"), QStringLiteral("Entertainment")},
              "Change YouTube Category", choice(&ProjectExportSettings::category, kCategoryNames),
              write(&ProjectExportSettings::category, kCategoryNames));
    addChoice(QStringLiteral("Language"),
              {QStringLiteral("English"), QStringLiteral("Spanish"), QStringLiteral("Not set")},
              "Change YouTube Language", choice(&ProjectExportSettings::language, kLanguageNames),
              write(&ProjectExportSettings::language, kLanguageNames));
    addChoice(QStringLiteral("Licence"),
              {QStringLiteral("Standard YouTube Licence"), QStringLiteral("Creative Commons")},
              "Change YouTube Licence", choice(&ProjectExportSettings::license, kLicenseNames),
              write(&ProjectExportSettings::license, kLicenseNames));

    addRefresher([this] {
        const ProjectExportSettings settings = exportSettings(store().project());
        if (!youtubeTitle_->hasFocus()) {
            youtubeTitle_->setText(QString::fromStdString(settings.youtubeTitle));
            youtubeTitle_->setCursorPosition(0); // the start of the title shows
        }
        if (!youtubeDescription_->hasFocus() &&
            youtubeDescription_->toPlainText().toStdString() != settings.youtubeDescription) {
            youtubeDescription_->setPlainText(QString::fromStdString(settings.youtubeDescription));
        }
        if (!youtubeTags_->hasFocus()) {
            youtubeTags_->setText(QString::fromStdString(settings.tags));
            youtubeTags_->setCursorPosition(0);
        }
        const QStringList lines = chapterLines();
        chapters_->setText(lines.isEmpty()
                               ? QStringLiteral("No chapters yet.")
                               : QStringLiteral("Chapters\n") + lines.join(QLatin1Char('\n')));
        draftButton_->setEnabled(!drafting_);
        reviseButton_->setEnabled(!drafting_);
        revision_->setEnabled(!drafting_);
    });
}

void ExportPanel::showPublishing() {
    widget()->adjustSize();
    ensureVisible(0, account_->parentWidget()->mapTo(widget(), QPoint(0, 0)).y() + height() - 60, 0,
                  0);
}

void ExportPanel::refreshAccount() {
    GoogleOAuthController* google = context_.googleAccount;
    if (google == nullptr) {
        account_->setText(QStringLiteral("Uploading needs Orvelle's Google sign-in, which is not "
                                         "set up on this computer."));
        connectButton_->setVisible(false);
        return;
    }
    connectButton_->setVisible(true);
    account_->setText(accountText());
    if (google->isConnecting().value()) {
        connectButton_->setText(QStringLiteral("Connecting…"));
        connectButton_->setEnabled(false);
    } else {
        connectButton_->setText(google->account().value() ? QStringLiteral("Disconnect")
                                                          : QStringLiteral("Connect…"));
        connectButton_->setEnabled(true);
    }
}

QString ExportPanel::accountText() const {
    GoogleOAuthController* google = context_.googleAccount;
    if (google == nullptr) {
        return QStringLiteral("No Google account");
    }
    if (google->isConnecting().value()) {
        return QStringLiteral("Finish signing in to Google in your browser.");
    }
    if (const auto& account = google->account().value()) {
        return QStringLiteral("Connected as %1")
            .arg(QString::fromStdString(account->displayName()));
    }
    if (const auto& error = google->errorMessage().value()) {
        return QString::fromStdString(*error);
    }
    return QStringLiteral("No Google account connected");
}

YouTubeUploadRequest ExportPanel::uploadRequest(const ProjectExportSettings& settings,
                                                const std::filesystem::path& file) {
    YouTubeUploadRequest request;
    request.fileURL = file;
    request.title = settings.youtubeTitle;
    // The chapters go into the description as YouTube reads them.
    request.description = YouTubeMetadataDraftValidator::composedDescription(
        {settings.youtubeTitle, settings.youtubeDescription, settings.youtubeChapters, {}});
    request.privacyStatus =
        settings.privacy == "publicVideo" ? YouTubeUploadPrivacyStatus::publicVideo
        : settings.privacy == "unlisted"  ? YouTubeUploadPrivacyStatus::unlisted
                                          : YouTubeUploadPrivacyStatus::privateVideo;
    request.madeForKids = settings.audience == "madeForKids";
    request.tags = splitTags(settings.tags);
    // YouTube's numbers for the categories offered.
    if (settings.category == "education") {
        request.categoryID = "27";
    } else if (settings.category == "scienceAndTechnology") {
        request.categoryID = "28";
    } else if (settings.category == "howTo") {
        request.categoryID = "26";
    } else if (settings.category == "entertainment") {
        request.categoryID = "24";
    }
    if (settings.language == "english") {
        request.defaultLanguage = "en";
    } else if (settings.language == "spanish") {
        request.defaultLanguage = "es";
    }
    request.license = settings.license == "creativeCommons" ? YouTubeUploadLicense::creativeCommon
                                                            : YouTubeUploadLicense::youtube;
    request.hasPaidProductPlacement = settings.paidPromotion;
    request.containsSyntheticMedia = settings.containsSyntheticMedia;
    return request;
}

QStringList ExportPanel::chapterLines() const {
    QStringList lines;
    for (const auto& chapter : exportSettings(context_.store->project()).youtubeChapters) {
        lines << chapterTime(chapter.time) + QStringLiteral("  ") +
                     QString::fromStdString(chapter.title);
    }
    return lines;
}

QString ExportPanel::draftStatusText() const {
    return draftStatus_->text();
}

void ExportPanel::requestDraft(const std::string& instruction) {
    if (drafting_ || !context_.document) {
        return;
    }
    const auto transcript = EditorTranscriptStore::load(context_.document());
    if (!transcript) {
        draftStatus_->setText(
            QString::fromUtf8(YouTubeMetadataGenerationError(
                                  YouTubeMetadataGenerationErrorCode::missingTranscript)
                                  .what()) +
            QStringLiteral(" The transcript is made after a recording once the speech models "
                           "are installed (Settings)."));
        return;
    }
    const ProjectExportSettings settings = exportSettings(store().project());
    YouTubeMetadataGenerationRequest request;
    request.context = ExportTranscriptContextBuilder::make(transcript->analysis, store().project());
    request.instruction = instruction;
    request.conversation = settings.metadataConversation;
    if (!instruction.empty()) {
        request.currentDraft =
            YouTubeMetadataDraft{settings.youtubeTitle, settings.youtubeDescription,
                                 settings.youtubeChapters, splitTags(settings.tags)};
    }
    drafting_ = true;
    draftStatus_->setText(QStringLiteral("Starting the language model…"));
    refresh();
    std::weak_ptr<bool> alive = alive_;
    LlamaCPPYouTubeMetadataGenerator::Configuration configuration;
    configuration.executableURL = context_.languageModelHelper;
    draftRun_ = std::jthread(
        [this, alive, request, instruction, configuration](const std::stop_token& stop) {
            const auto post = [alive](std::function<void()> change) {
                mainExecutor().post([alive, change = std::move(change)] {
                    if (const auto living = alive.lock(); living && *living) {
                        change();
                    }
                });
            };
            try {
                LlamaCPPYouTubeMetadataGenerator generator(configuration);
                const YouTubeMetadataDraft draft = generator.generate(
                    request,
                    [this, post](const std::string& message) {
                        post([this, message] {
                            draftStatus_->setText(QString::fromStdString(message) +
                                                  QStringLiteral("…"));
                        });
                    },
                    stop);
                post([this, draft, instruction] { draftFinished(draft, instruction); });
            } catch (const CancellationError&) {
                // The window is closing.
            } catch (const std::exception& error) {
                const std::string text = error.what();
                post([this, text] {
                    drafting_ = false;
                    draftStatus_->setText(QString::fromStdString(text));
                    refresh();
                });
            }
        });
}

void ExportPanel::draftFinished(const YouTubeMetadataDraft& draft, const std::string& instruction) {
    drafting_ = false;
    store().edit(instruction.empty() ? "Draft YouTube Metadata" : "Revise YouTube Metadata",
                 [&](EditorProjectState& p, EditorSelectionState&) {
                     ProjectExportSettings settings = exportSettings(p);
                     settings.youtubeTitle = draft.title;
                     settings.youtubeDescription = draft.description;
                     settings.youtubeChapters = draft.chapters;
                     std::string tags;
                     for (const auto& tag : draft.tags) {
                         tags += (tags.empty() ? "" : ", ") + tag;
                     }
                     settings.tags = tags;
                     if (!instruction.empty()) {
                         settings.metadataConversation.push_back(
                             {YouTubeMetadataConversationTurn::Role::user, instruction});
                         settings.metadataConversation.push_back(
                             {YouTubeMetadataConversationTurn::Role::assistant, draft.title});
                     }
                     p.exportSettings = settings;
                 });
    revision_->clear();
    draftStatus_->setText(
        QStringLiteral("Drafted by the local model: %1 chapters.").arg(draft.chapters.size()));
    refresh();
}

} // namespace orvelle
