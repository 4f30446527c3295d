#include "online/google_oauth.h"

#include "core/xdg_paths.h"
#include "online/google_api_error.h"
#include "platform/crypto/random.h"
#include "platform/crypto/sha256.h"
#include "platform/http/http.h"

namespace orvelle {

namespace {

std::string messageFor(GoogleOAuthErrorCode code) {
    switch (code) {
    case GoogleOAuthErrorCode::httpFailure:
        return "Google request failed.";
    case GoogleOAuthErrorCode::notConnected:
        return "Connect a Google account before uploading to YouTube.";
    case GoogleOAuthErrorCode::missingClientConfig:
        return "Missing Google OAuth client config.";
    case GoogleOAuthErrorCode::invalidAuthorizationURL:
        return "Could not create Google authorization URL.";
    case GoogleOAuthErrorCode::invalidCallback:
        return "Google returned an invalid authorization callback.";
    case GoogleOAuthErrorCode::invalidState:
        return "Google authorization state did not match.";
    case GoogleOAuthErrorCode::missingCode:
        return "Google did not return an authorization code.";
    case GoogleOAuthErrorCode::missingRefreshToken:
        return "Google did not return a refresh token. Try connecting again.";
    case GoogleOAuthErrorCode::authorizationTimedOut:
        return "Google sign-in timed out. Try connecting again.";
    case GoogleOAuthErrorCode::invalidHTTPResponse:
        return "Google returned an invalid HTTP response.";
    }
    return "Google sign-in failed.";
}

constexpr const char* kScopePrefix = "https://www.googleapis.com/";
constexpr const char* kDefaultRevokeURI = "https://oauth2.googleapis.com/revoke";
constexpr const char* kDefaultUserinfoURI = "https://openidconnect.googleapis.com/v1/userinfo";

HttpRequest formRequest(const std::string& url, const std::vector<URLQueryItem>& items,
                        const GoogleOAuthHTTP::Options& options) {
    HttpRequest request;
    request.method = "POST";
    request.url = url;
    request.headers = {{"Content-Type", "application/x-www-form-urlencoded"},
                       {"Accept", "application/json"}};
    request.body = formBody(items);
    request.timeout = options.timeout;
    return request;
}

GoogleOAuthTokenResponse decodeTokenResponse(const HttpResponse& response) {
    GoogleOAuthHTTP::validate(response);
    const Json json = Json::parse(response.body, nullptr, false);
    try {
        if (json.is_discarded()) {
            throw GoogleOAuthError(GoogleOAuthErrorCode::invalidHTTPResponse);
        }
        const JsonObjectReader reader(json, {});
        GoogleOAuthTokenResponse token;
        token.accessToken = reader.required<std::string>("access_token");
        token.expiresIn = reader.required<std::int64_t>("expires_in");
        token.refreshToken = reader.optional<std::string>("refresh_token");
        token.scope = reader.optional<std::string>("scope");
        token.tokenType = reader.value<std::string>("token_type", "Bearer");
        token.idToken = reader.optional<std::string>("id_token");
        return token;
    } catch (const JsonDecodeError&) {
        throw GoogleOAuthError(GoogleOAuthErrorCode::invalidHTTPResponse);
    }
}

} // namespace

GoogleOAuthError::GoogleOAuthError(GoogleOAuthErrorCode code)
    : CodedError(code, messageFor(code)) {}

GoogleOAuthError::GoogleOAuthError(int statusCode, std::optional<std::string> detail)
    : CodedError(GoogleOAuthErrorCode::httpFailure,
                 httpFailureMessage("Google request failed with HTTP", statusCode, detail)),
      statusCode_(statusCode), detail_(std::move(detail)) {}

GoogleOAuthError GoogleOAuthError::httpFailure(int statusCode, std::optional<std::string> detail) {
    return {statusCode, std::move(detail)};
}

std::string googleOAuthUserFacingMessage(const std::exception& error) {
    return error.what();
}

std::string GoogleOAuthAccount::displayName() const {
    if (name && !name->empty()) {
        return *name;
    }
    if (email && !email->empty()) {
        return *email;
    }
    return "Connected";
}

GoogleOAuthAccount JsonCoder<GoogleOAuthAccount>::decode(const Json& json,
                                                         const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.optional<std::string>("sub"), reader.optional<std::string>("name"),
            reader.optional<std::string>("email"), reader.optional<std::string>("picture")};
}

