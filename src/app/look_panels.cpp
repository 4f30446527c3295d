// The panels of the edit's look: background and screen, pointer, sound, presets.

#include "app/background_work.h"
#include "app/icons.h"
#include "app/settings_sidebar.h"
#include "app/settings_sidebar_controls.h"
#include "app/theme.h"
#include "composition/cursor_vector_art.h"
#include "core/log.h"
#include "editor/editor_store.h"
#include "playback/playback_model.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>
#include <array>
#include <cmath>

namespace orvelle {

namespace {

QString categoryTitle(WallpaperCategory category) {
    switch (category) {
    case WallpaperCategory::macOS:
        return QStringLiteral("Signature");
    case WallpaperCategory::bright:
        return QStringLiteral("Bright");
    case WallpaperCategory::dark:
        return QStringLiteral("Dark");
    case WallpaperCategory::blue:
        return QStringLiteral("Blue");
    case WallpaperCategory::green:
        return QStringLiteral("Green");
    case WallpaperCategory::pink:
        return QStringLiteral("Pink");
    case WallpaperCategory::gradient:
        return QStringLiteral("Gradient");
    }
    return {};
}

QString timesText(double value) {
    return QStringLiteral("%1×").arg(value, 0, 'f', 2);
}

// The wallpapers of one category as a grid of their thumbnails, read off the main thread.
class WallpaperGrid final : public QWidget {
public:
    explicit WallpaperGrid(EditorStore& store) : store_(store) {
        auto* layout = new QVBoxLayout(this);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSpacing(8);
        category_ = new QComboBox(this);
        for (const auto category : kWallpaperCategories) {
            category_->addItem(categoryTitle(category));
        }
        layout->addWidget(category_);
        list_ = new QListWidget(this);
        list_->setViewMode(QListView::IconMode);
        list_->setIconSize(QSize(88, 50));
        list_->setGridSize(QSize(96, 58));
        list_->setResizeMode(QListView::Adjust);
        list_->setMovement(QListView::Static);
        list_->setUniformItemSizes(true);
        list_->setSelectionMode(QAbstractItemView::SingleSelection);
        list_->setMinimumHeight(190);
        list_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        list_->setStyleSheet(QStringLiteral(
            "QListWidget { background: #141519; border-radius: 8px; padding: 4px; }"
            "QListWidget::item { border-radius: 6px; padding: 0; }"
            "QListWidget::item:selected { background: transparent; border: 2px solid #7c5cff; }"));
        layout->addWidget(list_);
        connect(category_, &QComboBox::activated, this, [this](int index) {
            showCategory(kWallpaperCategories[static_cast<size_t>(index)]);
        });
        connect(list_, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) {
            const WallpaperPreset preset =
                WallpaperPreset::parse(item->data(Qt::UserRole).toString().toStdString());
            store_.edit("Change Wallpaper", [&](EditorProjectState& p, EditorSelectionState&) {
                p.background.kind = BackgroundKind::wallpaper;
                p.background.wallpaper = preset;
            });
        });
    }

    void refresh() {
        const BackgroundSettings& background = store_.project().background;
        const auto category = background.wallpaper.category().value_or(WallpaperCategory::macOS);
        if (!shown_ || *shown_ != category) {
            showCategory(category);
        }
        for (int i = 0; i < list_->count(); ++i) {
            QListWidgetItem* item = list_->item(i);
            const bool current =
                background.kind == BackgroundKind::wallpaper &&
                item->data(Qt::UserRole).toString().toStdString() == background.wallpaper.rawValue;
            item->setSelected(current);
        }
    }

private:
    void showCategory(WallpaperCategory category) {
        shown_ = category;
        category_->setCurrentIndex(static_cast<int>(
            std::find(kWallpaperCategories.begin(), kWallpaperCategories.end(), category) -
            kWallpaperCategories.begin()));
        list_->clear();
        std::vector<std::pair<int, std::filesystem::path>> wanted;
        for (const WallpaperPreset& preset : WallpaperPreset::presets(category)) {
            auto* item = new QListWidgetItem(list_);
            item->setData(Qt::UserRole, QString::fromStdString(preset.rawValue));
            item->setToolTip(QString::fromStdString(preset.resourceName()));
            item->setSizeHint(QSize(92, 54));
            wanted.emplace_back(list_->count() - 1, preset.thumbnailURL());
        }
        const int generation = ++generation_;
        work_.run<std::vector<std::pair<int, QImage>>>(
            [wanted] {
                std::vector<std::pair<int, QImage>> images;
                for (const auto& [row, url] : wanted) {
                    QImage image(QString::fromStdString(url.string()));
                    if (!image.isNull()) {
                        images.emplace_back(row,
                                            image.scaled(176, 100, Qt::KeepAspectRatioByExpanding,
                                                         Qt::SmoothTransformation));
                    }
                }
                return images;
            },
            [this, generation](std::vector<std::pair<int, QImage>> images) {
                if (generation != generation_) {
                    return;
                }
                for (auto& [row, image] : images) {
                    if (QListWidgetItem* item = list_->item(row)) {
                        QPixmap pixmap = QPixmap::fromImage(image);
                        pixmap.setDevicePixelRatio(2);
                        item->setIcon(QIcon(pixmap));
                    }
                }
            });
        refresh();
    }

