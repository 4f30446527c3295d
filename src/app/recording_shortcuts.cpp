#include "app/recording_shortcuts.h"

#include "core/desktop_session.h"
#include "core/log.h"
#include "platform/capture/x11/x11_global_shortcuts.h"

#include <QKeySequence>
#include <QSocketNotifier>
#include <QTimer>

namespace orvelle {

namespace {

constexpr const char* kDefaultStartStop = "Ctrl+Alt+R";
constexpr const char* kDefaultPauseResume = "Ctrl+Alt+P";

QKeySequence sequence(const QString& portable) {
    return QKeySequence::fromString(portable, QKeySequence::PortableText);
}

QString nativeText(const QString& portable) {
    return sequence(portable).toString(QKeySequence::NativeText);
}

const char* settingsKey(RecordingShortcut action) {
    return action == RecordingShortcut::startStop ? RecordingShortcuts::kStartStopKey
                                                  : RecordingShortcuts::kPauseResumeKey;
}

RecordingShortcut otherThan(RecordingShortcut action) {
    return action == RecordingShortcut::startStop ? RecordingShortcut::pauseResume
                                                  : RecordingShortcut::startStop;
}

} // namespace

RecordingShortcuts::RecordingShortcuts(UserDefaults& defaults,
                                       std::function<void(RecordingShortcut)> onPress)
    : defaults_(defaults), onPress_(std::move(onPress)) {
    startStop_.keys = QString::fromStdString(
        defaults_.get<std::string>(kStartStopKey).value_or(kDefaultStartStop));
    pauseResume_.keys = QString::fromStdString(
        defaults_.get<std::string>(kPauseResumeKey).value_or(kDefaultPauseResume));
    switch (currentDesktopSession()) {
    case DesktopSession::wayland:
        unavailable_ = QStringLiteral(
            "Wayland does not let programs take keys for the whole desktop: start and stop "
            "recordings from the tray or the recorder window.");
        return;
    case DesktopSession::none:
        unavailable_ = QStringLiteral(
            "There is no X display: keys for the whole desktop need an X11 session.");
        return;
    case DesktopSession::x11:
        break;
    }
    try {
        grabs_ = std::make_unique<X11GlobalShortcuts>();
    } catch (const std::exception& error) {
        logWarning("Shortcuts", error.what());
        unavailable_ = QStringLiteral("The X display could not be reached, so there are no keys "
                                      "for the whole desktop.");
        return;
    }
    notifier_ = std::make_unique<QSocketNotifier>(grabs_->fileDescriptor(), QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(),
                     [this] { dispatch(); });
    take(RecordingShortcut::startStop);
    take(RecordingShortcut::pauseResume);
}

RecordingShortcuts::~RecordingShortcuts() = default;

RecordingShortcuts::Binding& RecordingShortcuts::binding(RecordingShortcut action) {
    return action == RecordingShortcut::startStop ? startStop_ : pauseResume_;
}

const RecordingShortcuts::Binding& RecordingShortcuts::binding(RecordingShortcut action) const {
    return action == RecordingShortcut::startStop ? startStop_ : pauseResume_;
}

QString RecordingShortcuts::keys(RecordingShortcut action) const {
    return binding(action).keys;
}

QString RecordingShortcuts::problem(RecordingShortcut action) const {
    return binding(action).problem;
}

QString RecordingShortcuts::shownKeys(RecordingShortcut action) const {
    const Binding& held = binding(action);
    if (grabs_ == nullptr || !unavailable_.isEmpty() || held.keys.isEmpty() ||
        !held.problem.isEmpty()) {
        return {};
    }
    return nativeText(held.keys);
}

void RecordingShortcuts::setKeys(RecordingShortcut action, const QString& keys) {
    Binding& changed = binding(action);
    changed.keys = keys.isEmpty() ? QString() : sequence(keys).toString(QKeySequence::PortableText);
    try {
        defaults_.set(settingsKey(action), changed.keys.toStdString());
    } catch (const std::exception& error) {
        logWarning("Shortcuts", "the shortcut could not be kept: ", error.what());
    }
    take(action);
    // The other one may have been kept from keys this one just gave up.
    if (!binding(otherThan(action)).problem.isEmpty()) {
        take(otherThan(action));
    }
    if (onChange_) {
        onChange_();
    }
}

void RecordingShortcuts::take(RecordingShortcut action) {
    Binding& wanted = binding(action);
    wanted.problem.clear();
    if (grabs_ == nullptr) {
        return;
    }
    const int id = static_cast<int>(action);
    grabs_->release(id);
    if (wanted.keys.isEmpty()) {
        return;
    }
    const QString shown = nativeText(wanted.keys);
    const Binding& other = binding(otherThan(action));
    if (other.problem.isEmpty() && !other.keys.isEmpty() &&
        sequence(other.keys) == sequence(wanted.keys)) {
        wanted.problem = action == RecordingShortcut::startStop
                             ? QStringLiteral("%1 already pauses and resumes recording.").arg(shown)
                             : QStringLiteral("%1 already starts and stops recording.").arg(shown);
        return;
    }
    switch (grabs_->grab(id, wanted.keys.toStdString())) {
    case GlobalShortcutGrab::taken:
        break;
    case GlobalShortcutGrab::heldElsewhere:
        wanted.problem =
            QStringLiteral("%1 is used by another program: choose another in Settings.").arg(shown);
        break;
    case GlobalShortcutGrab::unknownKey:
        wanted.problem =
            QStringLiteral("%1 is not a key of this keyboard: choose another in Settings.")
                .arg(shown);
        break;
    case GlobalShortcutGrab::needsModifier:
        wanted.problem =
            QStringLiteral("%1 alone would be taken from all typing: add Ctrl, Alt or Super.")
                .arg(shown);
        break;
    }
    if (!wanted.problem.isEmpty()) {
        logWarning("Shortcuts", wanted.problem.toStdString());
    }
    // Events read while the grab waited for the server are queued in the connection, where
    // the descriptor does not show them.
    QTimer::singleShot(0, notifier_.get(), [this] { dispatch(); });
}

void RecordingShortcuts::dispatch() {
    if (grabs_ == nullptr || !notifier_->isEnabled()) {
        return;
    }
    const bool connected = grabs_->dispatch([this](int id) {
        const auto action = static_cast<RecordingShortcut>(id);
        // From the event loop: the action may run one of its own while a take starts.
        QTimer::singleShot(0, notifier_.get(), [this, action] {
            if (onPress_) {
                onPress_(action);
            }
        });
    });
    if (!connected) {
        notifier_->setEnabled(false);
        unavailable_ = QStringLiteral("The connection to the X display was lost: the keys for "
                                      "the whole desktop work again at the next start.");
        logWarning("Shortcuts", unavailable_.toStdString());
        if (onChange_) {
            onChange_();
        }
    }
}

} // namespace orvelle
