#pragma once

// What the tests of the application in the test process share: running the Qt event loop
// until something holds, and an application with settings of its own and no sound.

#include "app/application.h"
#include "app/event_wait.h"

#include <filesystem>

namespace orvelle::testing {

// The application's settings, editor settings and presets in `folder`; it plays silently.
inline ApplicationOptions applicationOptionsIn(const std::filesystem::path& folder) {
    ApplicationOptions options{.settingsURL = folder / "settings.json",
                               .lastEditorSettingsURL = folder / "last-editor-settings.json",
                               .presetsURL = folder / "presets.json"};
    options.playback.player.withSound = false;
    return options;
}

} // namespace orvelle::testing
