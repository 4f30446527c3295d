#include "core/json.h"
#include "online/online_endpoints.h"
#include "online/online_url.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace orvelle {
namespace {

TEST(OnlineURL, FormBodiesEscapeWhatWouldChangeTheirMeaning) {
    EXPECT_EQ(formBody({{"grant_type", "authorization_code"},
                        {"code", "4/0A+b&c=d e"},
                        {"redirect_uri", "http://127.0.0.1:5000"},
                        {"code_verifier", "abc-_.~"}}),
              "grant_type=authorization_code&code=4/0A%2Bb%26c%3Dd%20e"
              "&redirect_uri=http://127.0.0.1:5000&code_verifier=abc-_.~");
    EXPECT_EQ(percentEscaped("a:#[]@!$&'()*+,;=b"),
              "a%3A%23%5B%5D%40%21%24%26%27%28%29%2A%2B%2C%3B%3Db");
    EXPECT_EQ(percentUnescaped("a%20b+c%2", true), "a b c%2");
    EXPECT_EQ(percentUnescaped("a+b", false), "a+b");
}

TEST(OnlineURL, QueryItemsAreAddedAndReadBack) {
    EXPECT_EQ(appendingQueryItems("https://a.example/auth", {{"x", "1 2"}, {"y", "&"}}),
              "https://a.example/auth?x=1%202&y=%26");
    EXPECT_EQ(appendingQueryItems("https://a.example/auth?hl=en#top", {{"x", "1"}}),
              "https://a.example/auth?hl=en&x=1#top");
    const auto parts = URLComponents::parse("HTTP://127.0.0.1:8123/cb?code=4%2F0A&state=s+1&flag");
    ASSERT_TRUE(parts);
    EXPECT_EQ(parts->scheme, "http");
    EXPECT_EQ(parts->host, "127.0.0.1");
    EXPECT_EQ(parts->port, 8123);
    EXPECT_EQ(parts->path, "/cb");
    EXPECT_EQ(parts->queryValue("code"), "4/0A");
    EXPECT_EQ(parts->queryValue("state"), "s 1");
    EXPECT_EQ(parts->queryValue("flag"), "");
    EXPECT_FALSE(parts->queryValue("error"));
    const auto ipv6 = URLComponents::parse("http://[::1]:99");
    ASSERT_TRUE(ipv6);
    EXPECT_EQ(ipv6->host, "::1");
    EXPECT_EQ(ipv6->path, "/");
    for (const char* bad : {"no scheme", "http://", "http://host:99999/", "http://[::1/"}) {
        EXPECT_FALSE(URLComponents::parse(bad)) << bad;
    }
    EXPECT_EQ(joinedURL("https://api.example/v1/", "/audio/"), "https://api.example/v1/audio/");
    EXPECT_EQ(joinedURL("https://api.example/v1", "audio/"), "https://api.example/v1/audio/");
}

TEST(OnlineURL, PlainHTTPIsAllowedOnlyForThisMachine) {
    struct Case {
        const char* url;
        bool allowed;
    };
    for (const auto& [url, allowed] : std::initializer_list<Case>{
             {"https://www.googleapis.com", true},
             {"http://127.0.0.1:8080/token", true},
             {"http://127.45.0.3/", true},
             {"http://localhost:9/", true},
             {"http://[::1]:9/", true},
             {"http://www.googleapis.com", false},
             {"http://127.0.0.1.evil.example/", false},
             {"http://10.0.0.1/", false},
             {"ftp://127.0.0.1/", false},
             {"not a url", false},
         }) {
        if (allowed) {
            EXPECT_NO_THROW(requireSecureURL(url, "the test service")) << url;
        } else {
            EXPECT_THROW(requireSecureURL(url, "the test service"), OnlineConfigurationError)
                << url;
        }
    }
}

TEST(OnlineEndpoints, SettingsFileThenEnvironment) {
    testing::TemporaryDirectory folder;
    const auto settings = folder / "settings.json";
    ::unsetenv("ORVELLE_YOUTUBE_UPLOAD_URL");
    ::unsetenv("ORVELLE_MUSIC_LIBRARY_URL");
    const auto defaults = OnlineServiceEndpoints::load(settings);
    EXPECT_EQ(defaults.youtubeUploadURL, "https://www.googleapis.com");
    EXPECT_EQ(defaults.musicLibraryURL, "https://api.openverse.org/v1/");

    testing::writeTextFile(settings, R"({"youtubeUploadURL": "http://127.0.0.1:1/",
                                        "musicLibraryURL": "https://music.example/v1/",
                                        "OrvelleSelectedCameraID": "cam"})");
    auto endpoints = OnlineServiceEndpoints::load(settings);
    EXPECT_EQ(endpoints.youtubeUploadURL, "http://127.0.0.1:1/");
    EXPECT_EQ(endpoints.musicLibraryURL, "https://music.example/v1/");

    ::setenv("ORVELLE_MUSIC_LIBRARY_URL", "http://127.0.0.1:2/v1/", 1);
    endpoints = OnlineServiceEndpoints::load(settings);
    EXPECT_EQ(endpoints.youtubeUploadURL, "http://127.0.0.1:1/");
    EXPECT_EQ(endpoints.musicLibraryURL, "http://127.0.0.1:2/v1/");
    ::unsetenv("ORVELLE_MUSIC_LIBRARY_URL");

    testing::writeTextFile(settings, R"({"youtubeUploadURL": 7})");
    if (const auto error =
            testing::thrown<JsonDecodeError>([&] { OnlineServiceEndpoints::load(settings); })) {
        EXPECT_NE(std::string(error->what()).find("settings.json"), std::string::npos);
        EXPECT_NE(std::string(error->what()).find("youtubeUploadURL"), std::string::npos);
    }
}

} // namespace
} // namespace orvelle
