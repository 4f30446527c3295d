#include "app/transcript_panel.h"

#include "app/icons.h"
#include "app/theme.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QStyle>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextCursor>
#include <QUrl>
#include <QVBoxLayout>
#include <cmath>

namespace orvelle {

namespace {

QString qString(const std::string& text) {
    return QString::fromStdString(text);
}

QTextCharFormat wordFormat(bool pause) {
    QTextCharFormat format;
    format.setForeground(pause ? Theme::tertiaryText() : Theme::text());
    format.setBackground(Qt::transparent);
    format.setFontWeight(QFont::Normal);
    format.setAnchor(false);
    format.setAnchorHref(QString());
    return format;
}

QTextCharFormat markerFormat(const Uuid& id) {
    QTextCharFormat format;
    format.setForeground(Theme::accent().lighter(140));
    format.setBackground(QColor(0x34, 0x30, 0x5a));
    format.setFontWeight(QFont::DemiBold);
    format.setAnchor(true);
    format.setAnchorHref(qString(transcriptCollapseLink(id)));
    format.setToolTip(QStringLiteral("Click to bring these words back"));
    return format;
}

QTextCharFormat playheadFormat() {
    QTextCharFormat format;
    format.setForeground(Qt::white);
    format.setBackground(Theme::accent());
    return format;
}

void applyFormat(QTextDocument* document, const TranscriptCharacterRange& range,
                 const QTextCharFormat& format) {
    QTextCursor cursor(document);
    cursor.setPosition(range.location);
    cursor.setPosition(range.location + range.length, QTextCursor::KeepAnchor);
    cursor.mergeCharFormat(format);
}

QString durationText(double seconds) {
    return QStringLiteral("%1 s").arg(seconds, 0, 'f', seconds < 10 ? 1 : 0);
}

} // namespace

TranscriptPanel::TranscriptPanel(EditorTranscriptController& controller, QWidget* parent)
    : QWidget(parent), controller_(controller) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(Theme::kPanelMargin, Theme::kPanelMargin, Theme::kPanelMargin,
                               Theme::kPanelMargin);
    layout->setSpacing(10);
    auto* heading = new QLabel(QStringLiteral("Transcript"), this);
    heading->setProperty("role", "title");
    layout->addWidget(heading);

    status_ = new QLabel(this);
    status_->setWordWrap(true);
    status_->setProperty("role", "secondary");
    layout->addWidget(status_);
    error_ = new QLabel(this);
    error_->setWordWrap(true);
    QPalette errorPalette = error_->palette();
    errorPalette.setColor(QPalette::WindowText, Theme::destructive());
    error_->setPalette(errorPalette);
    error_->setStyleSheet(QStringLiteral("color: %1;").arg(Theme::destructive().name()));
    layout->addWidget(error_);
    progress_ = new QProgressBar(this);
    progress_->setRange(0, 1000);
    progress_->setFixedHeight(6);
    progress_->setTextVisible(false);
    layout->addWidget(progress_);

    auto* actions = new QHBoxLayout;
    actions->setSpacing(Theme::kSpacing);
    transcribe_ = new QPushButton(QStringLiteral("Transcribe"), this);
    transcribe_->setProperty("primary", true);
    transcribe_->setToolTip(QStringLiteral("Recognise the speech of the microphone on this "
                                           "computer, to edit the video by its words"));
    connect(transcribe_, &QPushButton::clicked, this,
            [this] { controller_.startTranscription(controller_.hasTranscript().value()); });
    actions->addWidget(transcribe_, 1);
    cancel_ = new QPushButton(QStringLiteral("Cancel"), this);
    connect(cancel_, &QPushButton::clicked, this, [this] { controller_.cancelTranscription(); });
    actions->addWidget(cancel_);
    layout->addLayout(actions);

    auto* editing = new QHBoxLayout;
    editing->setSpacing(Theme::kSpacing);
    preview_ =
        new QPushButton(icon(IconName::play, Theme::text()), QStringLiteral("Preview Cut"), this);
    preview_->setToolTip(QStringLiteral("Play what cutting the selected words would remove"));
    connect(preview_, &QPushButton::clicked, this, [this] { controller_.previewSelection(); });
    editing->addWidget(preview_, 1);
    cut_ = new QPushButton(icon(IconName::split, Theme::text()), QStringLiteral("Cut Words"), this);
    cut_->setToolTip(QStringLiteral("Cut the selected words out of the video (Delete)"));
    connect(cut_, &QPushButton::clicked, this, [this] { controller_.cutSelection(); });
    editing->addWidget(cut_, 1);
    layout->addLayout(editing);

