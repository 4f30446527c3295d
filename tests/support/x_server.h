#pragma once

// A private X server (Xvfb) for one test: 24-bit colour, MIT-SHM, RandR and XInput2, on a
// display number no one else uses. Ended with the object.

#include "support/child_process.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace orvelle::testing {

class XvfbServer {
public:
    explicit XvfbServer(int width = 1280, int height = 720);
    ~XvfbServer();
    XvfbServer(const XvfbServer&) = delete;
    XvfbServer& operator=(const XvfbServer&) = delete;

    const std::string& display() const { return display_; }
    // What a program started for this server needs: DISPLAY, and an X11 session type.
    std::map<std::string, std::string> environment() const;
    // Runs xdotool against this server and returns what it printed; throws
    // std::runtime_error when it fails (a search that finds nothing fails too).
    std::string xdotool(const std::vector<std::string>& arguments) const;

private:
    std::unique_ptr<ChildProcess> process_;
    std::string display_;
};

} // namespace orvelle::testing
