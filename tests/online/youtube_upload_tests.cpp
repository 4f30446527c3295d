#include "online/online_url.h"
#include "online/youtube_upload_client.h"
#include "platform/crypto/sha256.h"
#include "platform/http/http.h"
#include "support/online_test_server.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <fstream>
#include <random>

namespace orvelle {
namespace {

using testing::OnlineTestServer;
using testing::TemporaryDirectory;

constexpr std::uint64_t kChunk = YouTubeUploadClient::kChunkSize;

TEST(YouTubeUploadClient, MetadataAndProtocolDetails) {
    YouTubeUploadRequest request{.title = "Title", .description = "Intro\n\n0:00 Start"};
    const Json bare = YouTubeUploadClient::insertBody(request);
    EXPECT_EQ(bare, Json::parse(R"({
        "snippet": {"title": "Title", "description": "Intro\n\n0:00 Start"},
        "status": {"privacyStatus": "private", "license": "youtube",
                   "selfDeclaredMadeForKids": false, "containsSyntheticMedia": false},
        "paidProductPlacementDetails": {"hasPaidProductPlacement": false}})"));
    request.privacyStatus = YouTubeUploadPrivacyStatus::unlisted;
    request.tags = {"a", "b"};
    request.categoryID = "28";
    request.defaultLanguage = "en";
    request.license = YouTubeUploadLicense::creativeCommon;
    request.madeForKids = true;
    request.hasPaidProductPlacement = true;
    request.containsSyntheticMedia = true;
    const Json full = YouTubeUploadClient::insertBody(request);
    EXPECT_EQ(full["snippet"]["tags"], Json::array({"a", "b"}));
    EXPECT_EQ(full["snippet"]["categoryId"], "28");
    EXPECT_EQ(full["snippet"]["defaultLanguage"], "en");
    EXPECT_EQ(full["status"]["privacyStatus"], "unlisted");
    EXPECT_EQ(full["status"]["license"], "creativeCommon");
    EXPECT_EQ(full["status"]["selfDeclaredMadeForKids"], true);
    EXPECT_EQ(full["status"]["containsSyntheticMedia"], true);
    EXPECT_EQ(full["paidProductPlacementDetails"]["hasPaidProductPlacement"], true);
    request.privacyStatus = YouTubeUploadPrivacyStatus::publicVideo;
    EXPECT_EQ(YouTubeUploadClient::insertBody(request)["status"]["privacyStatus"], "public");

    EXPECT_EQ(YouTubeUploadClient::mimeType("/a/b.MP4"), "video/mp4");
    EXPECT_EQ(YouTubeUploadClient::mimeType("/a/b.mov"), "video/quicktime");
    EXPECT_EQ(YouTubeUploadClient::mimeType("/a/b.mkv"), "video/*");

    EXPECT_EQ(YouTubeUploadClient::nextOffset("bytes=0-4194303"), 4194304U);
    EXPECT_EQ(YouTubeUploadClient::nextOffset("bytes=0-0"), 1U);
    EXPECT_FALSE(YouTubeUploadClient::nextOffset(std::nullopt));
    EXPECT_FALSE(YouTubeUploadClient::nextOffset("bytes=0-"));
    EXPECT_FALSE(YouTubeUploadClient::nextOffset("garbage"));

    using std::chrono::milliseconds;
    EXPECT_EQ(YouTubeUploadClient::retryDelay(0, milliseconds(500)), milliseconds(500));
    EXPECT_EQ(YouTubeUploadClient::retryDelay(1, milliseconds(500)), milliseconds(1000));
    EXPECT_EQ(YouTubeUploadClient::retryDelay(2, milliseconds(500)), milliseconds(2000));
    EXPECT_EQ(YouTubeUploadClient::retryDelay(3, milliseconds(500)), milliseconds(4000));
    EXPECT_EQ(YouTubeUploadClient::retryDelay(70, milliseconds(500)), milliseconds(4000));

    EXPECT_EQ(YouTubeUploadClient::watchURL({"abc_-1"}), "https://www.youtube.com/watch?v=abc_-1");
    EXPECT_STREQ(YouTubeUploadError::httpFailure(503, std::nullopt, true).what(),
                 "YouTube upload failed with HTTP 503.");
}

class YouTubeUploadTest : public ::testing::Test {
protected:
    YouTubeUploadTest() {
        options_.endpointURL = server_.url("");
        options_.requestTimeout = std::chrono::seconds(10);
        options_.retryDelay = std::chrono::milliseconds(50);
    }

