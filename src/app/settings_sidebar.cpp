#include "app/settings_sidebar.h"

#include "app/icons.h"
#include "app/settings_sidebar_controls.h"
#include "app/theme.h"
#include "editor/editor_store.h"
#include "playback/playback_model.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QStackedWidget>
#include <QToolButton>
#include <QVBoxLayout>

namespace orvelle {

namespace {

struct PageInfo {
    InspectorPage page;
    IconName icon;
    const char* name;
    const char* title;
};

constexpr PageInfo kPages[] = {
    {InspectorPage::look, IconName::background, "look", "Look"},
    {InspectorPage::pointer, IconName::pointer, "pointer", "Pointer"},
    {InspectorPage::clip, IconName::film, "clip", "Clip"},
    {InspectorPage::zoom, IconName::zoomFrame, "zoom", "Zoom"},
    {InspectorPage::camera, IconName::camera, "camera", "Camera"},
    {InspectorPage::mask, IconName::mask, "mask", "Mask"},
    {InspectorPage::text, IconName::text, "text", "Text"},
    {InspectorPage::music, IconName::music, "music", "Music"},
    {InspectorPage::audio, IconName::audio, "audio", "Sound"},
    {InspectorPage::presets, IconName::presets, "presets", "Presets"},
    {InspectorPage::transcript, IconName::transcript, "transcript", "Transcript"},
    {InspectorPage::exportMovie, IconName::exportMovie, "export", "Export"},
};

const PageInfo& info(InspectorPage page) {
    for (const auto& entry : kPages) {
        if (entry.page == page) {
            return entry;
        }
    }
    return kPages[0];
}

} // namespace

QString Inspector::pageName(InspectorPage page) {
    return QString::fromLatin1(info(page).name);
}

std::optional<InspectorPage> Inspector::pageNamed(const QString& name) {
    for (const auto& entry : kPages) {
        if (name == QLatin1String(entry.name)) {
            return entry.page;
        }
    }
    return std::nullopt;
}

Inspector::Inspector(InspectorContext context, QWidget* parent)
    : QWidget(parent), context_(std::move(context)) {
    setMinimumWidth(360);
    setAutoFillBackground(true);
    QPalette palette = this->palette();
    palette.setColor(QPalette::Window, Theme::panelBackground());
    setPalette(palette);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    rail_ = new QWidget(this);
    rail_->setFixedWidth(52);
    rail_->setAutoFillBackground(true);
    QPalette railPalette = rail_->palette();
    railPalette.setColor(QPalette::Window, QColor(0x1b, 0x1c, 0x21));
    rail_->setPalette(railPalette);
    auto* railLayout = new QVBoxLayout(rail_);
    railLayout->setContentsMargins(7, 10, 7, 10);
    railLayout->setSpacing(4);
    auto* group = new QButtonGroup(this);
    group->setExclusive(true);
    for (const auto& entry : kPages) {
        auto* button = new QToolButton(rail_);
        button->setIcon(icon(entry.icon, Theme::secondaryText()));
        button->setIconSize(QSize(20, 20));
        button->setCheckable(true);
        button->setProperty("flat", true);
        button->setFixedSize(38, 38);
        button->setToolTip(QString::fromLatin1(entry.title));
        button->setFocusPolicy(Qt::NoFocus);
        group->addButton(button);
        const InspectorPage page = entry.page;
        connect(button, &QToolButton::clicked, this, [this, page] { showPage(page); });
        railLayout->addWidget(button);
        buttons_[entry.page] = button;
        if (entry.page == InspectorPage::presets) {
            railLayout->addStretch(1);
        }
    }
    stack_ = new QStackedWidget(this);
    layout->addWidget(stack_, 1);
    auto* rule = new QWidget(this);
    rule->setFixedWidth(1);
    rule->setAutoFillBackground(true);
    QPalette rulePalette = rule->palette();
    rulePalette.setColor(QPalette::Window, Theme::separator());
    rule->setPalette(rulePalette);
    layout->addWidget(rule);
    layout->addWidget(rail_);

    addPage(InspectorPage::look, makeLookPanel(context_));
    addPage(InspectorPage::pointer, makePointerPanel(context_));
    addPage(InspectorPage::clip, makeClipPanel(context_));
    addPage(InspectorPage::zoom, makeZoomPanel(context_));
    addPage(InspectorPage::camera, makeCameraPanel(context_));
    addPage(InspectorPage::mask, makeMaskPanel(context_));
    addPage(InspectorPage::text, makeTextPanel(context_));
    addPage(InspectorPage::music, makeMusicPanel(context_));
    addPage(InspectorPage::audio, makeAudioPanel(context_));
    addPage(InspectorPage::presets, makePresetsPanel(context_));
    for (const auto& entry : kPages) {
        buttons_[entry.page]->setVisible(pages_.contains(entry.page));
    }

    projectSubscription_ =
        context_.store->observeProject([this](const auto&) { refreshCurrent(); });
    selectionSubscription_ = context_.store->observeSelection([this](const auto&) {
        followSelection();
        refreshCurrent();
    });
    // Panels that act at the playhead say so with its time.
    playheadSubscription_ =
        context_.playback->timelinePlayheadTime().observe([this](const double&) {
            if (current_ == InspectorPage::zoom || current_ == InspectorPage::text ||
                current_ == InspectorPage::mask || current_ == InspectorPage::camera) {
                refreshCurrent();
            }
        });
    showPage(InspectorPage::look);
}

void Inspector::addPage(InspectorPage page, QWidget* widget) {
    pages_[page] = widget;
    stack_->addWidget(widget);
    buttons_[page]->setVisible(true);
}

void Inspector::setPage(InspectorPage page, QWidget* widget) {
    if (auto found = pages_.find(page); found != pages_.end()) {
        stack_->removeWidget(found->second);
        found->second->deleteLater();
    }
    addPage(page, widget);
}

QWidget* Inspector::page(InspectorPage page) const {
    const auto found = pages_.find(page);
    return found == pages_.end() ? nullptr : found->second;
}

InspectorPanel* Inspector::panel(InspectorPage page) const {
    return dynamic_cast<InspectorPanel*>(this->page(page));
}

void Inspector::showPage(InspectorPage page) {
    QWidget* widget = this->page(page);
    if (widget == nullptr) {
        return;
    }
    current_ = page;
    stack_->setCurrentWidget(widget);
    buttons_[page]->setChecked(true);
    refreshCurrent();
}

void Inspector::refreshCurrent() {
    if (InspectorPanel* shown = panel(current_)) {
        shown->refresh();
    }
}

void Inspector::followSelection() {
    using Kind = EditorSelectionState::Kind;
    switch (context_.store->selection().kind) {
    case Kind::none:
        return;
    case Kind::timelineClip:
        showPage(InspectorPage::clip);
        return;
    case Kind::animationClip:
        showPage(InspectorPage::zoom);
        return;
    case Kind::cameraLayoutClip:
        showPage(InspectorPage::camera);
        return;
    case Kind::maskClip:
        showPage(InspectorPage::mask);
        return;
    case Kind::musicClip:
        showPage(InspectorPage::music);
        return;
    case Kind::textClip:
        showPage(InspectorPage::text);
        return;
    }
}

} // namespace orvelle