    EditorStore& store_;
    QComboBox* category_ = nullptr;
    QListWidget* list_ = nullptr;
    std::optional<WallpaperCategory> shown_;
    int generation_ = 0;
    BackgroundWork work_{"com.orvelle.inspector.wallpapers"};
};

constexpr std::array<CursorStyle, 7> kCursorStyles{
    CursorStyle::soft,    CursorStyle::crisp,   CursorStyle::obsidian, CursorStyle::brutalist,
    CursorStyle::beveled, CursorStyle::pointer, CursorStyle::dot};

QString cursorStyleTitle(CursorStyle style) {
    switch (style) {
    case CursorStyle::soft:
        return QStringLiteral("Soft");
    case CursorStyle::crisp:
        return QStringLiteral("Crisp");
    case CursorStyle::obsidian:
        return QStringLiteral("Obsidian");
    case CursorStyle::brutalist:
        return QStringLiteral("Brutalist");
    case CursorStyle::beveled:
        return QStringLiteral("Beveled");
    case CursorStyle::pointer:
        return QStringLiteral("Hand");
    case CursorStyle::dot:
        return QStringLiteral("Dot");
    }
    return {};
}

// The seven pointer styles, each drawn by the renderer's own art.
class PointerStylePicker final : public QWidget {
public:
    explicit PointerStylePicker(EditorStore& store) : store_(store) {
        auto* grid = new QGridLayout(this);
        grid->setContentsMargins(0, 0, 0, 0);
        grid->setSpacing(6);
        auto* group = new QButtonGroup(this);
        for (size_t i = 0; i < kCursorStyles.size(); ++i) {
            const CursorStyle style = kCursorStyles[i];
            auto* button = new QToolButton(this);
            button->setCheckable(true);
            button->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
            button->setText(cursorStyleTitle(style));
            button->setIconSize(QSize(36, 36));
            button->setFixedSize(72, 68);
            // The longest names ("Brutalist") fit whole under the art.
            button->setFont(Theme::interfaceFont(8.5));
            button->setStyleSheet(QStringLiteral("QToolButton { padding: 2px; }"));
            button->setFocusPolicy(Qt::TabFocus);
            group->addButton(button, static_cast<int>(i));
            grid->addWidget(button, static_cast<int>(i / 4), static_cast<int>(i % 4));
            buttons_.push_back(button);
        }
        connect(group, &QButtonGroup::idClicked, this, [this](int index) {
            store_.edit("Change Pointer Style", [&](EditorProjectState& p, EditorSelectionState&) {
                p.cursor.style = kCursorStyles[static_cast<size_t>(index)];
            });
        });
    }

    void refresh() {
        const CursorSettings& cursor = store_.project().cursor;
        if (!(dotColor_ == cursor.dotColor) || !drawn_) {
            drawn_ = true;
            dotColor_ = cursor.dotColor;
            const double scale = devicePixelRatioF();
            for (size_t i = 0; i < kCursorStyles.size(); ++i) {
                const auto art = CursorVectorArt::render(
                    kCursorStyles[i], static_cast<int>(std::lround(36 * scale)), cursor.dotColor);
                if (!art) {
                    continue;
                }
                QImage image(art->row(0), art->width(), art->height(),
                             static_cast<qsizetype>(art->stride()),
                             QImage::Format_ARGB32_Premultiplied);
                QPixmap pixmap = QPixmap::fromImage(image.copy());
                pixmap.setDevicePixelRatio(scale);
                buttons_[i]->setIcon(QIcon(pixmap));
            }
        }
        for (size_t i = 0; i < kCursorStyles.size(); ++i) {
            buttons_[i]->setChecked(kCursorStyles[i] == cursor.style);
        }
    }

private:
    EditorStore& store_;
    std::vector<QToolButton*> buttons_;
    BackgroundColorRGBA dotColor_;
    bool drawn_ = false;
};

} // namespace

