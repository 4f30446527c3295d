#include "core/desktop_session.h"
#include "core/error.h"
#include "recording/capture_backend.h"

namespace orvelle {

std::unique_ptr<CaptureBackend> makeSessionCaptureBackend() {
    switch (currentDesktopSession()) {
    case DesktopSession::wayland:
        return makePortalCaptureBackend();
    case DesktopSession::x11:
        return makeX11CaptureBackend();
    case DesktopSession::none:
        break;
    }
    throw Error("There is no desktop session to record: neither WAYLAND_DISPLAY nor DISPLAY "
                "is set. Run Orvelle inside your desktop session.");
}

} // namespace orvelle
