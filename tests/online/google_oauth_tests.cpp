#include "online/google_api_error.h"
#include "online/google_oauth.h"
#include "online/google_oauth_controller.h"
#include "online/google_oauth_loopback_server.h"
#include "platform/http/http.h"
#include "platform/secrets/secret_store.h"
#include "support/online_test_server.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <set>

namespace orvelle {
namespace {

using testing::OnlineTestServer;
using testing::TemporaryDirectory;

// ---- pieces -------------------------------------------------------------------------------

TEST(GoogleOAuthPKCE, ChallengeIsTheS256OfTheVerifier) {
    // The example of the PKCE standard.
    EXPECT_EQ(GoogleOAuthPKCE::codeChallenge("dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"),
              "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM");
    std::set<std::string> seen;
    for (int i = 0; i < 20; ++i) {
        const auto verifier = GoogleOAuthPKCE::makeCodeVerifier();
        EXPECT_EQ(verifier.size(), 64U); // 48 bytes
        EXPECT_EQ(verifier.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                             "0123456789-_"),
                  std::string::npos)
            << verifier;
        seen.insert(verifier);
    }
    EXPECT_EQ(seen.size(), 20U);
}

TEST(GoogleOAuthClientConfig, TakesInstalledBeforeWebAndRefusesWhatItCannotUse) {
    const Json installed{{"client_id", "installed-id"},
                         {"client_secret", "s"},
                         {"auth_uri", "https://accounts.example/o/oauth2/auth"},
                         {"token_uri", "https://oauth2.example/token"}};
    const Json web{{"client_id", "web-id"},
                   {"auth_uri", "https://accounts.example/web"},
                   {"token_uri", "https://oauth2.example/web-token"},
                   {"revoke_uri", "http://127.0.0.1:9/revoke"}};
    auto both = GoogleOAuthClientConfig::decode({{"installed", installed}, {"web", web}});
    EXPECT_EQ(both.clientID, "installed-id");
    EXPECT_EQ(both.clientSecret, "s");
    EXPECT_EQ(both.revokeURI, "https://oauth2.googleapis.com/revoke");
    EXPECT_EQ(both.userinfoURI, "https://openidconnect.googleapis.com/v1/userinfo");
    auto webOnly = GoogleOAuthClientConfig::decode({{"web", web}});
    EXPECT_EQ(webOnly.clientID, "web-id");
    EXPECT_FALSE(webOnly.clientSecret);
    EXPECT_EQ(webOnly.revokeURI, "http://127.0.0.1:9/revoke");

    for (const Json& bad :
         {Json{{"other", installed}}, Json::array(), Json{{"installed", Json{{"client_id", "x"}}}},
          Json{{"installed", Json{{"client_id", "x"},
                                  {"auth_uri", "not a url"},
                                  {"token_uri", "https://t.example/"}}}}}) {
        if (const auto error =
                testing::thrown<GoogleOAuthError>([&] { GoogleOAuthClientConfig::decode(bad); })) {
            EXPECT_EQ(error->code(), GoogleOAuthErrorCode::missingClientConfig);
            EXPECT_STREQ(error->what(), "Missing Google OAuth client config.");
        }
    }
    Json insecure = installed;
    insecure["token_uri"] = "http://oauth2.example/token";
    EXPECT_THROW(GoogleOAuthClientConfig::decode({{"installed", insecure}}),
                 OnlineConfigurationError);

    TemporaryDirectory folder;
    testing::writeTextFile(folder / "client.json", "{ not json");
    EXPECT_THROW(GoogleOAuthClientConfig::load(folder / "client.json"), GoogleOAuthError);
    EXPECT_THROW(GoogleOAuthClientConfig::load(folder / "missing.json"), FileError);
}

TEST(GoogleAPIErrorDetails, DetailFollowsTheOrderOfItsSources) {
    struct Case {
        const char* body;
        std::optional<std::string> detail;
    };
    for (
        const auto& [body, detail] : std::initializer_list<Case>{
            {R"({"error":{"code":403,"message":"Quota","errors":[{"reason":"quotaExceeded"}]}})",
             "YouTube upload quota has been exceeded."},
            {R"({"error":{"code":403,"message":"x","errors":[{"message":"m"},{"reason":"youtubeSignupRequired"}]}})",
             "This Google account needs a YouTube channel before it can upload."},
            {R"({"error":{"code":403,"errors":[{"reason":"insufficientPermissions"}]}})",
             "Google is missing the YouTube upload permission. Disconnect and connect again."},
            {R"({"error":"insufficient_scope"})",
             "Google is missing the YouTube upload permission. Disconnect and connect again."},
            {R"({"error":"invalid_grant","error_description":"Token has been expired"})",
             "Google sign-in expired. Disconnect and connect again."},
            {R"({"error":"access_denied"})", "Google access was denied."},
            {R"({"error":{"code":500,"message":"  Backend Error  ","errors":[{"reason":"backendError"}]}})",
             "Backend Error"},
            {R"({"error":"invalid_client","error_description":"The OAuth client was not found."})",
             "The OAuth client was not found."},
            {R"({"error":"unsupported_grant_type"})", "unsupported grant type"},
            {R"({"error":{"code":500,"message":"   "}})", "The request failed."},
            {R"({"error_description":"only a description"})", "only a description"},
            {"<html>Bad Gateway</html>", std::nullopt},
            {R"({"detail":"other services"})", std::nullopt},
            {"", std::nullopt},
        }) {
        EXPECT_EQ(googleErrorDetail(body), detail) << body;
    }
    const auto parsed = GoogleAPIErrorDetails::parse(
        R"({"error":{"code":403,"message":"m","status":"PERMISSION_DENIED","errors":[{"reason":"r","domain":"d"}]}})");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->code, 403);
    EXPECT_EQ(parsed->status, "PERMISSION_DENIED");
    EXPECT_EQ(parsed->reason, "r");
    EXPECT_STREQ(GoogleOAuthError::httpFailure(400, std::nullopt).what(),
                 "Google request failed with HTTP 400.");
    EXPECT_STREQ(GoogleOAuthError::httpFailure(401, "Nope").what(),
                 "Google request failed with HTTP 401: Nope");
}

