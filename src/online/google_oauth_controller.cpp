#include "online/google_oauth_controller.h"

#include "core/cancellation.h"
#include "core/log.h"
#include "online/google_oauth_loopback_server.h"
#include "platform/process/process.h"
#include "platform/secrets/secret_store.h"

namespace orvelle {

namespace {

// A token with less than this to live is refreshed before it is handed out.
constexpr auto kExpiryMargin = std::chrono::seconds(90);

bool equalInConstantTime(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) {
        return false;
    }
    unsigned char difference = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        difference |= static_cast<unsigned char>(a[i] ^ b[i]);
    }
    return difference == 0;
}

Date secondsFromNow(std::int64_t seconds) {
    return Date{Date::now().millisecondsSince1970 + seconds * 1000};
}

SecretItemName credentialItem() {
    return {GoogleOAuthController::kService, GoogleOAuthController::kAccount};
}

} // namespace

GoogleOAuthController::GoogleOAuthController(Executor& mainThread,
                                             std::shared_ptr<SecretStore> store,
                                             Configuration configuration)
    : mainThread_(mainThread), store_(std::move(store)), configuration_(std::move(configuration)) {
    if (!configuration_.openBrowser) {
        configuration_.openBrowser = openInBrowser;
    }
}

GoogleOAuthController::~GoogleOAuthController() {
    {
        const std::lock_guard lock(mutex_);
        didCancelConnection_ = true;
        connectionStop_.request_stop();
        if (activeSession_) {
            activeSession_->cancel();
        }
    }
    if (connection_.joinable()) {
        connection_.join();
    }
}

void GoogleOAuthController::publish(std::function<void()> change) {
    mainThread_.post([alive = std::weak_ptr<int>(alive_), change = std::move(change)] {
        if (alive.lock()) {
            change();
        }
    });
}

void GoogleOAuthController::connect() {
    if (connecting_.exchange(true)) {
        return;
    }
    if (connection_.joinable()) {
        connection_.join(); // the last attempt has ended; its thread is on its way out
    }
    {
        const std::lock_guard lock(mutex_);
        didCancelConnection_ = false;
        connectionStop_ = std::stop_source();
    }
    publish([this] {
        isConnecting_.set(true);
        errorMessage_.set(std::nullopt);
    });
    connection_ = std::thread([this, stop = connectionStop_.get_token()] { runConnection(stop); });
}

void GoogleOAuthController::runConnection(const std::stop_token& stop) {
    try {
        const auto config = GoogleOAuthClientConfig::load(configuration_.clientConfigFile);
        auto session = std::make_shared<GoogleOAuthLoopbackServer>();
        {
            const std::lock_guard lock(mutex_);
            activeSession_ = session;
        }
        session->start();
        const std::string redirectURI = session->redirectURI();
        logInfo("google", "sign-in listener at ", session->boundAddress(),
                " waits for the browser");
        const std::string verifier = GoogleOAuthPKCE::makeCodeVerifier();
        const std::string state = GoogleOAuthPKCE::makeCodeVerifier();
        const std::string url = googleAuthorizationURL(
            config, redirectURI, GoogleOAuthPKCE::codeChallenge(verifier), state);
        configuration_.openBrowser(url);
        GoogleOAuthCallback callback;
        try {
            callback = session->waitForCallback(configuration_.connectionTimeout, stop);
        } catch (...) {
            session->cancel();
            throw;
        }
        session->cancel();
        if (stop.stop_requested()) {
            throw CancellationError();
        }
        if (!equalInConstantTime(callback.state, state)) {
            throw GoogleOAuthError(GoogleOAuthErrorCode::invalidState);
        }
        if (callback.code.empty()) {
            throw GoogleOAuthError(GoogleOAuthErrorCode::missingCode);
        }
        const auto response = GoogleOAuthHTTP::exchangeCode(callback.code, config, redirectURI,
                                                            verifier, configuration_.http, stop);
        if (!response.refreshToken) {
            throw GoogleOAuthError(GoogleOAuthErrorCode::missingRefreshToken);
        }
        GoogleOAuthStoredCredential credential;
        credential.token = {
            response.accessToken, *response.refreshToken, secondsFromNow(response.expiresIn),
            response.scope,       response.tokenType,     response.idToken};
        credential.account =
            GoogleOAuthHTTP::fetchUserInfo(response.accessToken, config, configuration_.http, stop);
        throwIfCancelled(stop);
        saveCredential(credential);
        logInfo("google", "signed in; the credential is kept in the ", store_->kind());
        publish([this, account = credential.account] { account_.set(account); });
    } catch (const CancellationError&) {
        logInfo("google", "sign-in cancelled");
    } catch (const std::exception& error) {
        bool cancelled = false;
        {
            const std::lock_guard lock(mutex_);
            cancelled = didCancelConnection_;
        }
        logWarning("google", "sign-in failed: ", error.what());
        if (!cancelled) {
            publish([this, message = googleOAuthUserFacingMessage(error)] {
                errorMessage_.set(message);
            });
        }
    }
    {
        const std::lock_guard lock(mutex_);
        activeSession_.reset();
    }
    publish([this] { isConnecting_.set(false); });
    connecting_ = false;
}

