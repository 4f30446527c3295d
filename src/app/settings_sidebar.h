#pragma once

// The inspector beside the preview: a rail of page buttons and the page shown, one for
// each group of settings of the project (look, pointer, the selected clip, zoom, camera,
// mask, text, music, sound, presets) and the transcript and export pages. Selecting a
// clip on the timeline shows its page. A page reads the project again when it changes
// while shown, and when it is shown. Main thread only.

#include "editor/editor_preset_store.h"
#include "editor/published.h"
#include "project/last_editor_settings_store.h"

#include <QWidget>
#include <functional>
#include <map>

class QStackedWidget;
class QToolButton;

namespace orvelle {

class EditorStore;
class InspectorPanel;
class PlaybackModel;

enum class InspectorPage {
    look,
    pointer,
    clip,
    zoom,
    camera,
    mask,
    text,
    music,
    audio,
    presets,
    transcript,
    exportMovie,
};

struct InspectorContext {
    EditorStore* store = nullptr;
    PlaybackModel* playback = nullptr;
    LastEditorSettingsStore lastSettings;
    EditorPresetStore presets;
    std::function<void(const QString&)> showStatus;
    // Asks for a music file and lays it on the music lane at an edit time.
    std::function<void(double)> addMusicFile;
};

class Inspector : public QWidget {
public:
    Inspector(InspectorContext context, QWidget* parent = nullptr);

    void showPage(InspectorPage page);
    InspectorPage currentPage() const { return current_; }
    // A page of another kind than the settings panels (transcript, export).
    void setPage(InspectorPage page, QWidget* widget);
    QWidget* page(InspectorPage page) const;
    InspectorPanel* panel(InspectorPage page) const;
    static QString pageName(InspectorPage page);
    static std::optional<InspectorPage> pageNamed(const QString& name);

private:
    void addPage(InspectorPage page, QWidget* widget);
    void refreshCurrent();
    void followSelection();

    InspectorContext context_;
    QStackedWidget* stack_ = nullptr;
    QWidget* rail_ = nullptr;
    std::map<InspectorPage, QWidget*> pages_;
    std::map<InspectorPage, QToolButton*> buttons_;
    InspectorPage current_ = InspectorPage::look;
    Subscription projectSubscription_;
    Subscription selectionSubscription_;
    Subscription playheadSubscription_;
};

// The settings panels, each over the store.
InspectorPanel* makeLookPanel(InspectorContext& context);
InspectorPanel* makePointerPanel(InspectorContext& context);
InspectorPanel* makeClipPanel(InspectorContext& context);
InspectorPanel* makeZoomPanel(InspectorContext& context);
InspectorPanel* makeCameraPanel(InspectorContext& context);
InspectorPanel* makeMaskPanel(InspectorContext& context);
InspectorPanel* makeTextPanel(InspectorContext& context);
InspectorPanel* makeMusicPanel(InspectorContext& context);
InspectorPanel* makeAudioPanel(InspectorContext& context);
InspectorPanel* makePresetsPanel(InspectorContext& context);

} // namespace orvelle
