#include "platform/capture/x11/x11_pointer_monitor.h"

#include "core/error.h"
#include "platform/capture/x11/detail/xcb_connection.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <xcb/xinput.h>

#include <atomic>
#include <mutex>
#include <thread>

namespace orvelle {

using detail::XcbConnection;
using detail::XcbReply;

std::optional<int> pointerButtonNumber(int xButton) {
    switch (xButton) {
    case 1:
        return 0;
    case 3:
        return 1;
    case 2:
        return 2;
    default:
        break;
    }
    if (xButton >= 8) {
        return xButton - 5;
    }
    return std::nullopt;
}

struct X11PointerMonitor::State {
    explicit State(const std::string& displayName) : query(displayName) {}

    XcbConnection query; // position queries, from any thread, under queryMutex
    std::mutex queryMutex;
    X11PointerPosition last;

    // Button monitoring: a connection of its own, read by one thread.
    std::unique_ptr<XcbConnection> events;
    std::thread thread;
    int stopEvent = -1;
    std::function<void(int)> onPress;

    void runEvents(uint8_t xinputOpcode) {
        pollfd fds[2] = {{xcb_get_file_descriptor(events->get()), POLLIN, 0},
                         {stopEvent, POLLIN, 0}};
        while (true) {
            while (xcb_generic_event_t* raw = xcb_poll_for_event(events->get())) {
                const XcbReply<xcb_generic_event_t> event(raw);
                if ((event->response_type & 0x7f) != XCB_GE_GENERIC) {
                    continue;
                }
                const auto* generic = reinterpret_cast<const xcb_ge_generic_event_t*>(raw);
                if (generic->extension != xinputOpcode ||
                    generic->event_type != XCB_INPUT_RAW_BUTTON_PRESS) {
                    continue;
                }
                const auto* press =
                    reinterpret_cast<const xcb_input_raw_button_press_event_t*>(raw);
                if (auto button = pointerButtonNumber(static_cast<int>(press->detail))) {
                    onPress(*button);
                }
            }
            if (xcb_connection_has_error(events->get()) != 0) {
                return;
            }
            fds[0].revents = 0;
            fds[1].revents = 0;
            if (poll(fds, 2, -1) < 0 && errno != EINTR) {
                return;
            }
            if ((fds[1].revents & POLLIN) != 0) {
                return;
            }
        }
    }
};

X11PointerMonitor::X11PointerMonitor(const std::string& displayName)
    : state_(std::make_unique<State>(displayName)) {}

X11PointerMonitor::~X11PointerMonitor() {
    stopButtonMonitoring();
}

X11PointerPosition X11PointerMonitor::position() {
    std::lock_guard lock(state_->queryMutex);
    xcb_connection_t* connection = state_->query.get();
    const XcbReply<xcb_query_pointer_reply_t> reply(xcb_query_pointer_reply(
        connection, xcb_query_pointer(connection, state_->query.root()), nullptr));
    if (reply && reply->same_screen != 0) {
        state_->last = {static_cast<double>(reply->root_x), static_cast<double>(reply->root_y)};
    }
    return state_->last;
}

double X11PointerMonitor::screenHeight() const {
    return state_->query.screen()->height_in_pixels;
}

void X11PointerMonitor::startButtonMonitoring(std::function<void(int button)> onPress) {
    stopButtonMonitoring();
    auto events = std::make_unique<XcbConnection>(state_->query.displayName());
    xcb_connection_t* connection = events->get();
    const xcb_query_extension_reply_t* xinput = xcb_get_extension_data(connection, &xcb_input_id);
    const XcbReply<xcb_input_xi_query_version_reply_t> version(
        xinput != nullptr && xinput->present != 0
            ? xcb_input_xi_query_version_reply(
                  connection, xcb_input_xi_query_version(connection, 2, 2), nullptr)
            : nullptr);
    if (!version || version->major_version < 2) {
        throw Error("The X display " + events->displayName() +
                    " has no XInput2, so clicks cannot be recorded.");
    }
    struct {
        xcb_input_event_mask_t header;
        uint32_t bits;
    } mask{{XCB_INPUT_DEVICE_ALL_MASTER, 1}, XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS};
    const XcbReply<xcb_generic_error_t> error(
        xcb_request_check(connection, xcb_input_xi_select_events_checked(connection, events->root(),
                                                                         1, &mask.header)));
    if (error) {
        throw Error("The X display " + events->displayName() + " refused to report clicks.");
    }
    state_->stopEvent = eventfd(0, EFD_CLOEXEC);
    if (state_->stopEvent < 0) {
        throw Error("Could not watch the pointer's buttons.");
    }
    state_->events = std::move(events);
    state_->onPress = std::move(onPress);
    const uint8_t opcode = xinput->major_opcode;
    state_->thread = std::thread([state = state_.get(), opcode] { state->runEvents(opcode); });
}

void X11PointerMonitor::stopButtonMonitoring() {
    if (state_->thread.joinable()) {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = write(state_->stopEvent, &one, sizeof one);
        state_->thread.join();
    }
    if (state_->stopEvent >= 0) {
        close(state_->stopEvent);
        state_->stopEvent = -1;
    }
    state_->events.reset();
    state_->onPress = nullptr;
}

} // namespace orvelle
