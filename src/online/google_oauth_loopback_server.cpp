#include "online/google_oauth_loopback_server.h"

#include "core/error.h"
#include "core/log.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace orvelle {

namespace {

// How long the browser has to send its request line once it has connected.
constexpr int kRequestWaitMilliseconds = 10000;
constexpr size_t kMaximumRequest = 16384;

void closeDescriptor(int& fd) {
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
    }
}

void sendAll(int fd, std::string_view data) {
    while (!data.empty()) {
        const ssize_t sent = ::send(fd, data.data(), data.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            return; // the browser went away; nothing to tell it
        }
        data.remove_prefix(static_cast<size_t>(sent));
    }
}

// Reads until the request line is whole, the browser stops sending, or the limits run out.
std::optional<std::string> readRequestLine(int fd) {
    std::string data;
    char buffer[4096];
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(kRequestWaitMilliseconds);
    while (data.find("\r\n") == std::string::npos && data.size() < kMaximumRequest) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                              deadline - std::chrono::steady_clock::now())
                              .count();
        if (left <= 0) {
            break;
        }
        pollfd entry{fd, POLLIN, 0};
        const int ready = ::poll(&entry, 1, static_cast<int>(left));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready <= 0) {
            break;
        }
        const ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            return std::nullopt;
        }
        if (got == 0) {
            break;
        }
        data.append(buffer, static_cast<size_t>(got));
    }
    return data;
}

} // namespace

GoogleOAuthLoopbackServer::~GoogleOAuthLoopbackServer() {
    cancel();
    if (thread_.joinable()) {
        thread_.join();
    }
    closeDescriptor(listener_);
    closeDescriptor(wake_[0]);
    closeDescriptor(wake_[1]);
}

int GoogleOAuthLoopbackServer::start() {
    if (::pipe2(wake_, O_CLOEXEC | O_NONBLOCK) != 0) {
        throw Error(std::string("Could not start the sign-in listener: ") + std::strerror(errno));
    }
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener_ < 0) {
        throw Error(std::string("Could not start the sign-in listener: ") + std::strerror(errno));
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    if (::bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener_, 4) != 0) {
        const int error = errno;
        closeDescriptor(listener_);
        throw Error(std::string("Could not start the sign-in listener on 127.0.0.1: ") +
                    std::strerror(error));
    }
    sockaddr_in bound{};
    socklen_t length = sizeof bound;
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&bound), &length);
    port_ = ntohs(bound.sin_port);
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &bound.sin_addr, text, sizeof text);
    boundAddress_ = text;
    thread_ = std::thread([this] { run(); });
    return port_;
}

std::string GoogleOAuthLoopbackServer::redirectURI() const {
    return "http://127.0.0.1:" + std::to_string(port_);
}

void GoogleOAuthLoopbackServer::run() {
    pollfd entries[2] = {{listener_, POLLIN, 0}, {wake_[0], POLLIN, 0}};
    int connection = -1;
    while (true) {
        const int ready = ::poll(entries, 2, -1);
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready < 0 || (entries[1].revents & POLLIN) != 0) {
            break; // cancelled
        }
        if ((entries[0].revents & POLLIN) != 0) {
            connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection >= 0) {
                break;
            }
        }
    }
    // One connection only: from here on nobody listens, and a second visit is refused.
    {
        const std::lock_guard lock(mutex_);
        closeDescriptor(listener_);
    }
    if (connection < 0) {
        finish(std::make_exception_ptr(CancellationError()));
        return;
    }
    Result result =
        std::make_exception_ptr(GoogleOAuthError(GoogleOAuthErrorCode::invalidCallback));
    if (const auto request = readRequestLine(connection); request && !request->empty()) {
        try {
            result = parseCallback(*request);
        } catch (...) {
            result = std::current_exception();
        }
    }
    sendAll(connection, response(std::holds_alternative<GoogleOAuthCallback>(result)));
    ::shutdown(connection, SHUT_RDWR);
    closeDescriptor(connection);
    logInfo("google", "the sign-in listener took its one connection");
    finish(std::move(result));
}

void GoogleOAuthLoopbackServer::finish(Result result) {
    const std::lock_guard lock(mutex_);
    if (didComplete_) {
        return;
    }
    didComplete_ = true;
    pendingCallback_ = std::move(result);
    arrived_.notify_all();
}

GoogleOAuthCallback GoogleOAuthLoopbackServer::waitForCallback(std::chrono::milliseconds timeout,
                                                               const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    const bool arrived =
        arrived_.wait_for(lock, stop, timeout, [this] { return pendingCallback_.has_value(); });
    if (!arrived) {
        lock.unlock();
        cancel();
        if (stop.stop_requested()) {
            throw CancellationError();
        }
        throw GoogleOAuthError(GoogleOAuthErrorCode::authorizationTimedOut);
    }
    Result result = *pendingCallback_;
    lock.unlock();
    if (auto* callback = std::get_if<GoogleOAuthCallback>(&result)) {
        return *callback;
    }
    std::rethrow_exception(std::get<std::exception_ptr>(result));
}

void GoogleOAuthLoopbackServer::cancel() {
    if (wake_[1] >= 0) {
        const char byte = 1;
        [[maybe_unused]] const auto written = ::write(wake_[1], &byte, 1);
    }
}

GoogleOAuthCallback GoogleOAuthLoopbackServer::parseCallback(std::string_view request) {
    const auto invalid = [] { return GoogleOAuthError(GoogleOAuthErrorCode::invalidCallback); };
    const std::string_view line = request.substr(0, request.find("\r\n"));
    if (!line.starts_with("GET ")) {
        throw invalid();
    }
    const std::string_view rest = line.substr(4);
    const std::string_view target = rest.substr(0, rest.find(' '));
    if (target.empty() || !target.starts_with('/')) {
        throw invalid();
    }
    const auto url = URLComponents::parse("http://127.0.0.1" + std::string(target));
    if (!url) {
        throw invalid();
    }
    if (const auto error = url->queryValue("error"); error && !error->empty()) {
        throw GoogleOAuthError::httpFailure(400, *error);
    }
    const auto code = url->queryValue("code");
    if (!code) {
        throw GoogleOAuthError(GoogleOAuthErrorCode::missingCode);
    }
    const auto state = url->queryValue("state");
    if (!state) {
        throw GoogleOAuthError(GoogleOAuthErrorCode::invalidState);
    }
    return {*code, *state};
}

std::string GoogleOAuthLoopbackServer::response(bool success) {
    const std::string title = success ? "Orvelle connected" : "Orvelle could not connect";
    const std::string body = success ? "You can close this tab and return to Orvelle."
                                     : "Return to Orvelle and try connecting again.";
    const std::string html =
        "<!doctype html><html><head><meta charset=\"utf-8\"><title>" + title +
        "</title></head>\n<body style=\"font-family:-apple-system,BlinkMacSystemFont,sans-serif;"
        "padding:32px;\">\n<h1>" +
        title + "</h1><p>" + body + "</p>\n</body></html>";
    return "HTTP/1.1 200 OK\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: " +
           std::to_string(html.size()) + "\r\nConnection: close\r\n\r\n" + html;
}

} // namespace orvelle