// ---- the loopback listener ----------------------------------------------------------------

TEST(GoogleOAuthLoopbackServer, ParsesTheRedirectsRequestLine) {
    const auto callback = GoogleOAuthLoopbackServer::parseCallback(
        "GET /?state=abc&code=4%2F0AbC&scope=x HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
    EXPECT_EQ(callback.code, "4/0AbC");
    EXPECT_EQ(callback.state, "abc");
    struct Case {
        const char* request;
        GoogleOAuthErrorCode code;
        const char* message;
    };
    for (const auto& [request, code, message] : std::initializer_list<Case>{
             {"GET /?error=access_denied&state=s&code=c HTTP/1.1\r\n",
              GoogleOAuthErrorCode::httpFailure,
              "Google request failed with HTTP 400: access_denied"},
             {"GET /?state=s HTTP/1.1\r\n", GoogleOAuthErrorCode::missingCode,
              "Google did not return an authorization code."},
             {"GET /?code=c HTTP/1.1\r\n", GoogleOAuthErrorCode::invalidState,
              "Google authorization state did not match."},
             {"POST /?code=c&state=s HTTP/1.1\r\n", GoogleOAuthErrorCode::invalidCallback,
              "Google returned an invalid authorization callback."},
             {"GET\r\n", GoogleOAuthErrorCode::invalidCallback,
              "Google returned an invalid authorization callback."},
             {"GET http://evil.example/?code=c&state=s HTTP/1.1\r\n",
              GoogleOAuthErrorCode::invalidCallback,
              "Google returned an invalid authorization callback."},
         }) {
        if (const auto error = testing::thrown<GoogleOAuthError>(
                [&] { GoogleOAuthLoopbackServer::parseCallback(request); })) {
            EXPECT_EQ(error->code(), code) << request;
            EXPECT_STREQ(error->what(), message);
        }
    }
}

// Connects to 127.0.0.1:port, sends a request and reads the whole answer; absent when
// nobody listens.
std::optional<std::string> visit(int port, const std::string& request) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return std::nullopt;
    }
    ::send(fd, request.data(), request.size(), MSG_NOSIGNAL);
    std::string answer;
    char buffer[4096];
    ssize_t got = 0;
    while ((got = ::recv(fd, buffer, sizeof buffer, 0)) > 0) {
        answer.append(buffer, static_cast<size_t>(got));
    }
    ::close(fd);
    return answer;
}

