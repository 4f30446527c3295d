#pragma once

// A Secret Service of the test's own: dbus-daemon on a private socket (no activation of
// other services) and gnome-keyring-daemon on it with a fresh keyring, unlocked, in a
// temporary home. Both stop when the object goes away.

#include "support/temporary_directory.h"

#include <future>
#include <map>
#include <stop_token>
#include <string>

namespace orvelle::testing {

class PrivateSecretService {
public:
    // Whether this machine has gnome-keyring-daemon and dbus-daemon.
    static bool installed();

    // Throws std::runtime_error when either daemon does not come up.
    PrivateSecretService();
    ~PrivateSecretService();
    PrivateSecretService(const PrivateSecretService&) = delete;
    PrivateSecretService& operator=(const PrivateSecretService&) = delete;

    const std::string& busAddress() const { return busAddress_; }
    // DBUS_SESSION_BUS_ADDRESS for a program that should use this service.
    std::map<std::string, std::string> environment() const;

private:
    TemporaryDirectory home_;
    std::stop_source stop_;
    std::future<void> bus_;
    std::future<void> keyring_;
    std::string busAddress_;
};

} // namespace orvelle::testing
