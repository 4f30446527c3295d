#include "core/date.h"
#include "core/files.h"
#include "core/json.h"
#include "online/google_oauth_controller.h"
#include "platform/crypto/sha256.h"
#include "platform/media/media_probe.h"
#include "platform/secrets/secret_store.h"
#include "project/editor_document.h"
#include "publish/export_controller.h"
#include "support/online_test_server.h"
#include "support/temporary_directory.h"
#include "support/tiny_take.h"
#include "timeline/timeline_state.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

using namespace std::chrono_literals;
using testing::OnlineTestServer;
using testing::TemporaryDirectory;
namespace fs = std::filesystem;

// The edit of a tiny take, as the window hands it to the controller.
ExportSnapshot snapshotOf(const testing::TinyTake& take) {
    const EditorDocument document = EditorDocument::load(take.screenURL);
    ExportSnapshot snapshot{.sourceURL = take.screenURL, .project = document.project};
    // A take never edited has the one clip the editor gives it.
    snapshot.project.timeline =
        seededTimeline(snapshot.project.timeline, takeSourceDuration(snapshot.project.manifest));
    snapshot.sourceSize = MediaAssetMetadata::naturalVideoSize(take.screenURL);
    snapshot.timelineClips = snapshot.project.timeline.clips;
    return snapshot;
}

class ExportControllerTest : public ::testing::Test {
protected:
    ExportControllerTest() {
        testing::TinyTakeOptions options;
        options.seconds = 3;
        take_ = testing::writeTinyTake(folder_ / "take", options);
        snapshot_ = snapshotOf(take_);
        server_.writeClientFile(folder_ / "client.json");
        GoogleOAuthController::Configuration account;
        account.clientConfigFile = folder_ / "client.json";
        store_ = openFileSecretStore(folder_ / "secrets");
        account_ = std::make_unique<GoogleOAuthController>(mainThread_, store_, account);
        configuration_.googleAccount = account_.get();
        configuration_.upload.endpointURL = server_.url("");
        configuration_.upload.retryDelay = 50ms;
        configuration_.youtubeWatchURL = server_.url("/watch");
        configuration_.statusClearDelay = 400ms;
    }

    // A signed-in account: the browser's part played by the test server's consent page.
    void signIn() {
        GoogleOAuthController::Configuration account;
        account.clientConfigFile = folder_ / "client.json";
        account.openBrowser = [](const std::string& url) { OnlineTestServer::browse(url); };
        account_ = std::make_unique<GoogleOAuthController>(mainThread_, store_, account);
        account_->connect();
        ASSERT_TRUE(mainThread_.runUntil([&] { return !account_->isConnectionRunning(); }, 20s));
        mainThread_.runFor(0ms);
        ASSERT_TRUE(account_->account().value().has_value());
        configuration_.googleAccount = account_.get();
    }

    std::unique_ptr<ExportController> makeController() {
        return std::make_unique<ExportController>(
            mainThread_, [this] { return std::optional<ExportSnapshot>(snapshot_); },
            configuration_);
    }

    bool waitUntilDone(ExportController& controller, std::chrono::milliseconds timeout = 120s) {
        return mainThread_.runUntil([&] { return !controller.isExporting().value(); }, timeout);
    }

    static YouTubeUploadRequest uploadRequest() {
        YouTubeUploadRequest request{.title = "The tiny take", .description = "0:00 Start"};
        return request;
    }

    TemporaryDirectory folder_;
    testing::TinyTake take_;
    ExportSnapshot snapshot_;
    OnlineTestServer server_;
    RunLoop mainThread_;
    std::shared_ptr<SecretStore> store_;
    std::unique_ptr<GoogleOAuthController> account_;
    ExportController::Configuration configuration_;
};