TEST(GoogleOAuthLoopbackServer, TakesOneConnectionOnLoopbackOnly) {
    GoogleOAuthLoopbackServer server;
    const int port = server.start();
    EXPECT_GT(port, 0);
    EXPECT_EQ(server.boundAddress(), "127.0.0.1");
    EXPECT_EQ(server.redirectURI(), "http://127.0.0.1:" + std::to_string(port));

    // The browser comes before anyone waits: the callback is kept for the wait.
    const auto page = visit(port, "GET /?code=the-code&state=the-state HTTP/1.1\r\n\r\n");
    ASSERT_TRUE(page);
    EXPECT_EQ(*page, GoogleOAuthLoopbackServer::response(true));
    EXPECT_NE(page->find("<h1>Orvelle connected</h1>"), std::string::npos);
    const auto callback = server.waitForCallback(std::chrono::seconds(5));
    EXPECT_EQ(callback.code, "the-code");
    EXPECT_EQ(callback.state, "the-state");

    // A second visit of the redirect finds nobody listening.
    EXPECT_FALSE(visit(port, "GET /?code=other&state=the-state HTTP/1.1\r\n\r\n"));
}

TEST(GoogleOAuthLoopbackServer, AnswersAFailureAndEndsTheWaitWithIt) {
    GoogleOAuthLoopbackServer server;
    const int port = server.start();
    std::optional<std::string> page;
    std::thread browser([&] { page = visit(port, "GET /favicon.ico HTTP/1.1\r\n\r\n"); });
    EXPECT_THROW(server.waitForCallback(std::chrono::seconds(10)), GoogleOAuthError);
    browser.join();
    ASSERT_TRUE(page);
    EXPECT_NE(page->find("Orvelle could not connect"), std::string::npos);
    EXPECT_NE(page->find("Content-Length: "), std::string::npos);
}

TEST(GoogleOAuthLoopbackServer, TimesOutAndCancels) {
    GoogleOAuthLoopbackServer quiet;
    const int port = quiet.start();
    if (const auto error = testing::thrown<GoogleOAuthError>(
            [&] { quiet.waitForCallback(std::chrono::milliseconds(200)); })) {
        EXPECT_EQ(error->code(), GoogleOAuthErrorCode::authorizationTimedOut);
        EXPECT_STREQ(error->what(), "Google sign-in timed out. Try connecting again.");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(visit(port, "GET /?code=c&state=s HTTP/1.1\r\n\r\n")); // the listener is gone

    GoogleOAuthLoopbackServer cancelled;
    cancelled.start();
    std::stop_source stop;
    std::thread canceller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        stop.request_stop();
    });
    EXPECT_THROW(cancelled.waitForCallback(std::chrono::seconds(30), stop.get_token()),
                 CancellationError);
    canceller.join();
}

// ---- the controller against the stand-in of Google -------------------------------------------

class GoogleOAuthControllerTest : public ::testing::Test {
protected:
    GoogleOAuthControllerTest() {
        server_.writeClientFile(clientFile());
        configuration_.clientConfigFile = clientFile();
        configuration_.connectionTimeout = std::chrono::seconds(20);
        configuration_.http.timeout = std::chrono::seconds(10);
        configuration_.openBrowser = [this](const std::string& url) {
            authorizationURL_ = url;
            page_ = OnlineTestServer::browse(url);
        };
    }

    std::filesystem::path clientFile() const { return folder_ / "google-oauth-client.json"; }
    std::filesystem::path secretsFolder() const { return folder_ / "Secrets"; }

    std::unique_ptr<GoogleOAuthController> makeController() {
        return std::make_unique<GoogleOAuthController>(
            loop_, std::shared_ptr<SecretStore>(openFileSecretStore(secretsFolder())),
            configuration_);
    }

    void connectAndWait(GoogleOAuthController& controller) {
        controller.connect();
        ASSERT_TRUE(loop_.runUntil([&] { return !controller.isConnectionRunning(); },
                                   std::chrono::seconds(60)));
        loop_.runFor(std::chrono::milliseconds(20));
        EXPECT_FALSE(controller.isConnecting().value());
    }

    std::optional<GoogleOAuthStoredCredential> storedCredential() {
        const auto data =
            openFileSecretStore(secretsFolder())->read({"orvelle.google.oauth", "youtube-upload"});
        if (!data) {
            return std::nullopt;
        }
        return decodeJson<GoogleOAuthStoredCredential>(parseJson(*data));
    }

