#include "platform/secrets/secret_store.h"

#include <libsecret/secret.h>

#include <memory>

namespace orvelle {

namespace {

// Items are found by these two attributes alone, whatever schema name another program
// gave them.
const SecretSchema* itemSchema() {
    static const SecretSchema schema = {"org.orvelle.Secret",
                                        SECRET_SCHEMA_DONT_MATCH_NAME,
                                        {{"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                         {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                         {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}},
                                        0,
                                        nullptr,
                                        nullptr,
                                        nullptr,
                                        nullptr,
                                        nullptr,
                                        nullptr,
                                        nullptr};
    return &schema;
}

struct ErrorDeleter {
    void operator()(GError* error) const { g_error_free(error); }
};
using ErrorPointer = std::unique_ptr<GError, ErrorDeleter>;

std::string messageOf(const GError* error) {
    return error != nullptr && error->message != nullptr ? error->message : "unknown failure";
}

class LibsecretStore final : public SecretStore {
public:
    explicit LibsecretStore(SecretService* service) : service_(service) {}
    ~LibsecretStore() override { g_object_unref(service_); }
    LibsecretStore(const LibsecretStore&) = delete;
    LibsecretStore& operator=(const LibsecretStore&) = delete;

    std::optional<std::string> read(const SecretItemName& item) override {
        GError* raw = nullptr;
        gchar* password = secret_password_lookup_sync(
            itemSchema(), nullptr, &raw, "service", item.service.c_str(), "account",
            item.account.c_str(), static_cast<const char*>(nullptr));
        const ErrorPointer error(raw);
        if (error) {
            throw SecretStoreError("Secret Service error: " + messageOf(error.get()));
        }
        if (password == nullptr) {
            return std::nullopt;
        }
        std::string data(password);
        secret_password_free(password);
        return data;
    }

    void write(const SecretItemName& item, std::string_view data) override {
        const std::string label = "Orvelle (" + item.service + ")";
        const std::string text(data);
        GError* raw = nullptr;
        const gboolean stored = secret_password_store_sync(
            itemSchema(), SECRET_COLLECTION_DEFAULT, label.c_str(), text.c_str(), nullptr, &raw,
            "service", item.service.c_str(), "account", item.account.c_str(),
            static_cast<const char*>(nullptr));
        const ErrorPointer error(raw);
        if (!stored || error) {
            throw SecretStoreError("Secret Service error: " + messageOf(error.get()));
        }
    }

    bool remove(const SecretItemName& item) override {
        GError* raw = nullptr;
        const gboolean removed = secret_password_clear_sync(
            itemSchema(), nullptr, &raw, "service", item.service.c_str(), "account",
            item.account.c_str(), static_cast<const char*>(nullptr));
        const ErrorPointer error(raw);
        if (error) {
            throw SecretStoreError("Secret Service error: " + messageOf(error.get()));
        }
        return removed != FALSE;
    }

    std::string kind() const override { return "Secret Service"; }

private:
    SecretService* service_; // held so that the session stays open
};

} // namespace

std::unique_ptr<SecretStore> openSecretServiceStore(std::string* reason) {
    GError* raw = nullptr;
    // Opening a session makes the service answer: a bus without one fails here.
    SecretService* service = secret_service_get_sync(SECRET_SERVICE_OPEN_SESSION, nullptr, &raw);
    const ErrorPointer error(raw);
    if (service == nullptr || error) {
        if (reason != nullptr) {
            *reason = messageOf(error.get());
        }
        if (service != nullptr) {
            g_object_unref(service);
        }
        return nullptr;
    }
    return std::make_unique<LibsecretStore>(service);
}

} // namespace orvelle
