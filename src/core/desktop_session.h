#pragma once

namespace orvelle {

// The kind of desktop session this process runs in, from its environment: Wayland when
// WAYLAND_DISPLAY is set or XDG_SESSION_TYPE says "wayland" (an X display beside it is
// then only XWayland's), X11 when DISPLAY is set, none otherwise.
enum class DesktopSession { wayland, x11, none };

DesktopSession currentDesktopSession();

} // namespace orvelle
