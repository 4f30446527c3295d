#pragma once

// One Google account connected for YouTube uploads. `connect` runs the authorization-code
// flow with PKCE in the user's browser and catches the redirect on a listener at
// 127.0.0.1; the tokens and the account's profile are kept in the secret store under the
// service "orvelle.google.oauth", account "youtube-upload"; `validAccessToken` hands out
// an access token, refreshing it when it has less than 90 s to live. Nothing refreshes in
// the background, and no token or code is ever written to the log or to an error text.
//
// The published values change on the main thread (the executor given); `connect` works
// on a thread of its own, and `validAccessToken` and `signOut` may be called from any
// thread (they wait on the network).

#include "core/executor.h"
#include "editor/published.h"
#include "online/google_oauth.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>

namespace orvelle {

class GoogleOAuthLoopbackServer;
class SecretStore;

class GoogleOAuthController {
public:
    struct Configuration {
        std::filesystem::path clientConfigFile = GoogleOAuthClientConfig::defaultFile();
        std::chrono::milliseconds connectionTimeout{180000};
        GoogleOAuthHTTP::Options http;
        // Shows the consent page to the user; by default xdg-open. Called on the sign-in
        // thread; an exception ends the attempt with its text.
        std::function<void(const std::string& url)> openBrowser;
    };

    // The secret store's item.
    static constexpr const char* kService = "orvelle.google.oauth";
    static constexpr const char* kAccount = "youtube-upload";

    GoogleOAuthController(Executor& mainThread, std::shared_ptr<SecretStore> store,
                          Configuration configuration);
    // Cancels a running connection and waits for its thread.
    ~GoogleOAuthController();
    GoogleOAuthController(const GoogleOAuthController&) = delete;
    GoogleOAuthController& operator=(const GoogleOAuthController&) = delete;

    const Published<std::optional<GoogleOAuthAccount>>& account() const { return account_; }
    const Published<bool>& isConnecting() const { return isConnecting_; }
    const Published<std::optional<std::string>>& errorMessage() const { return errorMessage_; }

    // Starts a sign-in unless one is running. Its end shows in the published values:
    // `account` on success, `errorMessage` on failure (none when it was cancelled).
    void connect();
    // True while a connection runs (before the published value catches up).
    bool isConnectionRunning() const { return connecting_; }
    // Cancels a running connection, deletes the stored credential and forgets the
    // account. Throws SecretStoreError when the store cannot delete it.
    void disconnect();
    // Asks Google to revoke the grant, then disconnects whatever it answered. Returns the
    // revocation's failure text, absent when it succeeded or nothing was connected.
    std::optional<std::string> signOut(const std::stop_token& stop = {});

    // The stored access token while it has more than 90 s to live, otherwise a refreshed
    // one (written back to the store). Throws GoogleOAuthError notConnected without a
    // credential, or the refresh's failure (the stored credential stays).
    std::string validAccessToken(const std::stop_token& stop = {});
    // A stored credential exists.
    bool isConnected();
    // Reads the store once per controller; a credential that does not decode counts as
    // none. Publishes the account.
    void loadStoredCredentialIfNeeded();
    // The credential now kept, after loading it.
    std::optional<GoogleOAuthStoredCredential> storedCredential();
    // "Secret Service" or "private file".
    std::string storeKind() const;

    // Opens the address in the user's browser with xdg-open. Throws Error when that fails.
    static void openInBrowser(const std::string& url);

private:
    void runConnection(const std::stop_token& stop);
    void saveCredential(const GoogleOAuthStoredCredential& credential);
    void publish(std::function<void()> change);

    Executor& mainThread_;
    std::shared_ptr<SecretStore> store_;
    Configuration configuration_;

    Published<std::optional<GoogleOAuthAccount>> account_;
    Published<bool> isConnecting_{false};
    Published<std::optional<std::string>> errorMessage_;

    std::mutex mutex_; // guards what follows
    bool hasLoadedStoredCredential_ = false;
    std::optional<GoogleOAuthStoredCredential> cachedCredential_;
    std::shared_ptr<GoogleOAuthLoopbackServer> activeSession_;
    bool didCancelConnection_ = false;
    std::stop_source connectionStop_;

    std::atomic<bool> connecting_ = false;
    std::thread connection_;
    std::shared_ptr<int> alive_ = std::make_shared<int>(0); // main-thread posts check it
};

} // namespace orvelle