    text_ = new QTextBrowser(this);
    text_->setOpenLinks(false);
    text_->setOpenExternalLinks(false);
    // Words are selected with Shift and the arrows as well as with the mouse.
    text_->setTextInteractionFlags(Qt::TextBrowserInteraction | Qt::TextSelectableByKeyboard);
    text_->setFont(Theme::interfaceFont(11));
    text_->document()->setDocumentMargin(10);
    text_->setPlaceholderText(QStringLiteral("The words of the recording show here."));
    text_->installEventFilter(this);
    text_->viewport()->installEventFilter(this);
    connect(text_, &QTextBrowser::anchorClicked, this,
            [this](const QUrl& url) { controller_.activateLink(url.toString().toStdString()); });
    connect(text_, &QTextBrowser::selectionChanged, this, [this] { selectionMoved(); });
    layout->addWidget(text_, 1);

    suggestionsTitle_ = new QLabel(QStringLiteral("CLEANUP"), this);
    suggestionsTitle_->setProperty("role", "section");
    layout->addWidget(suggestionsTitle_);
    auto* scroller = new QScrollArea(this);
    scroller->setWidgetResizable(true);
    scroller->setFrameShape(QFrame::NoFrame);
    scroller->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroller->setMaximumHeight(230);
    suggestions_ = new QWidget(scroller);
    suggestionsLayout_ = new QVBoxLayout(suggestions_);
    suggestionsLayout_->setContentsMargins(0, 0, 0, 0);
    suggestionsLayout_->setSpacing(6);
    scroller->setWidget(suggestions_);
    layout->addWidget(scroller);

    const auto status = [this](const auto&) { refreshStatus(); };
    subscriptions_.push_back(controller_.visibleTranscript().observe([this](const auto&) {
        rebuildText();
        refreshStatus();
    }));
    subscriptions_.push_back(
        controller_.playheadWordID().observe([this](const auto&) { refreshHighlights(); }));
    subscriptions_.push_back(
        controller_.cleanupSuggestions().observe([this](const auto&) { rebuildSuggestions(); }));
    subscriptions_.push_back(controller_.selectedWordRange().observe(status));
    subscriptions_.push_back(controller_.hasTranscript().observe(status));
    subscriptions_.push_back(controller_.statusText().observe(status));
    subscriptions_.push_back(controller_.errorText().observe(status));
    subscriptions_.push_back(controller_.nonfatalErrorText().observe(status));
    subscriptions_.push_back(controller_.processing().observe(status));
    subscriptions_.push_back(controller_.isPreviewingSelection().observe(status));
    rebuildText();
    rebuildSuggestions();
    refreshStatus();
}

std::vector<QPushButton*> TranscriptPanel::suggestionButtons() const {
    const QList<QPushButton*> buttons = suggestions_->findChildren<QPushButton*>();
    return {buttons.begin(), buttons.end()};
}

void TranscriptPanel::selectCharacters(int begin, int end) {
    QTextCursor cursor(text_->document());
    cursor.setPosition(begin);
    cursor.setPosition(end, QTextCursor::KeepAnchor);
    text_->setTextCursor(cursor);
}

void TranscriptPanel::rebuildText() {
    const TranscriptTextLayout& layout = controller_.visibleTranscript().value();
    const int scroll = text_->verticalScrollBar()->value();
    applyingText_ = true;
    text_->setPlainText(qString(layout.text));
    QTextDocument* document = text_->document();
    // Plain words first: the new text must not inherit a marker's link from where the
    // cursor stood.
    QTextCursor whole(document);
    whole.select(QTextCursor::Document);
    whole.setCharFormat(wordFormat(false));
    for (const auto& word : layout.wordRanges) {
        if (word.wordID % 2 != 0) {
            applyFormat(document, word.range, wordFormat(true));
        }
    }
    for (const auto& marker : layout.markerRanges) {
        applyFormat(document, marker.range, markerFormat(marker.markerID));
    }
    // The blocks of a paragraph breathe a little.
    QTextBlockFormat block;
    block.setLineHeight(135, QTextBlockFormat::ProportionalHeight);
    whole.mergeBlockFormat(block);
    playheadRange_.reset();
    applyingText_ = false;
    text_->verticalScrollBar()->setValue(scroll);
    refreshHighlights();
}

