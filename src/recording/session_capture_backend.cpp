#include "core/error.h"
#include "recording/capture_backend.h"

#include <cstdlib>
#include <string>

namespace orvelle {

namespace {

std::string environmentValue(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

} // namespace

std::unique_ptr<CaptureBackend> makeSessionCaptureBackend() {
    if (!environmentValue("WAYLAND_DISPLAY").empty() ||
        environmentValue("XDG_SESSION_TYPE") == "wayland") {
        return makePortalCaptureBackend();
    }
    if (!environmentValue("DISPLAY").empty()) {
        return makeX11CaptureBackend();
    }
    throw Error("There is no desktop session to record: neither WAYLAND_DISPLAY nor DISPLAY "
                "is set. Run Orvelle inside your desktop session.");
}

} // namespace orvelle
