#pragma once

// The test HTTP server (support/http_test_server.py, or another script of support/ that
// prints its port first) on 127.0.0.1 with a free port, run by the test itself for as long
// as the object lives.

#include <filesystem>
#include <future>
#include <stop_token>
#include <string>

namespace orvelle::testing {

class HttpTestServer {
public:
    // Serves /files/NAME from `folder` besides its fixed paths. `script` names another
    // server of support/ that prints its port the same way.
    explicit HttpTestServer(const std::filesystem::path& folder = ".",
                            const std::string& script = "http_test_server.py");
    ~HttpTestServer();
    HttpTestServer(const HttpTestServer&) = delete;
    HttpTestServer& operator=(const HttpTestServer&) = delete;

    int port() const { return port_; }
    std::string url(const std::string& path) const; // "http://127.0.0.1:PORT" + path

private:
    std::stop_source stop_;
    std::future<void> run_;
    int port_ = 0;
};

} // namespace orvelle::testing
