#pragma once

// A ScreenCast session of the desktop portal (org.freedesktop.portal.ScreenCast over the
// session bus): the desktop's own dialog lets the user pick a monitor or a window, and
// the portal hands over a PipeWire connection and the node of each chosen stream. The
// pointer is asked for as metadata, never drawn into the pictures.

#include "platform/capture/capture_types.h"

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

namespace orvelle {

struct ScreenCastSourceTypes {
    bool monitor = true;
    bool window = false;
};

struct ScreenCastStreamInfo {
    uint32_t nodeID = 0;
    std::optional<CaptureRect> frame; // where the portal says the source lies
    uint32_t sourceType = 0;          // 1 monitor, 2 window, 4 virtual
};

class ScreenCastPortalSession {
public:
    // Runs the portal's dialog and waits for the user's choice (at most `timeout`).
    // Throws Error: no portal on the session bus, the user declined, or the portal failed.
    static std::unique_ptr<ScreenCastPortalSession> open(ScreenCastSourceTypes types,
                                                         std::chrono::seconds timeout);
    // Closes the session: the desktop stops sharing.
    ~ScreenCastPortalSession();
    ScreenCastPortalSession(const ScreenCastPortalSession&) = delete;
    ScreenCastPortalSession& operator=(const ScreenCastPortalSession&) = delete;

    // The connection to PipeWire the portal opened for this session; owned here.
    int pipeWireFd() const;
    const std::vector<ScreenCastStreamInfo>& streams() const;
    // Whether the pointer comes as metadata (some portals can only hide it).
    bool pointerIsMetadata() const;

private:
    ScreenCastPortalSession();
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace orvelle
