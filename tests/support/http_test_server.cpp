#include "support/http_test_server.h"

#include "core/cancellation.h"
#include "platform/process/process.h"
#include "support/temporary_directory.h"

#include <chrono>
#include <stdexcept>

namespace orvelle::testing {

HttpTestServer::HttpTestServer(const std::filesystem::path& folder, const std::string& script) {
    std::promise<int> port;
    auto portFuture = port.get_future();
    run_ = std::async(std::launch::async, [this, folder, script, port = std::move(port)]() mutable {
        ProcessOptions options;
        options.arguments = {(sourceDirectory() / "tests/support" / script).string(),
                             folder.string()};
        options.terminationGrace = std::chrono::milliseconds(500);
        std::string output;
        bool told = false;
        options.onOutput = [&](std::string_view piece) {
            output += piece;
            if (!told && output.find('\n') != std::string::npos) {
                told = true;
                port.set_value(std::stoi(output));
            }
        };
        try {
            const auto result = runProcess("/usr/bin/python3", options, stop_.get_token());
            if (!told) {
                port.set_exception(std::make_exception_ptr(
                    std::runtime_error("the test HTTP server did not start: " + result.error)));
            }
        } catch (const CancellationError&) {
        }
    });
    if (portFuture.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
        stop_.request_stop();
        throw std::runtime_error("the test HTTP server did not say its port");
    }
    port_ = portFuture.get();
}

HttpTestServer::~HttpTestServer() {
    stop_.request_stop();
    run_.wait();
}

std::string HttpTestServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
}

} // namespace orvelle::testing