Json JsonCoder<GoogleOAuthAccount>::encode(const GoogleOAuthAccount& value) {
    Json json = Json::object();
    setOptional(json, "sub", value.sub);
    setOptional(json, "name", value.name);
    setOptional(json, "email", value.email);
    setOptional(json, "picture", value.picture);
    return json;
}

GoogleOAuthToken JsonCoder<GoogleOAuthToken>::decode(const Json& json,
                                                     const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    GoogleOAuthToken token;
    token.accessToken = reader.required<std::string>("accessToken");
    token.refreshToken = reader.required<std::string>("refreshToken");
    token.expiresAt = reader.required<Date>("expiresAt");
    token.scope = reader.optional<std::string>("scope");
    token.tokenType = reader.value<std::string>("tokenType", "Bearer");
    token.idToken = reader.optional<std::string>("idToken");
    return token;
}

Json JsonCoder<GoogleOAuthToken>::encode(const GoogleOAuthToken& value) {
    Json json{{"accessToken", value.accessToken},
              {"refreshToken", value.refreshToken},
              {"expiresAt", encodeJson(value.expiresAt)},
              {"tokenType", value.tokenType}};
    setOptional(json, "scope", value.scope);
    setOptional(json, "idToken", value.idToken);
    return json;
}

GoogleOAuthStoredCredential
JsonCoder<GoogleOAuthStoredCredential>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.required<GoogleOAuthToken>("token"),
            reader.value<GoogleOAuthAccount>("account", {})};
}

Json JsonCoder<GoogleOAuthStoredCredential>::encode(const GoogleOAuthStoredCredential& value) {
    return {{"token", encodeJson(value.token)}, {"account", encodeJson(value.account)}};
}

std::filesystem::path GoogleOAuthClientConfig::defaultFile() {
    return applicationSupportDirectory() / "google-oauth-client.json";
}

GoogleOAuthClientConfig GoogleOAuthClientConfig::load(const std::filesystem::path& file) {
    Json json;
    try {
        json = readJsonFile(file);
    } catch (const JsonDecodeError&) {
        throw GoogleOAuthError(GoogleOAuthErrorCode::missingClientConfig);
    }
    return decode(json);
}

GoogleOAuthClientConfig GoogleOAuthClientConfig::decode(const Json& json) {
    const auto missing = [] { return GoogleOAuthError(GoogleOAuthErrorCode::missingClientConfig); };
    if (!json.is_object()) {
        throw missing();
    }
    const Json* entry = nullptr;
    for (const char* key : {"installed", "web"}) {
        if (const auto found = json.find(key); found != json.end() && found->is_object()) {
            entry = &*found;
            break;
        }
    }
    if (entry == nullptr) {
        throw missing();
    }
    GoogleOAuthClientConfig config;
    try {
        const JsonObjectReader reader(*entry, {});
        config.clientID = reader.required<std::string>("client_id");
        config.clientSecret = reader.optional<std::string>("client_secret");
        config.authURI = reader.required<std::string>("auth_uri");
        config.tokenURI = reader.required<std::string>("token_uri");
        config.revokeURI = reader.value<std::string>("revoke_uri", kDefaultRevokeURI);
        config.userinfoURI = reader.value<std::string>("userinfo_uri", kDefaultUserinfoURI);
    } catch (const JsonDecodeError&) {
        throw missing();
    }
    if (config.clientID.empty()) {
        throw missing();
    }
    for (const auto& [uri, what] :
         {std::pair{&config.authURI, "Google's authorization endpoint"},
          std::pair{&config.tokenURI, "Google's token endpoint"},
          std::pair{&config.revokeURI, "Google's revocation endpoint"},
          std::pair{&config.userinfoURI, "Google's user-info endpoint"}}) {
        if (!URLComponents::parse(*uri)) {
            throw missing();
        }
        requireSecureURL(*uri, what);
    }
    return config;
}

std::string GoogleOAuthPKCE::makeCodeVerifier() {
    return base64URLEncoded(secureRandomBytes(48));
}

std::string GoogleOAuthPKCE::codeChallenge(const std::string& verifier) {
    return base64URLEncoded(sha256Digest(verifier));
}

