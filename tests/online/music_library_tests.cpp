#include "core/files.h"
#include "online/music_download_cache.h"
#include "online/music_library.h"
#include "online/online_url.h"
#include "platform/crypto/sha256.h"
#include "platform/secrets/secret_store.h"
#include "support/online_test_server.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace orvelle {
namespace {

using testing::OnlineTestServer;
using testing::TemporaryDirectory;
namespace fs = std::filesystem;

Json result(const std::string& id, double milliseconds, const std::string& url,
            const std::vector<std::string>& tags) {
    return {{"id", id},
            {"title", "  Track " + id + " "},
            {"creator", "Someone"},
            {"duration", milliseconds},
            {"provider", "freesound"},
            {"license", "by"},
            {"license_url", "https://creativecommons.org/licenses/by/4.0/"},
            {"url", url},
            {"foreign_landing_url", "https://example.org/" + id},
            {"waveform", "/v1/audio/" + id + "/waveform/"},
            {"points", Json::array({0.1, 0.5, 0.9, 0.3})},
            {"tags", tags}};
}

TEST(MusicLibraryClient, ListsOnlyTracksTheEditorCanUse) {
    struct Case {
        const char* name;
        Json result;
        bool listed;
    };
    const std::vector<Case> cases{
        {"30 s exactly", result("a", 30000, "https://x/a.mp3", {}), true},
        {"120 s exactly", result("b", 120000, "https://x/b.mp3", {}), true},
        {"29.9 s", result("c", 29900, "https://x/c.mp3", {}), false},
        {"120.1 s", result("d", 120100, "https://x/d.mp3", {}), false},
        {"ogg", result("e", 60000, "https://x/e.OGG", {}), false},
        {"opus", result("f", 60000, "https://x/f.opus?download=1", {}), false},
        {"no duration", Json{{"id", "g"}, {"url", "https://x/g.mp3"}}, false},
        {"no audio", Json{{"id", "h"}, {"duration", 60000}}, false},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        EXPECT_EQ(MusicLibraryClient::isListable(MusicLibraryClient::trackFromResult(test.result)),
                  test.listed);
    }
    const MusicTrack track = MusicLibraryClient::trackFromResult(
        {{"id", "x"}, {"title", "  "}, {"creator", " "}, {"duration", 45500}});
    EXPECT_EQ(track.title, "Untitled track");
    EXPECT_FALSE(track.creator);
    EXPECT_DOUBLE_EQ(*track.duration, 45.5);

    // Bars are the loudest point of their stretch, never below 0.18.
    EXPECT_EQ(MusicLibraryClient::downsample({0.0, 0.5, 1.0, 0.1}, 2),
              (std::vector<double>{0.5, 1.0}));
    EXPECT_EQ(MusicLibraryClient::downsample({0.05, 0.9}, 4),
              (std::vector<double>{0.18, 0.18, 0.9, 0.9}));
    EXPECT_TRUE(MusicLibraryClient::downsample({}, 28).empty());
    EXPECT_TRUE(MusicLibraryClient::downsample({1.0}, 0).empty());
    EXPECT_EQ(MusicLibraryClient::downsample(std::vector<double>(100, 2.0), 28).size(), 28U);
}

class MusicLibraryTest : public ::testing::Test {
protected:
    MusicLibraryTest() : server_(folder_ / "files") { options_.baseURL = server_.url("/v1/"); }

    OpenverseCredentials registered(MusicLibraryClient& client) {
        return client.registerClient("ada@example.com");
    }

    size_t tokenRequests() {
        size_t count = 0;
        const Json state = server_.state();
        for (const auto& request : state["requests"]) {
            count += request["path"].get<std::string>() == "/v1/auth_tokens/token/" ? 1 : 0;
        }
        return count;
    }

