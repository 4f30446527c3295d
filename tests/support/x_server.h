#pragma once

// A private X server (Xvfb) for one test: 24-bit colour, MIT-SHM, RandR and XInput2, on a
// display number no one else uses. Ended with the object.

#include "support/child_process.h"

#include <chrono>
#include <filesystem>
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
    // The first visible window whose name matches the pattern, once there is one; "" when
    // none has shown by the end of the wait.
    std::string findWindow(const std::string& namePattern, std::chrono::milliseconds wait) const;
    // Keys as a user types them: there is no window manager, so the window is given the
    // focus first.
    void key(const std::string& window, const std::vector<std::string>& keys,
             int delayMilliseconds = 80) const;
    // What the desktop application needs to run on this server with its settings, data,
    // caches and home folder (where exports go) of its own under `folder`.
    std::map<std::string, std::string>
    applicationEnvironment(const std::filesystem::path& folder) const;

private:
    std::unique_ptr<ChildProcess> process_;
    std::string display_;
};

} // namespace orvelle::testing