InspectorPanel* makeLookPanel(InspectorContext& context) {
    EditorStore& store = *context.store;
    auto* panel = new InspectorPanel(store, QStringLiteral("Look"));
    panel->addSection(QStringLiteral("Background"));
    panel->addSegments(
        {}, {QStringLiteral("Wallpaper"), QStringLiteral("Colour")}, "Change Background",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<int>(p.background.kind == BackgroundKind::wallpaper ? 0 : 1);
        },
        [](EditorProjectState& p, EditorSelectionState&, int index) {
            p.background.kind = index == 0 ? BackgroundKind::wallpaper : BackgroundKind::color;
        });
    auto* wallpapers = new WallpaperGrid(store);
    panel->addWidget(wallpapers);
    panel->addRefresher([wallpapers, &store] {
        wallpapers->setVisible(store.project().background.kind == BackgroundKind::wallpaper);
        wallpapers->refresh();
    });
    panel->addColor(
        QStringLiteral("Colour"), "Change Background Colour",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<BackgroundColorRGBA>(p.background.solidColor);
        },
        [](EditorProjectState& p, EditorSelectionState&, const BackgroundColorRGBA& color) {
            p.background.kind = BackgroundKind::color;
            p.background.solidColor = color;
        });

    panel->addSection(QStringLiteral("Frame"));
    panel->addSlider(
        QStringLiteral("Padding"), 0, 0.5, percentText, "Change Padding",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<double>(p.background.paddingAmount);
        },
        [](EditorProjectState& p, EditorSelectionState&, double v) {
            p.background.paddingAmount = v;
        });
    panel->addSlider(
        QStringLiteral("Shadow"), 0, 1, percentText, "Change Shadow",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<double>(p.background.shadowAmount);
        },
        [](EditorProjectState& p, EditorSelectionState&, double v) {
            p.background.shadowAmount = v;
        });

    panel->addSection(QStringLiteral("Screen"));
    static const QStringList aspectNames{
        QStringLiteral("Automatic"),     QStringLiteral("Wide 16:9"),
        QStringLiteral("Square 1:1"),    QStringLiteral("Classic 4:3"),
        QStringLiteral("Vertical 9:16"), QStringLiteral("Tall 3:4"),
        QStringLiteral("Portrait 4:5")};
    panel->addChoice(
        QStringLiteral("Aspect ratio"), aspectNames, "Change Aspect Ratio",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<int>(static_cast<int>(p.screen.aspectRatio));
        },
        [](EditorProjectState& p, EditorSelectionState&, int index) {
            p.screen.aspectRatio = static_cast<AspectRatio>(index);
        });
    panel->addSegments(
        QStringLiteral("Camera motion"), {QStringLiteral("Focused"), QStringLiteral("Smooth")},
        "Change Camera Motion",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<int>(p.animation.screenStyle == ScreenAnimationStyle::focused ? 0
                                                                                               : 1);
        },
        [](EditorProjectState& p, EditorSelectionState&, int index) {
            p.animation.screenStyle =
                index == 0 ? ScreenAnimationStyle::focused : ScreenAnimationStyle::smooth;
        });
    panel->addSlider(
        QStringLiteral("Zoom of new zooms"), 1, 4, timesText, "Change Zoom Level",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<double>(p.screen.zoomScale);
        },
        [](EditorProjectState& p, EditorSelectionState&, double v) { p.screen.zoomScale = v; });
    panel->addStretch();
    return panel;
}

