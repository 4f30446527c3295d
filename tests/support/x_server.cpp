#include "support/x_server.h"

#include "support/run_program.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <stdexcept>

namespace orvelle::testing {

XvfbServer::XvfbServer(int width, int height) {
    const auto xvfb = findProgram("Xvfb");
    if (!xvfb) {
        throw std::runtime_error("Xvfb is not installed (run scripts/bootstrap)");
    }
    int fds[2] = {-1, -1};
    if (::pipe(fds) != 0) {
        throw std::runtime_error("pipe failed");
    }
    ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
    // Xvfb picks a free display number itself and writes it to the descriptor.
    process_ = std::make_unique<ChildProcess>(
        *xvfb,
        std::vector<std::string>{"-displayfd", std::to_string(fds[1]), "-screen", "0",
                                 std::to_string(width) + "x" + std::to_string(height) + "x24",
                                 "-nolisten", "tcp", "-noreset"},
        std::map<std::string, std::string>{}, fds[1]);
    ::close(fds[1]);
    std::string number;
    pollfd poller{fds[0], POLLIN, 0};
    while (::poll(&poller, 1, 20000) > 0) {
        char c = 0;
        if (::read(fds[0], &c, 1) != 1 || c == '\n') {
            break;
        }
        number.push_back(c);
    }
    ::close(fds[0]);
    if (number.empty()) {
        throw std::runtime_error("Xvfb did not start");
    }
    display_ = ":" + number;
}

XvfbServer::~XvfbServer() = default;

std::map<std::string, std::string> XvfbServer::environment() const {
    return {{"DISPLAY", display_}, {"XDG_SESSION_TYPE", "x11"}, {"WAYLAND_DISPLAY", ""}};
}

std::string XvfbServer::xdotool(const std::vector<std::string>& arguments) const {
    const auto program = findProgram("xdotool");
    if (!program) {
        throw std::runtime_error("xdotool is not installed (run scripts/bootstrap)");
    }
    const auto result = runProgram(*program, arguments, {{"DISPLAY", display_}});
    if (result.status != 0) {
        throw std::runtime_error("xdotool failed: " + result.err);
    }
    return result.out;
}

std::string XvfbServer::findWindow(const std::string& namePattern,
                                   std::chrono::milliseconds wait) const {
    std::string window;
    waitUntil(
        [&] {
            try {
                const std::string found =
                    xdotool({"search", "--onlyvisible", "--name", namePattern});
                window = found.substr(0, found.find('\n'));
                return !window.empty();
            } catch (const std::runtime_error&) {
                return false; // not yet
            }
        },
        wait);
    return window;
}

void XvfbServer::key(const std::string& window, const std::vector<std::string>& keys,
                     int delayMilliseconds) const {
    xdotool({"windowfocus", "--sync", window});
    std::vector<std::string> arguments{"key", "--delay", std::to_string(delayMilliseconds)};
    arguments.insert(arguments.end(), keys.begin(), keys.end());
    xdotool(arguments);
}

std::map<std::string, std::string>
XvfbServer::applicationEnvironment(const std::filesystem::path& folder) const {
    auto environment = this->environment();
    environment["QT_QPA_PLATFORM"] = "xcb";
    environment["XDG_CONFIG_HOME"] = (folder / "config").string();
    environment["XDG_DATA_HOME"] = (folder / "data").string();
    environment["XDG_CACHE_HOME"] = (folder / "cache").string();
    environment["XDG_RUNTIME_DIR"] = (folder / "runtime").string();
    environment["HOME"] = (folder / "home").string();
    std::filesystem::create_directories(folder / "runtime");
    std::filesystem::permissions(folder / "runtime", std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::replace);
    return environment;
}

} // namespace orvelle::testing
