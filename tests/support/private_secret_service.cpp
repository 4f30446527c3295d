#include "support/private_secret_service.h"

#include "core/cancellation.h"
#include "platform/process/process.h"

#include <sys/stat.h>

#include <chrono>
#include <stdexcept>
#include <thread>

namespace orvelle::testing {

namespace {

// A session bus that starts nobody on demand, so only our keyring answers for secrets.
std::string busConfiguration(const std::filesystem::path& socket) {
    return "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig>\n  <type>session</type>\n  <listen>unix:path=" +
           socket.string() +
           "</listen>\n  <auth>EXTERNAL</auth>\n"
           "  <policy context=\"default\">\n    <allow send_destination=\"*\" "
           "eavesdrop=\"true\"/>\n"
           "    <allow eavesdrop=\"true\"/>\n    <allow own=\"*\"/>\n  </policy>\n</busconfig>\n";
}

bool secretsOwned(const std::string& address) {
    ProcessOptions options;
    options.arguments = {"--session",
                         "--print-reply",
                         "--dest=org.freedesktop.DBus",
                         "/org/freedesktop/DBus",
                         "org.freedesktop.DBus.NameHasOwner",
                         "string:org.freedesktop.secrets"};
    options.environment = {{"DBUS_SESSION_BUS_ADDRESS", address}};
    options.timeout = std::chrono::seconds(5);
    try {
        const auto result = runProcess("/usr/bin/dbus-send", options);
        return result.status == 0 && result.output.find("boolean true") != std::string::npos;
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace

bool PrivateSecretService::installed() {
    return isExecutableFile("/usr/bin/gnome-keyring-daemon") &&
           isExecutableFile("/usr/bin/dbus-daemon") && isExecutableFile("/usr/bin/dbus-send");
}

PrivateSecretService::PrivateSecretService() {
    const auto config = home_ / "bus.conf";
    writeTextFile(config, busConfiguration(home_ / "bus"));
    std::filesystem::create_directories(home_ / "run");
    ::chmod((home_ / "run").c_str(), 0700);

    std::promise<std::string> address;
    auto addressFuture = address.get_future();
    bus_ = std::async(std::launch::async, [this, config, address = std::move(address)]() mutable {
        ProcessOptions options{
            .arguments = {"--config-file=" + config.string(), "--nofork", "--print-address=1"},
            .terminationGrace = std::chrono::milliseconds(500)};
        std::string output;
        bool told = false;
        options.onOutput = [&](std::string_view piece) {
            output += piece;
            if (!told && output.find('\n') != std::string::npos) {
                told = true;
                address.set_value(output.substr(0, output.find('\n')));
            }
        };
        try {
            const auto result = runProcess("/usr/bin/dbus-daemon", options, stop_.get_token());
            if (!told) {
                address.set_exception(std::make_exception_ptr(
                    std::runtime_error("dbus-daemon did not start: " + result.error)));
            }
        } catch (const CancellationError&) {
        }
    });
    if (addressFuture.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
        stop_.request_stop();
        throw std::runtime_error("dbus-daemon did not say its address");
    }
    busAddress_ = addressFuture.get();

    keyring_ = std::async(std::launch::async, [this] {
        ProcessOptions options{.arguments = {"--foreground", "--unlock", "--components=secrets"},
                               .input = "test-keyring-password"};
        options.environment = {{"DBUS_SESSION_BUS_ADDRESS", busAddress_},
                               {"HOME", home_.path().string()},
                               {"XDG_DATA_HOME", (home_ / "data").string()},
                               {"XDG_CONFIG_HOME", (home_ / "config").string()},
                               {"XDG_CACHE_HOME", (home_ / "cache").string()},
                               {"XDG_RUNTIME_DIR", (home_ / "run").string()}};
        options.terminationGrace = std::chrono::milliseconds(500);
        try {
            runProcess("/usr/bin/gnome-keyring-daemon", options, stop_.get_token());
        } catch (const CancellationError&) {
        }
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!secretsOwned(busAddress_)) {
        if (std::chrono::steady_clock::now() > deadline) {
            stop_.request_stop();
            throw std::runtime_error("gnome-keyring-daemon did not come onto the private bus");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

PrivateSecretService::~PrivateSecretService() {
    stop_.request_stop();
    if (keyring_.valid()) {
        keyring_.wait();
    }
    if (bus_.valid()) {
        bus_.wait();
    }
}

std::map<std::string, std::string> PrivateSecretService::environment() const {
    return {{"DBUS_SESSION_BUS_ADDRESS", busAddress_}};
}

} // namespace orvelle::testing
