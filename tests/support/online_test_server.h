#pragma once

// Stand-ins for Google's sign-in and upload endpoints and the music API
// (support/online_test_server.py) on 127.0.0.1, with faults the test asks for, and the
// browser of a sign-in: an HTTP client that follows the consent page's redirect to the
// program's loopback listener.

#include "core/json.h"
#include "support/http_test_server.h"

#include <filesystem>
#include <map>
#include <string>

namespace orvelle::testing {

class OnlineTestServer {
public:
    // Serves /files/NAME from `folder` (audio downloads).
    explicit OnlineTestServer(const std::filesystem::path& folder = ".");

    std::string url(const std::string& path) const { return server_.url(path); }

    // Each fault is used once by the first request it matches, e.g.
    // {"type": "cut", "start": 0, "at": 1000}, {"type": "status", "start": 0, "code": 503},
    // {"type": "forgeState"}, {"type": "noRefreshToken"}.
    void addFaults(const Json& faults) const;
    void setSettings(const Json& settings) const;
    void setCatalogue(const Json& tracks) const;
    Json state() const;

    // A Google OAuth client file ("installed") whose endpoints are this server's.
    void writeClientFile(const std::filesystem::path& file) const;

    // Points the program at these stand-ins: writes the client file where it looks for it
    // under `dataHome` (its XDG_DATA_HOME), and returns the environment that sends uploads
    // and music searches here, opens the browser as curl, and leaves no desktop and no
    // session bus (so that credentials go to private files).
    std::map<std::string, std::string>
    programEnvironment(const std::filesystem::path& dataHome) const;

    // What a browser does with the consent page's address: follow it and its redirect.
    // Returns the page the loopback listener answered with.
    static std::string browse(const std::string& url);

private:
    HttpTestServer server_;
};

} // namespace orvelle::testing
