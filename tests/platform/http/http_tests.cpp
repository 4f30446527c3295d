// The HTTP client against a real server on 127.0.0.1 (support/http_test_server.py): methods,
// headers and bodies, a body streamed from a file range, downloads that resume, statuses,
// time-outs, cancellation and progress.

#include "core/cancellation.h"
#include "core/files.h"
#include "core/json.h"
#include "platform/http/http.h"
#include "support/http_test_server.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace orvelle {
namespace {

using namespace std::chrono_literals;
using testing::HttpTestServer;
using testing::TemporaryDirectory;

std::string blob(size_t size, size_t from = 0) {
    std::string bytes;
    for (size_t i = from; i < size; ++i) {
        bytes.push_back(static_cast<char>((i * 31 + 7) % 251));
    }
    return bytes;
}

class HttpTest : public ::testing::Test {
protected:
    TemporaryDirectory folder;
    HttpTestServer server{folder.path()};
};

TEST_F(HttpTest, RequestsCarryTheirMethodHeadersAndBody) {
    testing::writeTextFile(folder / "upload.bin", "0123456789abcdefghij");
    struct Case {
        std::string name;
        HttpRequest request;
        std::string method;
        size_t bodySize;
    };
    HttpRequest get{.url = server.url("/echo?x=1"), .headers = {{"X-Token", "secret value"}}};
    HttpRequest post{.method = "POST", .url = server.url("/echo"), .body = R"({"a": 1})"};
    HttpRequest put{.method = "PUT",
                    .url = server.url("/echo"),
                    .bodyFile = HttpFileRange{folder / "upload.bin", 5, 8}};
    HttpRequest postFile{.method = "POST",
                         .url = server.url("/echo"),
                         .bodyFile = HttpFileRange{folder / "upload.bin", 10, std::nullopt}};
    HttpRequest remove{.method = "DELETE", .url = server.url("/echo")};
    const std::vector<Case> cases{{"get", get, "GET", 0},
                                  {"post", post, "POST", 8},
                                  {"put a file range", put, "PUT", 8},
                                  {"post the rest of a file", postFile, "POST", 10},
                                  {"delete", remove, "DELETE", 0}};
    for (const auto& each : cases) {
        const auto response = sendHttpRequest(each.request);
        ASSERT_EQ(response.status, 200) << each.name;
        EXPECT_EQ(response.header("content-type"), "application/json") << each.name;
        const Json echo = parseJson(response.body);
        EXPECT_EQ(echo["method"], each.method) << each.name;
        EXPECT_EQ(echo["bodySize"], each.bodySize) << each.name;
    }
    const Json echo = parseJson(sendHttpRequest(get).body);
    EXPECT_EQ(echo["path"], "/echo?x=1");
    EXPECT_EQ(echo["headers"]["x-token"], "secret value");
    // The file range is exactly what was sent.
    EXPECT_EQ(parseJson(sendHttpRequest(put).body)["bodySHA256"],
              "02ec1f7171dbeef5b3c32c824f24cd1b2b17fa2f0a04785000144e98e2aa8bd1");
}

TEST_F(HttpTest, StatusesAreAnswersAndRedirectsAreFollowed) {
    for (const int status : {201, 404, 500}) {
        const auto response =
            sendHttpRequest({.url = server.url("/status/" + std::to_string(status))});
        EXPECT_EQ(response.status, status);
        EXPECT_EQ(response.body, "status " + std::to_string(status));
    }
    const auto redirected = sendHttpRequest({.url = server.url("/redirect/echo")});
    EXPECT_EQ(redirected.status, 200);
    EXPECT_EQ(redirected.url, server.url("/echo"));
    const auto kept =
        sendHttpRequest({.url = server.url("/redirect/echo"), .followRedirects = false});
    EXPECT_EQ(kept.status, 302);
    EXPECT_EQ(kept.header("Location"), "/echo");
}

TEST_F(HttpTest, DownloadsResumeWhereAPartialFileEnds) {
    const auto target = folder / "downloads/blob.bin";
    const size_t size = 3'000'000;
    // The connection breaks after 1 MB: what arrived stays for the next try.
    if (const auto error = testing::thrown<HttpError>(
            [&] { downloadHttpFile({.url = server.url("/blob/3000000?drop=1000000")}, target); })) {
        EXPECT_EQ(error->code(), HttpErrorCode::transferFailed);
    }
    ASSERT_EQ(std::filesystem::file_size(target), 1'000'000u);

    std::vector<HttpProgress> progress;
    const auto resumed =
        downloadHttpFile({.url = server.url("/blob/3000000")}, target, true,
                         [&](const HttpProgress& step) { progress.push_back(step); });
    EXPECT_EQ(resumed.status, 206);
    EXPECT_EQ(resumed.resumedFrom, 1'000'000u);
    EXPECT_EQ(resumed.size, size);
    EXPECT_EQ(readFile(target), blob(size));
    ASSERT_FALSE(progress.empty());
    EXPECT_EQ(progress.back().received, size);
    EXPECT_EQ(progress.back().receiveTotal, size);
    for (size_t i = 1; i < progress.size(); ++i) {
        EXPECT_GE(progress[i].received, progress[i - 1].received);
        EXPECT_GE(progress[i].received, 1'000'000u);
    }

    // Whole already: the server has nothing after its end (416), so it comes again whole.
    const auto again = downloadHttpFile({.url = server.url("/blob/3000000")}, target);
    EXPECT_EQ(again.size, size);
    EXPECT_EQ(readFile(target), blob(size));
    // Without resume, and over a longer file, the file is replaced.
    testing::writeTextFile(target, "old and different");
    const auto fresh = downloadHttpFile({.url = server.url("/blob/1000")}, target, false);
    EXPECT_EQ(fresh.resumedFrom, 0u);
    EXPECT_EQ(readFile(target), blob(1000));
}

TEST_F(HttpTest, AFailedDownloadLeavesTheFileAndSaysWhy) {
    const auto target = folder / "kept.bin";
    testing::writeTextFile(target, "partial");
    if (const auto error = testing::thrown<HttpError>(
            [&] { downloadHttpFile({.url = server.url("/status/403")}, target); })) {
        EXPECT_EQ(error->code(), HttpErrorCode::unexpectedStatus);
        EXPECT_EQ(error->status(), 403);
        EXPECT_NE(std::string(error->what()).find("answered 403"), std::string::npos);
    }
    EXPECT_EQ(readFile(target), "partial");
}

TEST_F(HttpTest, TimeOutsCancellationAndUnreachableServers) {
    const auto start = std::chrono::steady_clock::now();
    if (const auto error = testing::thrown<HttpError>(
            [&] { sendHttpRequest({.url = server.url("/blob/10?stall=20"), .timeout = 500ms}); })) {
        EXPECT_EQ(error->code(), HttpErrorCode::timedOut);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);

    std::stop_source stop;
    std::thread canceller([&] {
        std::this_thread::sleep_for(300ms);
        stop.request_stop();
    });
    EXPECT_THROW(sendHttpRequest({.url = server.url("/blob/10?stall=20")}, {}, stop.get_token()),
                 CancellationError);
    canceller.join();

    // A port nobody listens on: the server's port once it has gone.
    int closedPort = 0;
    {
        HttpTestServer gone;
        closedPort = gone.port();
    }
    if (const auto error = testing::thrown<HttpError>([&] {
            sendHttpRequest({.url = "http://127.0.0.1:" + std::to_string(closedPort) + "/echo"});
        })) {
        EXPECT_EQ(error->code(), HttpErrorCode::couldNotConnect);
    }
    if (const auto error =
            testing::thrown<HttpError>([&] { sendHttpRequest({.url = "nope://what"}); })) {
        EXPECT_EQ(error->code(), HttpErrorCode::invalidRequest);
    }
}

} // namespace
} // namespace orvelle
