// `orvelle account`, `upload`, `export --upload` and `music` as a user runs them, against the
// stand-in services on 127.0.0.1, with the real xdg-open handing the consent page to a
// browser (curl, which follows the redirect to the program's listener).

#include "core/files.h"
#include "core/json.h"
#include "platform/crypto/sha256.h"
#include "support/online_test_server.h"
#include "support/run_program.h"
#include "support/temporary_directory.h"
#include "support/tiny_take.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <random>
#include <regex>

namespace orvelle {
namespace {

using testing::OnlineTestServer;
using testing::orvelleBinary;
using testing::ProgramResult;
using testing::runProgram;
using testing::TemporaryDirectory;
namespace fs = std::filesystem;

class OnlineCommandTest : public ::testing::Test {
protected:
    OnlineCommandTest() : server_(folder_ / "served") {
        fs::create_directories(folder_ / "served");
        // No display either: xdg-open goes to $BROWSER.
        environment_ = server_.programEnvironment(folder_ / "data");
        environment_.merge(
            std::map<std::string, std::string>{{"XDG_DATA_HOME", (folder_ / "data").string()},
                                               {"XDG_CONFIG_HOME", (folder_ / "config").string()},
                                               {"XDG_CACHE_HOME", (folder_ / "cache").string()},
                                               {"HOME", folder_.path().string()},
                                               {"DISPLAY", ""},
                                               {"WAYLAND_DISPLAY", ""},
                                               {"ORVELLE_LOG", "debug"}});
    }

    ProgramResult run(const std::vector<std::string>& arguments) {
        ProgramResult result = runProgram(orvelleBinary(), arguments, environment_);
        transcript_ += result.out + result.err;
        return result;
    }

