#include "platform/secrets/secret_store.h"

#include "core/log.h"
#include "core/xdg_paths.h"

#include <atomic>

namespace orvelle {

std::unique_ptr<SecretStore> openSecretStore(const std::filesystem::path& fallbackFolder) {
    std::string reason;
    if (auto store = openSecretServiceStore(&reason)) {
        return store;
    }
    static std::atomic<bool> told = false;
    if (!told.exchange(true)) {
        logWarning("secrets", "no Secret Service answers (", reason,
                   "); secrets are kept in private files (mode 0600) in ", fallbackFolder.string());
    }
    return openFileSecretStore(fallbackFolder);
}

std::unique_ptr<SecretStore> openDefaultSecretStore() {
    return openSecretStore(applicationSupportDirectory() / "Secrets");
}

} // namespace orvelle