    std::vector<std::string> tokenRequests() {
        std::vector<std::string> grants;
        const Json state = server_.state();
        for (const auto& grant : state["tokenRequests"]) {
            grants.push_back(grant.get<std::string>());
        }
        return grants;
    }

    TemporaryDirectory folder_;
    OnlineTestServer server_;
    RunLoop loop_;
    GoogleOAuthController::Configuration configuration_;
    std::string authorizationURL_;
    std::string page_;
};

TEST_F(GoogleOAuthControllerTest, SignsInRefreshesAndSignsOut) {
    auto controller = makeController();
    std::vector<bool> connectingSeen;
    const auto observation =
        controller->isConnecting().observe([&](bool value) { connectingSeen.push_back(value); });
    EXPECT_FALSE(controller->isConnected());
    connectAndWait(*controller);
    EXPECT_EQ(connectingSeen, (std::vector<bool>{true, false}));
    EXPECT_FALSE(controller->errorMessage().value()) << *controller->errorMessage().value();
    ASSERT_TRUE(controller->account().value());
    EXPECT_EQ(controller->account().value()->displayName(), "Ada Example");
    EXPECT_TRUE(GoogleOAuthLoopbackServer::response(true).ends_with("\r\n\r\n" + page_));

    // What the browser was sent to: the scopes, offline access, PKCE S256 (the stand-in
    // checked the verifier against this challenge before it gave out a token).
    const auto authorization = server_.state()["authorizations"][0];
    EXPECT_EQ(authorization["response_type"], "code");
    EXPECT_EQ(authorization["client_id"], "test-client.apps.example");
    EXPECT_EQ(authorization["access_type"], "offline");
    EXPECT_EQ(authorization["prompt"], "consent");
    EXPECT_EQ(authorization["code_challenge_method"], "S256");
    EXPECT_EQ(authorization["scope"], "https://www.googleapis.com/auth/youtube.upload "
                                      "https://www.googleapis.com/auth/userinfo.email "
                                      "https://www.googleapis.com/auth/userinfo.profile");
    EXPECT_TRUE(authorization["redirect_uri"].get<std::string>().starts_with("http://127.0.0.1:"));
    EXPECT_EQ(authorization["state"].get<std::string>().size(), 64U);
    EXPECT_EQ(authorizationURL_.find("code_verifier"), std::string::npos);

    // The stored credential holds the tokens the stand-in issued.
    const auto stored = storedCredential();
    ASSERT_TRUE(stored);
    EXPECT_EQ(server_.state()["accessTokens"][0], stored->token.accessToken);
    EXPECT_EQ(server_.state()["refreshTokens"][0], stored->token.refreshToken);
    EXPECT_EQ(stored->account.email, "ada@example.com");
    const double lifetime =
        stored->token.expiresAt.secondsSince1970() - Date::now().secondsSince1970();
    EXPECT_NEAR(lifetime, 3600, 30);

    // A token with an hour to live is handed out as it is.
    EXPECT_EQ(controller->validAccessToken(), stored->token.accessToken);
    EXPECT_EQ(tokenRequests(), std::vector<std::string>{"authorization_code"});

    // A later run of the program finds the credential; one that expires within 90 s is
    // refreshed, and a refresh without a new refresh token keeps the old one.
    auto nearlyExpired = *stored;
    nearlyExpired.token.expiresAt = Date{Date::now().millisecondsSince1970 + 60000};
    openFileSecretStore(secretsFolder())
        ->write({"orvelle.google.oauth", "youtube-upload"}, encodeJson(nearlyExpired).dump());
    controller = makeController();
    EXPECT_TRUE(controller->isConnected());
    const std::string refreshed = controller->validAccessToken();
    EXPECT_NE(refreshed, stored->token.accessToken);
    EXPECT_EQ(tokenRequests(), (std::vector<std::string>{"authorization_code", "refresh_token"}));
    const auto afterRefresh = storedCredential();
    ASSERT_TRUE(afterRefresh);
    EXPECT_EQ(afterRefresh->token.accessToken, refreshed);
    EXPECT_EQ(afterRefresh->token.refreshToken, stored->token.refreshToken);
    EXPECT_EQ(afterRefresh->account, stored->account);

    // Signing out revokes the grant at Google and forgets it here.
    EXPECT_FALSE(controller->signOut());
    loop_.runFor(std::chrono::milliseconds(20));
    EXPECT_EQ(server_.state()["revoked"][0], stored->token.refreshToken);
    EXPECT_FALSE(storedCredential());
    EXPECT_FALSE(controller->account().value());
    if (const auto error =
            testing::thrown<GoogleOAuthError>([&] { controller->validAccessToken(); })) {
        EXPECT_EQ(error->code(), GoogleOAuthErrorCode::notConnected);
        EXPECT_STREQ(error->what(), "Connect a Google account before uploading to YouTube.");
    }
}

