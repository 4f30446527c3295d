#pragma once

// The listener that catches the browser's redirect at the end of Google sign-in: a plain
// HTTP server on 127.0.0.1 (never another address) at a port the system picks, that takes
// exactly one connection, answers it with a small page and closes, so that a second visit
// of the redirect finds nobody listening.

#include "online/google_oauth.h"

#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>
#include <variant>

namespace orvelle {

struct GoogleOAuthCallback {
    std::string code;
    std::string state;
};

class GoogleOAuthLoopbackServer {
public:
    GoogleOAuthLoopbackServer() = default;
    // Cancels the listener and waits for its thread.
    ~GoogleOAuthLoopbackServer();
    GoogleOAuthLoopbackServer(const GoogleOAuthLoopbackServer&) = delete;
    GoogleOAuthLoopbackServer& operator=(const GoogleOAuthLoopbackServer&) = delete;

    // Listens on 127.0.0.1 at a free port and returns the port. Throws Error when no
    // socket can be had.
    int start();
    // "http://127.0.0.1:PORT"
    std::string redirectURI() const;
    // The address the listening socket is bound to, as the system reports it.
    std::string boundAddress() const { return boundAddress_; }

    // The first connection's callback, also when it came before this call. Throws
    // GoogleOAuthError (the callback's own error, or authorizationTimedOut after
    // `timeout`), or CancellationError when `stop` is requested or the server cancelled.
    GoogleOAuthCallback waitForCallback(std::chrono::milliseconds timeout,
                                        const std::stop_token& stop = {});
    // Stops listening; a waiting caller gets a CancellationError.
    void cancel();

    // The callback in the first line of a request: "GET /?code=...&state=... HTTP/1.1".
    // An "error" item is httpFailure(400, its value); no code is missingCode; no state is
    // invalidState; anything unreadable is invalidCallback.
    static GoogleOAuthCallback parseCallback(std::string_view request);
    // The whole HTTP answer the browser gets.
    static std::string response(bool success);

private:
    using Result = std::variant<GoogleOAuthCallback, std::exception_ptr>;
    void run();
    void finish(Result result);

    int listener_ = -1;
    int wake_[2] = {-1, -1}; // cancel() writes to wake_[1]
    int port_ = 0;
    std::string boundAddress_;
    std::thread thread_;

    std::mutex mutex_; // guards what follows
    std::condition_variable_any arrived_;
    std::optional<Result> pendingCallback_;
    bool didComplete_ = false;
};

} // namespace orvelle