    // A token the stand-in accepts: one sign-in's worth, done by hand.
    std::string accessToken() {
        const auto authorize =
            appendingQueryItems(server_.url("/o/oauth2/auth"),
                                {{"redirect_uri", "http://127.0.0.1:9/"},
                                 {"client_id", "c"},
                                 {"code_challenge", "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"},
                                 {"code_challenge_method", "S256"},
                                 {"state", "s"}});
        HttpRequest consent{.url = authorize, .followRedirects = false};
        const auto redirect = sendHttpRequest(consent).header("Location");
        const auto code = URLComponents::parse(*redirect)->queryValue("code");
        HttpRequest token;
        token.method = "POST";
        token.url = server_.url("/token");
        token.body = formBody({{"grant_type", "authorization_code"},
                               {"code", *code},
                               {"redirect_uri", "http://127.0.0.1:9/"},
                               {"client_id", "c"},
                               {"code_verifier", "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"}});
        return Json::parse(sendHttpRequest(token).body)["access_token"];
    }

    std::filesystem::path movie(std::uint64_t size, const std::string& name = "movie.mp4") {
        const auto path = folder_ / name;
        std::mt19937 random(static_cast<unsigned>(size));
        std::string bytes(size, '\0');
        for (auto& byte : bytes) {
            byte = static_cast<char>(random());
        }
        std::ofstream(path, std::ios::binary)
            .write(bytes.data(), static_cast<std::streamsize>(size));
        return path;
    }

    YouTubeUploadRequest request(const std::filesystem::path& file) {
        YouTubeUploadRequest request{.fileURL = file,
                                     .title = "A finished edit",
                                     .description = "What it shows",
                                     .tags = {"orvelle"}};
        return request;
    }

    // The one session on the stand-in.
    Json session() {
        const Json sessions = server_.state()["sessions"];
        EXPECT_EQ(sessions.size(), 1U);
        return sessions.begin().value();
    }

    // The Content-Range headers of the chunk and status requests, in order.
    std::vector<std::string> ranges() {
        std::vector<std::string> result;
        const Json state = server_.state();
        for (const auto& entry : state["requests"]) {
            if (entry["method"] == "PUT") {
                result.push_back(entry["contentRange"].get<std::string>());
            }
        }
        return result;
    }