InspectorPanel* makePointerPanel(InspectorContext& context) {
    EditorStore& store = *context.store;
    auto* panel = new InspectorPanel(store, QStringLiteral("Pointer"));
    panel->addSection(QStringLiteral("Style"));
    auto* picker = new PointerStylePicker(store);
    panel->addWidget(picker);
    panel->addRefresher([picker] { picker->refresh(); });
    panel->addColor(
        QStringLiteral("Dot colour"), "Change Dot Colour",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return p.cursor.style == CursorStyle::dot
                       ? std::optional<BackgroundColorRGBA>(p.cursor.dotColor)
                       : std::nullopt;
        },
        [](EditorProjectState& p, EditorSelectionState&, const BackgroundColorRGBA& color) {
            p.cursor.dotColor = color;
        });
    panel->addSection(QStringLiteral("Appearance"));
    panel->addSlider(
        QStringLiteral("Size"), 0, 1, percentText, "Change Pointer Size",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<double>(p.cursor.sizeAmount);
        },
        [](EditorProjectState& p, EditorSelectionState&, double v) { p.cursor.sizeAmount = v; });
    panel->addToggle(
        QStringLiteral("Tilt while moving"), "Change Pointer Tilt",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<bool>(p.cursor.tiltEnabled);
        },
        [](EditorProjectState& p, EditorSelectionState&, bool on) { p.cursor.tiltEnabled = on; });
    panel->addToggle(
        QStringLiteral("Hide the pointer"), "Hide Pointer",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<bool>(p.cursor.isHidden);
        },
        [](EditorProjectState& p, EditorSelectionState&, bool on) { p.cursor.isHidden = on; });
    panel->addSection(QStringLiteral("Clicks"));
    panel->addSlider(
        QStringLiteral("Click sound"), 0, 1, percentText, "Change Click Volume",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<double>(p.cursor.clickSoundVolume);
        },
        [](EditorProjectState& p, EditorSelectionState&, double v) {
            p.cursor.clickSoundVolume = v;
        });
    panel->addStretch();
    return panel;
}

InspectorPanel* makeAudioPanel(InspectorContext& context) {
    EditorStore& store = *context.store;
    auto* panel = new InspectorPanel(store, QStringLiteral("Sound"));
    panel->addToggle(
        QStringLiteral("Sound in the movie"), "Change Sound",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<bool>(p.audio.isEnabled);
        },
        [](EditorProjectState& p, EditorSelectionState&, bool on) { p.audio.isEnabled = on; });
    panel->addSection(QStringLiteral("Levels"));
    const auto level = [&](const QString& label, const std::string& undo,
                           double AudioSettings::*field) {
        panel->addSlider(
            label, 0, 1, percentText, undo,
            [field](const EditorProjectState& p, const EditorSelectionState&) {
                return p.audio.isEnabled ? std::optional<double>(p.audio.*field) : std::nullopt;
            },
            [field](EditorProjectState& p, EditorSelectionState&, double v) {
                p.audio.*field = v;
            });
    };
    level(QStringLiteral("Microphone"), "Change Microphone Volume",
          &AudioSettings::microphoneVolume);
    level(QStringLiteral("System audio"), "Change System Audio Volume",
          &AudioSettings::systemAudioVolume);
    level(QStringLiteral("Music"), "Change Music Volume", &AudioSettings::musicVolume);
    panel->addSection(QStringLiteral("Voice"));
    auto* noise = panel->addToggle(
        QStringLiteral("Remove background noise"), "Toggle Noise Removal",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<bool>(p.audio.removesNoise);
        },
        nullptr);
    QObject::connect(noise, &ToggleSwitch::toggled, panel,
                     [&store](bool on) { store.setRemovesNoise(on); });
    panel->addNote(QStringLiteral("The microphone is cleaned once in the background; the preview "
                                  "and the export then use the cleaned copy."));
    panel->addStretch();
    return panel;
}

