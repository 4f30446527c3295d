#pragma once

// The transcript page of the inspector: the words of the recording as text, the word under
// the playhead marked as it plays, a selection of words that Delete cuts out of the
// timeline (one undo step), the collapsed markers ("[3 words cut]") that bring their words
// back when clicked, the cleanup suggestions to take or leave, and while the recording is
// transcribed, the stage it is at with its progress and Cancel. Everything is the
// EditorTranscriptController's; this page only shows it and passes gestures on.
// Main thread only.

#include "editor/published.h"
#include "transcript_edit/editor_transcript_controller.h"

#include <QWidget>
#include <optional>
#include <vector>

class QLabel;
class QProgressBar;
class QPushButton;
class QTextBrowser;
class QVBoxLayout;

namespace orvelle {

class TranscriptPanel : public QWidget {
public:
    explicit TranscriptPanel(EditorTranscriptController& controller, QWidget* parent = nullptr);

    EditorTranscriptController& controller() { return controller_; }
    QTextBrowser& textView() { return *text_; }
    QPushButton& transcribeButton() { return *transcribe_; }
    QPushButton& cutButton() { return *cut_; }
    QProgressBar& progressBar() { return *progress_; }
    QLabel& statusLabel() { return *status_; }
    // The buttons of the suggestions shown, in order: "Accept" and "Dismiss" for each.
    std::vector<QPushButton*> suggestionButtons() const;
    // Selects the characters [begin, end) of the text as the mouse would.
    void selectCharacters(int begin, int end);

private:
    void rebuildText();
    void refreshHighlights();
    void refreshStatus();
    void rebuildSuggestions();
    void selectionMoved();
    void followPlayhead();
    bool eventFilter(QObject* watched, QEvent* event) override;

    EditorTranscriptController& controller_;
    QLabel* status_ = nullptr;
    QLabel* error_ = nullptr;
    QProgressBar* progress_ = nullptr;
    QPushButton* transcribe_ = nullptr;
    QPushButton* cancel_ = nullptr;
    QPushButton* preview_ = nullptr;
    QPushButton* cut_ = nullptr;
    QTextBrowser* text_ = nullptr;
    QLabel* suggestionsTitle_ = nullptr;
    QWidget* suggestions_ = nullptr;
    QVBoxLayout* suggestionsLayout_ = nullptr;
    std::optional<TranscriptCharacterRange> playheadRange_;
    bool applyingText_ = false;
    std::vector<Subscription> subscriptions_;
};

} // namespace orvelle