TEST_F(ExportControllerTest, RendersThenUploadsWithOneProgressBar) {
    signIn();
    auto controller = makeController();
    std::vector<double> bar;
    std::vector<std::string> texts;
    const auto progress =
        controller->progress().observe([&](double value) { bar.push_back(value); });
    const auto status = controller->statusText().observe([&](const auto& text) {
        if (text) {
            texts.push_back(*text);
        }
    });
    const fs::path output = folder_ / "render.mp4";
    ASSERT_TRUE(controller->start(output, 320, 180, RenderExportFileType::mp4,
                                  RenderExportQuality::standard, true, uploadRequest()));
    EXPECT_TRUE(controller->isExporting().value());
    // The user edits while it renders: the result says it is of an earlier edit.
    controller->noteEditChanged();
    ASSERT_TRUE(waitUntilDone(*controller));

    EXPECT_EQ(texts, (std::vector<std::string>{"Authorizing YouTube", "Uploading to YouTube",
                                               "Uploaded previous edit"}));
    ASSERT_TRUE(controller->youTubeURL().value().has_value());
    const Json sessions = server_.state()["sessions"];
    ASSERT_EQ(sessions.size(), 1U);
    const Json session = sessions.begin().value();
    EXPECT_EQ(*controller->youTubeURL().value(),
              server_.url("/watch") + "?v=" + session["videoID"].get<std::string>());
    EXPECT_EQ(session["sha256"], sha256HexOfFile(output)); // the render, byte for byte
    EXPECT_EQ(session["metadata"]["snippet"]["title"], "The tiny take");

    // One bar: never backwards, the render filling up to 0.55 and the upload the rest.
    ASSERT_FALSE(bar.empty());
    EXPECT_TRUE(std::is_sorted(bar.begin(), bar.end()));
    EXPECT_DOUBLE_EQ(bar.back(), 1.0);
    EXPECT_TRUE(std::find(bar.begin(), bar.end(), 0.55) != bar.end());
    EXPECT_TRUE(std::any_of(bar.begin(), bar.end(), [](double v) { return v > 0.1 && v < 0.55; }));

    // The temporary render is the controller's until the user keeps a copy.
    EXPECT_TRUE(controller->renderedFileIsTemporary().value());
    EXPECT_EQ(controller->renderedURL().value(), output);
    const fs::path saved = folder_ / "saved" / "kept.mp4";
    fs::create_directories(saved.parent_path());
    writeFileAtomically(saved, "an older file, replaced");
    controller->saveTemporaryCopy(saved);
    ASSERT_TRUE(mainThread_.runUntil(
        [&] { return controller->renderedURL().value() == std::optional<fs::path>(saved); }, 10s));
    EXPECT_EQ(controller->statusText().value(), "Saved kept.mp4");
    EXPECT_FALSE(controller->renderedFileIsTemporary().value());
    EXPECT_FALSE(fs::exists(output));
    EXPECT_EQ(session["sha256"], sha256HexOfFile(saved));
    // A new document forgets the result but leaves the user's copy.
    controller->resetForDocumentLoad();
    EXPECT_FALSE(controller->youTubeURL().value().has_value());
    EXPECT_TRUE(fs::exists(saved));
}

TEST_F(ExportControllerTest, RenderOnlyThenStatusClearsUnlessReplaced) {
    auto controller = makeController();
    const fs::path output = folder_ / "plain.mp4";
    ASSERT_TRUE(controller->start(output, 320, 180, RenderExportFileType::mp4,
                                  RenderExportQuality::standard, false));
    ASSERT_TRUE(waitUntilDone(*controller));
    EXPECT_EQ(controller->statusText().value(), "Saved plain.mp4");
    EXPECT_EQ(controller->renderedURL().value(), output);
    EXPECT_FALSE(controller->renderedFileIsTemporary().value());
    EXPECT_DOUBLE_EQ(controller->progress().value(), 1.0);
    const MediaProbe probe = probeMediaFile(output);
    ASSERT_NE(probe.firstVideo(), nullptr);
    EXPECT_EQ(probe.firstVideo()->codedWidth, 320);

    // The status clears after its delay.
    EXPECT_TRUE(mainThread_.runUntil([&] { return !controller->statusText().value(); }, 3s));
    EXPECT_EQ(controller->renderedURL().value(), output); // the result stays

    // An earlier timer never clears the status of a later run.
    configuration_.statusClearDelay = 1500ms;
    controller = makeController();
    ASSERT_TRUE(controller->start(folder_ / "first.mp4", 320, 180, RenderExportFileType::mp4,
                                  RenderExportQuality::standard, false));
    ASSERT_TRUE(waitUntilDone(*controller));
    const auto firstEnded = std::chrono::steady_clock::now();
    ASSERT_TRUE(controller->start(folder_ / "second.mp4", 320, 180, RenderExportFileType::mp4,
                                  RenderExportQuality::standard, false));
    ASSERT_TRUE(waitUntilDone(*controller));
    mainThread_.runUntil([&] { return std::chrono::steady_clock::now() - firstEnded > 1600ms; },
                         3s);
    EXPECT_EQ(controller->statusText().value(), "Saved second.mp4");
    EXPECT_TRUE(mainThread_.runUntil([&] { return !controller->statusText().value(); }, 5s));
}