void TranscriptPanel::refreshHighlights() {
    const TranscriptTextLayout& layout = controller_.visibleTranscript().value();
    const auto playhead = controller_.playheadWordID().value();
    std::optional<TranscriptCharacterRange> range;
    if (playhead) {
        for (const auto& word : layout.wordRanges) {
            if (word.wordID == *playhead) {
                range = word.range;
                break;
            }
        }
    }
    if (range == playheadRange_) {
        return;
    }
    const bool wasApplying = applyingText_;
    applyingText_ = true;
    QTextDocument* document = text_->document();
    const int characters = document->characterCount();
    const auto fits = [characters](const TranscriptCharacterRange& r) {
        return r.location >= 0 && r.location + r.length < characters;
    };
    if (playheadRange_ && fits(*playheadRange_)) {
        applyFormat(document, *playheadRange_, wordFormat(false));
    }
    playheadRange_ = range;
    if (range && fits(*range)) {
        applyFormat(document, *range, playheadFormat());
    }
    applyingText_ = wasApplying;
    followPlayhead();
}

void TranscriptPanel::followPlayhead() {
    if (!playheadRange_ || !controller_.editing()) {
        return;
    }
    // While the movie plays the text keeps the spoken word in view; a word the user is
    // reading elsewhere is left alone when paused.
    QTextCursor cursor(text_->document());
    cursor.setPosition(playheadRange_->location);
    const QRect place = text_->cursorRect(cursor);
    const QRect visible = text_->viewport()->rect();
    if (visible.contains(place)) {
        return;
    }
    QScrollBar* bar = text_->verticalScrollBar();
    bar->setValue(bar->value() + place.top() - visible.height() / 3);
}

void TranscriptPanel::refreshStatus() {
    const bool has = controller_.hasTranscript().value();
    const auto& processing = controller_.processing().value();
    QString status = qString(controller_.statusText().value());
    if (!controller_.nonfatalErrorText().value().empty() &&
        status != qString(controller_.nonfatalErrorText().value())) {
        status += (status.isEmpty() ? QString() : QStringLiteral("\n")) +
                  qString(controller_.nonfatalErrorText().value());
    }
    if (has && !processing && status.isEmpty()) {
        const auto& words = controller_.wordEditTimes().value();
        status = QStringLiteral("Select words and press Delete to cut them from the video. "
                                "Click a word to move the playhead to it.");
        if (words.empty()) {
            status = QStringLiteral("No speech was found in the recording.");
        }
    }
    status_->setText(status);
    status_->setVisible(!status.isEmpty());
    error_->setText(qString(controller_.errorText().value()));
    error_->setVisible(!controller_.errorText().value().empty());

    progress_->setVisible(processing.has_value());
    if (processing) {
        if (processing->fraction) {
            progress_->setRange(0, 1000);
            progress_->setValue(static_cast<int>(std::lround(*processing->fraction * 1000)));
        } else {
            progress_->setRange(0, 0); // busy, no measure
        }
    }
    transcribe_->setVisible(!processing);
    transcribe_->setText(has ? QStringLiteral("Transcribe Again") : QStringLiteral("Transcribe"));
    transcribe_->setProperty("primary", !has);
    transcribe_->style()->unpolish(transcribe_);
    transcribe_->style()->polish(transcribe_);
    cancel_->setVisible(processing.has_value());

    const bool selected = controller_.selectedWordRange().value().has_value();
    preview_->setVisible(has);
    cut_->setVisible(has);
    preview_->setEnabled(selected);
    cut_->setEnabled(selected);
    preview_->setText(controller_.isPreviewingSelection().value() ? QStringLiteral("Stop Preview")
                                                                  : QStringLiteral("Preview Cut"));
    text_->setVisible(has || processing.has_value());
}

