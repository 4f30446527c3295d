#pragma once

// What the tests of the application in the test process share: running the Qt event loop
// until something holds, and an application with settings of its own and no sound.

#include "app/application.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>
#include <filesystem>
#include <functional>

namespace orvelle::testing {

// Runs the Qt event loop until the predicate holds; false when the time runs out first.
inline bool processEventsUntil(const std::function<bool()>& predicate, int milliseconds = 30000) {
    QElapsedTimer timer;
    timer.start();
    while (!predicate()) {
        if (timer.elapsed() > milliseconds) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

// The application's settings, editor settings and presets in `folder`; it plays silently.
inline ApplicationOptions applicationOptionsIn(const std::filesystem::path& folder) {
    ApplicationOptions options;
    options.settingsURL = folder / "settings.json";
    options.lastEditorSettingsURL = folder / "last-editor-settings.json";
    options.presetsURL = folder / "presets.json";
    options.playback.player.withSound = false;
    return options;
}

} // namespace orvelle::testing
