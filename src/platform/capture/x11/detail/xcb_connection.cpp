#include "platform/capture/x11/detail/xcb_connection.h"

#include "core/error.h"

#include <cstdlib>
#include <cstring>

namespace orvelle::detail {

void FreeDeleter::operator()(void* pointer) const {
    std::free(pointer);
}

XcbConnection::XcbConnection(const std::string& displayName) {
    const char* name = displayName.empty() ? nullptr : displayName.c_str();
    int screenNumber = 0;
    connection_ = xcb_connect(name, &screenNumber);
    const char* environment = std::getenv("DISPLAY");
    displayName_ = name != nullptr ? displayName : (environment != nullptr ? environment : "");
    if (xcb_connection_has_error(connection_) != 0) {
        xcb_disconnect(connection_);
        connection_ = nullptr;
        throw Error(displayName_.empty()
                        ? "No X display to record: DISPLAY is not set. Start Orvelle inside "
                          "your desktop session."
                        : "Could not connect to the X display " + displayName_ +
                              ". Check that it is running and that you may use it.");
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection_));
    for (int index = 0; index < screenNumber && screens.rem > 0; ++index) {
        xcb_screen_next(&screens);
    }
    screen_ = screens.data;
    if (screen_ == nullptr) {
        xcb_disconnect(connection_);
        connection_ = nullptr;
        throw Error("The X display " + displayName_ + " has no screen to record.");
    }
}

XcbConnection::~XcbConnection() {
    if (connection_ != nullptr) {
        xcb_disconnect(connection_);
    }
}

xcb_atom_t XcbConnection::atom(const char* name) {
    const auto cookie =
        xcb_intern_atom(connection_, 0, static_cast<uint16_t>(std::strlen(name)), name);
    const XcbReply<xcb_intern_atom_reply_t> reply(
        xcb_intern_atom_reply(connection_, cookie, nullptr));
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

std::optional<std::vector<uint8_t>> XcbConnection::property(xcb_window_t window,
                                                            xcb_atom_t property, xcb_atom_t type,
                                                            uint32_t maxLongs) {
    if (property == XCB_ATOM_NONE) {
        return std::nullopt;
    }
    const auto cookie = xcb_get_property(connection_, 0, window, property, type, 0, maxLongs);
    const XcbReply<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(connection_, cookie, nullptr));
    if (!reply || reply->type == XCB_ATOM_NONE) {
        return std::nullopt;
    }
    const auto* bytes = static_cast<const uint8_t*>(xcb_get_property_value(reply.get()));
    const int length = xcb_get_property_value_length(reply.get());
    return std::vector<uint8_t>(bytes, bytes + length);
}

std::optional<std::string> XcbConnection::textProperty(xcb_window_t window, const char* name) {
    auto bytes = property(window, atom(name), XCB_GET_PROPERTY_TYPE_ANY);
    if (!bytes) {
        return std::nullopt;
    }
    return std::string(bytes->begin(), bytes->end());
}

std::optional<uint32_t> XcbConnection::cardinalProperty(xcb_window_t window, const char* name) {
    auto bytes = property(window, atom(name), XCB_ATOM_CARDINAL, 1);
    if (!bytes || bytes->size() < sizeof(uint32_t)) {
        return std::nullopt;
    }
    uint32_t value = 0;
    std::memcpy(&value, bytes->data(), sizeof value);
    return value;
}

std::vector<uint32_t> XcbConnection::windowListProperty(xcb_window_t window, const char* name) {
    auto bytes = property(window, atom(name), XCB_ATOM_WINDOW);
    std::vector<uint32_t> windows;
    if (bytes) {
        windows.resize(bytes->size() / sizeof(uint32_t));
        std::memcpy(windows.data(), bytes->data(), windows.size() * sizeof(uint32_t));
    }
    return windows;
}

} // namespace orvelle::detail
