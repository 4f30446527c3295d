#pragma once

// Keys taken for this program on a whole X display: a press reaches it whichever window
// has the focus. Each chord is grabbed on the root window as it is and with Caps Lock and
// Num Lock on, over a connection of its own. One thread: the owner's.

#include <functional>
#include <memory>
#include <string>

namespace orvelle {

enum class GlobalShortcutGrab {
    taken,
    // Another program grabbed the same keys first.
    heldElsewhere,
    // The text names no key, or none this keyboard has.
    unknownKey,
    // A key alone or with Shift only, which would be taken from all typing.
    needsModifier,
};

class X11GlobalShortcuts {
public:
    // `displayName` empty means $DISPLAY. Throws Error when the display cannot be reached.
    explicit X11GlobalShortcuts(const std::string& displayName = {});
    ~X11GlobalShortcuts();
    X11GlobalShortcuts(const X11GlobalShortcuts&) = delete;
    X11GlobalShortcuts& operator=(const X11GlobalShortcuts&) = delete;

    // Takes `keys` for `id` in place of what `id` held: modifiers among Ctrl, Shift, Alt
    // and Meta (the Super key), then one key, as "Ctrl+Alt+R", "Meta+F9" or "Ctrl+Shift+!"
    // (the portable text of a Qt key sequence). On any result but taken, `id` holds
    // nothing. Waits for the server's answer.
    GlobalShortcutGrab grab(int id, const std::string& keys);
    void release(int id);

    // Readable when the server has sent something: then call dispatch().
    int fileDescriptor() const;
    // Handles everything the server sent, calling onPress with the id of each chord
    // pressed (a key held down and repeating is one press). False once the connection
    // is lost. Call it also after grab(), which may have read events while it waited.
    bool dispatch(const std::function<void(int id)>& onPress);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace orvelle