const std::vector<std::string>& googleOAuthScopes() {
    static const std::vector<std::string> scopes{std::string(kScopePrefix) + "auth/youtube.upload",
                                                 std::string(kScopePrefix) + "auth/userinfo.email",
                                                 std::string(kScopePrefix) +
                                                     "auth/userinfo.profile"};
    return scopes;
}

std::string googleAuthorizationURL(const GoogleOAuthClientConfig& config,
                                   const std::string& redirectURI, const std::string& codeChallenge,
                                   const std::string& state) {
    std::string scope;
    for (const auto& item : googleOAuthScopes()) {
        scope += (scope.empty() ? "" : " ") + item;
    }
    if (!URLComponents::parse(config.authURI)) {
        throw GoogleOAuthError(GoogleOAuthErrorCode::invalidAuthorizationURL);
    }
    return appendingQueryItems(config.authURI, {{"response_type", "code"},
                                                {"client_id", config.clientID},
                                                {"redirect_uri", redirectURI},
                                                {"scope", scope},
                                                {"access_type", "offline"},
                                                {"prompt", "consent"},
                                                {"code_challenge", codeChallenge},
                                                {"code_challenge_method", "S256"},
                                                {"state", state}});
}

void GoogleOAuthHTTP::validate(const HttpResponse& response) {
    if (response.status < 100) {
        throw GoogleOAuthError(GoogleOAuthErrorCode::invalidHTTPResponse);
    }
    if (response.status >= 200 && response.status <= 299) {
        return;
    }
    throw GoogleOAuthError::httpFailure(response.status, googleErrorDetail(response.body));
}

GoogleOAuthTokenResponse
GoogleOAuthHTTP::exchangeCode(const std::string& code, const GoogleOAuthClientConfig& config,
                              const std::string& redirectURI, const std::string& codeVerifier,
                              const Options& options, const std::stop_token& stop) {
    std::vector<URLQueryItem> items{{"grant_type", "authorization_code"},
                                    {"code", code},
                                    {"redirect_uri", redirectURI},
                                    {"client_id", config.clientID},
                                    {"code_verifier", codeVerifier}};
    if (config.clientSecret) {
        items.emplace_back("client_secret", *config.clientSecret);
    }
    return decodeTokenResponse(
        sendHttpRequest(formRequest(config.tokenURI, items, options), {}, stop));
}

GoogleOAuthTokenResponse GoogleOAuthHTTP::refreshToken(const std::string& refreshToken,
                                                       const GoogleOAuthClientConfig& config,
                                                       const Options& options,
                                                       const std::stop_token& stop) {
    std::vector<URLQueryItem> items{{"grant_type", "refresh_token"},
                                    {"refresh_token", refreshToken},
                                    {"client_id", config.clientID}};
    if (config.clientSecret) {
        items.emplace_back("client_secret", *config.clientSecret);
    }
    return decodeTokenResponse(
        sendHttpRequest(formRequest(config.tokenURI, items, options), {}, stop));
}

GoogleOAuthAccount GoogleOAuthHTTP::fetchUserInfo(const std::string& accessToken,
                                                  const GoogleOAuthClientConfig& config,
                                                  const Options& options,
                                                  const std::stop_token& stop) {
    HttpRequest request;
    request.url = config.userinfoURI;
    request.headers = {{"Authorization", "Bearer " + accessToken}, {"Accept", "application/json"}};
    request.timeout = options.timeout;
    const HttpResponse response = sendHttpRequest(request, {}, stop);
    validate(response);
    const Json json = Json::parse(response.body, nullptr, false);
    if (json.is_discarded() || !json.is_object()) {
        throw GoogleOAuthError(GoogleOAuthErrorCode::invalidHTTPResponse);
    }
    try {
        return decodeJson<GoogleOAuthAccount>(json);
    } catch (const JsonDecodeError&) {
        throw GoogleOAuthError(GoogleOAuthErrorCode::invalidHTTPResponse);
    }
}

void GoogleOAuthHTTP::revokeToken(const std::string& token, const GoogleOAuthClientConfig& config,
                                  const Options& options, const std::stop_token& stop) {
    validate(sendHttpRequest(formRequest(config.revokeURI, {{"token", token}}, options), {}, stop));
}

} // namespace orvelle