TEST_F(GoogleOAuthControllerTest, RefusesWhatAForgedOrIncompleteSignInBrings) {
    struct Case {
        const char* fault;
        const char* message;
        std::vector<std::string> tokenRequests;
    };
    for (const auto& [fault, message, grants] : std::initializer_list<Case>{
             {"forgeState", "Google authorization state did not match.", {}},
             {"denyConsent", "Google request failed with HTTP 400: access_denied", {}},
             {"noRefreshToken",
              "Google did not return a refresh token. Try connecting again.",
              {"authorization_code"}},
         }) {
        SCOPED_TRACE(fault);
        OnlineTestServer server;
        server.writeClientFile(clientFile());
        server.addFaults(Json::array({{{"type", fault}}}));
        auto controller = makeController();
        connectAndWait(*controller);
        EXPECT_EQ(controller->errorMessage().value(), message);
        EXPECT_FALSE(controller->account().value());
        EXPECT_FALSE(storedCredential());
        std::vector<std::string> seen;
        const Json state = server.state();
        for (const auto& grant : state["tokenRequests"]) {
            seen.push_back(grant.get<std::string>());
        }
        EXPECT_EQ(seen, grants);
        EXPECT_TRUE(GoogleOAuthLoopbackServer::response(std::string(fault) != "denyConsent")
                        .ends_with("\r\n\r\n" + page_));
    }
}

TEST_F(GoogleOAuthControllerTest, ATimeOutOrACancelEndsTheAttempt) {
    configuration_.connectionTimeout = std::chrono::milliseconds(300);
    configuration_.openBrowser = [](const std::string&) {}; // the user never comes back
    auto controller = makeController();
    connectAndWait(*controller);
    EXPECT_EQ(controller->errorMessage().value(),
              "Google sign-in timed out. Try connecting again.");

    configuration_.connectionTimeout = std::chrono::seconds(30);
    controller = makeController();
    controller->connect();
    loop_.runFor(std::chrono::milliseconds(100));
    controller->disconnect();
    ASSERT_TRUE(loop_.runUntil([&] { return !controller->isConnectionRunning(); },
                               std::chrono::seconds(10)));
    loop_.runFor(std::chrono::milliseconds(20));
    EXPECT_FALSE(controller->errorMessage().value()); // a cancel says nothing
    EXPECT_FALSE(controller->isConnecting().value());
}

TEST_F(GoogleOAuthControllerTest, AFailedRefreshKeepsTheCredential) {
    auto controller = makeController();
    connectAndWait(*controller);
    auto stored = storedCredential();
    ASSERT_TRUE(stored);
    stored->token.expiresAt = Date::now();
    openFileSecretStore(secretsFolder())
        ->write({"orvelle.google.oauth", "youtube-upload"}, encodeJson(*stored).dump());
    server_.addFaults(
        Json::array({{{"type", "tokenStatus"},
                      {"grant", "refresh_token"},
                      {"code", 400},
                      {"body",
                       {{"error", "invalid_grant"},
                        {"error_description", "Token has been expired or revoked."}}}}}));
    controller = makeController();
    if (const auto error =
            testing::thrown<GoogleOAuthError>([&] { controller->validAccessToken(); })) {
        EXPECT_STREQ(error->what(),
                     "Google request failed with HTTP 400: Google sign-in expired. Disconnect and "
                     "connect again.");
    }
    EXPECT_EQ(storedCredential(), stored);
    // A revocation Google refuses still signs out here, and says so.
    server_.addFaults(Json::array({{{"type", "revokeStatus"}, {"code", 400}}}));
    const auto failure = controller->signOut();
    ASSERT_TRUE(failure);
    EXPECT_EQ(*failure, "Google request failed with HTTP 400: invalid token");
    EXPECT_FALSE(storedCredential());
}

} // namespace
} // namespace orvelle
