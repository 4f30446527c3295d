#include "support/online_test_server.h"

#include "platform/http/http.h"
#include "support/temporary_directory.h"

#include <stdexcept>

namespace orvelle::testing {

namespace {

Json post(const std::string& url, const Json& body) {
    HttpRequest request{.method = "POST",
                        .url = url,
                        .headers = {{"Content-Type", "application/json"}},
                        .body = body.dump()};
    const auto response = sendHttpRequest(request);
    if (response.status != 200) {
        throw std::runtime_error("the online test server refused " + url + ": " + response.body);
    }
    return Json::parse(response.body);
}

} // namespace

OnlineTestServer::OnlineTestServer(const std::filesystem::path& folder)
    : server_(folder, "online_test_server.py") {}

void OnlineTestServer::addFaults(const Json& faults) const {
    post(url("/control/faults"), faults);
}

void OnlineTestServer::setSettings(const Json& settings) const {
    post(url("/control/settings"), settings);
}

void OnlineTestServer::setCatalogue(const Json& tracks) const {
    post(url("/control/catalogue"), tracks);
}

Json OnlineTestServer::state() const {
    HttpRequest request;
    request.url = url("/control/state");
    return Json::parse(sendHttpRequest(request).body);
}

void OnlineTestServer::writeClientFile(const std::filesystem::path& file) const {
    const Json client{{"installed",
                       {{"client_id", "test-client.apps.example"},
                        {"client_secret", "test-secret"},
                        {"auth_uri", url("/o/oauth2/auth")},
                        {"token_uri", url("/token")},
                        {"revoke_uri", url("/revoke")},
                        {"userinfo_uri", url("/v1/userinfo")},
                        {"redirect_uris", {"http://localhost"}}}}};
    writeTextFile(file, client.dump(2));
}

std::map<std::string, std::string>
OnlineTestServer::programEnvironment(const std::filesystem::path& dataHome) const {
    writeClientFile(dataHome / "Orvelle" / "google-oauth-client.json");
    return {{"ORVELLE_YOUTUBE_UPLOAD_URL", url("")},
            {"ORVELLE_MUSIC_LIBRARY_URL", url("/v1/")},
            {"BROWSER", "curl -sS -L -o /dev/null"},
            {"XDG_CURRENT_DESKTOP", ""},
            {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + (dataHome / "no-bus").string()}};
}

std::string OnlineTestServer::browse(const std::string& url) {
    HttpRequest request{.url = url, .timeout = std::chrono::seconds(20)};
    return sendHttpRequest(request).body;
}

} // namespace orvelle::testing
