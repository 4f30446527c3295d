#include "app/settings_sidebar_controls.h"

#include "app/theme.h"

#include <QButtonGroup>
#include <QColorDialog>
#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QSlider>
#include <QToolButton>
#include <QVBoxLayout>
#include <cmath>

namespace orvelle {

QColor qColor(const BackgroundColorRGBA& color) {
    return QColor::fromRgbF(static_cast<float>(color.red), static_cast<float>(color.green),
                            static_cast<float>(color.blue), static_cast<float>(color.alpha));
}

BackgroundColorRGBA projectColor(const QColor& color) {
    return {color.redF(), color.greenF(), color.blueF(), color.alphaF()};
}

QString percentText(double value) {
    return QStringLiteral("%1 %").arg(std::lround(value * 100));
}

ToggleSwitch::ToggleSwitch(QWidget* parent) : QAbstractButton(parent) {
    setCheckable(true);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::TabFocus);
}

void ToggleSwitch::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF track = QRectF(0, 0, 34, 20).translated(0, (height() - 20) / 2.0);
    QColor on = Theme::accent();
    QColor off(0x3a, 0x3b, 0x44);
    if (!isEnabled()) {
        on = on.darker(180);
        off = off.darker(130);
    }
    painter.setPen(Qt::NoPen);
    painter.setBrush(isChecked() ? on : off);
    painter.drawRoundedRect(track, 10, 10);
    const double knob = isChecked() ? track.right() - 18 : track.left() + 2;
    painter.setBrush(isEnabled() ? QColor(0xf6, 0xf6, 0xf8) : QColor(0x88, 0x88, 0x90));
    painter.drawEllipse(QRectF(knob, track.top() + 2, 16, 16));
}

ColorSwatch::ColorSwatch(QWidget* parent) : QAbstractButton(parent) {
    setCursor(Qt::PointingHandCursor);
}

void ColorSwatch::setColor(const QColor& color) {
    color_ = color;
    update();
}

void ColorSwatch::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF box = QRectF(rect()).adjusted(1, 1, -1, -1);
    // A checkerboard under colours that let it show through.
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0x55, 0x55, 0x5c));
    painter.drawRoundedRect(box, 5, 5);
    painter.setClipRect(box);
    painter.setBrush(QColor(0x88, 0x88, 0x90));
    for (int y = 0; y < height(); y += 6) {
        for (int x = (y / 6) % 2 * 6; x < width(); x += 12) {
            painter.drawRect(x, y, 6, 6);
        }
    }
    painter.setClipping(false);
    painter.setBrush(isEnabled() ? color_ : color_.darker(200));
    painter.setPen(QPen(QColor(255, 255, 255, 60), 1));
    painter.drawRoundedRect(box, 5, 5);
}

InspectorPanel::InspectorPanel(EditorStore& store, const QString& title, QWidget* parent)
    : QScrollArea(parent), store_(store) {
    setWidgetResizable(true);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setFrameShape(QFrame::NoFrame);
    content_ = new QWidget(this);
    layout_ = new QVBoxLayout(content_);
    layout_->setContentsMargins(Theme::kPanelMargin, Theme::kPanelMargin, Theme::kPanelMargin,
                                Theme::kPanelMargin);
    layout_->setSpacing(10);
    auto* heading = new QLabel(title, content_);
    heading->setProperty("role", "title");
    layout_->addWidget(heading);
    setWidget(content_);
}

void InspectorPanel::refresh() {
    for (const auto& refresher : refreshers_) {
        refresher();
    }
}

QLabel* InspectorPanel::addSection(const QString& title) {
    layout_->addSpacing(8);
    auto* label = new QLabel(title.toUpper(), content_);
    label->setProperty("role", "section");
    layout_->addWidget(label);
    return label;
}

QLabel* InspectorPanel::addNote(const QString& text) {
    auto* label = new QLabel(text, content_);
    label->setWordWrap(true);
    label->setProperty("role", "secondary");
    layout_->addWidget(label);
    return label;
}

void InspectorPanel::addWidget(QWidget* widget) {
    widget->setParent(content_);
    layout_->addWidget(widget);
}

