#include "support/interface_watchdog.h"

#include <poll.h>
#include <xcb/xcb.h>

#include <cstring>
#include <memory>

namespace orvelle::testing {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

xcb_atom_t internAtom(xcb_connection_t* connection, const char* name) {
    const auto cookie = xcb_intern_atom(connection, 0, uint16_t(std::strlen(name)), name);
    std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
        xcb_intern_atom_reply(connection, cookie, nullptr), &std::free);
    return reply ? reply->atom : XCB_ATOM_NONE;
}

} // namespace

InterfaceWatchdog::InterfaceWatchdog(const std::string& display, const std::string& window)
    : display_(display), window_(unsigned(std::stoul(window))) {
    thread_ = std::jthread([this](const std::stop_token& stop) { run(stop); });
}

InterfaceWatchdog::~InterfaceWatchdog() = default;

void InterfaceWatchdog::restart() {
    const std::lock_guard lock(mutex_);
    longest_ = {};
    answered_ = 0;
    if (pending_) {
        pendingSince_ = Clock::now();
    }
}

std::chrono::milliseconds InterfaceWatchdog::longestStall() const {
    const std::lock_guard lock(mutex_);
    auto longest = longest_;
    if (pending_) {
        longest = std::max(longest, Clock::now() - pendingSince_);
    }
    return std::chrono::duration_cast<std::chrono::milliseconds>(longest);
}

int InterfaceWatchdog::answered() const {
    const std::lock_guard lock(mutex_);
    return answered_;
}

void InterfaceWatchdog::run(const std::stop_token& stop) {
    int screenNumber = 0;
    std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection(
        xcb_connect(display_.c_str(), &screenNumber), &xcb_disconnect);
    if (xcb_connection_has_error(connection.get()) != 0) {
        return; // nothing is ever answered, which the test sees
    }
    xcb_connection_t* c = connection.get();
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    const xcb_atom_t protocols = internAtom(c, "WM_PROTOCOLS");
    const xcb_atom_t ping = internAtom(c, "_NET_WM_PING");
    // The toolkit answers on the root window, to those who listen to its structure.
    const uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(c, screen->root, XCB_CW_EVENT_MASK, &mask);
    xcb_flush(c);

    uint32_t stamp = 0;
    while (!stop.stop_requested()) {
        ++stamp;
        xcb_client_message_event_t message{};
        message.response_type = XCB_CLIENT_MESSAGE;
        message.format = 32;
        message.window = window_;
        message.type = protocols;
        message.data.data32[0] = ping;
        message.data.data32[1] = stamp;
        message.data.data32[2] = window_;
        {
            const std::lock_guard lock(mutex_);
            pending_ = true;
            pendingSince_ = Clock::now();
        }
        xcb_send_event(c, 0, window_, XCB_EVENT_MASK_NO_EVENT,
                       reinterpret_cast<const char*>(&message));
        xcb_flush(c);
        bool answered = false;
        while (!answered && !stop.stop_requested()) {
            pollfd descriptor{xcb_get_file_descriptor(c), POLLIN, 0};
            ::poll(&descriptor, 1, 20);
            while (xcb_generic_event_t* event = xcb_poll_for_event(c)) {
                if ((event->response_type & 0x7f) == XCB_CLIENT_MESSAGE) {
                    const auto* reply = reinterpret_cast<xcb_client_message_event_t*>(event);
                    if (reply->type == protocols && reply->data.data32[0] == ping &&
                        reply->data.data32[1] == stamp) {
                        answered = true;
                    }
                }
                std::free(event);
            }
            if (xcb_connection_has_error(c) != 0) {
                return;
            }
        }
        if (answered) {
            const std::lock_guard lock(mutex_);
            longest_ = std::max(longest_, Clock::now() - pendingSince_);
            pending_ = false;
            ++answered_;
        }
        std::this_thread::sleep_for(10ms);
    }
}

} // namespace orvelle::testing