    TemporaryDirectory folder_;
    OnlineTestServer server_;
    MusicLibraryClient::Options options_;
};

TEST_F(MusicLibraryTest, RegistersSearchesAVibeAndKeepsItsToken) {
    // startupBeat asks "upbeat electronic technology instrumental", then "corporate
    // electronic": tracks are matched by tag words.
    server_.setCatalogue(Json::array({
        result("one", 60000, "/files/one.mp3", {"upbeat"}),
        result("both", 90000, "/files/both.mp3", {"upbeat", "corporate"}),
        result("two", 45000, "/files/two.mp3", {"corporate"}),
        result("short", 20000, "/files/short.mp3", {"upbeat"}),
        result("ogg", 60000, "/files/ogg.ogg", {"corporate"}),
        result("other", 60000, "/files/other.mp3", {"ambient"}),
    }));
    MusicLibraryClient client(options_);
    const OpenverseCredentials credentials = registered(client);
    const Json clients = server_.state()["openverseClients"];
    ASSERT_EQ(clients.size(), 1U);
    const Json client0 = clients.begin().value();
    EXPECT_EQ(client0["email"], "ada@example.com");
    EXPECT_EQ(client0["description"], "Music sidebar for the Orvelle editor.");
    EXPECT_EQ(client0["contentType"], "application/json");
    EXPECT_EQ(credentials.name.substr(0, 8), "Orvelle ");
    EXPECT_EQ(credentials.name.size(), 16U);

    const auto tracks = client.search(MusicVibe::startupBeat, credentials);
    std::vector<std::string> ids;
    for (const auto& track : tracks) {
        ids.push_back(track.id);
    }
    EXPECT_EQ(ids, (std::vector<std::string>{"one", "both", "two"}));
    ASSERT_TRUE(tracks[0].waveformLevels);
    EXPECT_EQ(tracks[0].waveformLevels->size(), 28U);
    EXPECT_EQ(tracks[0].title, "Track one");
    EXPECT_EQ(tracks[0].licenseURL, "https://creativecommons.org/licenses/by/4.0/");

    // A second search reuses the token; one about to expire is replaced.
    client.search(MusicVibe::darkSynth, credentials);
    EXPECT_EQ(tokenRequests(), 1U);
    server_.setSettings({{"openverseExpiresIn", 10}}); // kept for 30 s: within the margin
    MusicLibraryClient fresh(options_);
    fresh.search(MusicVibe::darkSynth, credentials);
    fresh.search(MusicVibe::darkSynth, credentials);
    EXPECT_EQ(tokenRequests(), 3U);

    // The credentials round-trip through the secret store.
    MusicCredentialsStore store(openFileSecretStore(folder_ / "secrets"));
    EXPECT_FALSE(store.load());
    store.save(credentials);
    EXPECT_EQ(store.load(), credentials);
}

TEST_F(MusicLibraryTest, FailuresSayWhatHappenedAndAWaveformIsOptional) {
    server_.setCatalogue(Json::array({
        result("fine", 60000, "/files/fine.mp3", {"dark"}),
        [] {
            Json broken = result("broken", 60000, "/files/broken.mp3", {"dark"});
            broken["waveformFails"] = true;
            return broken;
        }(),
    }));
    MusicLibraryClient client(options_);
    const OpenverseCredentials credentials = registered(client);
    const auto tracks = client.search(MusicVibe::darkSynth, credentials);
    ASSERT_EQ(tracks.size(), 2U);
    EXPECT_TRUE(tracks[0].waveformLevels);
    EXPECT_FALSE(tracks[1].waveformLevels);

    const auto expectError = [](const std::function<void()>& call, const std::string& message) {
        if (const auto error = testing::thrown<MusicLibraryError>([&] { call(); })) {
            EXPECT_EQ(error->what(), message);
        }
    };
    server_.addFaults(Json::array({{{"type", "openverseStatus"}}}));
    expectError([&] { client.search(MusicVibe::darkSynth, credentials); },
                "Openverse rejected the request (403).");
    server_.addFaults(Json::array({{{"type", "emptyToken"}}}));
    expectError([&] { MusicLibraryClient(options_).accessToken(credentials); },
                "Openverse returned an empty access token.");
    expectError([&] { client.registerClient(""); },
                "Openverse returned HTTP 400: {\"email\": [\"This field is required.\"]}");
    OpenverseCredentials forged = credentials;
    forged.clientSecret = "wrong";
    expectError([&] { MusicLibraryClient(options_).accessToken(forged); },
                "Openverse returned HTTP 401: {\"detail\": \"Invalid client credentials.\"}");
    MusicTrack noAudio;
    noAudio.id = "x";
    expectError([&] { client.downloadTrack(noAudio); }, "The Openverse URL could not be built.");
    EXPECT_THROW(MusicLibraryClient({"http://api.example/v1/"}), OnlineConfigurationError);
}

TEST_F(MusicLibraryTest, DownloadsIntoTheCacheAndDropsAChangedFile) {
    fs::create_directories(folder_ / "files");
    std::string audio(200000, '\0');
    for (size_t i = 0; i < audio.size(); ++i) {
        audio[i] = static_cast<char>(i * 7 % 251);
    }
    writeFileAtomically(folder_ / "files/song.mp3", audio);
    server_.setCatalogue(Json::array({result("song", 60000, "/files/song.mp3", {"pulse"})}));
    MusicLibraryClient client(options_);
    const OpenverseCredentials credentials = registered(client);
    const MusicTrack track = client.track("song", credentials);
    // No token goes with the download (the stand-in refuses one).
    const std::string data = client.downloadTrack(track);
    EXPECT_EQ(data, audio);

    const fs::path cache = folder_ / "MusicCache";
    EXPECT_FALSE(MusicDownloadCache::cachedFileURL("song", cache));
    const fs::path file = MusicDownloadCache::store(data, "song", "mp3", track.title, cache);
    EXPECT_EQ(file, cache / "song.mp3");
    EXPECT_EQ(MusicDownloadCache::store("x", "bare", "", "Bare", cache), cache / "bare.mp3");
    const Json index = readJsonFile(cache / "index.json");
    EXPECT_EQ(index["entries"]["song"], (Json{{"fileName", "song.mp3"},
                                              {"sha256", sha256Hex(audio)},
                                              {"byteSize", 200000},
                                              {"title", "Track song"}}));
    EXPECT_EQ(MusicDownloadCache::cachedFileURL("song", cache), file);
    EXPECT_EQ(MusicDownloadCache::totalSizeBytes(cache),
              200000 + 1 + fs::file_size(cache / "index.json"));

    // A file changed on disk no longer matches its checksum: removed, and a miss.
    std::ofstream(file, std::ios::binary | std::ios::app) << "tampered";
    EXPECT_FALSE(MusicDownloadCache::cachedFileURL("song", cache));
    EXPECT_FALSE(fs::exists(file));
    EXPECT_FALSE(MusicDownloadCache::entries(cache).contains("song"));
    EXPECT_TRUE(MusicDownloadCache::entries(cache).contains("bare"));

    MusicDownloadCache::clear(cache);
    EXPECT_EQ(MusicDownloadCache::totalSizeBytes(cache), 0U);
    EXPECT_TRUE(MusicDownloadCache::entries(cache).empty());
}

} // namespace
} // namespace orvelle
