#pragma once

// Small secrets (tokens, API keys) kept for the user: in the desktop's Secret Service
// (GNOME Keyring, KWallet) when one answers on the session bus, otherwise in private files
// (folder 0700, files 0600) under the application's data folder. Each item is named by a
// service and an account, as in "orvelle.google.oauth" / "youtube-upload".

#include "core/error.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace orvelle {

class SecretStoreError : public Error {
public:
    // `detail` names the store and its reason: "Secret Service error: the collection is
    // locked".
    explicit SecretStoreError(const std::string& detail)
        : Error("Saving credentials failed (" + detail + ")."), detail_(detail) {}
    const std::string& detail() const { return detail_; }

private:
    std::string detail_;
};

struct SecretItemName {
    std::string service;
    std::string account;
};

class SecretStore {
public:
    virtual ~SecretStore() = default;
    // The item's data; absent when there is none. Throws SecretStoreError when the store
    // cannot be read.
    virtual std::optional<std::string> read(const SecretItemName& item) = 0;
    // Replaces the item's data, or adds the item. Throws SecretStoreError.
    virtual void write(const SecretItemName& item, std::string_view data) = 0;
    // Deletes the item; false when there was none. Throws SecretStoreError.
    virtual bool remove(const SecretItemName& item) = 0;
    // "Secret Service" or "private file", for status displays.
    virtual std::string kind() const = 0;
};

// The Secret Service on the session bus, or nothing when none answers (no bus, no
// service); `reason` then says why.
std::unique_ptr<SecretStore> openSecretServiceStore(std::string* reason = nullptr);

// Files named after the item in `folder`, which is created with mode 0700; each file is
// written whole with mode 0600.
std::unique_ptr<SecretStore> openFileSecretStore(const std::filesystem::path& folder);

// The Secret Service when one answers, otherwise the files under `fallbackFolder`; the
// fallback is said once per process in the log.
std::unique_ptr<SecretStore> openSecretStore(const std::filesystem::path& fallbackFolder);

// openSecretStore with <application support>/Secrets as the fallback.
std::unique_ptr<SecretStore> openDefaultSecretStore();

} // namespace orvelle
