#pragma once

// The controls of the inspector panels, bound to the project through the editor store:
// each reads its value from the project whenever the panel refreshes, and writes through
// EditorStore::edit under its undo label. A slider's whole drag (or a colour dialog's
// whole session) is one undo step.

#include "editor/editor_store.h"

#include <QAbstractButton>
#include <QScrollArea>
#include <QWidget>
#include <functional>
#include <optional>
#include <vector>

class QComboBox;
class QGridLayout;
class QLabel;
class QSlider;
class QToolButton;
class QVBoxLayout;

namespace orvelle {

// A switch for a yes-or-no setting.
class ToggleSwitch : public QAbstractButton {
public:
    explicit ToggleSwitch(QWidget* parent = nullptr);
    QSize sizeHint() const override { return {34, 20}; }

protected:
    void paintEvent(QPaintEvent* event) override;
};

// A colour swatch that opens the colour dialog.
class ColorSwatch : public QAbstractButton {
public:
    explicit ColorSwatch(QWidget* parent = nullptr);
    void setColor(const QColor& color);
    QColor color() const { return color_; }
    QSize sizeHint() const override { return {44, 24}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QColor color_;
};

using ProjectReader =
    std::function<std::optional<double>(const EditorProjectState&, const EditorSelectionState&)>;
using ProjectWriter = std::function<void(EditorProjectState&, EditorSelectionState&, double)>;

// One panel of the inspector: a titled column of sections, scrolled when long.
class InspectorPanel : public QScrollArea {
public:
    InspectorPanel(EditorStore& store, const QString& title, QWidget* parent = nullptr);

    EditorStore& store() { return store_; }
    // Reads every control's value again (called when the project or the selection changes
    // and the panel is shown).
    void refresh();
    void addRefresher(std::function<void()> refresher) {
        refreshers_.push_back(std::move(refresher));
    }

    // Building blocks, each added at the end of the panel.
    QLabel* addSection(const QString& title);
    QLabel* addNote(const QString& text);
    void addWidget(QWidget* widget);
    void addRow(const QString& label, QWidget* control);
    // A slider over a number; `format` gives its text ("25 %"). Disabled while `read` is
    // absent (no clip of the kind selected).
    QSlider* addSlider(const QString& label, double minimum, double maximum,
                       std::function<QString(double)> format, const std::string& undoLabel,
                       ProjectReader read, ProjectWriter write);
    // Without a writer the switch only shows; the caller connects its own action.
    ToggleSwitch* addToggle(
        const QString& label, const std::string& undoLabel,
        std::function<std::optional<bool>(const EditorProjectState&, const EditorSelectionState&)>
            read,
        std::function<void(EditorProjectState&, EditorSelectionState&, bool)> write);
    // Exclusive choices as one segmented row of buttons.
    std::vector<QToolButton*> addSegments(
        const QString& label, const QStringList& names, const std::string& undoLabel,
        std::function<std::optional<int>(const EditorProjectState&, const EditorSelectionState&)>
            read,
        std::function<void(EditorProjectState&, EditorSelectionState&, int)> write);
    QComboBox* addChoice(
        const QString& label, const QStringList& names, const std::string& undoLabel,
        std::function<std::optional<int>(const EditorProjectState&, const EditorSelectionState&)>
            read,
        std::function<void(EditorProjectState&, EditorSelectionState&, int)> write);
    ColorSwatch* addColor(
        const QString& label, const std::string& undoLabel,
        std::function<std::optional<BackgroundColorRGBA>(const EditorProjectState&,
                                                         const EditorSelectionState&)>
            read,
        std::function<void(EditorProjectState&, EditorSelectionState&, const BackgroundColorRGBA&)>
            write);
    void addStretch();

private:
    EditorStore& store_;
    QWidget* content_ = nullptr;
    QVBoxLayout* layout_ = nullptr;
    std::vector<std::function<void()>> refreshers_;
};

QColor qColor(const BackgroundColorRGBA& color);
BackgroundColorRGBA projectColor(const QColor& color);
QString percentText(double value);

} // namespace orvelle
