#pragma once

// The keys that start and stop a take, and pause and resume it, whichever program has the
// focus: offered where the desktop lets a program take keys for itself (an X11 session),
// with the reason where it does not. The user's choice is kept in the settings; until there
// is one, Ctrl+Alt+R and Ctrl+Alt+P. Main thread only.

#include "core/user_defaults.h"

#include <QString>
#include <functional>
#include <memory>

class QSocketNotifier;

namespace orvelle {

class X11GlobalShortcuts;

enum class RecordingShortcut { startStop, pauseResume };

class RecordingShortcuts {
public:
    // Keys of the user's settings: Qt's portable text of the keys, empty for none.
    static constexpr const char* kStartStopKey = "OrvelleStartStopRecordingShortcut";
    static constexpr const char* kPauseResumeKey = "OrvellePauseResumeRecordingShortcut";

    // Takes the remembered keys. Each press calls onPress from the event loop.
    RecordingShortcuts(UserDefaults& defaults, std::function<void(RecordingShortcut)> onPress);
    ~RecordingShortcuts();
    RecordingShortcuts(const RecordingShortcuts&) = delete;
    RecordingShortcuts& operator=(const RecordingShortcuts&) = delete;

    // Empty where the shortcuts are offered; otherwise why they are not.
    const QString& unavailableReason() const { return unavailable_; }
    // An action's keys as portable text, empty when it has none.
    QString keys(RecordingShortcut action) const;
    // Why an action's keys do not work; empty when they do or when it has none.
    QString problem(RecordingShortcut action) const;
    // The keys as a menu shows them beside the same action; empty when they do not work.
    QString shownKeys(RecordingShortcut action) const;
    // New keys for an action (empty: none), remembered even when they do not work now
    // (the program holding them may have quit by the next start).
    void setKeys(RecordingShortcut action, const QString& keys);
    // Called after a change of keys or of what stands in their way.
    void setOnChange(std::function<void()> handler) { onChange_ = std::move(handler); }

private:
    struct Binding {
        QString keys;
        QString problem;
    };

    Binding& binding(RecordingShortcut action);
    const Binding& binding(RecordingShortcut action) const;
    void take(RecordingShortcut action);
    void dispatch();

    UserDefaults& defaults_;
    std::function<void(RecordingShortcut)> onPress_;
    std::function<void()> onChange_;
    QString unavailable_;
    Binding startStop_;
    Binding pauseResume_;
    std::unique_ptr<X11GlobalShortcuts> grabs_;
    std::unique_ptr<QSocketNotifier> notifier_;
};

} // namespace orvelle