void GoogleOAuthController::saveCredential(const GoogleOAuthStoredCredential& credential) {
    store_->write(credentialItem(), prettyJson(encodeJson(credential)));
    const std::lock_guard lock(mutex_);
    cachedCredential_ = credential;
    hasLoadedStoredCredential_ = true;
}

void GoogleOAuthController::disconnect() {
    {
        const std::lock_guard lock(mutex_);
        didCancelConnection_ = true;
        connectionStop_.request_stop();
        if (activeSession_) {
            activeSession_->cancel();
        }
        cachedCredential_.reset();
        hasLoadedStoredCredential_ = true;
    }
    publish([this] {
        account_.set(std::nullopt);
        errorMessage_.set(std::nullopt);
    });
    store_->remove(credentialItem());
}

std::optional<std::string> GoogleOAuthController::signOut(const std::stop_token& stop) {
    std::optional<std::string> failure;
    if (const auto credential = storedCredential()) {
        try {
            const auto config = GoogleOAuthClientConfig::load(configuration_.clientConfigFile);
            GoogleOAuthHTTP::revokeToken(credential->token.refreshToken, config,
                                         configuration_.http, stop);
            logInfo("google", "Google revoked the grant");
        } catch (const CancellationError&) {
            throw;
        } catch (const std::exception& error) {
            failure = error.what();
            logWarning("google", "revoking the grant failed: ", error.what());
        }
    }
    disconnect();
    return failure;
}

void GoogleOAuthController::loadStoredCredentialIfNeeded() {
    {
        const std::lock_guard lock(mutex_);
        if (hasLoadedStoredCredential_) {
            return;
        }
        hasLoadedStoredCredential_ = true;
    }
    std::optional<GoogleOAuthStoredCredential> credential;
    try {
        if (const auto data = store_->read(credentialItem())) {
            const Json json = Json::parse(*data, nullptr, false);
            if (!json.is_discarded()) {
                credential = decodeJson<GoogleOAuthStoredCredential>(json);
            }
        }
    } catch (const Error& error) {
        logWarning("google", "the stored Google credential could not be read: ", error.what());
    }
    if (!credential) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        cachedCredential_ = credential;
    }
    publish([this, account = credential->account] { account_.set(account); });
}

std::optional<GoogleOAuthStoredCredential> GoogleOAuthController::storedCredential() {
    loadStoredCredentialIfNeeded();
    const std::lock_guard lock(mutex_);
    return cachedCredential_;
}

bool GoogleOAuthController::isConnected() {
    return storedCredential().has_value();
}

std::string GoogleOAuthController::storeKind() const {
    return store_->kind();
}

std::string GoogleOAuthController::validAccessToken(const std::stop_token& stop) {
    auto credential = storedCredential();
    if (!credential) {
        throw GoogleOAuthError(GoogleOAuthErrorCode::notConnected);
    }
    const auto margin = std::chrono::duration_cast<std::chrono::milliseconds>(kExpiryMargin);
    if (credential->token.expiresAt.millisecondsSince1970 >
        Date::now().millisecondsSince1970 + margin.count()) {
        publish([this] { errorMessage_.set(std::nullopt); });
        return credential->token.accessToken;
    }
    const auto config = GoogleOAuthClientConfig::load(configuration_.clientConfigFile);
    const auto response = GoogleOAuthHTTP::refreshToken(credential->token.refreshToken, config,
                                                        configuration_.http, stop);
    GoogleOAuthToken& token = credential->token;
    token.accessToken = response.accessToken;
    token.expiresAt = secondsFromNow(response.expiresIn);
    if (response.refreshToken) {
        token.refreshToken = *response.refreshToken;
    }
    if (response.scope) {
        token.scope = response.scope;
    }
    if (!response.tokenType.empty()) {
        token.tokenType = response.tokenType;
    }
    if (response.idToken) {
        token.idToken = response.idToken;
    }
    saveCredential(*credential);
    logInfo("google", "refreshed the access token");
    return token.accessToken;
}

void GoogleOAuthController::openInBrowser(const std::string& url) {
    // Through the shell so that the browser xdg-open starts holds none of our pipes and is
    // not stopped with it.
    ProcessOptions options;
    options.arguments = {"-c", "exec xdg-open \"$1\" </dev/null >/dev/null 2>&1", "sh", url};
    options.timeout = std::chrono::seconds(30);
    options.ownProcessGroup = false;
    options.tracked = false;
    ProcessResult result;
    try {
        result = runProcess("/bin/sh", options);
    } catch (const ProcessError& error) {
        if (error.code() == ProcessErrorCode::timedOut) {
            return; // it is still busy with the browser, which is what we wanted
        }
        throw Error("Could not open a browser: " + std::string(error.what()));
    }
    if (result.status != 0) {
        throw Error(result.status == 127
                        ? std::string("Could not open a browser: xdg-open is not installed "
                                      "(Debian package xdg-utils).")
                        : "Could not open a browser: xdg-open ended with status " +
                              std::to_string(result.status) + ".");
    }
}

} // namespace orvelle
