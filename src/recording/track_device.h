#pragma once

// A camera or microphone as the launcher lists it.

#include <string>

namespace orvelle {

struct TrackDevice {
    std::string id;   // stable across restarts and replugging where the system allows
    std::string name; // what the user reads
    bool isDefault = false;

    friend bool operator==(const TrackDevice&, const TrackDevice&) = default;
};

} // namespace orvelle