void TranscriptPanel::rebuildSuggestions() {
    while (QLayoutItem* item = suggestionsLayout_->takeAt(0)) {
        if (QWidget* widget = item->widget()) {
            widget->deleteLater();
            widget->setParent(nullptr);
        }
        delete item;
    }
    const auto& suggestions = controller_.cleanupSuggestions().value();
    suggestionsTitle_->setText(
        suggestions.empty() ? QStringLiteral("CLEANUP")
                            : QStringLiteral("CLEANUP · %1 SUGGESTED").arg(suggestions.size()));
    suggestionsTitle_->parentWidget()->setVisible(true);
    const bool any = !suggestions.empty();
    suggestionsTitle_->setVisible(any);
    suggestions_->parentWidget()->parentWidget()->setVisible(any);
    for (const auto& suggestion : suggestions) {
        auto* card = new QWidget(suggestions_);
        card->setAttribute(Qt::WA_StyledBackground, true);
        card->setObjectName(QStringLiteral("suggestion"));
        card->setStyleSheet(QStringLiteral("#suggestion { background: %1; border-radius: 6px; }")
                                .arg(Theme::raisedBackground().name()));
        auto* row = new QHBoxLayout(card);
        row->setContentsMargins(10, 8, 8, 8);
        row->setSpacing(Theme::kSpacing);
        auto* words = new QVBoxLayout;
        words->setSpacing(2);
        auto* title = new QLabel(QStringLiteral("<b>%1</b> <span style='color:%2'>− %3</span>")
                                     .arg(qString(suggestion.title).toHtmlEscaped(),
                                          Theme::secondaryText().name(),
                                          durationText(suggestion.estimatedRemovedDuration)),
                                 card);
        words->addWidget(title);
        auto* snippet =
            new QLabel(QStringLiteral("<span style='color:%1'>%2</span> <s style='color:%3'>%4</s> "
                                      "<span style='color:%1'>%5</span>")
                           .arg(Theme::secondaryText().name(),
                                qString(suggestion.leadingContext).toHtmlEscaped(),
                                Theme::destructive().lighter(130).name(),
                                qString(suggestion.targetText.empty() ? suggestion.removedText
                                                                      : suggestion.targetText)
                                    .toHtmlEscaped(),
                                qString(suggestion.trailingContext).toHtmlEscaped()),
                       card);
        snippet->setWordWrap(true);
        words->addWidget(snippet);
        row->addLayout(words, 1);
        auto* accept = new QPushButton(QStringLiteral("Accept"), card);
        accept->setToolTip(QStringLiteral("Cut this from the video"));
        auto* dismiss = new QPushButton(QStringLiteral("Dismiss"), card);
        dismiss->setToolTip(QStringLiteral("Keep it and stop suggesting it"));
        const std::string id = suggestion.id;
        connect(accept, &QPushButton::clicked, this,
                [this, id] { controller_.applyCleanupSuggestion(id); });
        connect(dismiss, &QPushButton::clicked, this,
                [this, id] { controller_.dismissCleanupSuggestion(id); });
        row->addWidget(accept);
        row->addWidget(dismiss);
        suggestionsLayout_->addWidget(card);
    }
}

void TranscriptPanel::selectionMoved() {
    if (applyingText_) {
        return;
    }
    const QTextCursor cursor = text_->textCursor();
    if (cursor.hasSelection()) {
        controller_.updateSelectionFromCharacters(cursor.selectionStart(), cursor.selectionEnd());
    } else {
        controller_.updateWordSelection(std::nullopt);
    }
}

bool TranscriptPanel::eventFilter(QObject* watched, QEvent* event) {
    const auto isCutKey = [](QEvent* e) {
        const auto* key = static_cast<QKeyEvent*>(e);
        return key->modifiers() == Qt::NoModifier &&
               (key->key() == Qt::Key_Delete || key->key() == Qt::Key_Backspace);
    };
    if (watched == text_) {
        // Delete with words selected cuts them, before the window's Delete (the timeline's
        // selection) sees the key.
        if (event->type() == QEvent::ShortcutOverride && isCutKey(event) &&
            controller_.selectedWordRange().value()) {
            event->accept();
            return true;
        }
        if (event->type() == QEvent::KeyPress && isCutKey(event) &&
            controller_.selectedWordRange().value()) {
            controller_.cutSelection();
            return true;
        }
    }
    if (watched == text_->viewport() && event->type() == QEvent::MouseButtonRelease) {
        const auto* mouse = static_cast<QMouseEvent*>(event);
        if (mouse->button() == Qt::LeftButton && !text_->textCursor().hasSelection() &&
            text_->anchorAt(mouse->position().toPoint()).isEmpty()) {
            const int at = text_->cursorForPosition(mouse->position().toPoint()).position();
            for (const auto& word : controller_.visibleTranscript().value().wordRanges) {
                if (word.range.location <= at && at <= word.range.location + word.range.length) {
                    controller_.placeCursor(word.wordID);
                    break;
                }
            }
        }
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace orvelle