InspectorPanel* makePresetsPanel(InspectorContext& context) {
    EditorStore& store = *context.store;
    auto* panel = new InspectorPanel(store, QStringLiteral("Presets"));
    panel->addNote(QStringLiteral("A preset keeps a look (background, frame, screen, pointer, "
                                  "camera overlay and sound levels) to apply to any edit."));
    auto* list = new QListWidget;
    list->setMinimumHeight(160);
    list->setStyleSheet(
        QStringLiteral("QListWidget { background: #141519; border-radius: 8px; padding: 4px; }"
                       "QListWidget::item { padding: 6px 8px; border-radius: 6px; }"));
    panel->addWidget(list);
    auto* buttons = new QWidget;
    auto* row = new QHBoxLayout(buttons);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(Theme::kSpacing);
    auto* apply = new QPushButton(QStringLiteral("Apply"), buttons);
    auto* remove = new QPushButton(QStringLiteral("Delete"), buttons);
    remove->setProperty("destructive", true);
    row->addWidget(apply, 1);
    row->addWidget(remove, 1);
    panel->addWidget(buttons);
    auto* save = new QPushButton(icon(IconName::plus), QStringLiteral("Save Current Look…"));
    panel->addWidget(save);

    InspectorContext* shared = &context;
    const auto reload = [list, shared] {
        const QString current = list->currentItem() ? list->currentItem()->text() : QString();
        list->clear();
        for (const auto& preset : shared->presets.load()) {
            list->addItem(QString::fromStdString(preset.name));
        }
        const auto found = list->findItems(current, Qt::MatchExactly);
        list->setCurrentItem(found.isEmpty() ? list->item(0) : found.front());
    };
    reload();
    const auto chosen = [list, shared]() -> std::optional<EditorPreset> {
        if (list->currentItem() == nullptr) {
            return std::nullopt;
        }
        for (auto& preset : shared->presets.load()) {
            if (QString::fromStdString(preset.name) == list->currentItem()->text()) {
                return preset;
            }
        }
        return std::nullopt;
    };
    QObject::connect(apply, &QPushButton::clicked, panel, [&store, chosen, shared] {
        if (const auto preset = chosen()) {
            store.applyPreset(preset->payload);
            shared->showStatus(
                QStringLiteral("Applied “%1”").arg(QString::fromStdString(preset->name)));
        }
    });
    QObject::connect(list, &QListWidget::itemDoubleClicked, apply, &QPushButton::click);
    QObject::connect(remove, &QPushButton::clicked, panel, [panel, list, shared, reload] {
        if (list->currentItem() == nullptr) {
            return;
        }
        try {
            shared->presets.remove(list->currentItem()->text().toStdString());
        } catch (const Error& error) {
            QMessageBox::warning(panel, QStringLiteral("Orvelle"), QString::fromUtf8(error.what()));
        }
        reload();
    });
    QObject::connect(save, &QPushButton::clicked, panel, [panel, &store, shared, reload, list] {
        bool accepted = false;
        const QString name =
            QInputDialog::getText(panel, QStringLiteral("Save Look"),
                                  QStringLiteral("Name of the preset:"), QLineEdit::Normal,
                                  QStringLiteral("My Look"), &accepted)
                .trimmed();
        if (!accepted || name.isEmpty()) {
            return;
        }
        try {
            shared->presets.put({name.toStdString(), presetPayload(store.project())});
        } catch (const Error& error) {
            QMessageBox::warning(panel, QStringLiteral("Orvelle"), QString::fromUtf8(error.what()));
            return;
        }
        reload();
        const auto found = list->findItems(name, Qt::MatchExactly);
        if (!found.isEmpty()) {
            list->setCurrentItem(found.front());
        }
        shared->showStatus(QStringLiteral("Saved the look as “%1”").arg(name));
    });
    panel->addRefresher([apply, remove, list] {
        apply->setEnabled(list->currentItem() != nullptr);
        remove->setEnabled(list->currentItem() != nullptr);
    });
    QObject::connect(list, &QListWidget::currentItemChanged, panel, [panel] { panel->refresh(); });

    panel->addSection(QStringLiteral("New recordings"));
    panel->addNote(QStringLiteral("New takes start with the look of the edit you saved or "
                                  "closed last. You can also choose this look now."));
    auto* remember = new QPushButton(QStringLiteral("Use This Look for New Takes"));
    panel->addWidget(remember);
    QObject::connect(remember, &QPushButton::clicked, panel, [&store, shared, panel] {
        try {
            shared->lastSettings.save(LastEditorSettings::from(store.project()));
            shared->showStatus(QStringLiteral("New takes will start with this look"));
        } catch (const Error& error) {
            QMessageBox::warning(panel, QStringLiteral("Orvelle"), QString::fromUtf8(error.what()));
        }
    });
    auto* reset = new QPushButton(QStringLiteral("Reset Look to Defaults"));
    panel->addWidget(reset);
    QObject::connect(reset, &QPushButton::clicked, panel,
                     [&store] { store.applyPreset(presetPayload(EditorProjectState{})); });
    panel->addStretch();
    return panel;
}

} // namespace orvelle
