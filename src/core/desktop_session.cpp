#include "core/desktop_session.h"

#include <cstdlib>
#include <string_view>

namespace orvelle {

namespace {

std::string_view environmentValue(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

} // namespace

DesktopSession currentDesktopSession() {
    if (!environmentValue("WAYLAND_DISPLAY").empty() ||
        environmentValue("XDG_SESSION_TYPE") == "wayland") {
        return DesktopSession::wayland;
    }
    if (!environmentValue("DISPLAY").empty()) {
        return DesktopSession::x11;
    }
    return DesktopSession::none;
}

} // namespace orvelle
