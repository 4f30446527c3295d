#pragma once

// The pointer of an X display: where it is, and every button press anywhere on the
// screen, over any program's windows, from XInput2's raw events.

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace orvelle {

struct X11PointerPosition {
    double x = 0; // screen pixels, origin top left
    double y = 0;
};

class X11PointerMonitor {
public:
    // `displayName` empty means $DISPLAY. Throws Error when the display cannot be reached.
    explicit X11PointerMonitor(const std::string& displayName = {});
    ~X11PointerMonitor();
    X11PointerMonitor(const X11PointerMonitor&) = delete;
    X11PointerMonitor& operator=(const X11PointerMonitor&) = delete;

    // Asks the server; the last known position when it does not answer. Thread-safe.
    X11PointerPosition position();
    double screenHeight() const;

    // Calls onPress on a thread of the monitor with the button's number (0 left, 1 right,
    // 2 middle, 3 and up the extra buttons; wheel steps are not presses) until stopped.
    // Starting again replaces the callback. Throws Error when the server has no XInput2.
    void startButtonMonitoring(std::function<void(int button)> onPress);
    // When it returns, onPress is called no more.
    void stopButtonMonitoring();

private:
    struct State;
    std::unique_ptr<State> state_;
};

// The number a press reports for an X button: 1 left, 3 right, 2 middle, 8 and 9 back and
// forward; 4 to 7 are wheel steps (absent).
std::optional<int> pointerButtonNumber(int xButton);

} // namespace orvelle