void InspectorPanel::addRow(const QString& label, QWidget* control) {
    auto* row = new QWidget(content_);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(Theme::kSpacing);
    auto* name = new QLabel(label, row);
    layout->addWidget(name, 1);
    control->setParent(row);
    layout->addWidget(control, 0, Qt::AlignRight);
    layout_->addWidget(row);
}

void InspectorPanel::addStretch() {
    layout_->addStretch(1);
}

QSlider* InspectorPanel::addSlider(const QString& label, double minimum, double maximum,
                                   std::function<QString(double)> format,
                                   const std::string& undoLabel, ProjectReader read,
                                   ProjectWriter write) {
    constexpr int kSteps = 1000;
    auto* row = new QWidget(content_);
    auto* grid = new QGridLayout(row);
    grid->setContentsMargins(0, 0, 0, 2);
    grid->setHorizontalSpacing(Theme::kSpacing);
    grid->setVerticalSpacing(4);
    auto* name = new QLabel(label, row);
    auto* value = new QLabel(row);
    value->setProperty("role", "secondary");
    value->setFont(Theme::monospacedDigitsFont(9));
    value->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    auto* slider = new QSlider(Qt::Horizontal, row);
    slider->setRange(0, kSteps);
    slider->setPageStep(kSteps / 20);
    slider->setSingleStep(kSteps / 100);
    slider->setAccessibleName(label);
    grid->addWidget(name, 0, 0);
    grid->addWidget(value, 0, 1);
    grid->addWidget(slider, 1, 0, 1, 2);
    layout_->addWidget(row);

    const auto toValue = [minimum, maximum](int position) {
        return minimum + (maximum - minimum) * position / static_cast<double>(kSteps);
    };
    connect(slider, &QSlider::sliderPressed, this,
            [this, undoLabel] { store_.beginUndoTransaction(undoLabel); });
    connect(slider, &QSlider::sliderReleased, this, [this] { store_.endUndoTransaction(); });
    connect(slider, &QSlider::valueChanged, this,
            [this, toValue, undoLabel, write, value, format](int position) {
                const double number = toValue(position);
                value->setText(format(number));
                store_.edit(undoLabel,
                            [&](EditorProjectState& project, EditorSelectionState& selection) {
                                write(project, selection, number);
                            });
            });
    addRefresher([this, slider, value, read, format, minimum, maximum] {
        const auto number = read(store_.project(), store_.selection());
        slider->setEnabled(number.has_value());
        value->setText(number ? format(*number) : QString());
        if (number && !slider->isSliderDown()) {
            const QSignalBlocker blocker(slider);
            slider->setValue(static_cast<int>(std::lround(
                std::clamp((*number - minimum) / (maximum - minimum), 0.0, 1.0) * kSteps)));
        }
    });
    return slider;
}

ToggleSwitch* InspectorPanel::addToggle(
    const QString& label, const std::string& undoLabel,
    std::function<std::optional<bool>(const EditorProjectState&, const EditorSelectionState&)> read,
    std::function<void(EditorProjectState&, EditorSelectionState&, bool)> write) {
    auto* toggle = new ToggleSwitch(content_);
    toggle->setAccessibleName(label);
    addRow(label, toggle);
    connect(toggle, &ToggleSwitch::toggled, this, [this, undoLabel, write](bool on) {
        if (!write) {
            return;
        }
        store_.edit(undoLabel, [&](EditorProjectState& project, EditorSelectionState& selection) {
            write(project, selection, on);
        });
    });
    addRefresher([this, toggle, read] {
        const auto on = read(store_.project(), store_.selection());
        toggle->setEnabled(on.has_value());
        const QSignalBlocker blocker(toggle);
        toggle->setChecked(on.value_or(false));
        toggle->update();
    });
    return toggle;
}

