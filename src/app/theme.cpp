#include "app/theme.h"

#include <QApplication>
#include <QFontDatabase>
#include <QPalette>
#include <QStyleFactory>

namespace orvelle::Theme {

QColor windowBackground() {
    return {0x17, 0x18, 0x1c};
}
QColor panelBackground() {
    return {0x1f, 0x20, 0x25};
}
QColor raisedBackground() {
    return {0x2a, 0x2b, 0x32};
}
QColor separator() {
    return {0x33, 0x34, 0x3c};
}
QColor text() {
    return {0xe8, 0xe8, 0xed};
}
QColor secondaryText() {
    return {0xa0, 0xa1, 0xab};
}
QColor tertiaryText() {
    return {0x6c, 0x6d, 0x78};
}
QColor accent() {
    return {0x7c, 0x5c, 0xff};
}
QColor accentText() {
    return {0xff, 0xff, 0xff};
}
QColor destructive() {
    return {0xf0, 0x5a, 0x5a};
}
QColor playhead() {
    return {0xff, 0xd1, 0x4a};
}
QColor videoClip() {
    return {0x3a, 0x44, 0x5c};
}
QColor waveform() {
    return {0x9f, 0xd8, 0xff};
}

QColor laneColor(AuxiliaryTimelineTrack track) {
    switch (track) {
    case AuxiliaryTimelineTrack::zoom:
        return {0x8b, 0x6c, 0xff};
    case AuxiliaryTimelineTrack::cameraLayout:
        return {0x2f, 0xb3, 0x86};
    case AuxiliaryTimelineTrack::mask:
        return {0xe0, 0x94, 0x34};
    case AuxiliaryTimelineTrack::music:
        return {0xe0, 0x5a, 0x9a};
    case AuxiliaryTimelineTrack::text:
        return {0x45, 0x9c, 0xe8};
    }
    return accent();
}

QFont interfaceFont(double pointSize, int weight) {
    QFont font(QStringLiteral("Inter"));
    font.setFamilies({QStringLiteral("Inter"), QStringLiteral("sans-serif")});
    font.setPointSizeF(pointSize);
    font.setWeight(static_cast<QFont::Weight>(weight));
    font.setHintingPreference(QFont::PreferNoHinting);
    return font;
}

QFont monospacedDigitsFont(double pointSize) {
    // Qt 6.4 cannot ask for tabular figures: a monospaced face keeps a running time still.
    QFont font(QStringLiteral("DejaVu Sans Mono"));
    font.setFamilies({QStringLiteral("DejaVu Sans Mono"), QStringLiteral("monospace")});
    font.setPointSizeF(pointSize * 0.92);
    return font;
}

namespace {

QString hex(const QColor& color) {
    return color.name(QColor::HexRgb);
}

QString styleSheet() {
    QString sheet = QStringLiteral(R"(
QWidget { color: @text; }
QMainWindow, QDialog, #StartWindow { background: @window; }
QToolTip { background: @raised; color: @text; border: 1px solid @separator; padding: 4px 6px; }
QMenuBar { background: @window; border-bottom: 1px solid @separator; }
QMenuBar::item { padding: 4px 10px; background: transparent; border-radius: 4px; }
QMenuBar::item:selected { background: @raised; }
QMenu { background: @panel; border: 1px solid @separator; padding: 4px; }
QMenu::item { padding: 5px 24px 5px 12px; border-radius: 4px; }
QMenu::item:selected { background: @accent; color: white; }
QMenu::item:disabled { color: @tertiary; }
QMenu::separator { height: 1px; background: @separator; margin: 4px 6px; }
QLabel { background: transparent; }
QLabel[role="secondary"] { color: @secondary; }
QLabel[role="section"] { color: @secondary; font-weight: 600; font-size: 8pt; letter-spacing: 0.6px; }
QLabel[role="title"] { font-size: 13pt; font-weight: 600; }
QPushButton, QToolButton {
  background: @raised; border: 1px solid @separator; border-radius: 6px;
  padding: 5px 12px; min-height: 18px;
}
QPushButton:hover, QToolButton:hover { background: #33343c; }
QPushButton:pressed, QToolButton:pressed { background: #24252b; }
QPushButton:disabled, QToolButton:disabled { color: @tertiary; background: #222329; }
QPushButton[primary="true"] { background: @accent; border-color: @accent; color: white; font-weight: 600; }
QPushButton[primary="true"]:hover { background: #8d72ff; }
QPushButton[primary="true"]:disabled { background: #3d3566; border-color: #3d3566; color: #a79fd0; }
QPushButton[destructive="true"] { color: @destructive; }
QToolButton[flat="true"] { background: transparent; border-color: transparent; padding: 4px; }
QToolButton[flat="true"]:hover { background: @raised; }
QToolButton[flat="true"]:checked { background: #34305a; border-color: #4b4190; }
QToolButton[segment="true"] { border-radius: 0; padding: 4px 8px; }
QToolButton[segment="true"]:checked { background: @accent; border-color: @accent; color: white; }
QToolButton[choice="true"] { padding: 4px 8px; }
QToolButton[choice="true"]:checked { background: #34305a; border-color: @accent; color: white; }
QComboBox {
  background: @raised; border: 1px solid @separator; border-radius: 6px; padding: 4px 8px;
  min-height: 18px;
}
QComboBox:hover { background: #33343c; }
QComboBox QAbstractItemView { background: @panel; border: 1px solid @separator; selection-background-color: @accent; outline: 0; }
QComboBox::drop-down { border: none; width: 18px; }
QComboBox::down-arrow { width: 8px; height: 8px; margin-right: 8px; }
QLineEdit, QPlainTextEdit, QTextEdit, QDoubleSpinBox, QSpinBox {
  background: #141519; border: 1px solid @separator; border-radius: 6px; padding: 4px 6px;
  selection-background-color: @accent;
}
QLineEdit:focus, QPlainTextEdit:focus, QTextEdit:focus, QDoubleSpinBox:focus { border-color: @accent; }
QDoubleSpinBox::up-button, QDoubleSpinBox::down-button, QSpinBox::up-button, QSpinBox::down-button { width: 0; border: none; }
QSlider::groove:horizontal { height: 4px; background: #3a3b44; border-radius: 2px; }
QSlider::sub-page:horizontal { background: @accent; border-radius: 2px; }
QSlider::handle:horizontal { background: #f4f4f7; width: 14px; height: 14px; margin: -5px 0; border-radius: 7px; }
QSlider::handle:horizontal:hover { background: white; }
QSlider::sub-page:horizontal:disabled { background: #4a4660; }
QCheckBox { spacing: 8px; }
QProgressBar { background: #2c2d35; border: none; border-radius: 3px; height: 6px; text-align: center; color: transparent; }
QProgressBar::chunk { background: @accent; border-radius: 3px; }
QScrollArea { background: transparent; border: none; }
QScrollArea > QWidget > QWidget { background: transparent; }
QScrollBar:vertical { background: transparent; width: 10px; margin: 2px; }
QScrollBar::handle:vertical { background: #3d3e47; border-radius: 3px; min-height: 24px; }
QScrollBar:horizontal { background: transparent; height: 10px; margin: 2px; }
QScrollBar::handle:horizontal { background: #3d3e47; border-radius: 3px; min-width: 24px; }
QScrollBar::add-line, QScrollBar::sub-line { width: 0; height: 0; }
QScrollBar::add-page, QScrollBar::sub-page { background: transparent; }
QListView, QListWidget, QTreeView { background: transparent; border: none; outline: 0; }
QListWidget::item:selected { background: #34305a; border-radius: 6px; }
QSplitter::handle { background: @window; }
QStatusBar { background: @window; color: @secondary; }
QMessageBox QLabel { min-width: 320px; }
)");
    sheet.replace(QStringLiteral("@window"), hex(windowBackground()))
        .replace(QStringLiteral("@panel"), hex(panelBackground()))
        .replace(QStringLiteral("@raised"), hex(raisedBackground()))
        .replace(QStringLiteral("@separator"), hex(separator()))
        .replace(QStringLiteral("@text"), hex(text()))
        .replace(QStringLiteral("@secondary"), hex(secondaryText()))
        .replace(QStringLiteral("@tertiary"), hex(tertiaryText()))
        .replace(QStringLiteral("@accent"), hex(accent()))
        .replace(QStringLiteral("@destructive"), hex(destructive()));
    return sheet;
}

} // namespace

void apply(QApplication& application) {
    application.setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QPalette palette;
    palette.setColor(QPalette::Window, windowBackground());
    palette.setColor(QPalette::WindowText, text());
    palette.setColor(QPalette::Base, QColor(0x14, 0x15, 0x19));
    palette.setColor(QPalette::AlternateBase, panelBackground());
    palette.setColor(QPalette::ToolTipBase, raisedBackground());
    palette.setColor(QPalette::ToolTipText, text());
    palette.setColor(QPalette::PlaceholderText, tertiaryText());
    palette.setColor(QPalette::Text, text());
    palette.setColor(QPalette::Button, raisedBackground());
    palette.setColor(QPalette::ButtonText, text());
    palette.setColor(QPalette::BrightText, Qt::white);
    palette.setColor(QPalette::Highlight, accent());
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, accent().lighter(130));
    palette.setColor(QPalette::Mid, separator());
    palette.setColor(QPalette::Dark, windowBackground());
    palette.setColor(QPalette::Disabled, QPalette::Text, tertiaryText());
    palette.setColor(QPalette::Disabled, QPalette::WindowText, tertiaryText());
    palette.setColor(QPalette::Disabled, QPalette::ButtonText, tertiaryText());
    application.setPalette(palette);
    application.setFont(interfaceFont(9.5));
    application.setStyleSheet(styleSheet());
}

} // namespace orvelle::Theme