    ::testing::AssertionResult refuses(const std::vector<std::string>& arguments,
                                       std::string_view message) {
        const ProgramResult result = run(arguments);
        if (result.status == 1 && result.err.find(message) != std::string::npos) {
            return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure() << result.status << ": " << result.err;
    }

    Json runJson(const std::vector<std::string>& arguments) {
        const ProgramResult result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        return Json::parse(result.out, nullptr, false);
    }

    fs::path movie(std::uint64_t size) {
        const auto path = folder_ / "movie.mp4";
        std::mt19937 random(7);
        std::string bytes(size, '\0');
        for (auto& byte : bytes) {
            byte = static_cast<char>(random());
        }
        writeFileAtomically(path, bytes);
        return path;
    }

    // Every secret the stand-in handed out: none may show in anything the program printed.
    void expectNoSecretPrinted() {
        const Json state = server_.state();
        std::vector<std::string> secrets;
        for (const char* key : {"codes", "accessTokens", "refreshTokens"}) {
            for (const auto& value : state[key]) {
                secrets.push_back(value.get<std::string>());
            }
        }
        for (const auto& token : state["openverseTokens"]) {
            secrets.push_back(token.get<std::string>());
        }
        for (const auto& [id, client] : state["openverseClients"].items()) {
            secrets.push_back(client["client_secret"].get<std::string>());
        }
        for (const auto& [id, session] : state["sessions"].items()) {
            secrets.push_back("upload_id=" + id);
        }
        ASSERT_FALSE(secrets.empty());
        for (const auto& secret : secrets) {
            EXPECT_EQ(transcript_.find(secret), std::string::npos) << "printed: " << secret;
        }
    }

    // Every file the program wrote under the data folder is the user's alone where it
    // holds a secret.
    static mode_t modeOf(const fs::path& path) {
        struct stat info {};
        ::stat(path.c_str(), &info);
        return info.st_mode & 0777;
    }

    TemporaryDirectory folder_;
    OnlineTestServer server_;
    std::map<std::string, std::string> environment_;
    std::string transcript_;
};

TEST_F(OnlineCommandTest, SignInUploadThroughCutConnectionsAndSignOut) {
    EXPECT_EQ(runJson({"account", "status", "--json"})["connected"], false);

    const Json signedIn = runJson({"account", "sign-in", "--timeout", "30", "--json"});
    EXPECT_EQ(signedIn["connected"], true);
    EXPECT_EQ(signedIn["account"]["displayName"], "Ada Example");
    EXPECT_EQ(signedIn["store"], "private file");
    const Json authorization = server_.state()["authorizations"][0];
    EXPECT_EQ(authorization["code_challenge_method"], "S256");
    EXPECT_EQ(authorization["access_type"], "offline");
    EXPECT_TRUE(std::regex_match(authorization["redirect_uri"].get<std::string>(),
                                 std::regex(R"(http://127\.0\.0\.1:\d+)")));

    const Json status = runJson({"account", "status", "--json"});
    EXPECT_EQ(status["connected"], true);
    EXPECT_EQ(status["account"]["email"], "ada@example.com");

    // The secrets folder and its file are the user's alone.
    const fs::path secrets = folder_ / "data/Orvelle/Secrets";
    ASSERT_TRUE(fs::is_directory(secrets));
    EXPECT_EQ(modeOf(secrets), 0700U);
    size_t files = 0;
    for (const auto& entry : fs::directory_iterator(secrets)) {
        EXPECT_EQ(modeOf(entry.path()), 0600U) << entry.path();
        ++files;
    }
    EXPECT_EQ(files, 1U);

    // Two connections cut in the middle of chunks: the file arrives whole.
    const std::uint64_t size = 8388608 + 3000000;
    const fs::path file = movie(size);
    server_.addFaults(Json::array({{{"type", "cut"}, {"start", 0}, {"at", 5000000}},
                                   {{"type", "cut"}, {"start", 5000000}, {"at", 1234567}}}));
    const Json uploaded = runJson({"upload", file.string(), "--title", "Cut twice", "--privacy",
                                   "unlisted", "--tags", "a, b", "--json"});
    const Json session = server_.state()["sessions"].begin().value();
    EXPECT_EQ(uploaded["videoID"], session["videoID"]);
    EXPECT_EQ(session["sha256"], sha256HexOfFile(file));
    EXPECT_EQ(session["metadata"]["status"]["privacyStatus"], "unlisted");
    EXPECT_EQ(session["metadata"]["snippet"]["tags"], Json::array({"a", "b"}));
    EXPECT_TRUE(server_.state()["faultsLeft"].empty());

    const Json signedOut = runJson({"account", "sign-out", "--json"});
    EXPECT_EQ(signedOut["revoked"], true);
    EXPECT_EQ(server_.state()["revoked"].size(), 1U);
    EXPECT_EQ(runJson({"account", "status", "--json"})["connected"], false);
    EXPECT_TRUE(fs::is_empty(secrets));

    // Without an account an upload says what to do.
    EXPECT_TRUE(refuses({"upload", file.string()},
                        "Connect a Google account before uploading to YouTube."));
    expectNoSecretPrinted();
}

TEST_F(OnlineCommandTest, ARefusedConsentAndAMissingClientFileAreClearErrors) {
    server_.addFaults(Json::array({{{"type", "denyConsent"}}}));
    EXPECT_TRUE(refuses({"account", "sign-in", "--timeout", "30"},
                        "Google request failed with HTTP 400: access_denied"));
    fs::remove(folder_ / "data/Orvelle/google-oauth-client.json");
    EXPECT_TRUE(refuses({"account", "sign-in"}, "Missing Google OAuth client config."));
}

TEST_F(OnlineCommandTest, ExportAndUploadShowOneProgressBar) {
    ASSERT_EQ(run({"account", "sign-in", "--timeout", "30"}).status, 0);
    const auto take = testing::writeTinyTake(folder_ / "take", {.seconds = 2});
    const fs::path output = folder_ / "edit.mp4";
    const ProgramResult result =
        run({"export", take.screenURL.string(), "-o", output.string(), "--size", "320x180",
             "--upload", "--title", "Tiny", "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    const Json json = Json::parse(result.out);
    const Json session = server_.state()["sessions"].begin().value();
    EXPECT_EQ(json["youTubeURL"],
              "https://www.youtube.com/watch?v=" + session["videoID"].get<std::string>());
    EXPECT_EQ(session["sha256"], sha256HexOfFile(output));
    EXPECT_EQ(session["metadata"]["snippet"]["title"], "Tiny");

    // One bar from 0 to 100 %: its lines all carry one label and never go back.
    const std::regex line(R"((.*): (\d+)%)");
    std::set<std::string> labels;
    std::vector<int> percents;
    std::istringstream err(result.err);
    for (std::string text; std::getline(err, text);) {
        std::smatch match;
        if (std::regex_match(text, match, line)) {
            labels.insert(match[1]);
            percents.push_back(std::stoi(match[2]));
        }
    }
    EXPECT_EQ(labels, std::set<std::string>{"Exporting and uploading edit.mp4"});
    ASSERT_FALSE(percents.empty());
    EXPECT_TRUE(std::is_sorted(percents.begin(), percents.end()));
    EXPECT_EQ(percents.back(), 100);
    EXPECT_TRUE(std::find(percents.begin(), percents.end(), 55) != percents.end());
    expectNoSecretPrinted();
}

TEST_F(OnlineCommandTest, MusicSearchAndDownloadFillTheCache) {
    std::string audio(50000, 'a');
    writeFileAtomically(folder_ / "served/beat.mp3", audio);
    server_.setCatalogue(Json::array({{{"id", "beat"},
                                       {"title", "Beat"},
                                       {"duration", 61000},
                                       {"url", "/files/beat.mp3"},
                                       {"tags", {"dark", "pulse"}}}}));
    EXPECT_TRUE(refuses({"music", "search", "pulse"}, "orvelle music register EMAIL"));

    EXPECT_EQ(runJson({"music", "register", "ada@example.com", "--json"})["registered"], true);
    const Json found = runJson({"music", "search", "--vibe", "darkSynth", "--json"});
    ASSERT_EQ(found["tracks"].size(), 1U);
    EXPECT_EQ(found["tracks"][0]["id"], "beat");
    EXPECT_EQ(found["tracks"][0]["cachedFile"], nullptr);

    const Json got = runJson({"music", "get", "beat", "--json"});
    EXPECT_EQ(got["cached"], false);
    EXPECT_EQ(got["sha256"], sha256Hex(audio));
    EXPECT_EQ(readFile(got["file"].get<std::string>()), audio);
    EXPECT_EQ(runJson({"music", "get", "beat", "--json"})["cached"], true);
    const Json cache = runJson({"music", "cache", "--json"});
    EXPECT_EQ(cache["entries"].size(), 1U);
    EXPECT_GT(cache["totalSizeBytes"].get<std::uint64_t>(), 50000U);
    EXPECT_EQ(runJson({"music", "cache", "--clear", "--json"})["entries"].size(), 0U);
    expectNoSecretPrinted();
}

} // namespace
} // namespace orvelle