std::vector<QToolButton*> InspectorPanel::addSegments(
    const QString& label, const QStringList& names, const std::string& undoLabel,
    std::function<std::optional<int>(const EditorProjectState&, const EditorSelectionState&)> read,
    std::function<void(EditorProjectState&, EditorSelectionState&, int)> write) {
    auto* row = new QWidget(content_);
    auto* layout = new QVBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    if (!label.isEmpty()) {
        layout->addWidget(new QLabel(label, row));
    }
    auto* strip = new QWidget(row);
    auto* stripLayout = new QHBoxLayout(strip);
    stripLayout->setContentsMargins(0, 0, 0, 0);
    stripLayout->setSpacing(0);
    auto* group = new QButtonGroup(row);
    group->setExclusive(true);
    std::vector<QToolButton*> buttons;
    for (int i = 0; i < names.size(); ++i) {
        auto* button = new QToolButton(strip);
        button->setText(names[i]);
        button->setCheckable(true);
        button->setProperty("segment", true);
        button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        button->setFocusPolicy(Qt::TabFocus);
        group->addButton(button, i);
        stripLayout->addWidget(button);
        buttons.push_back(button);
    }
    layout->addWidget(strip);
    layout_->addWidget(row);
    connect(group, &QButtonGroup::idClicked, this, [this, undoLabel, write](int index) {
        store_.edit(undoLabel, [&](EditorProjectState& project, EditorSelectionState& selection) {
            write(project, selection, index);
        });
    });
    addRefresher([this, buttons, read] {
        const auto index = read(store_.project(), store_.selection());
        for (size_t i = 0; i < buttons.size(); ++i) {
            const QSignalBlocker blocker(buttons[i]);
            buttons[i]->setEnabled(index.has_value());
            buttons[i]->setChecked(index && static_cast<size_t>(*index) == i);
        }
    });
    return buttons;
}

QComboBox* InspectorPanel::addChoice(
    const QString& label, const QStringList& names, const std::string& undoLabel,
    std::function<std::optional<int>(const EditorProjectState&, const EditorSelectionState&)> read,
    std::function<void(EditorProjectState&, EditorSelectionState&, int)> write) {
    auto* combo = new QComboBox(content_);
    combo->addItems(names);
    combo->setMinimumWidth(150);
    combo->setAccessibleName(label);
    addRow(label, combo);
    connect(combo, &QComboBox::activated, this, [this, undoLabel, write](int index) {
        store_.edit(undoLabel, [&](EditorProjectState& project, EditorSelectionState& selection) {
            write(project, selection, index);
        });
    });
    addRefresher([this, combo, read] {
        const auto index = read(store_.project(), store_.selection());
        combo->setEnabled(index.has_value());
        const QSignalBlocker blocker(combo);
        combo->setCurrentIndex(index.value_or(0));
    });
    return combo;
}

ColorSwatch* InspectorPanel::addColor(
    const QString& label, const std::string& undoLabel,
    std::function<std::optional<BackgroundColorRGBA>(const EditorProjectState&,
                                                     const EditorSelectionState&)>
        read,
    std::function<void(EditorProjectState&, EditorSelectionState&, const BackgroundColorRGBA&)>
        write) {
    auto* swatch = new ColorSwatch(content_);
    swatch->setAccessibleName(label);
    addRow(label, swatch);
    connect(swatch, &ColorSwatch::clicked, this, [this, swatch, label, undoLabel, write] {
        // The dialog's whole session is one step, and the preview follows the colour.
        const QColor before = swatch->color();
        QColorDialog dialog(before, this);
        dialog.setWindowTitle(label);
        dialog.setOption(QColorDialog::ShowAlphaChannel);
        dialog.setOption(QColorDialog::DontUseNativeDialog);
        store_.beginUndoTransaction(undoLabel);
        connect(&dialog, &QColorDialog::currentColorChanged, this, [&](const QColor& color) {
            store_.edit(undoLabel,
                        [&](EditorProjectState& project, EditorSelectionState& selection) {
                            write(project, selection, projectColor(color));
                        });
        });
        const bool accepted = dialog.exec() == QDialog::Accepted;
        const QColor chosen = accepted ? dialog.selectedColor() : before;
        store_.edit(undoLabel, [&](EditorProjectState& project, EditorSelectionState& selection) {
            write(project, selection, projectColor(chosen));
        });
        store_.endUndoTransaction();
    });
    addRefresher([this, swatch, read] {
        const auto color = read(store_.project(), store_.selection());
        swatch->setEnabled(color.has_value());
        if (color) {
            swatch->setColor(qColor(*color));
        }
    });
    return swatch;
}

} // namespace orvelle
