// The export page's YouTube metadata in the test process on Qt's offscreen platform: a take
// that speaks, its transcript, and a stand-in language model helper that answers as a
// model would (the real helper and model are exercised in the local AI tests); what the
// draft and its revision leave in the project and on the page.

#include "app/app_test_support.h"
#include "app/application.h"
#include "app/editor_window.h"
#include "app/export_panel.h"
#include "app/timeline_view.h"
#include "core/json.h"
#include "local_ai/local_models.h"
#include "support/online_test_server.h"
#include "support/process_groups.h"
#include "support/spoken_take.h"
#include "support/temporary_directory.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QPushButton>
#include <QThread>

namespace orvelle {
namespace {

namespace fs = std::filesystem;

TEST(PublishPanelTest, DraftsMetadataFromTheTranscriptAndRevisesItKeepingTheExchange) {
    const testing::TemporaryDirectory folder;
    // 36 s of take: three sentences 12 s apart, so that chapters fit.
    const testing::SpokenTake spoken = testing::writeSpokenTake(
        folder / "take",
        testing::passageWords("Welcome to the editor /11/ First we record a take /11/ Then we "
                              "export the movie /3/ done"),
        true, {.width = 320, .height = 180});

    // The language model is installed (a file with the format's header) and the helper
    // answers with a draft: a shorter title when the prompt asks for one.
    std::string model = "GGUF";
    model.resize(4096, '\0');
    testing::writeTextFile(folder / "tiny.gguf", model);
    LocalModelInstaller::install(LocalModelCatalog::find("language"),
                                 (folder / "tiny.gguf").string());
    const fs::path helper = folder / "helper";
    testing::writeExecutableScript(
        helper, "#!/bin/bash\n"
                "prompt=''; previous=''\n"
                "for argument in \"$@\"; do\n"
                "  [ \"$previous\" = -f ] && prompt=$argument\n"
                "  previous=$argument\n"
                "done\n"
                "title='A tour of the editor, from take to movie'\n"
                "grep -q 'shorter title' \"$prompt\" && title='Editor tour'\n"
                "cat <<EOF\n"
                "{\"title\": \"$title\", \"description\": \"How a take becomes a movie.\",\n"
                " \"chapters\": [{\"time\": \"0:00\", \"title\": \"Welcome\"},\n"
                "   {\"time\": \"0:12\", \"title\": \"Recording\"},\n"
                "   {\"time\": \"0:24\", \"title\": \"Exporting\"}],\n"
                " \"tags\": [\"editor\", \"tutorial\"]}\n"
                "EOF\n");

    ApplicationOptions app = testing::applicationOptionsIn(folder.path());
    app.languageModelHelper = helper;
    app.trayIcon = false;
    Application shell(app);
    shell.openDocument(spoken.take.manifestURL);
    ASSERT_TRUE(testing::processEventsUntil([&] { return !shell.editorWindows().empty(); }, 60000));
    EditorWindow& window = *shell.editorWindows().front();
    ExportPanel& panel = window.exportPanel();
    EditorStore& store = window.store();

    panel.requestDraft();
    ASSERT_TRUE(panel.isDrafting());
    ASSERT_TRUE(testing::processEventsUntil([&] { return !panel.isDrafting(); }, 60000));
    ASSERT_TRUE(store.project().exportSettings) << panel.draftStatusText().toStdString();
    ProjectExportSettings settings = *store.project().exportSettings;
    EXPECT_EQ(settings.youtubeTitle, "A tour of the editor, from take to movie")
        << panel.draftStatusText().toStdString();
    EXPECT_EQ(settings.tags, "editor, tutorial");
    ASSERT_EQ(settings.youtubeChapters.size(), 3u);
    EXPECT_DOUBLE_EQ(settings.youtubeChapters[1].time, 12);
    EXPECT_EQ(panel.chapterLines(),
              (QStringList{QStringLiteral("0:00  Welcome"), QStringLiteral("0:12  Recording"),
                           QStringLiteral("0:24  Exporting")}));

    // A revision sends the request with the draft and keeps the exchange.
    panel.requestDraft("make it a shorter title");
    ASSERT_TRUE(testing::processEventsUntil([&] { return !panel.isDrafting(); }, 60000));
    settings = *store.project().exportSettings;
    EXPECT_EQ(settings.youtubeTitle, "Editor tour") << panel.draftStatusText().toStdString();
    ASSERT_EQ(settings.metadataConversation.size(), 2u);
    EXPECT_EQ(settings.metadataConversation[0].text, "make it a shorter title");

    // The draft is the project's: the timeline shows its chapters.
    EXPECT_EQ(store.project().exportSettings->youtubeChapters.size(), 3u);

    // The upload takes the project's choices, with the chapters in the description as
    // YouTube reads them.
    ProjectExportSettings choices = *store.project().exportSettings;
    choices.privacy = "unlisted";
    choices.category = "scienceAndTechnology";
    choices.language = "spanish";
    choices.license = "creativeCommons";
    const YouTubeUploadRequest upload = ExportPanel::uploadRequest(choices, folder / "movie.mp4");
    EXPECT_EQ(upload.title, "Editor tour");
    EXPECT_EQ(upload.privacyStatus, YouTubeUploadPrivacyStatus::unlisted);
    EXPECT_EQ(upload.categoryID, std::optional<std::string>("28"));
    EXPECT_EQ(upload.defaultLanguage, std::optional<std::string>("es"));
    EXPECT_EQ(upload.license, YouTubeUploadLicense::creativeCommon);
    EXPECT_EQ(upload.tags, (std::vector<std::string>{"editor", "tutorial"}));
    EXPECT_NE(upload.description.find("0:12 Recording"), std::string::npos) << upload.description;
    window.closeWithoutPrompt();
}

// The account as a user connects it: Connect opens the consent page in the browser (curl,
// through xdg-open), the redirect reaches the program's listener, and the page says who is
// connected; Export and Upload then sends the rendered movie to the stand-in YouTube.
TEST(PublishPanelTest, ConnectsTheAccountInTheBrowserUploadsTheExportAndDisconnects) {
    const testing::TemporaryDirectory folder;
    testing::OnlineTestServer server(folder.path());
    for (const auto& [name, value] : server.programEnvironment(std::getenv("XDG_DATA_HOME"))) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    const testing::TinyTake take =
        testing::writeTinyTake(folder / "take", {.width = 320, .height = 180, .seconds = 2});

    ApplicationOptions app = testing::applicationOptionsIn(folder.path());
    app.trayIcon = false;
    Application shell(app);
    shell.openDocument(take.manifestURL);
    ASSERT_TRUE(testing::processEventsUntil([&] { return !shell.editorWindows().empty(); }, 60000));
    EditorWindow& window = *shell.editorWindows().front();
    ExportPanel& panel = window.exportPanel();
    EXPECT_EQ(panel.accountText(), QStringLiteral("No Google account connected"));

    // Not connected: the upload does not begin, and says what to do.
    window.store().edit("Upload", [&](EditorProjectState& p, EditorSelectionState&) {
        ProjectExportSettings settings{
            .uploadToYouTube = true, .saveLocalCopy = false, .youtubeTitle = "Tiny upload"};
        p.exportSettings = settings;
    });
    EXPECT_FALSE(panel.startExport());
    EXPECT_EQ(panel.resultText(),
              QStringLiteral("Connect a Google account before uploading to YouTube."));

    panel.connectButton().click();
    ASSERT_TRUE(testing::processEventsUntil(
        [&] { return panel.accountText().startsWith(QStringLiteral("Connected")); }, 30000))
        << panel.accountText().toStdString();
    EXPECT_EQ(panel.accountText(), QStringLiteral("Connected as Ada Example"));

    // One bar for render and upload; the movie on the server is the one rendered.
    ASSERT_TRUE(testing::processEventsUntil(
        [&] { return window.playback().hasCompositionSource().value(); }, 60000));
    ASSERT_TRUE(panel.startExport());
    ASSERT_TRUE(testing::processEventsUntil(
        [&] { return !window.exporter().isExporting().value(); }, 180000));
    const auto watch = window.exporter().youTubeURL().value();
    ASSERT_TRUE(watch) << panel.resultText().toStdString();
    const Json state = server.state();
    ASSERT_EQ(state["sessions"].size(), 1u);
    const Json session = state["sessions"].begin().value();
    EXPECT_TRUE(session["complete"].get<bool>());
    EXPECT_EQ(*watch, "https://www.youtube.com/watch?v=" + session["videoID"].get<std::string>());
    EXPECT_EQ(session["metadata"]["snippet"]["title"], "Tiny upload");
    EXPECT_GT(session["received"].get<std::uint64_t>(), 1000u);
    EXPECT_DOUBLE_EQ(window.exporter().progress().value(), 1.0);
    // No copy was asked for here: the rendered movie is the controller's own file.
    EXPECT_TRUE(window.exporter().renderedFileIsTemporary().value());

    // Disconnect forgets the account (its answer comes through the main thread).
    panel.connectButton().click();
    EXPECT_TRUE(testing::processEventsUntil(
        [&] { return panel.accountText() == QStringLiteral("No Google account connected"); }, 5000))
        << panel.accountText().toStdString();
    window.closeWithoutPrompt();
}

} // namespace
} // namespace orvelle