    TemporaryDirectory folder_;
    OnlineTestServer server_;
    YouTubeUploadClient::Options options_;
};

TEST_F(YouTubeUploadTest, SurvivesCutConnectionsAndServerErrorsWithTheFileIntact) {
    const std::uint64_t size = 2 * kChunk + 1234567;
    const auto file = movie(size);
    // Two connections cut at random bytes of the first two chunks, then a 503 on the
    // chunk after them.
    std::random_device device;
    const unsigned seed = device();
    std::mt19937 random(seed);
    SCOPED_TRACE("seed " + std::to_string(seed));
    const auto firstCut = std::uniform_int_distribution<std::uint64_t>(1, kChunk - 1)(random);
    const auto secondCut = std::uniform_int_distribution<std::uint64_t>(1, kChunk - 1)(random);
    server_.addFaults(
        Json::array({{{"type", "cut"}, {"start", 0}, {"at", firstCut}},
                     {{"type", "cut"}, {"start", firstCut}, {"at", secondCut}},
                     {{"type", "status"}, {"start", firstCut + secondCut}, {"code", 503}}}));
    std::vector<double> progress;
    const auto result = YouTubeUploadClient::upload(
        request(file), accessToken(), [&](double value) { progress.push_back(value); }, options_);
    const Json uploaded = session();
    EXPECT_EQ(result.videoID, uploaded["videoID"]);
    EXPECT_EQ(uploaded["received"], size);
    EXPECT_EQ(uploaded["sha256"], sha256HexOfFile(file));
    EXPECT_EQ(uploaded["mime"], "video/mp4");
    EXPECT_EQ(uploaded["contentType"], "application/json; charset=UTF-8");
    EXPECT_EQ(uploaded["metadata"]["snippet"]["title"], "A finished edit");
    EXPECT_EQ(uploaded["query"]["part"], "snippet,status,paidProductPlacementDetails");
    ASSERT_FALSE(progress.empty());
    EXPECT_DOUBLE_EQ(progress.back(), 1.0);

    // Each failure was followed by a status question, and the upload went on from the
    // byte the server had.
    const auto seen = ranges();
    const std::string total = "/" + std::to_string(size);
    ASSERT_GE(seen.size(), 7U);
    EXPECT_EQ(seen[0], "bytes 0-" + std::to_string(kChunk - 1) + total);
    EXPECT_EQ(seen[1], "bytes *" + total);
    EXPECT_EQ(seen[2], "bytes " + std::to_string(firstCut) + "-" +
                           std::to_string(firstCut + kChunk - 1) + total);
    EXPECT_EQ(seen[3], "bytes *" + total);
    EXPECT_TRUE(seen[4].starts_with("bytes " + std::to_string(firstCut + secondCut) + "-"));
    EXPECT_TRUE(server_.state()["faultsLeft"].empty());
}

TEST_F(YouTubeUploadTest, WaitsAsLongAsRetryAfterAsksAndRestartsWhenTheServerHasNothing) {
    const auto file = movie(kChunk + 1000);
    server_.addFaults(
        Json::array({{{"type", "status"}, {"start", 0}, {"code", 500}, {"retryAfter", 1}},
                     {{"type", "status"}, {"start", 0}, {"code", 429}},
                     {{"type", "recoveryNoRange"}}}));
    const auto started = std::chrono::steady_clock::now();
    const auto result = YouTubeUploadClient::upload(request(file), accessToken(), {}, options_);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    EXPECT_FALSE(result.videoID.empty());
    EXPECT_GE(seconds, 1.0); // Retry-After: 1 outweighs the 50 ms back-off
    EXPECT_EQ(session()["sha256"], sha256HexOfFile(file));
    const auto seen = ranges();
    // 500, question, chunk again (429), question without Range: from byte 0 again.
    ASSERT_GE(seen.size(), 5U);
    EXPECT_TRUE(seen[4].starts_with("bytes 0-"));
}

TEST_F(YouTubeUploadTest, ATimedOutChunkIsAskedAboutAndSentAgain) {
    const auto file = movie(300000);
    options_.requestTimeout = std::chrono::milliseconds(1500);
    server_.addFaults(Json::array({{{"type", "stall"}, {"start", 0}, {"seconds", 4}}}));
    const auto result = YouTubeUploadClient::upload(request(file), accessToken(), {}, options_);
    EXPECT_FALSE(result.videoID.empty());
    EXPECT_EQ(session()["sha256"], sha256HexOfFile(file));
}

TEST_F(YouTubeUploadTest, GivesUpAfterFourTriesAndNeverRetriesA401) {
    const auto file = movie(5000);
    Json faults = Json::array();
    for (int i = 0; i < 4; ++i) {
        faults.push_back({{"type", "status"}, {"start", 0}, {"code", 503}});
    }
    server_.addFaults(faults);
    if (const auto error = testing::thrown<YouTubeUploadError>(
            [&] { YouTubeUploadClient::upload(request(file), accessToken(), {}, options_); })) {
        EXPECT_STREQ(error->what(), "YouTube upload failed with HTTP 503: Backend Error");
        EXPECT_TRUE(error->retryable());
    }
    EXPECT_EQ(ranges().size(), 7U); // four tries, three questions between them

    server_.addFaults(Json::array({{{"type", "status"},
                                    {"start", 0},
                                    {"code", 401},
                                    {"reason", "authError"},
                                    {"message", "Invalid Credentials"}}}));
    // The token is read once per upload and not refreshed when it is refused, nor is the
    // chunk asked about or sent again.
    if (const auto error = testing::thrown<YouTubeUploadError>(
            [&] { YouTubeUploadClient::upload(request(file), accessToken(), {}, options_); })) {
        EXPECT_EQ(error->statusCode(), 401);
        EXPECT_FALSE(error->retryable());
        EXPECT_STREQ(error->what(), "YouTube upload failed with HTTP 401: Invalid Credentials");
    }
    EXPECT_EQ(ranges().size(), 8U);
    EXPECT_EQ(ranges().back(), "bytes 0-4999/5000");
    EXPECT_EQ(server_.state()["tokenRequests"],
              Json::array({"authorization_code", "authorization_code"}));
}

TEST_F(YouTubeUploadTest, EdgesOfTheProtocol) {
    const std::string token = accessToken();
    {
        SCOPED_TRACE("a file of exactly one chunk goes up in one request");
        const auto file = movie(kChunk, "exact.mov");
        EXPECT_FALSE(
            YouTubeUploadClient::upload(request(file), token, {}, options_).videoID.empty());
        EXPECT_EQ(ranges(), std::vector<std::string>{"bytes 0-8388607/8388608"});
        EXPECT_EQ(session()["mime"], "video/quicktime");
    }
    const auto expectError = [&](const std::filesystem::path& file, const char* message) {
        EXPECT_EQ(testing::messageOf<std::exception>(
                      [&] { YouTubeUploadClient::upload(request(file), token, {}, options_); }),
                  message);
    };
    expectError(movie(0, "empty.mp4"), "The video file is empty.");
    expectError(folder_ / "missing.mp4", "The video file is empty.");
    server_.addFaults(Json::array({{{"type", "noLocation"}}}));
    expectError(movie(10, "a.mp4"), "YouTube did not return an upload location.");
    server_.addFaults(
        Json::array({{{"type", "sessionStatus"}, {"code", 403}, {"reason", "quotaExceeded"}}}));
    expectError(movie(10, "b.mp4"),
                "YouTube upload failed with HTTP 403: YouTube upload quota has been exceeded.");
    // A 200 before the last byte still ends with its video.
    server_.addFaults(Json::array({{{"type", "finishEarly"}}}));
    EXPECT_FALSE(
        YouTubeUploadClient::upload(request(movie(kChunk + 10, "c.mp4")), token, {}, options_)
            .videoID.empty());

    options_.endpointURL = "http://uploads.example";
    EXPECT_THROW(YouTubeUploadClient::upload(request(movie(10, "d.mp4")), token, {}, options_),
                 OnlineConfigurationError);
}

TEST_F(YouTubeUploadTest, StopsPromptlyWhenCancelled) {
    const auto file = movie(3 * kChunk);
    server_.addFaults(Json::array({{{"type", "stall"}, {"start", 0}, {"seconds", 20}}}));
    std::stop_source stop;
    std::thread canceller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        stop.request_stop();
    });
    const auto started = std::chrono::steady_clock::now();
    EXPECT_THROW(
        YouTubeUploadClient::upload(request(file), accessToken(), {}, options_, stop.get_token()),
        CancellationError);
    canceller.join();
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10));
}

} // namespace
} // namespace orvelle
