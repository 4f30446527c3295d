#pragma once

// The displays and windows of an X display: monitors from RandR (the whole screen when
// RandR has none), and the window manager's client list (the viewable top-level windows
// when no window manager keeps one), with titles, owning program and process.

#include "platform/capture/capture_types.h"

#include <string>

namespace orvelle {

// `displayName` empty means $DISPLAY. Throws Error when the display cannot be reached.
ShareableContent x11ShareableContent(const std::string& displayName = {});

} // namespace orvelle
