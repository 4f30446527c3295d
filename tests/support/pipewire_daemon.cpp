#include "support/pipewire_daemon.h"

#include <stdexcept>

namespace orvelle::testing {

namespace {

// Only what a video stream between two clients needs.
constexpr const char* kConfiguration = R"(
context.properties = {
    core.daemon = true
    core.name = pipewire-0
    support.dbus = false
}
context.spa-libs = {
    support.* = support/libspa-support
}
context.modules = [
    { name = libpipewire-module-protocol-native }
    { name = libpipewire-module-access args = { } }
    { name = libpipewire-module-client-node }
    { name = libpipewire-module-adapter }
    { name = libpipewire-module-link-factory }
]
)";

} // namespace

PipeWireDaemon::PipeWireDaemon() {
    const auto program = findProgram("pipewire");
    if (!program) {
        throw std::runtime_error("pipewire is not installed (run scripts/bootstrap)");
    }
    writeTextFile(folder_ / "orvelle-test.conf", kConfiguration);
    const std::string runtime = folder_.path().string();
    process_ = std::make_unique<ChildProcess>(
        *program, std::vector<std::string>{"-c", (folder_ / "orvelle-test.conf").string()},
        std::map<std::string, std::string>{{"PIPEWIRE_RUNTIME_DIR", runtime},
                                           {"XDG_RUNTIME_DIR", runtime},
                                           {"PIPEWIRE_DEBUG", "1"},
                                           {"DBUS_SESSION_BUS_ADDRESS", ""}});
    if (!waitUntil([&] { return std::filesystem::exists(folder_ / "pipewire-0"); },
                   std::chrono::seconds(20))) {
        throw std::runtime_error("pipewire did not start");
    }
}

PipeWireDaemon::~PipeWireDaemon() = default;

std::string PipeWireDaemon::socketPath() const {
    return (folder_ / "pipewire-0").string();
}

} // namespace orvelle::testing
