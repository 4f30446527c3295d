#pragma once

// Google sign-in as data and requests: the OAuth client file, the tokens and the account
// kept for the user, PKCE, the errors with their messages, and the token, user-info and
// revocation requests. GoogleOAuthController drives them; the loopback listener that
// catches the browser's redirect is in google_oauth_loopback_server.h.

#include "core/date.h"
#include "core/error.h"
#include "core/json.h"
#include "online/online_url.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace orvelle {

struct HttpResponse;

enum class GoogleOAuthErrorCode {
    httpFailure,
    notConnected,
    missingClientConfig,
    invalidAuthorizationURL,
    invalidCallback,
    invalidState,
    missingCode,
    missingRefreshToken,
    authorizationTimedOut,
    invalidHTTPResponse,
};

class GoogleOAuthError : public CodedError<GoogleOAuthErrorCode> {
public:
    explicit GoogleOAuthError(GoogleOAuthErrorCode code);
    // "Google request failed with HTTP 400: <detail>"
    static GoogleOAuthError httpFailure(int statusCode, std::optional<std::string> detail);

    int statusCode() const { return statusCode_; }
    const std::optional<std::string>& detail() const { return detail_; }

private:
    GoogleOAuthError(int statusCode, std::optional<std::string> detail);
    int statusCode_ = 0;
    std::optional<std::string> detail_;
};

// The text shown for any failure of sign-in: the error's own description.
std::string googleOAuthUserFacingMessage(const std::exception& error);

// The account's profile from the user-info endpoint.
struct GoogleOAuthAccount {
    std::optional<std::string> sub;
    std::optional<std::string> name;
    std::optional<std::string> email;
    std::optional<std::string> picture;

    // The name if not empty, else the e-mail address if not empty, else "Connected".
    std::string displayName() const;

    friend bool operator==(const GoogleOAuthAccount&, const GoogleOAuthAccount&) = default;
};

struct GoogleOAuthToken {
    std::string accessToken;
    std::string refreshToken;
    Date expiresAt;
    std::optional<std::string> scope;
    std::string tokenType;
    std::optional<std::string> idToken;

    friend bool operator==(const GoogleOAuthToken&, const GoogleOAuthToken&) = default;
};

// What the secret store holds, as JSON.
struct GoogleOAuthStoredCredential {
    GoogleOAuthToken token;
    GoogleOAuthAccount account;

    friend bool operator==(const GoogleOAuthStoredCredential&,
                           const GoogleOAuthStoredCredential&) = default;
};

template <>
struct JsonCoder<GoogleOAuthAccount> {
    static GoogleOAuthAccount decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const GoogleOAuthAccount& value);
};
template <>
struct JsonCoder<GoogleOAuthToken> {
    static GoogleOAuthToken decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const GoogleOAuthToken& value);
};
template <>
struct JsonCoder<GoogleOAuthStoredCredential> {
    static GoogleOAuthStoredCredential decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const GoogleOAuthStoredCredential& value);
};

// The token endpoint's answer.
struct GoogleOAuthTokenResponse {
    std::string accessToken;
    std::int64_t expiresIn = 0;
    std::optional<std::string> refreshToken;
    std::optional<std::string> scope;
    std::string tokenType;
    std::optional<std::string> idToken;
};

// The OAuth client of an installed application, from the JSON file the Google Cloud
// console gives ("installed" taken before "web").
struct GoogleOAuthClientConfig {
    std::string clientID;
    std::optional<std::string> clientSecret;
    std::string authURI;
    std::string tokenURI;
    std::string revokeURI;   // "revoke_uri", Google's when absent
    std::string userinfoURI; // "userinfo_uri", Google's OpenID one when absent

    // <application support>/google-oauth-client.json
    static std::filesystem::path defaultFile();
    // Throws FileError when the file cannot be read; GoogleOAuthError missingClientConfig
    // when it has neither entry, lacks a key or holds a URI that does not parse;
    // OnlineConfigurationError for an endpoint that is not https (and not this machine).
    static GoogleOAuthClientConfig load(const std::filesystem::path& file);
    static GoogleOAuthClientConfig decode(const Json& json);
};

namespace GoogleOAuthPKCE {
// 48 random bytes, base64url without padding (64 characters).
std::string makeCodeVerifier();
// base64url(SHA-256(verifier)).
std::string codeChallenge(const std::string& verifier);
} // namespace GoogleOAuthPKCE

// The scopes asked for, in order.
const std::vector<std::string>& googleOAuthScopes();

// The browser's address for the consent page.
std::string googleAuthorizationURL(const GoogleOAuthClientConfig& config,
                                   const std::string& redirectURI, const std::string& codeChallenge,
                                   const std::string& state);

namespace GoogleOAuthHTTP {

struct Options {
    std::chrono::milliseconds timeout{60000};
};

// A status from 200 to 299 passes; anything else is httpFailure with the detail of its
// body. Throws GoogleOAuthError.
void validate(const HttpResponse& response);

GoogleOAuthTokenResponse exchangeCode(const std::string& code,
                                      const GoogleOAuthClientConfig& config,
                                      const std::string& redirectURI,
                                      const std::string& codeVerifier, const Options& options,
                                      const std::stop_token& stop = {});
GoogleOAuthTokenResponse refreshToken(const std::string& refreshToken,
                                      const GoogleOAuthClientConfig& config, const Options& options,
                                      const std::stop_token& stop = {});
GoogleOAuthAccount fetchUserInfo(const std::string& accessToken,
                                 const GoogleOAuthClientConfig& config, const Options& options,
                                 const std::stop_token& stop = {});
// Asks Google to forget the grant of the token (refresh or access token).
void revokeToken(const std::string& token, const GoogleOAuthClientConfig& config,
                 const Options& options, const std::stop_token& stop = {});

} // namespace GoogleOAuthHTTP

} // namespace orvelle