TEST_F(ExportControllerTest, CancellingTheUploadDeletesTheTemporaryRender) {
    signIn();
    // The upload's chunk hangs until it is cancelled.
    server_.addFaults(Json::array({{{"type", "stall"}, {"start", 0}, {"seconds", 20}}}));
    auto controller = makeController();
    const fs::path output = folder_ / "cancelled.mp4";
    ASSERT_TRUE(controller->start(output, 320, 180, RenderExportFileType::mp4,
                                  RenderExportQuality::standard, true, uploadRequest()));
    // Cancelled while its first chunk is on the way.
    const auto chunkSent = [&] {
        const Json state = server_.state();
        return std::any_of(state["requests"].begin(), state["requests"].end(),
                           [](const Json& request) { return request["method"] == "PUT"; });
    };
    ASSERT_TRUE(mainThread_.runUntil(
        [&] {
            return controller->statusText().value() ==
                       std::optional<std::string>("Uploading to YouTube") &&
                   chunkSent();
        },
        120s));
    EXPECT_TRUE(fs::exists(output));
    controller->cancel();
    EXPECT_FALSE(controller->isExporting().value());
    EXPECT_EQ(controller->statusText().value(), "Canceled");
    EXPECT_DOUBLE_EQ(controller->progress().value(), 0.0);
    EXPECT_FALSE(fs::exists(output));
    EXPECT_FALSE(controller->renderedURL().value().has_value());
    // The stopped run says nothing more; "Canceled" stands until its timer clears it.
    mainThread_.runFor(200ms);
    EXPECT_EQ(controller->statusText().value(), "Canceled");
    EXPECT_TRUE(mainThread_.runUntil([&] { return !controller->statusText().value(); }, 3s));
    EXPECT_TRUE(server_.state()["sessions"].begin().value()["videoID"].is_null());
}

TEST_F(ExportControllerTest, FailuresShowTheirWordsAndLeaveNoTemporaryFile) {
    auto controller = makeController();
    {
        SCOPED_TRACE("no account connected");
        const fs::path output = folder_ / "unsigned.mp4";
        ASSERT_TRUE(controller->start(output, 320, 180, RenderExportFileType::mp4,
                                      RenderExportQuality::standard, true, uploadRequest()));
        ASSERT_TRUE(waitUntilDone(*controller));
        EXPECT_EQ(controller->statusText().value(),
                  "Connect a Google account before uploading to YouTube.");
        EXPECT_FALSE(fs::exists(output));
        EXPECT_FALSE(controller->renderedURL().value().has_value());
    }
    {
        SCOPED_TRACE("the upload refused");
        signIn();
        controller = makeController();
        server_.addFaults(
            Json::array({{{"type", "sessionStatus"}, {"code", 403}, {"reason", "quotaExceeded"}}}));
        const fs::path output = folder_ / "refused.mp4";
        ASSERT_TRUE(controller->start(output, 320, 180, RenderExportFileType::mp4,
                                      RenderExportQuality::standard, true, uploadRequest()));
        ASSERT_TRUE(waitUntilDone(*controller));
        EXPECT_EQ(controller->statusText().value(),
                  "YouTube upload failed with HTTP 403: YouTube upload quota has been exceeded.");
        EXPECT_FALSE(fs::exists(output));
    }
    {
        SCOPED_TRACE("a render that cannot be written");
        ASSERT_TRUE(controller->start(snapshot_.sourceURL, 320, 180, RenderExportFileType::mp4,
                                      RenderExportQuality::standard, false));
        ASSERT_TRUE(waitUntilDone(*controller));
        ASSERT_TRUE(controller->statusText().value().has_value());
        EXPECT_FALSE(controller->statusText().value()->empty());
        EXPECT_TRUE(fs::exists(snapshot_.sourceURL)); // the take's own movie is untouched
    }
    {
        SCOPED_TRACE("no edit to export");
        ExportController empty(
            mainThread_, [] { return std::optional<ExportSnapshot>(); }, configuration_);
        EXPECT_FALSE(empty.start(folder_ / "none.mp4", 320, 180, RenderExportFileType::mp4,
                                 RenderExportQuality::standard, false));
        EXPECT_FALSE(empty.isExporting().value());
    }
}

} // namespace
} // namespace orvelle
